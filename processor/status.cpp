#include "processor/status.h"

#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>

#include "link/mensaje.h"
#include "params/Bitrate_Nulos.h"
#include "params/ConfiguracionGen.h"
#include "params/alarmasEstado.h"
#include "processor/answer_block.h"

namespace {

constexpr std::uint8_t kLength = 28;
constexpr std::uint8_t kBitrates = 16;  // where the output bitrates begin
constexpr std::uint8_t kBitratesEnd = 27;

enum State : std::uint8_t {
    kInputSync,
    kAlarmHw,
    kAlarmIn,
    kAlarmCod,
    kAlarmSi,
    kAlarmMod,
    kAlarmIp,
    kOutputSync,
    kTvSystem,
    kHdmi,
    kHdsdi,
    kPlayer,
    kIp0,
    kIp1,
};

struct NamedState {
    State state;
    const char* name;
    e_modo mode;
};

constexpr NamedState kStates[] = {
    {kInputSync, "estado_entradaAV_sync", MODO_BINARIO},             //
    {kAlarmHw, "alarma_hw", MODO_BINARIO},                           //
    {kAlarmIn, "alarma_in", MODO_BINARIO},                           //
    {kAlarmCod, "alarma_cod", MODO_BINARIO},                         //
    {kAlarmSi, "alarma_si", MODO_BINARIO},                           //
    {kAlarmMod, "alarma_mod", MODO_BINARIO},                         //
    {kAlarmIp, "alarma_ip", MODO_BINARIO},                           //
    {kOutputSync, "estado_sync", MODO_BINARIO},                      //
    {kTvSystem, "estado_entradaAV_sistemaTV_12", MODO_HEXADECIMAL},  //
    {kHdmi, "estado_entradaAV_hdmi", MODO_HEXADECIMAL},              //
    {kHdsdi, "estado_entradaAV_hdsdi", MODO_HEXADECIMAL},            //
    {kPlayer, "estado_player", MODO_HEXADECIMAL},                    //
    {kIp0, "estado_bitrate_IP_0", MODO_HEXADECIMAL},                 //
    {kIp1, "estado_bitrate_IP_1", MODO_HEXADECIMAL},                 //
};

constexpr bool states_are_indexes() {
    for (std::size_t i = 0; i < std::size(kStates); ++i) {
        if (kStates[i].state != i)
            return false;
    }
    return true;
}
static_assert(states_are_indexes());

// What an answer has read so far. Each value is read when it is first asked for, so that it is the
// same wherever the answer tells of it. They are taken apart as unsigned numbers of 32 bits,
// whatever their sign.
struct Readings {
    std::array<std::optional<std::uint32_t>, std::size(kStates)> states;
    std::array<std::optional<std::uint32_t>, BN_SEL_4 + 1> null_packets;
    std::optional<std::uint32_t> played_bitrate;
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

std::uint32_t bits(std::uint32_t value, unsigned first, unsigned count) {
    return value >> first & ((1U << count) - 1);
}

// Bits 10, 11, 14 and 15 have their places, although a binary value keeps 8 bits: they are sent as
// 0.
std::uint32_t input_sync() {
    const std::uint32_t sync = reading_of(kInputSync);
    return bits(sync, 0, 4) | bits(sync, 14, 2) << 4U | bits(sync, 10, 2) << 6U;
}

// One bit for each, the first one the lowest.
std::uint32_t alarms() {
    constexpr State kAlarms[] = {kAlarmHw, kAlarmIn, kAlarmCod, kAlarmSi, kAlarmMod, kAlarmIp};
    std::uint32_t value = 0;
    for (unsigned i = 0; i < std::size(kAlarms); ++i)
        value |= bits(reading_of(kAlarms[i]), 0, 1) << i;
    return value;
}

// Sign and magnitude, as no other value on the wire; a positive one may use the sign's bit.
std::uint32_t null_level() {
    const std::uint32_t level = null_packets(BN_SEL_0);
    const bool negative = bits(level, 31, 1) != 0;
    return negative ? 0x80 | bits(0U - level, 0, 7) : level;
}

bool player_active() {
    return reading_of(kPlayer) == 1;
}

// How many encoded streams there are; the player counts for two.
std::uint32_t divisor() {
    constexpr int kFirstModeOfOneInput = 10;
    if (player_active())
        return 2;
    return get_ConfiguracionGen(CG_MODO_ENTRADA) >= kFirstModeOfOneInput ? 1 : 2;
}

std::uint32_t half(e_bitrate_nulos selector) {
    return null_packets(selector) >> 1U;
}

// Of the total what is not null packets, without the Reed-Solomon bytes: 188 bytes of each 204.
std::uint32_t net_bitrate() {
    const std::uint32_t total = null_packets(BN_SEL_3);
    const std::uint32_t nulls = (total >> 1U) * null_packets(BN_SEL_1) / 100;
    return (total - nulls * divisor()) * 188 / 204000;
}

std::uint32_t ip_0() {
    return reading_of(kIp0);
}

std::uint32_t ip_1() {
    return reading_of(kIp1);
}

// What the played file adds; only that it is there counts.
std::uint32_t played_bitrate() {
    if (!readings.played_bitrate)
        readings.played_bitrate =
            access("/tmp/to_play/video-final_HD.ts", F_OK) == 0 ? 10000 : 6000;
    return *readings.played_bitrate;
}

constexpr Field kStatus[] = {
    {0, 1, input_sync},                                          //
    {1, 1, alarms},                                              //
    {2, 4},                                                      //
    {6, 1, [] { return bits(reading_of(kOutputSync), 0, 1); }},  //
    {7, 1, [] { return bits(reading_of(kTvSystem), 0, 8); }},    //
    {8, 1, [] { return bits(reading_of(kTvSystem), 16, 8); }},   //
    {9, 1, [] { return bits(reading_of(kHdmi), 16, 8); }},       //
    {10, 1, [] { return bits(reading_of(kHdsdi), 16, 8); }},     //
    {11, 1, [] { return 3U; }},                                  //
    {12, 1, [] { return 3U; }},                                  //
    {13, 1, [] { return bits(reading_of(kHdmi), 24, 8); }},      //
    {14, 1, [] { return bits(reading_of(kHdsdi), 24, 8); }},     //
    {15, 1, null_level},                                         //
    {kBitrates, kBitratesEnd - kBitrates},                       // one of the layouts below
    {27, 1, [] { return bits(reading_of(kPlayer), 0, 8); }},     //
};
static_assert(gapless(kStatus, 0, kLength));

// What leaves the module as a multiplex.
constexpr Field kMultiplex[] = {
    {16, 1, [] { return half(BN_SEL_4); }},  //
    {17, 1, [] { return half(BN_SEL_3); }},  //
    {18, 1, [] { return half(BN_SEL_2); }},  //
    {19, 2, net_bitrate},                    //
};
static_assert(ordered(kMultiplex, kBitrates, kBitratesEnd));

// As IP streams: the sum of the outputs, then each of them.
constexpr Field kOneStream[] = {
    {21, 2, ip_0},  //
    {23, 2, ip_0},  //
};
static_assert(ordered(kOneStream, kBitrates, kBitratesEnd));

constexpr Field kTwoStreams[] = {
    {21, 2, [] { return ip_1() + ip_0(); }},  //
    {23, 2, ip_0},                            //
    {25, 2, ip_1},                            //
};
static_assert(ordered(kTwoStreams, kBitrates, kBitratesEnd));

constexpr Field kPlayedStream[] = {
    {21, 2, [] { return ip_0() + played_bitrate(); }},  //
    {23, 2, ip_0},                                      //
    {25, 2, played_bitrate},                            //
};
static_assert(ordered(kPlayedStream, kBitrates, kBitratesEnd));

std::span<const Field> output_bitrates() {
    if (get_ConfiguracionGen(CG_MODO_SALIDA) == 0)
        return kMultiplex;
    if (divisor() == 1)
        return kOneStream;
    if (!player_active())
        return kTwoStreams;
    return kPlayedStream;
}

}  // namespace

void put_status(mensaje& answer) {
    readings = {};
    put_fields(kStatus, answer);
    put_fields(output_bitrates(), answer);
    answer.longitud = kLength;
}
