// The sub-commands of the slave modules: their answers byte by byte, and what they change in the
// databases.
#include "processor/slaves.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "tests/processor/own_log.h"
#include "tests/processor/requests.h"
#include "tests/processor/slave_requests.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"
#include "tests/support/trace.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

constexpr std::uint8_t kWrite = 3;
const std::string kMac = "0a1b2c3d4e5f";

const std::string kCommandLine = "<31>CMD: Comando escritura parametros.\n";
const std::string kErrorLine = "<28>ERROR: Peticion de escritura no exitosa.\n";

// The empty row that the look-up adds, and what a registration makes of it.
Lines new_row(const std::string& mac) {
    return {
        "EsclavosModulo 1 Estado: nothing -> NULL",
        "EsclavosModulo 1 Hostname: nothing -> NULL",
        "EsclavosModulo 1 IP: nothing -> NULL",
        "EsclavosModulo 1 IdEsclavosModulo: nothing -> 1",
        "EsclavosModulo 1 MAC: nothing -> '" + mac + "'",
        "EsclavosModulo 1 Master: nothing -> NULL",
        "EsclavosModulo 1 Modelo: nothing -> NULL",
        "EsclavosModulo 1 Reset_Factory: nothing -> NULL",
        "EsclavosModulo 1 SWVersion: nothing -> NULL",
        "EsclavosModulo 1 Serial: nothing -> NULL",
        "EsclavosModulo 1 Upgrade: nothing -> NULL",
    };
}

// A row of the table, each cell of it.
void add_slave(long long key,
               const std::string& cells = "'-', '-', '-', '-', '-', '-', 5, 6, 7, 8") {
    Database(kConfDb).run("INSERT INTO EsclavosModulo VALUES (" + std::to_string(key) + ", " +
                          cells + ")");
}

Lines slave_rows() {
    Lines lines;
    for (const auto& row : Database(kConfDb).rows("SELECT * FROM EsclavosModulo")) {
        std::string line;
        for (const std::string& cell : row)
            line += (line.empty() ? "" : "|") + cell;
        lines.push_back(line);
    }
    return lines;
}

// What a request answers and changes.
struct Exchange {
    std::string answer;
    Lines changes;
};

// Another `hostname` than the machine's.
void name_board(const std::string& script) {
    write_script("/tmp/bin/hostname", script);
    setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
}

void forget_name() {
    fs::remove("/tmp/bin/hostname");
}

class Slaves : public testing::Test {
  protected:
    Slaves() {
        conf_log = 0x40;
        forget_name();
    }

    static Exchange exchange(const Bytes& info) {
        const Contents before = contents();
        const std::string told = answer(info);
        return {told, changes(before, contents())};
    }
    static std::string answer(const Bytes& info) { return to_hex(answer_to(kWrite, info)); }
    static void run(const std::string& sql) { Database(kConfDb).run(sql); }

    OwnLog log_;
    OpenBoard board_;
};

// The first of this program, since nothing makes a seen slave an unseen one.
TEST_F(Slaves, AreSeenOnceTheyHaveRegistered) {
    const auto none_of_others = [] {
        for (const int slave : {-1, 0, 2, 254, 255, 256, 257, 65537, INT_MAX, INT_MIN})
            EXPECT_FALSE(slave_seen(slave)) << slave;
    };
    for (const std::uint8_t code : Bytes{105, 106, 107, 108, 109, 111, 112}) {
        answer(of_slave(code, kMac, {1}));
        EXPECT_FALSE(slave_seen(1)) << +code;
    }
    none_of_others();
    answer(of_slave(110, kMac));
    EXPECT_TRUE(slave_seen(1));
    none_of_others();
    answer(of_slave(111, kMac));
    EXPECT_TRUE(slave_seen(1));
}

struct Logged {
    std::uint8_t code;
    const char* line;  // null for none
    bool looks_up = true;
};

constexpr Logged kLogged[] = {
    {105, "<31>Subcomando SUBCOMMAND_GET_ESTADOPENDIENTE_RE\n"},
    {106, "<31>Subcomando SUBCOMMAND_GET_ENTRADAAV\n"},
    {107, "<31>Subcomando SUBCOMMAND_RESET_ESTADOPENDIENTE_RE\n", false},
    {108, "<31>Subcomando SUBCOMMAND_CONFIRM_ESTADOPENDIENTE_RE\n", false},
    {109, "<31>Subcomando SUBCOMMAND_REMOTE_ENCODER_STATUS\n"},
    {110, nullptr},
    {111, nullptr},
    {112, nullptr},
};

TEST_F(Slaves, AreLoggedBySubcommandButForThreeOfThem) {
    for (const Logged& c : kLogged) {
        SCOPED_TRACE(+c.code);
        Lines expected = {kCommandLine};
        if (c.line != nullptr)
            expected.emplace_back(c.line);
        answer(of_slave(c.code, kMac, {0}));
        EXPECT_EQ(log_.take(), expected);
        conf_log = 0xBF;
        answer(of_slave(c.code, kMac, {0}));
        EXPECT_THAT(log_.take(), IsEmpty());
        conf_log = 0x40;
    }
}

TEST_F(Slaves, GetTheirFirstRowFromTheSubcommandsThatBeginWithTheirMac) {
    for (const Logged& c : kLogged) {
        SCOPED_TRACE(+c.code);
        run("DELETE FROM EsclavosModulo");
        answer(of_slave(c.code, kMac));
        const std::string count = Database(kConfDb).value("SELECT count(*) FROM EsclavosModulo");
        EXPECT_EQ(count, c.looks_up ? "1" : "0");
    }
}

struct LookUp {
    const char* name;
    std::string mac;
    std::string stored;
};

const LookUp kLookUps[] = {
    {"12 characters", "0a1b2c3d4e5f", "0a1b2c3d4e5f"},
    {"empty", "", ""},
    {"one character", "x", "x"},
    {"13 characters", "0A1B2C3D4E5FX", "0A1B2C3D4E5F"},
    {"not a MAC address", "no '%s' MAC", "no ''%s'' MAC"},
    {"colons", "0a:1b:2c:3d:4e:5f", "0a:1b:2c:3d:"},
};

TEST_F(Slaves, AreAddedToAnEmptyTableByMac) {
    for (const LookUp& c : kLookUps) {
        SCOPED_TRACE(c.name);
        for (const std::uint8_t code : Bytes{105, 106}) {
            run("DELETE FROM EsclavosModulo");
            EXPECT_EQ(exchange(of_slave(code, c.mac, {0})).changes, new_row(c.stored)) << +code;
        }
    }
}

TEST_F(Slaves, AreNotAddedBesideAnother) {
    for (const auto& keys : std::vector<std::vector<long long>>{{1}, {7}, {1, 2}, {3, 4}, {-1}}) {
        run("DELETE FROM EsclavosModulo");
        for (const long long key : keys)
            add_slave(key);
        for (const std::uint8_t code : Bytes{105, 106, 111})
            EXPECT_THAT(exchange(of_slave(code, kMac, {0})).changes, IsEmpty())
                << +code << " beside " << keys.size() << " from " << keys[0];
    }
}

TEST_F(Slaves, ThatOnlyNameAChannelAreNotAdded) {
    for (const std::uint8_t code : Bytes{107, 108})
        EXPECT_THAT(exchange({code, 9}).changes, IsEmpty());
}

TEST_F(Slaves, AreRefusedWithoutAnyData) {
    for (const Logged& c : kLogged) {
        SCOPED_TRACE(+c.code);
        const Exchange refused = exchange({c.code});
        EXPECT_EQ(refused.answer, to_hex(Bytes(255)));
        EXPECT_THAT(refused.changes, IsEmpty());
        EXPECT_THAT(log_.take(),
                    ElementsAre(kCommandLine, "<28>Comando con longitud no esperada.\n"));
    }
}

// 105, 107 and 108: the pending state of a channel.

struct Pending {
    const char* set;  // SQL
    std::uint8_t channel;
    const char* answer;
};

const Pending kPending[] = {
    {"EstadoPendienteRE = 5 - 4 * IdEntradaAV", 0, "69 00 05"},
    {"EstadoPendienteRE = 5 - 4 * IdEntradaAV", 1, "69 01 01"},
    {"EstadoPendienteRE = 5", 2, "69 02 00"},  // there is no such channel
    {"EstadoPendienteRE = 5", 255, "69 FF 00"},
    {"EstadoPendienteRE = 255", 0, "69 00 FF"},
    {"EstadoPendienteRE = 258", 0, "69 00 02"},
    {"EstadoPendienteRE = -1", 0, "69 00 FF"},
    {"EstadoPendienteRE = NULL", 0, "69 00 00"},
    // of another process
    {"EstadoPendienteRE = 0, EstadoPendienteWR = 7", 0, "69 00 00"},
};

TEST_F(Slaves, AreToldThePendingStateOfAChannel) {
    add_slave(1);
    for (const Pending& c : kPending) {
        SCOPED_TRACE(c.answer);
        run(std::string("UPDATE EntradaAV SET ") + c.set);
        const Exchange told = exchange(of_slave(105, kMac, {c.channel}));
        EXPECT_EQ(told.answer, c.answer);
        EXPECT_THAT(told.changes, IsEmpty());
    }
    log_.take();
}

TEST_F(Slaves, AreToldThePendingStateOfARowOutOfTheBoardsOwn) {
    add_slave(1);
    run("INSERT INTO EntradaAV (IdEntradaAV, EstadoPendienteRE) VALUES (2, 66), (255, 99), (-1, 7)");
    EXPECT_EQ(answer(of_slave(105, kMac, {2})), "69 02 42");
    EXPECT_EQ(answer(of_slave(105, kMac, {255})), "69 FF 63");
}

struct Settled {
    Bytes info;
    Lines changes;
};

const Settled kSettled[] = {
    {{107, 0}, {"EntradaAV 0 EstadoPendienteRE: 5 -> 0"}},
    {{107, 1}, {"EntradaAV 1 EstadoPendienteRE: 5 -> 0"}},
    {{107, 2}, {}},
    {{107, 255}, {"EntradaAV 255 EstadoPendienteRE: 5 -> 0"}},
    {{108, 0}, {"EntradaAV 0 EstadoPendienteRE: 5 -> 2"}},
    {{108, 1}, {"EntradaAV 1 EstadoPendienteRE: 5 -> 2"}},
    {{108, 2}, {}},
    {{108, 255}, {"EntradaAV 255 EstadoPendienteRE: 5 -> 2"}},
    // More is not looked at, not even where the others have their channel.
    {{107, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {"EntradaAV 1 EstadoPendienteRE: 5 -> 0"}},
    {{108, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, {"EntradaAV 0 EstadoPendienteRE: 5 -> 2"}},
};

TEST_F(Slaves, ResetAndConfirmThePendingStateOfAChannel) {
    run("INSERT INTO EntradaAV (IdEntradaAV) VALUES (255), (-1)");
    for (const Settled& c : kSettled) {
        SCOPED_TRACE(to_hex(c.info));
        run("UPDATE EntradaAV SET EstadoPendienteRE = 5");
        log_.take();
        const Exchange settled = exchange(c.info);
        EXPECT_EQ(settled.answer, "");
        EXPECT_EQ(settled.changes, c.changes);
        // A channel that is not there is no problem worth a line.
        EXPECT_EQ(log_.take().size(), 2U);
    }
}

TEST_F(Slaves, SeeOfThePendingStateWhatWasMadeOfIt) {
    const auto pending = [](std::uint8_t channel) {
        return answer(of_slave(105, kMac, {channel}));
    };
    EXPECT_EQ(pending(1), "69 01 00");
    answer({108, 1});
    EXPECT_EQ(pending(1), "69 01 02");
    EXPECT_EQ(pending(0), "69 00 00");
    run("UPDATE EntradaAV SET EstadoPendienteRE = 1");
    EXPECT_EQ(pending(1), "69 01 01");
    answer({107, 1});
    EXPECT_EQ(pending(1), "69 01 00");
    EXPECT_EQ(pending(0), "69 00 01");
}

// 106: the settings of an encoder.

// Each with a value of its own, the low bytes of which are sent.
constexpr char kEncoderColumns[] =
    "Sharpness = ?1 + 2, Video_Enc_Standard = ?1 + 3, Bitrate = ?1 + 4,"
    "Audio_Enc_Standard = ?1 + 6, Audio_Bitrate = ?1 + 7, Video_Aspect_Ratio = ?1 + 8,"
    "Remux_Av = ?1 + 9, Pid_Video_Ch = ?1 + 10, Pid_Audio_Ch = ?1 + 12, Pid_Pcr_Ch = ?1 + 14,"
    "Filter_Mode = ?1 + 16, Low_Latency = ?1 + 17, Profile = ?1 + 18, Level = ?1 + 19,"
    "Remote_Audio_Sampling_Rate = ?1 + 20, Remote_Needs_Reload_Firmware = ?1 + 22,"
    "Remote_Sistema_TV = ?1 + 23, Remote_Stop = ?1 + 24, Remote_Video_Present = ?1 + 25,"
    "Remote_Audio_Present = ?1 + 26, Remote_Modo_Salida = ?1 + 27";

void set_encoder(int channel, int from) {
    std::string columns = kEncoderColumns;
    for (std::size_t at = 0; (at = columns.find("?1", at)) != std::string::npos;)
        columns.replace(at, 2, std::to_string(from));
    Database(kConfDb).run("UPDATE EntradaAV SET " + columns +
                          " WHERE IdEntradaAV = " + std::to_string(channel));
}

TEST_F(Slaves, AreToldTheSettingsOfTheirEncoderEachInItsPlace) {
    add_slave(1);
    set_encoder(0, 0x14300);
    set_encoder(1, 0x2A780);
    const Exchange first = exchange(of_slave(106, kMac, {0}));
    EXPECT_EQ(
        first.answer,
        "6A 00 02 03 43 04 06 07 08 09 43 0A 43 0C 43 0E 10 11 12 13 43 14 16 17 18 19 1A 1B");
    EXPECT_THAT(first.changes, IsEmpty());
    const Exchange second = exchange(of_slave(106, kMac, {1}));
    EXPECT_EQ(
        second.answer,
        "6A 01 82 83 A7 84 86 87 88 89 A7 8A A7 8C A7 8E 90 91 92 93 A7 94 96 97 98 99 9A 9B");
    EXPECT_THAT(second.changes, IsEmpty());
}

// 8000 is 1F40, 256 is 0100, 48000 is BB80, 6500 is 1964, 44100 is AC44
TEST_F(Slaves, AreToldTheSettingsOfTheSampleBoard) {
    EXPECT_EQ(
        answer(of_slave(106, kMac, {0})),
        "6A 00 03 01 1F 40 01 03 01 00 01 00 01 01 01 00 00 00 02 04 BB 80 00 21 00 01 01 00");
    EXPECT_EQ(
        answer(of_slave(106, kMac, {1})),
        "6A 01 04 01 19 64 01 04 00 00 02 00 02 01 02 00 01 01 01 03 AC 44 00 11 00 01 01 00");
}

TEST_F(Slaves, AreToldZerosOfAnEncoderThatIsNotThere) {
    EXPECT_EQ(
        answer(of_slave(106, kMac, {2})),
        "6A 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(
        answer(of_slave(106, kMac, {255})),
        "6A FF 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    run("INSERT INTO EntradaAV (IdEntradaAV, Sharpness, Remote_Modo_Salida) VALUES (255, 17, 18)");
    EXPECT_EQ(
        answer(of_slave(106, kMac, {255})),
        "6A FF 11 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 12");
}

struct Setting {
    const char* column;
    std::size_t position;
    const char* bytes;  // of 12A5C3
};

constexpr Setting kSettings[] = {
    {"Sharpness", 2, "C3"},
    {"Video_Enc_Standard", 3, "C3"},
    {"Bitrate", 4, "A5 C3"},
    {"Audio_Enc_Standard", 6, "C3"},
    {"Audio_Bitrate", 7, "C3"},
    {"Video_Aspect_Ratio", 8, "C3"},
    {"Remux_Av", 9, "C3"},
    {"Pid_Video_Ch", 10, "A5 C3"},
    {"Pid_Audio_Ch", 12, "A5 C3"},
    {"Pid_Pcr_Ch", 14, "A5 C3"},
    {"Filter_Mode", 16, "C3"},
    {"Low_Latency", 17, "C3"},
    {"Profile", 18, "C3"},
    {"Level", 19, "C3"},
    {"Remote_Audio_Sampling_Rate", 20, "A5 C3"},
    {"Remote_Needs_Reload_Firmware", 22, "C3"},
    {"Remote_Sistema_TV", 23, "C3"},
    {"Remote_Stop", 24, "C3"},
    {"Remote_Video_Present", 25, "C3"},
    {"Remote_Audio_Present", 26, "C3"},
    {"Remote_Modo_Salida", 27, "C3"},
};

TEST_F(Slaves, AreToldOfEachColumnAloneAndOfNoOther) {
    std::string all_zero;
    Lines columns;
    for (const auto& row :
         Database(kConfDb).rows("SELECT name FROM pragma_table_info('EntradaAV') WHERE pk = 0")) {
        columns.push_back(row[0]);
        all_zero += (all_zero.empty() ? "" : ", ") + row[0] + " = 0";
    }
    ASSERT_EQ(columns.size(), 28U);
    for (const std::string& column : columns) {
        SCOPED_TRACE(column);
        run("UPDATE EntradaAV SET " + all_zero);
        run("UPDATE EntradaAV SET " + column + " = 0x12A5C3 WHERE IdEntradaAV = 1");
        Bytes expected(28);
        expected[0] = 106;
        const auto* const setting =
            std::find_if(std::begin(kSettings), std::end(kSettings),
                         [&](const Setting& row) { return row.column == column; });
        if (setting != std::end(kSettings)) {
            const Bytes bytes = hex(setting->bytes);
            std::copy(bytes.begin(), bytes.end(), &expected[setting->position]);
        }
        expected[1] = 1;
        EXPECT_EQ(answer(of_slave(106, kMac, {1})), to_hex(expected));
        expected.assign(28, 0);
        expected[0] = 106;
        EXPECT_EQ(answer(of_slave(106, kMac, {0})), to_hex(expected));
    }
}

// 109: what a remote encoder reports.

struct Report {
    std::string name;
    Bytes text;
    std::string stored;
};

// Ended, of any length.
std::vector<Report> reports() {
    const std::string letters = "abcdefghijklmnopqrst";
    std::vector<Report> all;
    for (std::size_t length = 0; length <= letters.size(); ++length) {
        const std::string text = letters.substr(0, length);
        all.push_back(
            {.name = text, .text = joined({text_bytes(text), {0}}), .stored = text.substr(0, 8)});
    }
    // Not ended. The checksum stands behind the text: of that many zeros and abcdefgh, nothing of
    // it is taken.
    all.push_back(
        {.name = "8 and not ended", .text = text_bytes("abcdefgh"), .stored = "abcdefgh"});
    all.push_back(
        {.name = "9 and not ended", .text = text_bytes("abcdefghi"), .stored = "abcdefgh"});
    all.push_back({.name = "20 and not ended", .text = text_bytes(letters), .stored = "abcdefgh"});
    all.push_back({.name = "NUL within", .text = hex("41 00 42 00"), .stored = "A"});
    all.push_back({.name = "quote", .text = hex("27 3B 2D 2D 00"), .stored = "'';--"});
    all.push_back({.name = "per cent sign", .text = hex("31 25 32 00"), .stored = "1 2"});
    return all;
}

TEST_F(Slaves, ReportTheStateOfTheirEncoder) {
    add_slave(1);
    const Database state(kTempDb);
    for (const Report& c : reports()) {
        SCOPED_TRACE(c.name);
        state.run(
            "UPDATE alarmasEstado SET valor = '-', EstadoPendienteRE = 0, EstadoPendienteWR = 1");
        log_.take();
        const Contents before = contents();
        EXPECT_EQ(answer(of_slave(109, kMac, c.text)), "6D 00");
        Contents expected = before;
        expected["alarmasEstado estado_remote_encoder valor"] = "'" + c.stored + "'";
        expected["alarmasEstado estado_remote_encoder EstadoPendienteRE"] = "2";
        EXPECT_THAT(changes(expected, contents()), IsEmpty());
        EXPECT_EQ(log_.take().size(), 2U);
    }
}

TEST_F(Slaves, ReportAStateThatRunsOnIntoItsCodes) {
    // The negative of 03 + 11 + 6D + 61 + 62 + 63 with an empty MAC.
    EXPECT_EQ(answer(of_slave(109, "", text_bytes("abc"))), "6D 00");
    EXPECT_EQ(Database(kTempDb).value(
                  "SELECT valor FROM alarmasEstado WHERE nombre = 'estado_remote_encoder'"),
              "abc\x59");
}

TEST_F(Slaves, ReportIntoARowOfTheNameWhateverItsKey) {
    Database(kTempDb).run(
        "UPDATE alarmasEstado SET nombre = 'x' WHERE nombre = 'estado_remote_encoder';"
        "UPDATE alarmasEstado SET nombre = 'estado_remote_encoder' WHERE nombre = 'alarma_cod'");
    add_slave(1);
    EXPECT_THAT(exchange(of_slave(109, kMac, hex("41 00"))).changes,
                ElementsAre("alarmasEstado estado_remote_encoder EstadoPendienteRE: 0 -> 2",
                            "alarmasEstado estado_remote_encoder valor: '0' -> 'A'"));
}

TEST_F(Slaves, AreToldNothingOfAReportThatCouldNotBeStored) {
    add_slave(1);
    for (const char* sql : {
             "INSERT INTO alarmasEstado (nombre, valor) VALUES ('estado_remote_encoder', '0')",
             "DELETE FROM alarmasEstado WHERE nombre = 'estado_remote_encoder'",
         }) {
        SCOPED_TRACE(sql);
        Database(kTempDb).run(sql);
        log_.take();
        const Exchange lost = exchange(of_slave(109, kMac, hex("41 00")));
        EXPECT_EQ(lost.answer, "6D 00");
        EXPECT_THAT(lost.changes, IsEmpty());
        EXPECT_EQ(log_.take().size(), 2U);
    }
}

// 110: a registration.

// 0: the sub-command; 1: the MAC address, a zero behind; 14: host name; 32: serial number;
// 45: model - the one before ends at 43, a zero behind; 55: address with the line end of its
// script; 71: version 2.4.1; 74: registered
constexpr char kIdentity[] =
    "6E "
    "30 30 31 61 32 62 33 63 34 64 35 65 00 "
    "63 61 62 65 63 65 72 61 2D 31 00 00 00 00 00 00 00 00 "
    "5A 4E 32 30 32 34 30 30 30 31 32 33 00 "
    "5A 4E 44 32 41 56 2D 54 00 00 "
    "31 36 39 2E 32 35 34 2E 33 34 2E 32 31 0A 00 00 "
    "02 04 01 ";
const std::string kRegistered = std::string(kIdentity) + "00";
const std::string kRefused = std::string(kIdentity) + "01";

struct Slave {
    const char* name;
    Registration sent;
    std::string row;  // without its key and its numbers
};

// clang-format off
const Slave kSlaves[] = {
    {.name = "ordinary",
     .sent = {"0a1b2c3d4e5f", "esclavo-1", "SN0001", "ZND1", "169.254.34.22", {1, 2, 3}},
     .row = "0a1b2c3d4e5f|esclavo-1|SN0001|ZND1|169.254.34.22|1.2.3"},
    {.name = "empty", .sent = {"", "", "", "", "", {0, 0, 0}}, .row = "|||||0.0.0"},
    // each as long as its field allows
    {.name = "longest",
     .sent = {"0123456789ab",
              "abcdefghijklmnopq",
              "ABCDEFGHIJKL",
              "123456789",
              "255.255.255.255",
              {10, 9, 99}},
     .row = "0123456789ab|abcdefghijklmnopq|ABCDEFGHIJKL|123456789|255.255.255.255|10.9.99"},
    // Of a field without its NUL the last character is not taken, nor is the next field.
    {.name = "not ended",
     .sent = {"0123456789abc",
              "abcdefghijklmnopqr",
              "ABCDEFGHIJKLM",
              "1234567890",
              "255.255.255.2556",
              {1, 1, 1}},
     .row = "0123456789ab|abcdefghijklmnopq|ABCDEFGHIJKL|123456789|255.255.255.255|1.1.1"},
    {.name = "one character each",
     .sent = {"m", "h", "s", "o", "i", {9, 9, 9}},
     .row = "m|h|s|o|i|9.9.9"},
    {.name = "quotes",
     .sent = {"'", "a'b''", "\"", "--;", "');", {1, 0, 0}},
     .row = "'|a'b''|\"|--;|');|1.0.0"},
    // 7 characters are stored of a version
    {.name = "version of 7",
     .sent = {"m", "h", "s", "o", "i", {10, 20, 3}},
     .row = "m|h|s|o|i|10.20.3"},
    {.name = "version of 8",
     .sent = {"m", "h", "s", "o", "i", {10, 20, 34}},
     .row = "m|h|s|o|i|10.20.3"},
    {.name = "version of 11",
     .sent = {"m", "h", "s", "o", "i", {255, 255, 255}},
     .row = "m|h|s|o|i|255.255"},
    {.name = "version that ends in a full stop",
     .sent = {"m", "h", "s", "o", "i", {100, 20, 5}},
     .row = "m|h|s|o|i|100.20."},
    {.name = "version 0.0.1",
     .sent = {"m", "h", "s", "o", "i", {0, 0, 1}},
     .row = "m|h|s|o|i|0.0.1"},
};

TEST_F(Slaves, RegisterInTheRowOfKey1) {
    for (const Slave& c : kSlaves) {
        SCOPED_TRACE(c.name);
        for (const bool known : {false, true}) {
            run("DELETE FROM EsclavosModulo");
            if (known)
                add_slave(1);
            EXPECT_EQ(answer(registration(c.sent)), kRegistered);
            EXPECT_THAT(slave_rows(), ElementsAre("1|" + c.row + "|1|0|0|0"));
            EXPECT_THAT(log_.take(), ElementsAre(kCommandLine));
        }
    }
}

TEST_F(Slaves, RegisterWithNoOtherCellChanged) {
    add_slave(1);
    const Exchange registered = exchange(
        registration({"0a1b2c3d4e5f", "esclavo-1", "SN0001", "ZND1", "169.254.34.22", {1, 2, 3}}));
    EXPECT_THAT(
        registered.changes,
        ElementsAre(
            "EsclavosModulo 1 Estado: 5 -> 1", "EsclavosModulo 1 Hostname: '-' -> 'esclavo-1'",
            "EsclavosModulo 1 IP: '-' -> '169.254.34.22'",
            "EsclavosModulo 1 MAC: '-' -> '0a1b2c3d4e5f'", "EsclavosModulo 1 Master: 8 -> 0",
            "EsclavosModulo 1 Modelo: '-' -> 'ZND1'", "EsclavosModulo 1 Reset_Factory: 6 -> 0",
            "EsclavosModulo 1 SWVersion: '-' -> '1.2.3'",
            "EsclavosModulo 1 Serial: '-' -> 'SN0001'", "EsclavosModulo 1 Upgrade: 7 -> 0"));
}

TEST_F(Slaves, RegisterColumnByColumnInAFixedOrder) {
    add_slave(1);
    Trace trace;
    answer(registration({"0a1b", "esclavo-1", "SN0001", "ZND1", "169.254.34.22", {1, 2, 3}}));
    const std::string row = "SELECT * FROM EsclavosModulo WHERE IdEsclavosModulo='1'";
    const auto update = [](const std::string& assignment) {
        return "UPDATE EsclavosModulo SET  " + assignment + "  WHERE IdEsclavosModulo = '1'";
    };
    EXPECT_THAT(trace.take(),
                ElementsAre("SELECT * FROM EsclavosModulo ",  // the look-up
                            row, update("MAC = '0a1b'"),
                            row, update("Hostname = 'esclavo-1'"), row, update("Serial = 'SN0001'"),
                            row, update("Modelo = 'ZND1'"), row, update("IP = '169.254.34.22'"),
                            row, update("SWVersion = '1.2.3'"), row, update("Estado = '1'"), row,
                            update("Reset_Factory = '0'"), row, update("Upgrade = '0'"), row,
                            update("Master = '0'")));
}

TEST_F(Slaves, RegisterOneAfterTheOtherInTheSameRow) {
    EXPECT_EQ(answer(registration({"aaaaaaaaaaaa", "uno", "S1", "M1", "169.254.0.1", {1, 0, 1}})),
              kRegistered);
    EXPECT_THAT(slave_rows(), ElementsAre("1|aaaaaaaaaaaa|uno|S1|M1|169.254.0.1|1.0.1|1|0|0|0"));
    run("UPDATE EsclavosModulo SET Estado = 3, Reset_Factory = 1, Upgrade = 1, Master = 1");
    EXPECT_EQ(answer(registration({"bbbbbbbbbbbb", "dos", "S2", "M2", "169.254.0.2", {2, 0, 2}})),
              kRegistered);
    EXPECT_THAT(slave_rows(), ElementsAre("1|bbbbbbbbbbbb|dos|S2|M2|169.254.0.2|2.0.2|1|0|0|0"));
}

TEST_F(Slaves, RegisterInTheRowOfKey1BesideOthers) {
    for (const long long key : {-1, 0, 1, 2})
        add_slave(key);
    EXPECT_EQ(answer(registration({"aa", "uno", "S1", "M1", "169.254.0.1", {1, 0, 1}})),
              kRegistered);
    EXPECT_THAT(slave_rows(),
                ElementsAre("-1|-|-|-|-|-|-|5|6|7|8", "0|-|-|-|-|-|-|5|6|7|8",
                            "1|aa|uno|S1|M1|169.254.0.1|1.0.1|1|0|0|0", "2|-|-|-|-|-|-|5|6|7|8"));
}

// One line for each of the ten writes.
const Lines kNotRegistered = [] {
    Lines lines(10, kErrorLine);
    lines.insert(lines.begin(), kCommandLine);
    return lines;
}();

TEST_F(Slaves, AreToldThatTheirRowIsMissing) {
    add_slave(7);
    const Exchange refused =
        exchange(registration({"aa", "uno", "S1", "M1", "169.254.0.1", {1, 0, 1}}));
    EXPECT_EQ(refused.answer, kRefused);
    EXPECT_THAT(refused.changes, IsEmpty());
    EXPECT_EQ(log_.take(), kNotRegistered);
    EXPECT_THAT(take_pauses(), IsEmpty());
}

// Another process has the row away while the second of the ten writes looks for it.
int take_row_away(unsigned /*event*/, void* seen, void* /*statement*/, void* /*text*/) {
    constexpr int kSecondWrite = 4;  // behind the look-up and two statements of the first write
    const int statement = ++*static_cast<int*>(seen);
    if (statement == kSecondWrite)
        Database(kConfDb).run("UPDATE EsclavosModulo SET IdEsclavosModulo = 7");
    if (statement == kSecondWrite + 1)
        Database(kConfDb).run("UPDATE EsclavosModulo SET IdEsclavosModulo = 1");
    return 0;
}

TEST_F(Slaves, AreToldThatOneWriteOfManyFailed) {
    add_slave(1);
    int statements = 0;
    sqlite3_trace_v2(ConfDB, SQLITE_TRACE_STMT, take_row_away, &statements);
    EXPECT_EQ(answer(registration({"aa", "uno", "S1", "M1", "169.254.0.1", {1, 0, 1}})), kRefused);
    EXPECT_THAT(slave_rows(), ElementsAre("1|aa|-|S1|M1|169.254.0.1|1.0.1|1|0|0|0"));
    EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kErrorLine));
}

TEST_F(Slaves, AreToldThatTheirRowIsThereTwice) {
    add_slave(1);
    double_row("EsclavosModulo", 1);
    EXPECT_EQ(answer(of_slave(110, kMac)), kRefused);
    EXPECT_THAT(slave_rows(), ElementsAre("1|-|-|-|-|-|-|5|6|7|8", "1|-|-|-|-|-|-|5|6|7|8"));
    EXPECT_EQ(log_.take(), kNotRegistered);
}

TEST_F(Slaves, AreToldThatThereIsNoTable) {
    run("DROP TABLE EsclavosModulo");
    std::string told;
    printed_by([&] { told = answer(of_slave(110, kMac)); });
    EXPECT_EQ(told, kRefused);
    EXPECT_EQ(log_.take(), kNotRegistered);
    // A look-up, the row that it would add, and ten rows looked for; three attempts each.
    EXPECT_EQ(take_pauses().size(), 36U);
}

// A write counts as done when its row was found.
TEST_F(Slaves, AreToldNothingOfWritesThatTheDatabaseRefuses) {
    add_slave(1);
    ASSERT_EQ(sqlite3_exec(ConfDB, "PRAGMA query_only = ON", nullptr, nullptr, nullptr), SQLITE_OK);
    std::string told;
    printed_by([&] {
        told = answer(registration({"aa", "uno", "S1", "M1", "169.254.0.1", {1, 0, 1}}));
    });
    // clang-format on
    EXPECT_EQ(told, kRegistered);
    EXPECT_THAT(slave_rows(), ElementsAre("1|-|-|-|-|-|-|5|6|7|8"));
    EXPECT_THAT(log_.take(), ElementsAre(kCommandLine));
}

struct Source {
    const char* name;
    void (*change)();
    std::size_t position;
    const char* bytes;
};

const Source kSources[] = {
    {"no MAC script", [] { fs::remove("/quelt/script/MAC"); }, 1,
     "00 00 00 00 00 00 00 00 00 00 00 00"},
    {"another MAC", [] { write_script("/quelt/script/MAC", "echo FF:EE:DD:CC:BB:AA"); }, 1,
     "46 46 45 45 44 44 43 43 42 42 41 41"},
    {"no host name", [] { name_board("exit 1"); }, 14,
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    {"host name of 18", [] { name_board("echo ABCDEFGHIJKLMNOPQR"); }, 14,
     "41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 51 00"},
    {"no serial number", [] { fs::remove("/quelt/conf/quelt_numserie"); }, 32,
     "00 00 00 00 00 00 00 00 00 00 00 00 00"},
    {"serial number of 13", [] { write_file("/quelt/conf/quelt_numserie", "ABCDEFGHIJKLM\n"); }, 32,
     "41 42 43 44 45 46 47 48 49 4A 4B 4C 00"},
    {"no model", [] { fs::remove("/quelt/conf/quelt_modelo"); }, 45,
     "00 00 00 00 00 00 00 00 00 00"},
    {"model of 10", [] { write_file("/quelt/conf/quelt_modelo", "ABCDEFGHIJ\n"); }, 45,
     "41 42 43 44 45 46 47 48 49 00"},
    {"no address", [] { fs::remove("/quelt/script/get_slave_ip.sh"); }, 55,
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    // There is no room for its line end.
    {"longest address",
     [] { write_script("/quelt/script/get_slave_ip.sh", "echo 169.254.134.121"); }, 55,
     "31 36 39 2E 32 35 34 2E 31 33 34 2E 31 32 31 00"},
    {"address without a line end",
     [] { write_script("/quelt/script/get_slave_ip.sh", "printf 10.0.0.1"); }, 55,
     "31 30 2E 30 2E 30 2E 31 00 00 00 00 00 00 00 00"},
    {"empty address", [] { write_script("/quelt/script/get_slave_ip.sh", "echo"); }, 55,
     "0A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    {"no versions", [] { fs::remove("/quelt/script/get_board_versions.sh"); }, 71, "00 00 00"},
    {"other versions",
     [] {
         write_script("/quelt/script/get_board_versions.sh",
                      "echo x Hardware: 9.9.9; echo x Software: 255.128.7; echo x U-Boot: 8.8.8");
     },
     71, "FF 80 07"},
};

TEST(SlavesMaster, IsReadAfreshForEachRegistration) {
    for (const Source& c : kSources) {
        SCOPED_TRACE(c.name);
        const OpenBoard board;
        forget_name();
        EXPECT_EQ(to_hex(answer_to(kWrite, of_slave(110, kMac))), kRegistered);
        Bytes expected = hex(kRegistered);
        ASSERT_EQ(expected.size(), 75U);
        const Bytes bytes = hex(c.bytes);
        std::copy(bytes.begin(), bytes.end(), &expected[c.position]);
        std::string told;
        c.change();
        // The shell says of a script that it is missing.
        printed_by([&] { told = to_hex(answer_to(kWrite, of_slave(110, kMac))); });
        EXPECT_EQ(told, to_hex(expected));
    }
}

TEST_F(Slaves, AreToldZerosByAMasterThatKnowsNothingOfItself) {
    fs::remove_all("/quelt/script");
    fs::remove_all("/quelt/conf");
    name_board("exit 1");
    std::string told;
    printed_by([&] { told = answer(of_slave(110, kMac)); });
    Bytes expected(75);
    expected[0] = 110;
    EXPECT_EQ(told, to_hex(expected));
}

// 111: the query for an upgrade.

struct Upgrade {
    const char* cells;  // null for a row of another key
    const char* answer;
};

const Upgrade kUpgrades[] = {
    {"'', '', '', '', '', '', 5, 6, 0, 8", "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00"},
    {"'', '', '', '', '', '', 5, 6, 1, 8", "6F 01 30 30 31 61 32 62 33 63 34 64 35 65 00"},
    {"'', '', '', '', '', '', 5, 6, 255, 8", "6F FF 30 30 31 61 32 62 33 63 34 64 35 65 00"},
    {"'', '', '', '', '', '', 5, 6, 259, 8", "6F 03 30 30 31 61 32 62 33 63 34 64 35 65 00"},
    {"'', '', '', '', '', '', 5, 6, -1, 8", "6F FF 30 30 31 61 32 62 33 63 34 64 35 65 00"},
    {"'', '', '', '', '', '', 5, 6, NULL, 8", "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00"},
    {nullptr, "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00"},
};

TEST_F(Slaves, AreToldWhetherToUpgradeAndByWhom) {
    for (const Upgrade& c : kUpgrades) {
        SCOPED_TRACE(c.answer);
        run("DELETE FROM EsclavosModulo");
        if (c.cells != nullptr)
            add_slave(1, c.cells);
        else
            add_slave(7);
        const Exchange told = exchange(of_slave(111, kMac));
        EXPECT_EQ(told.answer, c.answer);
        EXPECT_THAT(told.changes, IsEmpty());
    }
}

TEST_F(Slaves, AreToldOfNoUpgradeWhenTheyAreNew) {
    const Exchange told = exchange(of_slave(111, kMac));
    EXPECT_EQ(told.answer, "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00");
    EXPECT_EQ(told.changes, new_row(kMac));
}

TEST_F(Slaves, AreToldOfAnUpgradeByAMasterWithoutMac) {
    add_slave(1);
    fs::remove("/quelt/script/MAC");
    std::string told;
    printed_by([&] { told = answer(of_slave(111, kMac)); });
    EXPECT_EQ(told, "6F 07 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

// 112: a slave's own state.

TEST_F(Slaves, StoreTheirState) {
    for (const std::uint8_t state : Bytes{0, 1, 2, 128, 255}) {
        SCOPED_TRACE(+state);
        run("DELETE FROM EsclavosModulo");
        add_slave(1);
        add_slave(2);
        const Exchange stored = exchange(of_slave(112, kMac, {state, 99}));
        EXPECT_EQ(stored.answer, "");
        EXPECT_THAT(stored.changes,
                    ElementsAre("EsclavosModulo 1 Estado: 5 -> " + std::to_string(state)));
    }
}

TEST_F(Slaves, StoreTheirStateInTheirFirstRow) {
    EXPECT_EQ(answer(of_slave(112, kMac, {9})), "");
    EXPECT_THAT(slave_rows(),
                ElementsAre("1|0a1b2c3d4e5f|NULL|NULL|NULL|NULL|NULL|9|NULL|NULL|NULL"));
}

TEST_F(Slaves, AreToldNothingOfAStateThatCouldNotBeStored) {
    add_slave(7);
    const Exchange lost = exchange(of_slave(112, kMac, {9}));
    EXPECT_EQ(lost.answer, "");
    EXPECT_THAT(lost.changes, IsEmpty());
    EXPECT_THAT(log_.take(), ElementsAre(kCommandLine));
}

// Short requests: what they lack is their checksum and zeros.
struct Short {
    const char* name;
    Bytes info;
    const char* answer;
    std::string mac;     // of the new row
    Lines changes = {};  // besides the row
};

const Short kShort[] = {
    // the checksum is the negative of 03 + 02 + the sub-command + 4D
    {.name = "105", .info = {105, 'M'}, .answer = "69 00 04", .mac = "M\x45"},
    {.name = "106",
     .info = {106, 'M'},
     .answer =
         "6A 00 03 01 1F 40 01 03 01 00 01 00 01 01 01 00 00 00 02 04 BB 80 00 21 00 01 01 00",
     .mac = "M\x44"},
    {.name = "109",
     .info = {109, 'M'},
     .answer = "6D 00",
     .mac = "M\x41",
     .changes = {"alarmasEstado estado_remote_encoder EstadoPendienteRE: 0 -> 2",
                 "alarmasEstado estado_remote_encoder valor: '00000000' -> ''"}},
    {.name = "111",
     .info = {111, 'M'},
     .answer = "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00",
     .mac = "M\x3F"},
    // The channel is the checksum: the negative of 03 + 0E + 69 + F2 is 94.
    {.name = "105 without its channel",
     .info = of_slave(105, "\x85"),
     .answer = "69 01 05",
     .mac = "\x85"},
    {.name = "106 without its channel",
     .info = of_slave(106, "\x83"),
     .answer =
         "6A 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
     .mac = "\x83"},
};

TEST_F(Slaves, SendShortRequestsThatRunOnIntoTheirChecksum) {
    for (const Short& c : kShort) {
        SCOPED_TRACE(c.name);
        run("DELETE FROM EsclavosModulo;"
            "UPDATE EntradaAV SET EstadoPendienteRE = 4 + IdEntradaAV");
        Database(kTempDb).run(
            "UPDATE alarmasEstado SET valor = '00000000', EstadoPendienteRE = 0"
            " WHERE nombre = 'estado_remote_encoder'");
        Lines expected = new_row(c.mac);
        expected.insert(expected.end(), c.changes.begin(), c.changes.end());
        const Exchange told = exchange(c.info);
        EXPECT_EQ(told.answer, c.answer);
        EXPECT_EQ(told.changes, expected);
    }
}

TEST_F(Slaves, RegisterFromAShortRequestWithItsChecksumInAField) {
    // The negative of 03 + 0F + 6E + 4D + 48 is EB.
    EXPECT_EQ(answer(of_slave(110, "M", {'H'})), kRegistered);
    EXPECT_THAT(slave_rows(), ElementsAre("1|M|H\xEB||||0.0.0|1|0|0|0"));
    // The state is the checksum: the negative of 03 + 0E + 70 is 7F.
    EXPECT_EQ(answer(of_slave(112, "")), "");
    EXPECT_THAT(slave_rows(), ElementsAre("1|M|H\xEB||||0.0.0|127|0|0|0"));
}

// A registration of three bytes more than it needs changes nothing in its answer.
TEST_F(Slaves, RegisterFromALongRequest) {
    Bytes info = registration({"0a1b", "esclavo-1", "SN0001", "ZND1", "169.254.34.22", {1, 2, 3}});
    ASSERT_EQ(info.size(), 74U);
    info.resize(255, 'x');
    EXPECT_EQ(answer(info), kRegistered);
    EXPECT_THAT(slave_rows(),
                ElementsAre("1|0a1b|esclavo-1|SN0001|ZND1|169.254.34.22|1.2.3|1|0|0|0"));
}

}  // namespace
