#include "processor/status.h"

#include <unistd.h>

#include <array>
#include <cstdint>
#include <iterator>
#include <optional>

#include "link/mensaje.h"
#include "params/Bitrate_Nulos.h"
#include "params/ConfiguracionGen.h"
#include "params/alarmasEstado.h"
#include "processor/answer_block.h"

namespace {

enum State : std::uint8_t {
#define STATE(name, reading) name,
#define LINES "protocol/status.def"
#include "protocol/lines.inc"
};

struct NamedState {
    const char* name;
    e_modo mode;
};

constexpr e_modo binary = MODO_BINARIO;
constexpr e_modo hexadecimal = MODO_HEXADECIMAL;
constexpr e_modo text = MODO_DECIMAL;  // is not read

constexpr NamedState kStates[] = {
#define STATE(name, reading) {#name, reading},
#define LINES "protocol/status.def"
#include "protocol/lines.inc"
};

// What leaves the module: a multiplex, or IP streams, of which one or two are encoded, or one is
// encoded and one played.
enum class Output : std::uint8_t { multiplex, one_stream, two_streams, played };

// What an answer has read so far. Each value is read when it is first asked for, so that it is the
// same wherever the answer tells of it. They are taken apart as unsigned numbers of 32 bits,
// whatever their sign.
struct Readings {
    std::array<std::optional<std::uint32_t>, std::size(kStates)> states;
    std::array<std::optional<std::uint32_t>, BN_SEL_4 + 1> null_packets;
    std::optional<std::uint32_t> played_bitrate;
    std::optional<Output> output;
};
// Of the answer that is being made; the functions of the tables below are given nothing.
constinit Readings readings;

std::uint32_t reading_of(State state) {
    std::optional<std::uint32_t>& value = readings.states[state];
    if (!value)
        value = static_cast<std::uint32_t>(
            get_alarmas_estado_valor(kStates[state].name, kStates[state].mode));
    return *value;
}

std::uint32_t null_packets(e_bitrate_nulos selector) {
    std::optional<std::uint32_t>& value = readings.null_packets[selector];
    if (!value)
        value = static_cast<std::uint32_t>(get_Bitrate_Nulos(selector));
    return *value;
}

constexpr std::uint32_t low(std::uint32_t value, unsigned count) {
    return value & ((1U << count) - 1);
}

template <State state, unsigned first, unsigned count>
std::uint32_t bits() {
    return low(reading_of(state) >> first, count);
}

// Bits 10, 11, 14 and 15 have their places, although a binary value keeps 8 bits: they are sent as
// 0.
std::uint32_t input_sync() {
    return bits<estado_entradaAV_sync, 0, 4>() | bits<estado_entradaAV_sync, 14, 2>() << 4U |
           bits<estado_entradaAV_sync, 10, 2>() << 6U;
}

// Sign and magnitude, as no other value on the wire; a positive one may use the sign's bit.
std::uint32_t null_level() {
    const std::uint32_t level = null_packets(BN_SEL_0);
    const bool negative = static_cast<std::int32_t>(level) < 0;
    return negative ? 0x80 | low(0U - level, 7) : level;
}

bool player_active() {
    return reading_of(estado_player) == 1;
}

// How many encoded streams there are; the player counts for two.
std::uint32_t divisor() {
    constexpr int kFirstModeOfOneInput = 10;
    if (player_active())
        return 2;
    return get_ConfiguracionGen(CG_MODO_ENTRADA) >= kFirstModeOfOneInput ? 1 : 2;
}

Output output() {
    std::optional<Output>& output = readings.output;
    if (output)
        return *output;
    const bool played = player_active();  // read first, also where nothing depends on it
    if (get_ConfiguracionGen(CG_MODO_SALIDA) == 0)
        output = Output::multiplex;
    else if (divisor() == 1)
        output = Output::one_stream;
    else
        output = played ? Output::played : Output::two_streams;
    return *output;
}

template <e_bitrate_nulos selector>
std::uint32_t multiplex_half() {
    return output() == Output::multiplex ? null_packets(selector) >> 1U : 0;
}

// Of the total what is not null packets, without the Reed-Solomon bytes: 188 bytes of each 204.
std::uint32_t multiplex_net() {
    if (output() != Output::multiplex)
        return 0;
    const std::uint32_t total = null_packets(BN_SEL_3);
    const std::uint32_t nulls = (total >> 1U) * null_packets(BN_SEL_1) / 100;
    return (total - nulls * divisor()) * 188 / 204000;
}

std::uint32_t ip_0() {
    return reading_of(estado_bitrate_IP_0);
}

std::uint32_t ip_1() {
    return reading_of(estado_bitrate_IP_1);
}

// What the played file adds; only that it is there counts.
std::uint32_t played_bitrate() {
    if (!readings.played_bitrate)
        readings.played_bitrate =
            access("/tmp/to_play/video-final_HD.ts", F_OK) == 0 ? 10000 : 6000;
    return *readings.played_bitrate;
}

std::uint32_t ip_total() {
    switch (output()) {
        case Output::one_stream:
            return ip_0();
        case Output::two_streams:
            return ip_1() + ip_0();
        case Output::played:
            return ip_0() + played_bitrate();
        case Output::multiplex:
            break;
    }
    return 0;
}

std::uint32_t ip_first() {
    return output() == Output::multiplex ? 0 : ip_0();
}

std::uint32_t ip_second() {
    switch (output()) {
        case Output::two_streams:
            return ip_1();
        case Output::played:
            return played_bitrate();
        case Output::multiplex:
        case Output::one_stream:
            break;
    }
    return 0;
}

constexpr Field kFields[] = {
#define LINES "protocol/status.def"
#include "processor/answer_fields.inc"
};

}  // namespace

void put_status(mensaje& answer) {
    readings = {};
    put_fields(kFields, answer);
}
