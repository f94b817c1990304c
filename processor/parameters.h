// The parameters of the module as masters know them: numbers and texts, each one column of one row
// behind an accessor. They are plain data, so that the tables of the answers and of the
// sub-commands can be written with them.
#pragma once

#include <cstdint>

#include "params/ConfiguracionGen.h"
#include "params/EntradaAV.h"
#include "params/IPOut.h"
#include "params/RFOut.h"
#include "params/Red.h"
#include "params/ServiciosSalida.h"
#include "params/service_state.h"

struct Number {
    // Whose accessors it has.
    enum class Of : std::uint8_t { general, input, rf_output, service, stream, network, ip_output };

    Of of;
    std::uint8_t selector;
    std::uint8_t index = 0;      // the channel or service
    std::uint8_t wire_bias = 0;  // what is stored for a 0 on the wire

    // As it is sent; of a stream 1 when it is on, else 0. Of the channel or service `row_offset`
    // behind the index.
    [[nodiscard]] std::uint32_t get(int row_offset = 0) const;
    // As it was received; for a stream 0 is off. Negative without the row.
    [[nodiscard]] int set(int value) const;
};

struct Text {
    enum class Of : std::uint8_t { general, service, network, ip_output };

    Of of;
    std::uint8_t selector;
    std::uint8_t index = 0;

    // Clears the `size` bytes at `buffer` and copies the text, with or without a NUL.
    void get(std::uint8_t* buffer, int size) const;
    // Stores at most size - 1 characters and reads no more. Negative without the row.
    [[nodiscard]] int set(const char* text, unsigned size) const;
};

// The parameter of a selector, in a row of tables that have several: 0 elsewhere.
constexpr Number parameter(e_ConfiguracionGen selector, std::uint8_t /*row*/ = 0) {
    return {Number::Of::general, static_cast<std::uint8_t>(selector)};
}
constexpr Number parameter(e_EntradaAV selector, std::uint8_t channel) {
    return {Number::Of::input, static_cast<std::uint8_t>(selector), channel};
}
// Of the module's one RF output.
constexpr Number parameter(e_RFOut selector, std::uint8_t /*row*/ = 0) {
    Number number = {Number::Of::rf_output, static_cast<std::uint8_t>(selector)};
#define WIRE_BIAS(of, bias) \
    if (selector == (of))   \
        number.wire_bias = bias;
#define LINES "protocol/parameters.def"
#include "protocol/lines.inc"
    return number;
}
constexpr Number parameter(e_ServiciosSalida selector, std::uint8_t service) {
    return {Number::Of::service, static_cast<std::uint8_t>(selector), service};
}
constexpr Number parameter(e_serv_type type, std::uint8_t service) {
    return {Number::Of::stream, static_cast<std::uint8_t>(type), service};
}
constexpr Number parameter(e_Red selector, std::uint8_t /*row*/ = 0) {
    return {Number::Of::network, static_cast<std::uint8_t>(selector)};
}
constexpr Number parameter(e_IPOut selector, std::uint8_t /*row*/ = 0) {
    return {Number::Of::ip_output, static_cast<std::uint8_t>(selector)};
}

constexpr Text parameter(e_str_ConfiguracionGen selector, std::uint8_t /*row*/ = 0) {
    return {Text::Of::general, static_cast<std::uint8_t>(selector)};
}
constexpr Text parameter(e_str_ServiciosSalida selector, std::uint8_t service) {
    return {Text::Of::service, static_cast<std::uint8_t>(selector), service};
}
constexpr Text parameter(e_str_Red selector, std::uint8_t /*row*/ = 0) {
    return {Text::Of::network, static_cast<std::uint8_t>(selector)};
}
constexpr Text parameter(e_str_IPOut selector, std::uint8_t /*row*/ = 0) {
    return {Text::Of::ip_output, static_cast<std::uint8_t>(selector)};
}

// The stream types of a service.
constexpr e_serv_type kVideo = ST_TIPO_1;
constexpr e_serv_type kAudio = ST_TIPO_2;
