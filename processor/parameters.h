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
    int selector;
    std::uint8_t index = 0;  // the channel or service
    std::uint8_t first = 0;  // what is stored for a 0 on the wire

    // As it is sent; of a stream 1 when it is on, else 0. Of the channel or service `further`
    // behind the index.
    [[nodiscard]] std::uint32_t get(int further = 0) const;
    // As it was received; for a stream 0 is off. Negative without the row.
    [[nodiscard]] int set(int value) const;
    // What is sent once `value` was stored: another code for two of the input modes.
    [[nodiscard]] int kept(int value) const;
};

struct Text {
    enum class Of : std::uint8_t { general, service, network, ip_output };

    Of of;
    int selector;
    std::uint8_t index = 0;

    // Clears the `size` bytes at `buffer` and copies the text, with or without a NUL.
    void get(std::uint8_t* buffer, int size) const;
    // Stores at most size - 1 characters and reads no more. Negative without the row.
    [[nodiscard]] int set(const char* text, unsigned size) const;
};

constexpr Number number(e_ConfiguracionGen selector) {
    return {Number::Of::general, selector};
}
constexpr Number number(e_EntradaAV selector, std::uint8_t channel) {
    return {Number::Of::input, selector, channel};
}
// Of the module's one RF output. The stored constellations count from 1, the sent ones from 0.
constexpr Number number(e_RFOut selector) {
    if (selector == RFO_CONSTELACION)
        return {Number::Of::rf_output, selector, 0, 1};
    return {Number::Of::rf_output, selector};
}
constexpr Number number(e_ServiciosSalida selector, std::uint8_t service) {
    return {Number::Of::service, selector, service};
}
constexpr Number number(e_serv_type type, std::uint8_t service) {
    return {Number::Of::stream, type, service};
}
constexpr Number number(e_Red selector) {
    return {Number::Of::network, selector};
}
constexpr Number number(e_IPOut selector) {
    return {Number::Of::ip_output, selector};
}

constexpr Text text(e_str_ConfiguracionGen selector) {
    return {Text::Of::general, selector};
}
constexpr Text text(e_str_ServiciosSalida selector, std::uint8_t service) {
    return {Text::Of::service, selector, service};
}
constexpr Text text(e_str_Red selector) {
    return {Text::Of::network, selector};
}
constexpr Text text(e_str_IPOut selector) {
    return {Text::Of::ip_output, selector};
}

// The stream types of a service.
constexpr e_serv_type kVideo = ST_TIPO_1;
constexpr e_serv_type kAudio = ST_TIPO_2;

// The identifiers of the output's transport stream and of its original network. The table has the
// columns, but the accessors have no selector for them: they are read as 0, and a write changes
// nothing and counts as done.
constexpr auto kNoTsidOut = static_cast<e_Red>(1);
constexpr auto kNoOnidOut = static_cast<e_Red>(2);
