// The status answer, position by position, on real databases. Each case sets a few values on a
// board that is quiet otherwise, and names every byte of the answer that is not quiet then.
#include "processor/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "processor/commands.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"
#include "tests/support/protocol_document.h"
#include "tests/support/trace.h"

namespace fs = std::filesystem;

namespace {

using testing::IsEmpty;

const std::size_t kLength = document::length("Status");

// Positions of the answer.
std::size_t position_of(const std::string& name) {
    return document::place("Status", name).position;
}
const std::size_t kSync = position_of("input_sync");
const std::size_t kAlarms = position_of("alarma_hw");
const std::size_t kOutput = position_of("output_sync");
const std::size_t kTv = position_of("tv_system_1");
const std::size_t kOtherTv = position_of("tv_system_2");
const std::size_t kHdmi = position_of("hdmi_1");
const std::size_t kHdsdi = position_of("hdsdi_1");
const std::size_t kUpperHdmi = position_of("hdmi_2");
const std::size_t kUpperHdsdi = position_of("hdsdi_2");
const std::size_t kLevel = position_of("null_level");
const std::size_t kBitrates = position_of("multiplex_1");
const std::size_t kIpStreams = position_of("ip_total");
const std::size_t kPlayer = position_of("player");

constexpr char kNull[] = "NULL";
const std::string kPlayed = "/tmp/to_play/video-final_HD.ts";

// A named value of the state table.
struct State {
    const char* name;
    std::string value;
};

// Bytes of the answer, from a position on.
struct Part {
    std::size_t position;
    const char* bytes;
};

struct Case {
    const char* name;
    std::vector<State> states = {};
    const char* nulls = "";      // of the only row of Bitrate_Nulos, as SQL assignments
    const char* conf = "";       // of the only row of ConfiguracionGen
    const char* state_sql = "";  // on the state database, behind the above
    const char* conf_sql = "";   // on the configuration database
    void (*files)() = [] {};
    std::vector<Part> answer = {};  // what is not as on the quiet board
};

// Every value read is 0, and what stands beside them is not. The output is two IP streams.
void make_quiet() {
    const Database conf(kConfDb);
    conf.run(
        "UPDATE ConfiguracionGen SET Modo_Entrada = 0, Modo_Salida = 1, Player_Mode = 10, "
        "Atenuacion = 11, Ip_Dhcp = 12, Lcd_Bloqueo = 13, Subtimezone = 14");
    const Database state(kTempDb);
    state.run(
        "UPDATE alarmasEstado SET valor = '0';"
        "UPDATE alarmasEstado SET valor = 'FFFFFFFF' WHERE nombre = 'estado_remote_encoder';"
        "UPDATE Bitrate_Nulos SET idBitrate_Nulos = '7777', Porcentaje = '0', Canal_2 = '0', "
        "Total = '0', Canal_1 = '0', Nivel = '0', Fecha = '9999'");
}

// Whole bytes of a quiet board: the two constants.
Bytes answer_with(const std::vector<Part>& parts) {
    Bytes answer(kLength);
    document::put({{"3, the first", {3}}, {"3, the second", {3}}}, "Status", answer);
    for (const Part& part : parts) {
        const Bytes bytes = hex(part.bytes);
        std::copy(bytes.begin(), bytes.end(),
                  answer.begin() + static_cast<std::ptrdiff_t>(part.position));
    }
    return answer;
}

void set(const Database& state, const State& entry) {
    const std::string value = entry.value == kNull ? entry.value : "'" + entry.value + "'";
    state.run("UPDATE alarmasEstado SET valor = " + value + " WHERE nombre = '" + entry.name + "'");
    ASSERT_EQ(state.value("SELECT changes()"), "1") << entry.name;
}

void prepare(const Case& c) {
    fs::remove_all("/tmp/to_play");
    make_quiet();
    const Database state(kTempDb);
    for (const State& entry : c.states)
        set(state, entry);
    if (*c.nulls != '\0')
        state.run(std::string("UPDATE Bitrate_Nulos SET ") + c.nulls);
    state.run(c.state_sql);
    const Database conf(kConfDb);
    if (*c.conf != '\0')
        conf.run(std::string("UPDATE ConfiguracionGen SET ") + c.conf);
    conf.run(c.conf_sql);
    c.files();
}

// The info of the answer to a request, all 255 bytes of it.
Bytes info_for(std::uint8_t command, const Bytes& request_info = {}) {
    mensaje request{};
    request.comando = command;
    request.longitud = static_cast<std::uint8_t>(request_info.size());
    std::copy(request_info.begin(), request_info.end(), request.info);
    const std::unique_ptr<mensaje> answer = procesar_comando(request);
    EXPECT_EQ(answer->comando, command);
    EXPECT_EQ(answer->secuencia, 0);
    EXPECT_EQ(answer->longitud, kLength);
    return {std::begin(answer->info), std::end(answer->info)};
}

void expect_answer(const Bytes& expected) {
    Bytes whole = expected;
    whole.resize(255);
    EXPECT_EQ(to_hex(info_for(0)), to_hex(whole));
    EXPECT_EQ(to_hex(info_for(2)), to_hex(whole));
}

// Each case on a board of its own, with nothing printed and nothing paused for.
void expect_answers(std::span<const Case> cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const OpenBoard board;
        prepare(c);
        EXPECT_EQ(printed_by([&] { expect_answer(answer_with(c.answer)); }), Printed());
        EXPECT_THAT(take_pauses(), IsEmpty());
    }
}

const Bytes kSampleBoard = info_of(hex(document::answer(frame(0))), 0);

TEST(StatusAnswer, OfTheSampleBoardByteByByte) {
    const OpenBoard board;
    expect_answer(kSampleBoard);
}

const Case kQuietAndBusy[] = {
    {.name = "quiet"},
    // all that is read is in use, each value in its own place
    {.name = "busy",
     .states = {{"estado_entradaAV_sync", "1010"},
                {"alarma_hw", "1"},
                {"alarma_cod", "1"},
                {"alarma_mod", "1"},
                {"estado_sync", "1"},
                {"estado_entradaAV_sistemaTV_12", "9E8F7061"},
                {"estado_entradaAV_hdmi", "A1B2C3D4"},
                {"estado_entradaAV_hdsdi", "5A6B7C8D"},
                {"estado_player", "2"},
                {"estado_bitrate_IP_0", "1122"},
                {"estado_bitrate_IP_1", "3344"}},
     .nulls = "Nivel = '77', Porcentaje = '1', Canal_1 = '2', Canal_2 = '3', Total = '4'",
     .answer = {{kSync, "0A"},
                {kAlarms, "15"},
                {kOutput, "01"},
                {kTv, "61"},
                {kOtherTv, "8F"},
                {kHdmi, "B2"},
                {kHdsdi, "6B"},
                {kUpperHdmi, "A1"},
                {kUpperHdsdi, "5A"},
                {kLevel, "4D"},
                {kIpStreams, "44 66 11 22 33 44"},
                {kPlayer, "02"}}},
};

TEST(StatusAnswer, HoldsEachValueInItsOwnPlaceBesideTwoConstants) {
    expect_answers(kQuietAndBusy);
}

struct Sync {
    const char* text;
    const char* byte;
};

// Of the eight bits that a binary value has, the lowest four are sent.
constexpr Sync kSyncs[] = {
    {"0", "00"},
    {"1", "01"},
    {"00000101", "05"},
    {"1x1", "07"},  // what is not 0 is 1
    {"F0", "02"},
    {" ", "01"},
    {"", "00"},
    {"NULL", "00"},
    {"00000001", "01"},
    {"00000010", "02"},
    {"00000100", "04"},
    {"00001000", "08"},
    {"00010000", "00"},
    {"00100000", "00"},
    {"01000000", "00"},
    {"10000000", "00"},
    {"11110000", "00"},
    {"11111111", "0F"},
    {"000000001", "00"},         // more than 8 characters
    {"1111111111111111", "00"},  // as many as there are bits
};

TEST(StatusAnswer, HoldsTheInputsSynchronisation) {
    std::vector<Case> cases;
    for (const Sync& sync : kSyncs)
        cases.push_back({.name = sync.text,
                         .states = {{"estado_entradaAV_sync", sync.text}},
                         .answer = {{kSync, sync.byte}}});
    expect_answers(cases);
}

struct Bit {
    const char* name;
    Part set;
};

// clang-format off
const Bit kBits[] = {
    {"alarma_hw", {kAlarms, "01"}},
    {"alarma_in", {kAlarms, "02"}},
    {"alarma_cod", {kAlarms, "04"}},
    {"alarma_si", {kAlarms, "08"}},
    {"alarma_mod", {kAlarms, "10"}},
    {"alarma_ip", {kAlarms, "20"}},
    {"estado_sync", {kOutput, "01"}},
};
// clang-format on

struct BitText {
    const char* text;
    bool set;
};

// As binary digits the last one counts. As other numbers 2 and E would be even, 10 hexadecimal too.
constexpr BitText kBitTexts[] = {
    {"1", true},        {"0", false},        {"2", true},          {"E", true},
    {"x", true},        {"01", true},        {"10", false},        {"F0", false},
    {"11111111", true}, {"11111110", false}, {"000000001", false},  // more than 8 characters
    {"", false},        {"NULL", false},
};

TEST(StatusAnswer, HoldsABitForEachAlarmAndForTheOutputsSynchronisation) {
    for (const Bit& bit : kBits) {
        SCOPED_TRACE(bit.name);
        std::vector<Case> cases;
        for (const BitText& text : kBitTexts) {
            Case c{.name = text.text, .states = {{bit.name, text.text}}};
            if (text.set)
                c.answer = {bit.set};
            cases.push_back(c);
        }
        expect_answers(cases);
    }
}

const Case kAllAlarms[] = {
    {.name = "all alarms",
     .state_sql = "UPDATE alarmasEstado SET valor = '11111111' WHERE nombre LIKE 'alarma%'",
     .answer = {{kAlarms, "3F"}}},
    {.name = "all but the inputs'",
     .state_sql = "UPDATE alarmasEstado SET valor = '1' WHERE nombre LIKE 'alarma%';"
                  "UPDATE alarmasEstado SET valor = '0' WHERE nombre = 'alarma_in'",
     .answer = {{kAlarms, "3D"}}},
};

TEST(StatusAnswer, HoldsTheAlarmsBesideEachOther) {
    expect_answers(kAllAlarms);
}

const Case kHexStates[] = {
    // lowest byte, and the second from above
    {.name = "TV systems",
     .states = {{"estado_entradaAV_sistemaTV_12", "12345678"}},
     .answer = {{kTv, "78"}, {kOtherTv, "34"}}},
    {.name = "TV systems, all bits",
     .states = {{"estado_entradaAV_sistemaTV_12", "FFFFFFFF"}},
     .answer = {{kTv, "FF"}, {kOtherTv, "FF"}}},
    {.name = "TV systems, unused bits", .states = {{"estado_entradaAV_sistemaTV_12", "FF00FF00"}}},
    {.name = "TV systems, one digit",
     .states = {{"estado_entradaAV_sistemaTV_12", "f"}},
     .answer = {{kTv, "0F"}}},
    {.name = "TV systems, nine digits", .states = {{"estado_entradaAV_sistemaTV_12", "123456789"}}},
    {.name = "TV systems, NULL", .states = {{"estado_entradaAV_sistemaTV_12", kNull}}},
    // the two upper bytes, not next to each other
    {.name = "HDMI",
     .states = {{"estado_entradaAV_hdmi", "12345678"}},
     .answer = {{kHdmi, "34"}, {kUpperHdmi, "12"}}},
    {.name = "HDMI, all bits",
     .states = {{"estado_entradaAV_hdmi", "FFFFFFFF"}},
     .answer = {{kHdmi, "FF"}, {kUpperHdmi, "FF"}}},
    {.name = "HDMI, unused bits", .states = {{"estado_entradaAV_hdmi", "0000FFFF"}}},
    {.name = "HDMI, small letters",
     .states = {{"estado_entradaAV_hdmi", "abcdef01"}},
     .answer = {{kHdmi, "CD"}, {kUpperHdmi, "AB"}}},
    // G stands for a digit 0
    {.name = "HDMI, a character that is no digit",
     .states = {{"estado_entradaAV_hdmi", "1G345678"}},
     .answer = {{kHdmi, "34"}, {kUpperHdmi, "10"}}},
    {.name = "HDMI, six digits",
     .states = {{"estado_entradaAV_hdmi", "345678"}},
     .answer = {{kHdmi, "34"}}},
    {.name = "HDMI, nine digits", .states = {{"estado_entradaAV_hdmi", "123456789"}}},
    {.name = "HDMI, empty", .states = {{"estado_entradaAV_hdmi", ""}}},
    {.name = "HD-SDI",
     .states = {{"estado_entradaAV_hdsdi", "12345678"}},
     .answer = {{kHdsdi, "34"}, {kUpperHdsdi, "12"}}},
    {.name = "HD-SDI, all bits",
     .states = {{"estado_entradaAV_hdsdi", "FFFFFFFF"}},
     .answer = {{kHdsdi, "FF"}, {kUpperHdsdi, "FF"}}},
    {.name = "HD-SDI, unused bits", .states = {{"estado_entradaAV_hdsdi", "0000FFFF"}}},
    {.name = "HD-SDI, nine digits", .states = {{"estado_entradaAV_hdsdi", "123456789"}}},
    // the lowest byte
    {.name = "player", .states = {{"estado_player", "12345678"}}, .answer = {{kPlayer, "78"}}},
    {.name = "player, all bits",
     .states = {{"estado_player", "FFFFFFFF"}},
     .answer = {{kPlayer, "FF"}}},
    {.name = "player, unused bits", .states = {{"estado_player", "FFFFFF00"}}},
    {.name = "player, nine digits", .states = {{"estado_player", "000000001"}}},
};

TEST(StatusAnswer, HoldsTheNamedBytesOfTheHexadecimalStates) {
    expect_answers(kHexStates);
}

struct Level {
    const char* text;  // of the sixth column
    const char* byte;
};

// Sign and magnitude. A positive one is cut to eight bits, the magnitude of a negative one to
// seven.
constexpr Level kLevels[] = {
    {"0", "00"},
    {"5", "05"},
    {"127", "7F"},
    {"128", "80"},
    {"255", "FF"},
    {"256", "00"},
    {"300", "2C"},
    {"2147483647", "FF"},
    {"-1", "81"},
    {"-5", "85"},
    {"-127", "FF"},
    {"-128", "80"},
    {"-129", "81"},
    {"-300", "AC"},         // 300 is 2 * 128
                            // + 0x2C
    {"-2147483647", "FF"},  // 0x7FFFFFFF
    {"-2147483648", "80"},  // has no positive counterpart
    {" -5 dB", "85"},       // the number that the text begins with
    {"dB", "00"},
    {"", "00"},
};

TEST(StatusAnswer, HoldsTheNullLevelAsSignAndMagnitude) {
    const OpenBoard board;
    make_quiet();
    const Database state(kTempDb);
    for (const Level& level : kLevels) {
        SCOPED_TRACE(level.text);
        state.run(std::string("UPDATE Bitrate_Nulos SET Nivel = '") + level.text + "'");
        expect_answer(answer_with({{kLevel, level.byte}}));
    }
    state.run("UPDATE Bitrate_Nulos SET Nivel = NULL");
    expect_answer(answer_with({}));
}

// Output bitrates. The first layout is the multiplex.

const Case kMultiplex[] = {
    // 17, 34 and 51 after the shift; 68 * 188 / 204000 is 0
    {.name = "each in its place",
     .nulls = "Canal_1 = '34', Total = '68', Canal_2 = '102'",
     .answer = {{kBitrates, "11 22 33 00 00"}}},
    {.name = "the shift loses a bit",
     .nulls = "Canal_1 = '3', Total = '5', Canal_2 = '7'",
     .answer = {{kBitrates, "01 02 03"}}},
    // 255, 256 and 257
    {.name = "low bytes",
     .nulls = "Canal_1 = '511', Total = '512', Canal_2 = '514'",
     .answer = {{kBitrates, "FF 00 01"}}},
    // 0x7FFFFFFF and 0x7FFFFF80
    {.name = "negative channels",
     .nulls = "Canal_1 = '-1', Canal_2 = '-256'",
     .answer = {{kBitrates, "FF 00 80"}}},
    {.name = "no numbers", .nulls = "Canal_1 = 'x', Total = '', Canal_2 = NULL"},
    // (20000 - 10000 * 10 / 100 * 2) * 188 / 204000 is 3384000 / 204000; 10000 is 0x2710
    {.name = "worked example",
     .nulls = "Total = '20000', Porcentaje = '10'",
     .answer = {{kBitrates, "00 10 00 00 10"}}},
    // 17361 * 188 is 3263868 and 17362 * 188 is 3264056, on both sides of 16 * 204000
    {.name = "just below 16",
     .nulls = "Total = '17361'",
     .answer = {{kBitrates, "00 E8 00 00 0F"}}},  // 8680 is 0x21E8
    {.name = "just 16",
     .nulls = "Total = '17362'",
     .answer = {{kBitrates, "00 E9 00 00 10"}}},  // 8681
    // 188 * 20400000 is 204000 * 18800, which is 0x4970; the half is 0x9BA3C0
    {.name = "just below 18800",
     .nulls = "Total = '20399999'",
     .answer = {{kBitrates, "00 BF 00 49 6F"}}},
    {.name = "just 18800",
     .nulls = "Total = '20400000'",
     .answer = {{kBitrates, "00 C0 00 49 70"}}},
    // 8768 * 1 / 100 is 87, and twice that 174: 17536 - 174 is 17362, just enough for 16. Doubled
    // before the division it would be 175.
    {.name = "division before the doubling",
     .nulls = "Total = '17536', Porcentaje = '1'",
     .answer = {{kBitrates, "00 40 00 00 10"}}},  // 8768 is 0x2240
    // 8906 * 33 / 100 is 2938, and 17813 - 5876 is 11937, just enough for 11. With the bit that the
    // shift loses it would be 2939.
    {.name = "odd total",
     .nulls = "Total = '17813', Porcentaje = '33'",
     .answer = {{kBitrates, "00 CA 00 00 0B"}}},  // 8906 is 0x22CA
    // 20000 - 10000 * 2
    {.name = "nothing but nulls",
     .nulls = "Total = '20000', Porcentaje = '100'",
     .answer = {{kBitrates, "00 10"}}},

    // From here on the result leaves the range of 32 bits and is taken modulo 2^32.
    // 10000 * 300 / 100 is 30000; 20000 - 60000 is -40000; * 188 is -7520000, which is 4287447296;
    // / 204000 is 21016, 0x5218
    {.name = "more nulls than packets",
     .nulls = "Total = '20000', Porcentaje = '300'",
     .answer = {{kBitrates, "00 10 00 52 18"}}},
    // 10000 * (2^32 - 10) is 2^32 - 100000; / 100 is 42948672; 20000 - 2 * 42948672 is -85877344;
    // * 188 is -16144940672, which is 1034928512; / 204000 is 5073, 0x13D1
    {.name = "negative percentage",
     .nulls = "Total = '20000', Porcentaje = '-10'",
     .answer = {{kBitrates, "00 10 00 13 D1"}}},
    // -1 is 2^32 - 1; * 188 is 2^32 - 188; / 204000 is 21053, 0x523D. The half is 0x7FFFFFFF.
    {.name = "negative total", .nulls = "Total = '-1'", .answer = {{kBitrates, "00 FF 00 52 3D"}}},
    // The half of -2 is 2147483647, the shift being logical; * 1 / 100 is 21474836, twice that
    // 42949672. 2^32 - 2 - 42949672, * 188, is -8074538712, which is 515395880; / 204000 is 2526,
    // 0x09DE.
    {.name = "negative total and some nulls",
     .nulls = "Total = '-2', Porcentaje = '1'",
     .answer = {{kBitrates, "00 FF 00 09 DE"}}},
    // 15000000 is 0xE4E1C0. 30000000 * 188 is 5640000000, which is 1345032704; / 204000 is 6593,
    // 0x19C1.
    {.name = "large total",
     .nulls = "Total = '30000000'",
     .answer = {{kBitrates, "00 C0 00 19 C1"}}},
    // 100000000 * 50 is 5000000000, which is 705032704; / 100 is 7050327; 200000000 - 14100654 is
    // 185899346; * 188 is 34949077048, which is 589338680; / 204000 is 2888, 0x0B48
    {.name = "large total and many nulls",
     .nulls = "Total = '200000000', Porcentaje = '50'",
     .answer = {{kBitrates, "00 00 00 0B 48"}}},
};

TEST(StatusAnswer, HoldsTheMultiplexWhenTheModulatorIsTheOutput) {
    std::vector<Case> cases(std::begin(kMultiplex), std::end(kMultiplex));
    for (Case& c : cases)
        c.conf = "Modo_Salida = 0";
    expect_answers(cases);
}

// 20000 - 1000 * d: 16 with two streams and 17 with one. Without the player the input mode decides.
const Case kDivisor[] = {
    {.name = "mode 0", .conf = "Modo_Entrada = 0", .answer = {{kBitrates + 4, "10"}}},
    {.name = "mode 9", .conf = "Modo_Entrada = 9", .answer = {{kBitrates + 4, "10"}}},
    {.name = "mode 10", .conf = "Modo_Entrada = 10", .answer = {{kBitrates + 4, "11"}}},
    {.name = "mode 11", .conf = "Modo_Entrada = 11", .answer = {{kBitrates + 4, "11"}}},
    {.name = "mode -10", .conf = "Modo_Entrada = -10", .answer = {{kBitrates + 4, "10"}}},
    {.name = "mode NULL", .conf = "Modo_Entrada = NULL", .answer = {{kBitrates + 4, "10"}}},
    {.name = "mode 9, player",
     .states = {{"estado_player", "1"}},
     .conf = "Modo_Entrada = 9",
     .answer = {{kBitrates + 4, "10"}, {kPlayer, "01"}}},
    {.name = "mode 10, player",
     .states = {{"estado_player", "1"}},
     .conf = "Modo_Entrada = 10",
     .answer = {{kBitrates + 4, "10"}, {kPlayer, "01"}}},
    {.name = "mode 10, player 00000001",
     .states = {{"estado_player", "00000001"}},
     .conf = "Modo_Entrada = 10",
     .answer = {{kBitrates + 4, "10"}, {kPlayer, "01"}}},
    {.name = "mode 10, player 2",
     .states = {{"estado_player", "2"}},
     .conf = "Modo_Entrada = 10",
     .answer = {{kBitrates + 4, "11"}, {kPlayer, "02"}}},
    // its low byte alone is 1
    {.name = "mode 10, player 101",
     .states = {{"estado_player", "101"}},
     .conf = "Modo_Entrada = 10",
     .answer = {{kBitrates + 4, "11"}, {kPlayer, "01"}}},
    {.name = "mode 9, player 2",
     .states = {{"estado_player", "2"}},
     .conf = "Modo_Entrada = 9",
     .answer = {{kBitrates + 4, "10"}, {kPlayer, "02"}}},
};

TEST(StatusAnswer, CountsTheNullsOncePerStream) {
    std::vector<Case> cases(std::begin(kDivisor), std::end(kDivisor));
    for (Case& c : cases) {
        c.nulls = "Total = '20000', Porcentaje = '10'";
        c.conf_sql = "UPDATE ConfiguracionGen SET Modo_Salida = 0";
        c.answer.push_back({kBitrates + 1, "10"});
    }
    expect_answers(cases);
}

// The three layouts of IP streams, at positions 21 to 26. The null-packet figures take no part:
// 16 to 20 stay zero.
const std::vector<State> kStreams = {{"estado_bitrate_IP_0", "1234"},
                                     {"estado_bitrate_IP_1", "4321"}};

std::vector<State> streams_and_player(const char* player) {
    std::vector<State> states = kStreams;
    states.push_back({"estado_player", player});
    return states;
}

const Case kLayouts[] = {
    // one stream: it is the sum, too
    {.name = "mode 10",
     .states = kStreams,
     .conf = "Modo_Entrada = 10",
     .answer = {{kIpStreams, "12 34 12 34 00 00"}}},
    {.name = "mode 11, player 2",
     .states = streams_and_player("2"),
     .conf = "Modo_Entrada = 11",
     .answer = {{kIpStreams, "12 34 12 34 00 00"}, {kPlayer, "02"}}},
    // two streams: 1234 + 4321 is 5555
    {.name = "mode 9",
     .states = kStreams,
     .conf = "Modo_Entrada = 9",
     .answer = {{kIpStreams, "55 55 12 34 43 21"}}},
    {.name = "mode 0, player 2",
     .states = streams_and_player("2"),
     .answer = {{kIpStreams, "55 55 12 34 43 21"}, {kPlayer, "02"}}},
    {.name = "mode 0, player 101",
     .states = streams_and_player("101"),
     .answer = {{kIpStreams, "55 55 12 34 43 21"}, {kPlayer, "01"}}},
    // the player, in any input mode: 6000 is 0x1770; 1234 + 1770 is 29A4
    {.name = "mode 0, player",
     .states = streams_and_player("1"),
     .answer = {{kIpStreams, "29 A4 12 34 17 70"}, {kPlayer, "01"}}},
    {.name = "mode 9, player",
     .states = streams_and_player("1"),
     .conf = "Modo_Entrada = 9",
     .answer = {{kIpStreams, "29 A4 12 34 17 70"}, {kPlayer, "01"}}},
    {.name = "mode 10, player",
     .states = streams_and_player("1"),
     .conf = "Modo_Entrada = 10",
     .answer = {{kIpStreams, "29 A4 12 34 17 70"}, {kPlayer, "01"}}},
    // with the file: 10000 is 0x2710; 1234 + 2710 is 3944
    {.name = "player and file",
     .states = streams_and_player("1"),
     .files = [] { write_file(kPlayed, "video"); },
     .answer = {{kIpStreams, "39 44 12 34 27 10"}, {kPlayer, "01"}}},
    // without the player it does not count
    {.name = "file, one stream",
     .states = kStreams,
     .conf = "Modo_Entrada = 10",
     .files = [] { write_file(kPlayed, "video"); },
     .answer = {{kIpStreams, "12 34 12 34 00 00"}}},
    {.name = "file, two streams",
     .states = kStreams,
     .files = [] { write_file(kPlayed, "video"); },
     .answer = {{kIpStreams, "55 55 12 34 43 21"}}},
    // any output mode but 0
    {.name = "output 2",
     .states = kStreams,
     .conf = "Modo_Salida = 2",
     .answer = {{kIpStreams, "55 55 12 34 43 21"}}},
    {.name = "output -1",
     .states = kStreams,
     .conf = "Modo_Salida = -1",
     .answer = {{kIpStreams, "55 55 12 34 43 21"}}},
    {.name = "output 256",
     .states = kStreams,
     .conf = "Modo_Salida = 256",
     .answer = {{kIpStreams, "55 55 12 34 43 21"}}},
    // 16 bits of each
    {.name = "long values, one stream",
     .states = {{"estado_bitrate_IP_0", "ABCD1234"}},
     .conf = "Modo_Entrada = 10",
     .answer = {{kIpStreams, "12 34 12 34 00 00"}}},
    {.name = "long values, two streams",
     .states = {{"estado_bitrate_IP_0", "ABCD1234"}, {"estado_bitrate_IP_1", "98764321"}},
     .answer = {{kIpStreams, "55 55 12 34 43 21"}}},
    // F000 + 2345 is 11345
    {.name = "sum above 65535",
     .states = {{"estado_bitrate_IP_0", "F000"}, {"estado_bitrate_IP_1", "2345"}},
     .answer = {{kIpStreams, "13 45 F0 00 23 45"}}},
    // 2^32 + 1
    {.name = "sum above 32 bits",
     .states = {{"estado_bitrate_IP_0", "FFFFFFFF"}, {"estado_bitrate_IP_1", "2"}},
     .answer = {{kIpStreams, "00 01 FF FF 00 02"}}},
    // FFFF + 1770 is 1176F
    {.name = "sum with the player above 65535",
     .states = {{"estado_bitrate_IP_0", "FFFF"}, {"estado_player", "1"}},
     .answer = {{kIpStreams, "17 6F FF FF 17 70"}, {kPlayer, "01"}}},
    // FFFFFFFF + 2710
    {.name = "sum with the file above 32 bits",
     .states = {{"estado_bitrate_IP_0", "FFFFFFFF"}, {"estado_player", "1"}},
     .files = [] { write_file(kPlayed, "video"); },
     .answer = {{kIpStreams, "27 0F FF FF 27 10"}, {kPlayer, "01"}}},
    {.name = "values of nine digits",
     .states = {{"estado_bitrate_IP_0", "000001234"}, {"estado_bitrate_IP_1", "000004321"}}},
};

TEST(StatusAnswer, HoldsTheIpStreamsWhenTheyAreTheOutput) {
    std::vector<Case> cases(std::begin(kLayouts), std::end(kLayouts));
    for (Case& c : cases)
        c.nulls = "Total = '20000', Porcentaje = '10', Canal_1 = '34', Canal_2 = '102'";
    expect_answers(cases);
}

// The multiplex is chosen first, whatever the player and the inputs do.
const Case kMultiplexFirst[] = {
    {.name = "output 0", .conf = "Modo_Salida = 0"},
    {.name = "output 0, one input", .conf = "Modo_Salida = 0, Modo_Entrada = 10"},
    {.name = "output NULL", .conf = "Modo_Salida = NULL"},
    {.name = "output no number", .conf = "Modo_Salida = 'IP'"},
    {.name = "output 0, player",
     .conf = "Modo_Salida = 0",
     .state_sql = "UPDATE alarmasEstado SET valor = '1' WHERE nombre = 'estado_player'",
     .files = [] { write_file(kPlayed, "video"); },
     .answer = {{kPlayer, "01"}}},
};

TEST(StatusAnswer, HoldsTheMultiplexRatherThanStreams) {
    std::vector<Case> cases(std::begin(kMultiplexFirst), std::end(kMultiplexFirst));
    for (Case& c : cases) {
        c.states = kStreams;
        c.nulls = "Total = '68', Canal_1 = '34', Canal_2 = '102'";
        c.answer.push_back({kBitrates, "11 22 33"});
    }
    expect_answers(cases);
}

// What the player plays is only looked for, never opened.
struct Played {
    const char* name;
    void (*make)();
    bool there;
};

constexpr Played kPlayedFiles[] = {
    {"nothing", [] {}, false},
    {"folder alone", [] { fs::create_directories("/tmp/to_play"); }, false},
    {"file in its place", [] { write_file("/tmp/to_play", ""); }, false},
    {"empty file", [] { write_file(kPlayed, ""); }, true},
    {"unreadable file",
     [] {
         write_file(kPlayed, "video");
         fs::permissions(kPlayed, fs::perms::none);
     },
     true},
    {"folder of that name", [] { fs::create_directories(kPlayed); }, true},
    {"link to a file",
     [] {
         write_file("/tmp/to_play/other.ts", "video");
         fs::create_symlink("other.ts", kPlayed);
     },
     true},
    {"dangling link",
     [] {
         fs::create_directories("/tmp/to_play");
         fs::create_symlink("missing.ts", kPlayed);
     },
     false},
    {"link to itself",
     [] {
         fs::create_directories("/tmp/to_play");
         fs::create_symlink(kPlayed, kPlayed);
     },
     false},
    {"other name", [] { write_file("/tmp/to_play/video-final_SD.ts", "video"); }, false},
    {"other case", [] { write_file("/tmp/to_play/video-final_HD.TS", "video"); }, false},
};

TEST(StatusAnswer, AddsMoreForThePlayerWhenItsFileIsThere) {
    std::vector<Case> cases;
    for (const Played& played : kPlayedFiles)
        cases.push_back({.name = played.name,
                         .states = {{"estado_player", "1"}},
                         .files = played.make,
                         .answer = {{kIpStreams, played.there ? "27 10" : "17 70"},
                                    {kIpStreams + 4, played.there ? "27 10" : "17 70"},
                                    {kPlayer, "01"}}});
    expect_answers(cases);
}

// A state is known by its name; without exactly one row of that name it is 0.

const Case kRows[] = {
    {.name = "no rows", .state_sql = "DELETE FROM alarmasEstado; DELETE FROM Bitrate_Nulos"},
    {.name = "row missing",
     .state_sql = "UPDATE alarmasEstado SET valor = '1' WHERE nombre LIKE 'alarma%';"
                  "DELETE FROM alarmasEstado WHERE nombre = 'alarma_si'",
     .answer = {{kAlarms, "37"}}},
    {.name = "row doubled",
     .state_sql = "UPDATE alarmasEstado SET valor = '1' WHERE nombre LIKE 'alarma%';"
                  "INSERT INTO alarmasEstado (nombre, valor) VALUES ('alarma_si', '1')",
     .answer = {{kAlarms, "37"}}},
    {.name = "name in capitals",
     .state_sql = "UPDATE alarmasEstado SET valor = '1', nombre = 'ALARMA_SI' "
                  "WHERE nombre = 'alarma_si'"},
    {.name = "name missing",
     .state_sql = "UPDATE alarmasEstado SET valor = '1', nombre = NULL WHERE nombre = 'alarma_si'"},
    {.name = "all rows doubled",
     .state_sql = "UPDATE alarmasEstado SET valor = '1'; UPDATE Bitrate_Nulos SET Nivel = '5';"
                  "INSERT INTO alarmasEstado (nombre, valor) "
                  "SELECT nombre, valor FROM alarmasEstado;"
                  "INSERT INTO Bitrate_Nulos SELECT * FROM Bitrate_Nulos"},
    {.name = "all NULL",
     .state_sql = "UPDATE alarmasEstado SET valor = NULL;"
                  "UPDATE Bitrate_Nulos SET Nivel = NULL, Porcentaje = NULL, Total = NULL, "
                  "Canal_1 = NULL, Canal_2 = NULL"},
    {.name = "numbers in place of texts",
     .state_sql = "CREATE TABLE numbers AS SELECT * FROM alarmasEstado;"
                  "DROP TABLE alarmasEstado; ALTER TABLE numbers RENAME TO alarmasEstado;"
                  "CREATE TABLE level (a, b, c, d, e, f, g);"
                  "INSERT INTO level VALUES (1, 2, 3, 4, 5, -6, 7);"
                  "DROP TABLE Bitrate_Nulos; ALTER TABLE level RENAME TO Bitrate_Nulos",
     .answer = {{kLevel, "86"}}},
    // Without a row the output mode is 0, and the input mode is below 10: a multiplex of two.
    {.name = "no configuration",
     .nulls = "Total = '20000', Porcentaje = '10'",
     .conf = "Modo_Entrada = 10",
     .conf_sql = "DELETE FROM ConfiguracionGen",
     .answer = {{kBitrates + 1, "10"}, {kBitrates + 4, "10"}}},
    {.name = "two configurations",
     .nulls = "Total = '20000', Porcentaje = '10'",
     .conf = "Modo_Entrada = 10",
     .conf_sql = "INSERT INTO ConfiguracionGen (Modo_Entrada, Modo_Salida) VALUES (10, 1)",
     .answer = {{kBitrates + 1, "10"}, {kBitrates + 4, "10"}}},
};

TEST(StatusAnswer, HoldsZeroForWhatHasNotExactlyOneRow) {
    expect_answers(kRows);
}

// Databases that cannot be read: three attempts at every statement, and zeros.

const Case kBroken[] = {
    {.name = "no table of states",
     .nulls = "Nivel = '5'",
     .state_sql = "DROP TABLE alarmasEstado",
     .answer = {{kLevel, "05"}}},
    {.name = "no table of figures",
     .states = {{"alarma_hw", "1"}},
     .state_sql = "DROP TABLE Bitrate_Nulos",
     .answer = {{kAlarms, "01"}}},
    // as without a row
    {.name = "no table of the configuration",
     .states = {{"alarma_hw", "1"}},
     .nulls = "Total = '20000', Porcentaje = '10'",
     .conf_sql = "DROP TABLE ConfiguracionGen",
     .answer = {{kAlarms, "01"}, {kBitrates + 1, "10"}, {kBitrates + 4, "10"}}},
    {.name = "state database empty", .files = [] { write_file(kTempDb, ""); }},
    {.name = "configuration database empty",
     .states = {{"alarma_hw", "1"}},
     .files = [] { write_file(kConfDb, ""); },
     .answer = {{kAlarms, "01"}}},
    {.name = "both databases empty",
     .files =
         [] {
             write_file(kConfDb, "");
             write_file(kTempDb, "");
         }},
    {.name = "no state column",
     .nulls = "Nivel = '5'",
     .state_sql = "ALTER TABLE alarmasEstado RENAME COLUMN nombre TO name",
     .answer = {{kLevel, "05"}}},
};

TEST(StatusAnswer, HoldsZeroForWhatCannotBeReadInThreeAttempts) {
    for (const Case& c : kBroken) {
        SCOPED_TRACE(c.name);
        const OpenBoard board;
        prepare(c);
        const Printed printed = printed_by([&] { expect_answer(answer_with(c.answer)); });
        EXPECT_EQ(printed.out, "");
        EXPECT_THAT(printed.err,
                    testing::StartsWith("[ERROR_DB]doSelect: Error leyendo datos tabla "));
        const std::vector<unsigned> pauses = take_pauses();
        ASSERT_FALSE(pauses.empty());
        for (std::size_t i = 0; i < pauses.size(); ++i)
            EXPECT_EQ(pauses[i], i % 3 + 1);
        const auto lines = std::count(printed.err.begin(), printed.err.end(), '\n');
        EXPECT_EQ(static_cast<std::size_t>(lines), 3 * pauses.size());
    }
}

// What is there again before the third attempt counts.
TEST(StatusAnswer, HoldsWhatALaterAttemptReads) {
    const OpenBoard board;
    std::optional<ForeignLock> lock(std::in_place, kTempDb);
    during_pauses([&] { lock.reset(); });
    const Printed printed = printed_by([] { expect_answer(kSampleBoard); });
    during_pauses(nullptr);
    EXPECT_THAT(printed.err, testing::HasSubstr("tabla alarmasEstado . intento: 0\n"));
    EXPECT_THAT(printed.err, testing::Not(testing::HasSubstr("intento: 1\n")));
    EXPECT_THAT(take_pauses(), testing::ElementsAre(1));
}

// What an answer says of one value in several places is one reading of it.
TEST(StatusAnswer, ReadsEachValueOnce) {
    struct Layout {
        const char* name;
        const char* conf;
        const char* player;
        std::size_t statements;
    };
    const std::size_t most = document::statements("status");
    const Layout kReadings[] = {
        {"multiplex, one input", "Modo_Salida = 0, Modo_Entrada = 10", "0", most},
        {"multiplex, two inputs", "Modo_Salida = 0, Modo_Entrada = 9", "0", most},
        {"multiplex, player", "Modo_Salida = 0", "1", most - 1},
        {"one stream", "Modo_Salida = 1, Modo_Entrada = 10", "0", most - 3},
        {"two streams", "Modo_Salida = 1, Modo_Entrada = 9", "0", most - 2},
        {"played stream", "Modo_Salida = 1", "1", most - 4},
    };
    for (const Layout& layout : kReadings) {
        SCOPED_TRACE(layout.name);
        const OpenBoard board;
        make_quiet();
        run_elsewhere(kConfDb, std::string("UPDATE ConfiguracionGen SET ") + layout.conf);
        set(Database(kTempDb), {"estado_player", layout.player});
        Trace trace;
        info_for(0);
        std::vector<std::string> statements = trace.take();
        EXPECT_EQ(statements.size(), layout.statements);
        std::erase_if(statements, [](const std::string& statement) {
            return statement.find("alarmasEstado") == std::string::npos;
        });
        const std::set<std::string> distinct(statements.begin(), statements.end());
        EXPECT_EQ(distinct.size(), statements.size());
        // The next answer reads anew.
        info_for(0);
        EXPECT_EQ(trace.take().size(), layout.statements);
    }
}

// Requests

TEST(StatusAnswer, IsTheSameWhateverTheInfoOfTheRequest) {
    const OpenBoard board;
    const std::string expected = to_hex(info_for(0));
    for (const Bytes& info :
         {Bytes{0}, Bytes{1}, Bytes{2, 3}, Bytes(kLength, 0xFF), Bytes(255, 0xA5)}) {
        EXPECT_EQ(to_hex(info_for(0, info)), expected);
        EXPECT_EQ(to_hex(info_for(2, info)), expected);
    }
}

TEST(StatusAnswer, ChangesNothing) {
    const OpenBoard board;
    const std::string conf = read_file(kConfDb);
    const std::string state = read_file(kTempDb);
    for (int i = 0; i < 3; ++i) {
        info_for(0);
        info_for(2);
    }
    EXPECT_EQ(read_file(kConfDb), conf);
    EXPECT_EQ(read_file(kTempDb), state);
}

// Nothing is remembered from one request to the next.
TEST(StatusAnswer, HoldsTheValuesOfItsMoment) {
    const OpenBoard board;
    make_quiet();
    expect_answer(answer_with({}));
    run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor = '1' WHERE nombre = 'alarma_ip'");
    expect_answer(answer_with({{kAlarms, "20"}}));
    run_elsewhere(kTempDb, "UPDATE Bitrate_Nulos SET Nivel = '-7', Total = '68'");
    expect_answer(answer_with({{kAlarms, "20"}, {kLevel, "87"}}));
    run_elsewhere(kConfDb, "UPDATE ConfiguracionGen SET Modo_Salida = 0");
    expect_answer(answer_with({{kAlarms, "20"}, {kLevel, "87"}, {kBitrates, "00 22"}}));
    run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor = '1' WHERE nombre = 'estado_player'");
    run_elsewhere(kConfDb, "UPDATE ConfiguracionGen SET Modo_Salida = 1");
    expect_answer(answer_with(
        {{kAlarms, "20"}, {kLevel, "87"}, {kIpStreams, "17 70 00 00 17 70"}, {kPlayer, "01"}}));
    write_file(kPlayed, "video");
    expect_answer(answer_with(
        {{kAlarms, "20"}, {kLevel, "87"}, {kIpStreams, "27 10 00 00 27 10"}, {kPlayer, "01"}}));
    fs::remove(kPlayed);
    run_elsewhere(kTempDb, "DELETE FROM alarmasEstado WHERE nombre = 'alarma_ip'");
    expect_answer(
        answer_with({{kLevel, "87"}, {kIpStreams, "17 70 00 00 17 70"}, {kPlayer, "01"}}));
}

}  // namespace
