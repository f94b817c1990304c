// The parameter writes of one value: what each of them stores, what it logs, what else it does.
#include "processor/subcommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "processor/board_clock.h"
#include "processor/conf_log.h"
#include "processor/region.h"
#include "processor/slaves.h"
#include "protocol/countries.h"
#include "protocol/description.h"
#include "tests/processor/own_log.h"
#include "tests/processor/plain_subcommands.h"
#include "tests/processor/requests.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"
#include "tests/support/program.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint8_t kWriteCommand = 3;
const std::string kWrite = "<31>CMD: Comando escritura parametros.\n";
const std::string kFailed = "<28>ERROR: Peticion de escritura no exitosa.\n";
const std::string kBadLength = "<28>Comando con longitud no esperada.\n";
const std::string kBadSubcommand = "<28>Comando - Subcomando no reconocido.\n";

const std::string kNetworkScript = "/quelt/script/set_interfaces_db.sh";
const std::string kFactoryScript = "/quelt/script/reset_factory_default.sh";

Bytes write(const Bytes& info) {
    return answer_to(kWriteCommand, info);
}

// A text as it arrives, with its NUL.
Bytes ended(const std::string& text) {
    return joined({text_bytes(text), {0}});
}

class ParameterWrite : public testing::Test {
  protected:
    ParameterWrite() { conf_log = kLogZondar; }

    OpenBoard board_;
    OwnLog log_;
};

// On a board where no two cells hold the same, so that no write goes to the wrong one unseen.
class EachParameterWrite : public ParameterWrite {
  protected:
    EachParameterWrite() {
        number_cells();
        for (const std::string& script : {kNetworkScript, kFactoryScript})
            write_script(script, "echo \"$0\" >> /tmp/runs");
        expected_ = contents();
    }

    // Writes, and compares both databases with what they are to hold: as before, but for `cells`.
    void expect_stored(const Bytes& info, const Contents& cells) {
        SCOPED_TRACE(to_hex(info));
        for (const auto& cell : cells) {
            ASSERT_EQ(expected_.count(cell.first), 1U) << cell.first;
            expected_[cell.first] = cell.second;
        }
        EXPECT_THAT(write(info), IsEmpty());
        EXPECT_THAT(changes(expected_, contents()), IsEmpty());
    }

    // The log of `times` requests.
    void expect_logged(const Plain& row, std::size_t times) {
        std::vector<std::string> expected;
        for (std::size_t i = 0; i < times; ++i) {
            for (const std::string& line : log_of(row))
                expected.push_back(line);
        }
        EXPECT_THAT(log_.take(), ElementsAreArray(expected));
    }

  private:
    Contents expected_;
};

TEST_F(EachParameterWrite, OfANumberStoresItInItsCellAlone) {
    for (const Plain& row : kPlain) {
        if (row.bytes == 0)
            continue;
        SCOPED_TRACE(int{row.code});
        for (const WireNumber& value : numbers_for(row))
            expect_stored(write_of(row, hex(value.bytes)), stored(row, value.number));
        expect_logged(row, numbers_for(row).size());
    }
    EXPECT_EQ(read_file("/tmp/runs"), "");
}

TEST_F(EachParameterWrite, OfATextStoresWhatFitsInItsCellAlone) {
    const std::string letters = "abcdefghijklmnopqrstuvwxyz";
    for (const Plain& row : kPlain) {
        if (row.bytes != 0)
            continue;
        SCOPED_TRACE(int{row.code});
        const std::size_t most = row.room - 1;
        const auto text_of = [&](std::size_t from, std::size_t length) {
            return "'" + letters.substr(from, length) + "'";
        };
        const auto part = [&](std::size_t from, std::size_t length) {
            return ended(letters.substr(from, length));
        };
        // What is behind the text does not count.
        expect_stored(write_of(row, joined({part(0, most - 1), text_bytes("XYZ")})),
                      {{row.cell, text_of(0, most - 1)}});
        expect_stored(write_of(row, part(1, most)), {{row.cell, text_of(1, most)}});
        expect_stored(write_of(row, part(2, most + 1)), {{row.cell, text_of(2, most)}});
        expect_stored(write_of(row, joined({part(3, most + 7), Bytes(220, 0x41)})),
                      {{row.cell, text_of(3, most)}});
        expect_stored(write_of(row, part(4, 1)), {{row.cell, text_of(4, 1)}});
        expect_stored(write_of(row, part(5, 0)), {{row.cell, "''"}});
        // Not ended, but full.
        expect_stored(write_of(row, text_bytes(letters.substr(6, most))),
                      {{row.cell, text_of(6, most)}});
        expect_logged(row, 7);
    }
    // Those of 68 to 70.
    std::string runs;
    for (int i = 0; i < 3 * 7; ++i)
        runs += kNetworkScript + "\n";
    EXPECT_EQ(read_file("/tmp/runs"), runs);
}

TEST_F(EachParameterWrite, IsOfASubcommandOfTheTable) {
    std::set<int> codes = {19, 20, 71, 72, 73, 80, 105, 106, 107, 108, 109, 110, 111, 112};
    for (const Plain& row : kPlain)
        EXPECT_TRUE(codes.insert(row.code).second) << int{row.code};
    std::set<int> there;
    for (const protocol::Subcommand& row : protocol::kSubcommands)
        there.insert(row.code);
    EXPECT_EQ(there, codes);
}

TEST_F(EachParameterWrite, IsLoggedUnderTheProtocolBitAlone) {
    for (const Plain& row : kPlain) {
        SCOPED_TRACE(int{row.code});
        const Bytes info = write_of(row, hex("01 00 00"));
        for (const std::uint32_t mask : {0U, 0x3FU, 0xFFFFFFBFU}) {
            conf_log = mask;
            EXPECT_THAT(write(info), IsEmpty());
        }
        EXPECT_THAT(log_.take(), IsEmpty());
        for (const std::uint32_t mask : {0x40U, 0x7FU, 0xFFFFFFFFU}) {
            conf_log = mask;
            EXPECT_THAT(write(info), IsEmpty());
        }
        expect_logged(row, 3);
    }
}

// Whatever is wrong with the row, the master is not told.
TEST_F(EachParameterWrite, LogsThatItsRowIsNotThere) {
    const auto spoil = [](const std::string& table, bool doubled) {
        if (!doubled)
            return run_elsewhere(kConfDb, "DELETE FROM " + table);
        const bool keyed = table == "EntradaAV" || table == "ServiciosSalida";
        for (const long long key : keyed ? std::vector<long long>{0, 1} : std::vector<long long>{1})
            double_row(table, key);
    };
    for (const std::string table :
         {"ConfiguracionGen", "EntradaAV", "RFOut", "ServiciosSalida", "Red", "IPOut"}) {
        for (const bool doubled : {false, true}) {
            SCOPED_TRACE(table + (doubled ? ", two rows" : ", no row"));
            number_cells();
            spoil(table, doubled);
            const Contents before = contents();
            int rows = 0;
            for (const Plain& row : kPlain) {
                // 40 and 41 have no column, but they need the row. 17 writes a second row.
                const std::string cell = row.cell.empty() ? "Red " : row.cell;
                if (!cell.starts_with(table + " ") || row.code == 17)
                    continue;
                SCOPED_TRACE(int{row.code});
                ++rows;
                EXPECT_THAT(write(write_of(row, hex("07 07 00"))), IsEmpty());
                std::vector<std::string> expected = log_of(row);
                expected.push_back(kFailed);
                EXPECT_THAT(log_.take(), ElementsAreArray(expected));
                conf_log = 0xFFFFFFBF;
                EXPECT_THAT(write(write_of(row, hex("07 07 00"))), IsEmpty());
                EXPECT_THAT(log_.take(), IsEmpty());
                conf_log = kLogZondar;
            }
            EXPECT_GE(rows, 6);
            EXPECT_THAT(changes(before, contents()), IsEmpty());
        }
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

// Refusals

std::set<int> known_codes() {
    std::set<int> codes;
    for (const document::Row& row : document::table("| Code | Name in the log"))
        codes.insert(std::stoi(row[0]));
    return codes;
}

TEST_F(EachParameterWrite, OfAnUnknownSubcommandIsRefused) {
    const std::set<int> known = known_codes();
    const Contents before = contents();
    std::size_t refused = 0;
    for (int code = 0; code <= 255; ++code) {
        if (known.contains(code))
            continue;
        SCOPED_TRACE(code);
        const auto byte = static_cast<std::uint8_t>(code);
        for (const Bytes& info : {Bytes{byte, 1}, Bytes{byte, 0, 0, 0}, Bytes(255, byte)}) {
            ++refused;
            EXPECT_EQ(to_hex(write(info)), to_hex(Bytes(255)));
            EXPECT_THAT(log_.take(), ElementsAre(kWrite, kBadSubcommand));
        }
    }
    EXPECT_EQ(refused, (256 - known.size()) * 3);
    conf_log = 0xFFFFFFBF;
    EXPECT_EQ(to_hex(write({54, 1})), to_hex(Bytes(255)));
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    EXPECT_EQ(read_file("/tmp/runs"), "");
}

TEST_F(EachParameterWrite, WithoutAValueIsRefused) {
    const Contents before = contents();
    EXPECT_EQ(to_hex(write({})), to_hex(Bytes(255)));
    EXPECT_THAT(log_.take(), ElementsAre(kWrite, kBadLength));
    for (int code = 0; code <= 255; ++code) {
        SCOPED_TRACE(code);
        EXPECT_EQ(to_hex(write({static_cast<std::uint8_t>(code)})), to_hex(Bytes(255)));
        EXPECT_THAT(log_.take(), ElementsAre(kWrite, kBadLength));
    }
    conf_log = 0xFFFFFFBF;
    EXPECT_EQ(to_hex(write({2})), to_hex(Bytes(255)));
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    EXPECT_EQ(read_file("/tmp/runs"), "");
}

// The length says so, not what stands in the record.
TEST_F(EachParameterWrite, LooksAtTheLengthNotAtTheBytesBehind) {
    mensaje request = request_of(kWriteCommand, {2, 77});
    request.longitud = 1;
    EXPECT_EQ(answer_to(request).size(), 255U);
    EXPECT_THAT(log_.take(), ElementsAre(kWrite, kBadLength));
}

// Single cases on the sample board

struct Case {
    const char* name;
    std::string sql = {};               // before, on the configuration database
    const char* info = "";              // of the request
    const char* codes = "";             // behind the info; else the checksum of normal mode
    std::vector<std::string> log = {};  // behind the line of the command
    std::vector<std::string> changes = {};
};

const std::string kModoEntrada = "<31>Subcomando Modo Entrada.\n";
const std::string kAudioBitrate2 = "<31>Subcomando SUBCOMMAND_AUDIO_BITRATE_CH2\n";
const std::string kCofdmOff = "<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n";
const std::string kChannel = "<31>Subcomando SUBCOMMAND_CANAL_SALIDA_1\n";
const std::string kFrequency = "<31>Subcomando SUBCOMMAND_FRECUENCIA_1\n";
const std::string kGuard = "<31>Subcomando SUBCOMMAND_INTERVALO_GUARDA_1\n";
const std::string kVideo1 = "<31>Subcomando SUBCOMMAND_VIDEO_SERV1\n";
const std::string kAudio1 = "<31>Subcomando SUBCOMMAND_AUDIO_SERV1\n";
const std::string kVideo2 = "<31>Subcomando SUBCOMMAND_VIDEO_SERV2\n";
const std::string kAudio2 = "<31>Subcomando SUBCOMMAND_AUDIO_SERV2\n";
const std::string kName1 = "<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n";
const std::string kBitrate1 = "<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n";
const std::string kLcn1 = "<31>Subcomando SUBCOMMAND_LCN_SERV1\n";

std::string country(const char* name) {
    return std::string("UPDATE ConfiguracionGen SET Country = '") + name + "'";
}

const std::vector<Case> kCases = {
    // Input modes above 2 have other numbers in the database.
    {.name = "input mode 2",
     .info = "01 02",
     .log = {kModoEntrada},
     .changes = {"ConfiguracionGen 1 Modo_Entrada: 0 -> 2"}},
    {.name = "input mode 3",
     .info = "01 03",
     .log = {kModoEntrada},
     .changes = {"ConfiguracionGen 1 Modo_Entrada: 0 -> 10"}},
    {.name = "input mode 4",
     .info = "01 04",
     .log = {kModoEntrada},
     .changes = {"ConfiguracionGen 1 Modo_Entrada: 0 -> 11"}},
    {.name = "input mode 5",
     .info = "01 05",
     .log = {kModoEntrada},
     .changes = {"ConfiguracionGen 1 Modo_Entrada: 0 -> 5"}},
    // 17 goes on as 18.
    {.name = "audio bitrate of channel 2 and COFDM",
     .info = "11 01",
     .log = {kAudioBitrate2, kCofdmOff},
     .changes = {"EntradaAV 1 Audio_Bitrate: 4 -> 1", "RFOut 1 Cofdm_Off: 0 -> 1"}},
    {.name = "audio bitrate of channel 2 fails",
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 1",
     .info = "11 07",
     .log = {kAudioBitrate2, kFailed, kCofdmOff},
     .changes = {"RFOut 1 Cofdm_Off: 0 -> 7"}},
    {.name = "COFDM fails",
     .sql = "DELETE FROM RFOut",
     .info = "11 07",
     .log = {kAudioBitrate2, kCofdmOff, kFailed},
     .changes = {"EntradaAV 1 Audio_Bitrate: 4 -> 7"}},
    {.name = "audio bitrate of channel 2 and COFDM fail",
     .sql = "DELETE FROM RFOut; DELETE FROM EntradaAV",
     .info = "11 07",
     .log = {kAudioBitrate2, kFailed, kCofdmOff, kFailed}},
    {.name = "COFDM alone",
     .info = "12 02",
     .log = {kCofdmOff},
     .changes = {"RFOut 1 Cofdm_Off: 0 -> 2"}},
    // 25 counts from 0, the database from 1.
    {.name = "constellation 0",
     .info = "19 00",
     .log = {kGuard},
     .changes = {"RFOut 1 Constelacion: 3 -> 1"}},
    {.name = "constellation 255",
     .info = "19 FF",
     .log = {kGuard},
     .changes = {"RFOut 1 Constelacion: 3 -> 256"}},
    {.name = "constellation as stored", .info = "19 02", .log = {kGuard}},
    {.name = "guard interval",
     .info = "18 02",
     .log = {kGuard},
     .changes = {"RFOut 1 Intervalo_Guarda: 0 -> 2"}},
    // Streams: 0 is off, which is a stored 2 and a bit of the channel.
    {.name = "video 1 off",
     .info = "1B 00",
     .log = {kVideo1},
     .changes = {"EntradaAV 0 Remux_Av: 0 -> 2", "PIDsSalida 0.1 Seleccionado: 1 -> 2"}},
    {.name = "audio 1 off",
     .info = "1C 00",
     .log = {kAudio1},
     .changes = {"EntradaAV 0 Remux_Av: 0 -> 1", "PIDsSalida 0.2 Seleccionado: 1 -> 2"}},
    {.name = "video 2 off",
     .info = "20 00",
     .log = {kVideo2},
     .changes = {"EntradaAV 1 Remux_Av: 0 -> 2", "PIDsSalida 1.1 Seleccionado: 1 -> 2"}},
    {.name = "audio 2 off",
     .info = "21 00",
     .log = {kAudio2},
     .changes = {"EntradaAV 1 Remux_Av: 0 -> 1", "PIDsSalida 1.2 Seleccionado: 1 -> 2"}},
    {.name = "video 1 off, its audio is",
     .sql = "UPDATE PIDsSalida SET Seleccionado = 2 WHERE fk_idServicio = 0 AND Tipo = 2",
     .info = "1B 00",
     .log = {kVideo1},
     .changes = {"EntradaAV 0 Remux_Av: 0 -> 3", "PIDsSalida 0.1 Seleccionado: 1 -> 2"}},
    {.name = "audio 2 on, its video is off",
     .sql = "UPDATE PIDsSalida SET Seleccionado = 2 WHERE fk_idServicio = 1;"
            "UPDATE EntradaAV SET Remux_Av = 3",
     .info = "21 01",
     .log = {kAudio2},
     .changes = {"EntradaAV 1 Remux_Av: 3 -> 2", "PIDsSalida 1.2 Seleccionado: 2 -> 1"}},
    {.name = "video 1 without its channel",
     .sql = "DELETE FROM EntradaAV",
     .info = "1B 00",
     .log = {kVideo1, kFailed},
     .changes = {"PIDsSalida 0.1 Seleccionado: 1 -> 2"}},
    {.name = "audio 2 with two such channels",
     .sql = "CREATE TABLE copy AS SELECT * FROM EntradaAV; DROP TABLE EntradaAV;"
            "CREATE TABLE EntradaAV AS SELECT * FROM copy;"
            "INSERT INTO EntradaAV SELECT * FROM copy; DROP TABLE copy",
     .info = "21 00",
     .log = {kAudio2, kFailed},
     .changes = {"PIDsSalida 1.2 Seleccionado: 1 -> 2"}},
    {.name = "audio 1 without its stream",
     .sql = "DELETE FROM PIDsSalida WHERE fk_idServicio = 0 AND Tipo = 2",
     .info = "1C 00",
     .log = {kAudio1, kFailed},
     .changes = {"EntradaAV 0 Remux_Av: 0 -> 1"}},
    {.name = "video 2 with two such streams",
     .sql = "UPDATE PIDsSalida SET Tipo = 1",
     .info = "20 00",
     .log = {kVideo2, kFailed},
     .changes = {"EntradaAV 1 Remux_Av: 0 -> 2"}},
    {.name = "video 2 without any row",
     .sql = "DELETE FROM PIDsSalida; DELETE FROM EntradaAV",
     .info = "20 00",
     .log = {kVideo2, kFailed}},
    // 40 and 41 write nothing, and that is no failure.
    {.name = "TSID", .info = "28 12 34", .log = {"<31>Subcomando SUBCOMMAND_TSID_OUT\n"}},
    {.name = "ONID", .info = "29 12 34", .log = {"<31>Subcomando SUBCOMMAND_ONID_OUT\n"}},
    // 74 is not what it is called.
    {.name = "subtimezone",
     .info = "4A 06",
     .log = {"<31>Subcomando SUBCOMMAND_IDTIMEZONE\n"},
     .changes = {"ConfiguracionGen 1 Subtimezone: 0 -> 6"}},

    // Channel to frequency: 22, 69, 100, 0.
    {.name = "channel 22",
     .info = "13 16",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 22", "RFOut 1 Frecuencia: 474000 -> 482000"}},
    {.name = "channel 21",
     .sql = "UPDATE RFOut SET Frecuencia = 1",
     .info = "13 15",
     .log = {kChannel},
     .changes = {"RFOut 1 Frecuencia: 1 -> 474000"}},
    {.name = "Australian channel 69",
     .sql = country("Australia"),
     .info = "13 45",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 69", "RFOut 1 Frecuencia: 474000 -> 816500"}},
    {.name = "channel 100",
     .info = "13 64",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 100", "RFOut 1 Frecuencia: 474000 -> 736500"}},
    {.name = "channel 0, below the first",
     .info = "13 00",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 0", "RFOut 1 Frecuencia: 474000 -> 36500"}},
    {.name = "channel of no country",
     .sql = "UPDATE ConfiguracionGen SET Country = NULL",
     .info = "13 05",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 5", "RFOut 1 Frecuencia: 474000 -> 177500"}},
    {.name = "channel without configuration",
     .sql = "DELETE FROM ConfiguracionGen",
     .info = "13 06",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 6", "RFOut 1 Frecuencia: 474000 -> 184500"}},
    {.name = "channel with two configurations, which count for none",
     .sql = country("Australia") + "; INSERT INTO ConfiguracionGen (Country) VALUES ('Australia')",
     .info = "13 06",
     .log = {kChannel},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 6", "RFOut 1 Frecuencia: 474000 -> 184500"}},
    {.name = "channel without output",
     .sql = "DELETE FROM RFOut",
     .info = "13 16",
     .log = {kChannel, kFailed}},
    {.name = "channel with two outputs",
     .sql = "CREATE TABLE copy AS SELECT * FROM RFOut; DROP TABLE RFOut;"
            "CREATE TABLE RFOut AS SELECT * FROM copy;"
            "INSERT INTO RFOut SELECT * FROM copy; DROP TABLE copy",
     .info = "13 16",
     .log = {kChannel, kFailed}},
    {.name = "channel with an output of another number",
     .sql = "UPDATE RFOut SET idRFOut = 0",
     .info = "13 16",
     .log = {kChannel, kFailed}},

    // Frequency to channel: 474000 is 073B90, 180000 is 02BF20, 537500 is 08339C.
    {.name = "frequency 474000",
     .sql = "UPDATE RFOut SET Canal_Salida = 9, Frecuencia = 8",
     .info = "14 07 3B 90 FF",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 9 -> 21", "RFOut 1 Frecuencia: 8 -> 474000"}},
    {.name = "French frequency 180000",
     .sql = country("France"),
     .info = "14 02 BF 20",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 5", "RFOut 1 Frecuencia: 474000 -> 180000"}},
    {.name = "frequency beside a centre is kept",
     .sql = country("Australia"),
     .info = "14 08 33 9C",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 29", "RFOut 1 Frecuencia: 474000 -> 537500"}},
    {.name = "German frequency 474001",
     .sql = country("Germany"),
     .info = "14 07 3B 91",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 0", "RFOut 1 Frecuencia: 474000 -> 474001"}},
    {.name = "frequency without configuration",
     .sql = "DELETE FROM ConfiguracionGen",
     .info = "14 02 BF 20",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 0", "RFOut 1 Frecuencia: 474000 -> 180000"}},
    {.name = "highest frequency",
     .info = "14 FF FF FF",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 0", "RFOut 1 Frecuencia: 474000 -> 16777215"}},
    {.name = "frequency without output",
     .sql = "DELETE FROM RFOut",
     .info = "14 07 3B 90",
     .log = {kFrequency, kFailed}},

    // Numbers cut short go on into the codes: E1; D7 and A4.
    {.name = "short bitrate",
     .info = "08 12",
     .log = {kBitrate1},
     .changes = {"EntradaAV 0 Bitrate: 8000 -> 4833"}},
    {.name = "short bitrate, CRC8 mode",
     .info = "08 12",
     .codes = "D7 A4",
     .log = {kBitrate1},
     .changes = {"EntradaAV 0 Bitrate: 8000 -> 4823"}},
    {.name = "short bitrate, checksum 0",
     .info = "08 F3",
     .log = {kBitrate1},
     .changes = {"EntradaAV 0 Bitrate: 8000 -> 62208"}},
    {.name = "short channel number",
     .info = "1D 00",
     .log = {kLcn1},
     .changes = {"ServiciosSalida 0 LCN: 1 -> 222"}},
    // 07 3B A4; 07 3B 79
    {.name = "short frequency",
     .info = "14 07 3B",
     .log = {kFrequency},
     .changes = {"RFOut 1 Frecuencia: 474000 -> 474020"}},
    {.name = "short frequency, CRC8 mode",
     .info = "14 07 3B",
     .codes = "79 D9",
     .log = {kFrequency},
     .changes = {"RFOut 1 Frecuencia: 474000 -> 473977"}},
    // 07 E0 00; 07 E8 A7
    {.name = "shorter frequency",
     .info = "14 07",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 26", "RFOut 1 Frecuencia: 474000 -> 516096"}},
    {.name = "shorter frequency, CRC8 mode",
     .info = "14 07",
     .codes = "E8 A7",
     .log = {kFrequency},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 27", "RFOut 1 Frecuencia: 474000 -> 518311"}},

    // So do texts that are not ended, up to a zero: ABC, A, 12, and 1234 which is full already.
    {.name = "open text",
     .info = "1F 41 42 43",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'ABC\x14'"}},
    {.name = "open text, CRC8 mode",
     .info = "1F 41 42 43",
     .codes = "EE AA",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'ABC\xEE\xAA'"}},
    {.name = "open text of one character",
     .info = "1F 41",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'A\x9B'"}},
    {.name = "open text, checksum 0",
     .info = "1F 41 9A",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'A\x9A'"}},
    {.name = "open text, CRC8 mode, checksum 0",
     .info = "1F 41 49",
     .codes = "00 6D",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'AI'"}},
    {.name = "open text, CRC8 mode, CRC 0",
     .info = "1F 41 E1",
     .codes = "68 00",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'A\xE1h'"}},
    {.name = "open text of 13 characters",
     .info = "1F 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'ABCDEFGHIJKLM5'"}},
    {.name = "open text of 13 characters, CRC8 mode: one of the codes fits",
     .info = "1F 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D",
     .codes = "F7 6D",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'ABCDEFGHIJKLM\xF7'"}},
    {.name = "open text of 14 characters",
     .info = "1F 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'ABCDEFGHIJKLMN'"}},
    {.name = "open lock code",
     .info = "4C 31 32",
     .log = {"<31>Subcomando SUBCOMMAND_LCD_CODBLOQUEO\n"},
     .changes = {"ConfiguracionGen 1 Lcd_Codbloqueo: '1234' -> '12K'"}},
    {.name = "full lock code",
     .info = "4C 31 32 33 33",
     .log = {"<31>Subcomando SUBCOMMAND_LCD_CODBLOQUEO\n"},
     .changes = {"ConfiguracionGen 1 Lcd_Codbloqueo: '1234' -> '1233'"}},
    {.name = "empty text",
     .info = "1F 00",
     .log = {kName1},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> ''"}},
    {.name = "text as stored", .info = "1F 43 61 6E 61 6C 20 55 6E 6F 00", .log = {kName1}},
};

// The request of a case, with the codes that it says.
mensaje request_for(const Case& c) {
    const Bytes info = hex(c.info);
    mensaje request = request_of(kWriteCommand, info);
    const Bytes codes = hex(c.codes);
    std::copy(codes.begin(), codes.end(), frame_area(request) + kInfoOffset + info.size());
    if (codes.size() == 2) {
        request.control |= kCrc8ModeBit;
        request.checksum_rx = codes[0];
        request.crc8_rx = codes[1];
    }
    return request;
}

TEST_F(ParameterWrite, StoresAndLogsWhatItsCaseSays) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        run_elsewhere(kConfDb, ".restore /quelt/factory/config_local.sqlite");
        if (!c.sql.empty())
            run_elsewhere(kConfDb, c.sql);
        const Contents before = contents();
        EXPECT_THAT(answer_to(request_for(c)), IsEmpty());
        EXPECT_THAT(changes(before, contents()), ElementsAreArray(c.changes));
        std::vector<std::string> expected = {kWrite};
        expected.insert(expected.end(), c.log.begin(), c.log.end());
        EXPECT_THAT(log_.take(), ElementsAreArray(expected));
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

// What the accessors do not look at

std::string name_of_service_1() {
    return Database(kConfDb).value("SELECT hex(CAST(Nombre AS BLOB)) FROM ServiciosSalida");
}

TEST_F(ParameterWrite, StoresTextsOfAnyEncoding) {
    for (int i = 1; i <= 255; ++i) {
        SCOPED_TRACE(i);
        const auto byte = static_cast<std::uint8_t>(i);
        EXPECT_THAT(write({31, 0x61, byte, byte, 0x7A, 0}), IsEmpty());
        // The first per cent sign of a value becomes a blank.
        const std::uint8_t first = byte == '%' ? std::uint8_t{' '} : byte;
        std::array<char, 9> expected{};
        std::snprintf(expected.data(), expected.size(), "61%02X%02X7A", first, byte);
        EXPECT_EQ(name_of_service_1(), expected.data());
    }
    EXPECT_EQ(Database(kConfDb).value("PRAGMA integrity_check"), "ok");
}

TEST_F(ParameterWrite, StoresTextsThatLookLikeStatements) {
    struct Text {
        const char* sent;
        const char* stored;
        int percent_signs = 0;
    };
    constexpr Text kTexts[] = {
        {"'", "'"},
        {"''", "''"},
        {"\"", "\""},
        {"';--", "';--"},
        {"x', LCN = '9", "x', LCN = '9"},
        {"' OR 1 --", "' OR 1 --"},
        {"'||LCN||'", "'||LCN||'"},
        {"\\'; \\", "\\'; \\"},
        {"NULL", "NULL"},
        {"?1 :a @b $c", "?1 :a @b $c"},
        {"%", " ", 1},
        {"%%", " %", 1},
        {"50% %Q %s %n", "50  %Q %s %n", 1},
        {"%s%s%s%s%s%s%s", " s%s%s%s%s%s%s", 1},
        {"%n%'%Q", " n%'%Q", 1},
        {"a\r\nb\tc", "a\r\nb\tc"},
        {"x'41'", "x'41'"},
        {"/*", "/*"},
    };
    const Contents before = contents();
    for (const Text& text : kTexts) {
        SCOPED_TRACE(text.sent);
        std::string expected;
        for (const char c : std::string(text.stored))
            expected += std::string(c == '\'' ? "'" : "") + c;
        Printed printed;
        printed = printed_by([&] { EXPECT_THAT(write({31}), testing::SizeIs(255)); });
        EXPECT_EQ(printed, Printed());
        printed = printed_by([&] {
            EXPECT_THAT(write(joined({{31}, ended(text.sent)})), IsEmpty());
        });
        EXPECT_EQ(printed.out, text.percent_signs == 0
                                   ? ""
                                   : "[DEBUG_DB]update: sustituido caracter % por espacio\n");
        EXPECT_EQ(printed.err, "");
        EXPECT_THAT(changes(before, contents()),
                    ElementsAre("ServiciosSalida 0 Nombre: 'Canal Uno' -> '" + expected + "'"));
    }
    EXPECT_EQ(Database(kConfDb).value("PRAGMA integrity_check"), "ok");
}

// The longest texts have room for less than this one, which is cut like any other.
TEST_F(ParameterWrite, StoresTheBeginningOfALongStatement) {
    for (const Plain& row : kPlain) {
        if (row.bytes != 0)
            continue;
        SCOPED_TRACE(int{row.code});
        write(write_of(row, ended("'; DROP TABLE Red; --")));
        const std::string quoted = "'''; DROP TABLE Red; --";
        EXPECT_EQ(contents().at(row.cell), quoted.substr(0, row.room + 1) + "'");
    }
    const Database database(kConfDb);
    EXPECT_EQ(database.value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(database.value("SELECT count(*) FROM Red"), "1");
}

// The row is there, so it counts as done; what the database has to say goes to standard error.
TEST_F(ParameterWrite, LogsNoFailureWhenTheDatabaseTakesNothing) {
    run_elsewhere(kConfDb,
                  "CREATE TRIGGER refuse BEFORE UPDATE ON EntradaAV "
                  "BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const Contents before = contents();
    const Printed printed = printed_by([] { EXPECT_THAT(write({2, 9}), IsEmpty()); });
    EXPECT_THAT(printed.err, HasSubstr("[ERROR_DB]update: Error actualizando datos registro en "
                                       "tabla EntradaAV . intento: 2\n"));
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
    EXPECT_THAT(log_.take(), ElementsAre(kWrite, "<31>Subcomando Brillo ch1.\n"));
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

// A database that cannot be read has no row. A channel needs the country, too, but its frequency is
// not tried any more.
TEST_F(ParameterWrite, LogsAFailureWhenTheDatabaseIsLocked) {
    struct Locked {
        Bytes info;
        std::string log;
        const char* table;
        std::vector<unsigned> pauses;
    };
    const std::vector<Locked> writes = {
        {{2, 9}, "<31>Subcomando Brillo ch1.\n", "EntradaAV", {1, 2, 3}},
        {{31, 'A', 0}, kName1, "ServiciosSalida", {1, 2, 3}},
        {{19, 22}, kChannel, "RFOut", {1, 2, 3, 1, 2, 3}},
        {{20, 7, 0, 0}, kFrequency, "RFOut", {1, 2, 3, 1, 2, 3}},
    };
    const Contents before = contents();
    for (const Locked& locked : writes) {
        SCOPED_TRACE(locked.table);
        const ForeignLock lock(kConfDb);
        const Printed printed = printed_by([&] { EXPECT_THAT(write(locked.info), IsEmpty()); });
        EXPECT_THAT(printed.err, HasSubstr(std::string("[ERROR_DB]doSelect: Error leyendo datos "
                                                       "tabla ") +
                                           locked.table + " . intento: 2\n"));
        EXPECT_EQ(take_pauses(), locked.pauses);
        EXPECT_THAT(log_.take(), ElementsAre(kWrite, locked.log, kFailed));
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

// Channels and frequencies

// Makes the board as if the output came back between the two writes: `code` runs behind the first
// read of it.
class OutputComesBack {
  public:
    OutputComesBack() {
        sqlite3_trace_v2(
            ConfDB, SQLITE_TRACE_PROFILE,
            [](unsigned, void* self, void* statement, void*) {
                const char* const sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
                if (std::string(sql).starts_with("SELECT * FROM RFOut"))
                    static_cast<OutputComesBack*>(self)->read();
                return 0;
            },
            this);
    }
    ~OutputComesBack() { sqlite3_trace_v2(ConfDB, 0, nullptr, nullptr); }
    OutputComesBack(const OutputComesBack&) = delete;
    OutputComesBack& operator=(const OutputComesBack&) = delete;

    [[nodiscard]] int reads() const { return reads_; }

  private:
    void read() {
        if (++reads_ == 1)
            Database(kConfDb).run("INSERT INTO RFOut (idRFOut, Canal_Salida) VALUES (1, 3)");
    }

    int reads_ = 0;
};

TEST_F(ParameterWrite, StoresAFrequencyOnlyBehindItsChannel) {
    for (const char* info : {"13 16", "14 07 3B 90"}) {
        SCOPED_TRACE(info);
        const Database database(kConfDb);
        database.run("DELETE FROM RFOut");
        const OutputComesBack output;
        EXPECT_THAT(write(hex(info)), IsEmpty());
        EXPECT_EQ(output.reads(), 1);
        EXPECT_EQ(database.rows("SELECT Canal_Salida, Frecuencia FROM RFOut"),
                  (std::vector<std::vector<std::string>>{{"3", "NULL"}}));
        EXPECT_THAT(log_.take(), ElementsAre(kWrite, testing::_, kFailed));
    }
}

// As any write, the channel's counts as done when its row is there.
TEST_F(ParameterWrite, StoresAFrequencyBehindAChannelThatTheDatabaseDoesNotTake) {
    run_elsewhere(kConfDb,
                  "CREATE TRIGGER refuse BEFORE UPDATE OF Canal_Salida ON RFOut "
                  "BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const Contents before = contents();
    printed_by([] { EXPECT_THAT(write({19, 22}), IsEmpty()); });
    EXPECT_THAT(changes(before, contents()), ElementsAre("RFOut 1 Frecuencia: 474000 -> 482000"));
    EXPECT_THAT(log_.take(), ElementsAre(kWrite, kChannel));
}

TEST_F(ParameterWrite, LogsOnceThatAFrequencyFailedBehindItsChannel) {
    for (const char* info : {"13 16", "14 07 3B 90"}) {
        SCOPED_TRACE(info);
        const Database database(kConfDb);
        database.run(
            "INSERT OR IGNORE INTO RFOut (idRFOut) VALUES (1);"
            "CREATE TRIGGER go AFTER UPDATE OF Canal_Salida ON RFOut BEGIN DELETE FROM RFOut; END");
        EXPECT_THAT(write(hex(info)), IsEmpty());
        EXPECT_EQ(database.value("SELECT count(*) FROM RFOut"), "0");
        EXPECT_THAT(log_.take(), ElementsAre(kWrite, testing::_, kFailed));
        database.run("DROP TRIGGER go");
    }
}

// One section of what channels.awk prints: for each of the countries, channels and frequencies.
struct Section {
    std::vector<std::string> countries;
    std::vector<std::pair<int, int>> channels;
    std::vector<std::pair<int, int>> frequencies;
};

std::vector<Section> sections() {
    std::istringstream printed(
        run_program({"/usr/bin/awk", "-f", ZONDAR_SOURCE_DIR "/tests/processor/channels.awk"}).out);
    std::vector<Section> found(1);
    for (std::string line; std::getline(printed, line);) {
        std::istringstream words(line);
        std::string kind;
        std::string arrow;
        std::pair<int, int> given_and_stored;
        words >> kind;
        if (kind == "country") {
            const std::size_t quote = line.find('"');
            found.back().countries.push_back(line.substr(quote + 1, line.rfind('"') - quote - 1));
            continue;
        }
        if (kind.empty()) {
            found.emplace_back();
            continue;
        }
        words >> given_and_stored.first >> arrow >> given_and_stored.second;
        (kind == "channel" ? found.back().channels : found.back().frequencies)
            .push_back(given_and_stored);
    }
    found.pop_back();
    return found;
}

class Channels : public testing::Test {
  protected:
    void store_country(const std::string& name) const {
        check_.run("UPDATE ConfiguracionGen SET Country = '" + name + "'");
    }
    // "channel frequency", as stored after a request.
    [[nodiscard]] std::string stored_after(const Bytes& info) const {
        EXPECT_THAT(write(info), IsEmpty());
        return check_.value("SELECT Canal_Salida || ' ' || Frecuencia FROM RFOut");
    }
    [[nodiscard]] std::string stored_after_channel(int channel) const {
        return stored_after({19, static_cast<std::uint8_t>(channel)});
    }
    [[nodiscard]] std::string stored_after_frequency(int kHz) const {
        return stored_after({20, static_cast<std::uint8_t>(kHz >> 16),
                             static_cast<std::uint8_t>(kHz >> 8), static_cast<std::uint8_t>(kHz)});
    }

    OpenBoard board_;
    Database check_{kConfDb};
};

// Of the countries that a section holds for, the first is asked for all its lines, the others for
// some, each for other ones.
TEST_F(Channels, AreStoredWithTheFrequenciesOfTheGoldenListing) {
    std::size_t requests = 0;
    for (const Section& section : sections()) {
        const std::size_t countries = section.countries.size();
        for (std::size_t k = 0; k < countries; ++k) {
            SCOPED_TRACE("country " + section.countries[k]);
            store_country(section.countries[k]);
            const std::size_t step = k == 0 ? 1 : countries;
            for (std::size_t i = k; i < section.channels.size(); i += step, ++requests) {
                const auto& line = section.channels[i];
                EXPECT_EQ(stored_after_channel(line.first),
                          std::to_string(line.first) + " " + std::to_string(line.second));
            }
            for (std::size_t i = k; i < section.frequencies.size(); i += step, ++requests) {
                const auto& line = section.frequencies[i];
                EXPECT_EQ(stored_after_frequency(line.first),
                          std::to_string(line.second) + " " + std::to_string(line.first));
            }
        }
    }
    EXPECT_GT(requests, 3000U);
}

// That many requests would take long.
TEST(ChannelPlans, HoldForEachCountryOfTheGoldenListing) {
    int lines = 0;
    for (const Section& section : sections()) {
        for (const std::string& name : section.countries) {
            SCOPED_TRACE("country " + name);
            for (const auto& line : section.channels) {
                ++lines;
                EXPECT_EQ(protocol::channel_frequency(line.first, name), line.second) << line.first;
            }
            for (const auto& line : section.frequencies) {
                ++lines;
                EXPECT_EQ(protocol::frequency_channel(line.first, name), line.second) << line.first;
            }
        }
    }
    EXPECT_GT(lines, 15000);
}

// The scripts

struct Address {
    std::uint8_t code;
    const char* text;
    const char* log;
    const char* noted;  // by the script, once it is stored
};

void PrintTo(const Address& address, std::ostream* out) {
    *out << address.text;
}

class NetworkScript : public ParameterWrite, public testing::WithParamInterface<Address> {
  protected:
    // The script notes how many arguments it has and the addresses that it finds.
    static void write_noting_script(const std::string& end = {}) {
        write_script(kNetworkScript,
                     "echo \"$# $(sqlite3 -readonly " + kConfDb +
                         " 'SELECT Ip_Address, Ip_Mask, Ip_Gateway FROM ConfiguracionGen')\" "
                         ">> /tmp/notes\n" +
                         end);
    }
    static std::string take_notes() {
        const std::string text = read_file("/tmp/notes");
        write_file("/tmp/notes", "");
        return text;
    }
    // What the request and its failures leave in the log.
    void expect_logged(std::vector<std::string> further = {}) {
        further.insert(further.begin(), {kWrite, GetParam().log});
        EXPECT_THAT(log_.take(), ElementsAreArray(further));
    }
    static Bytes request() { return joined({{GetParam().code}, ended(GetParam().text)}); }
};

TEST_P(NetworkScript, RunsOnceTheAddressIsStored) {
    write_noting_script();
    EXPECT_THAT(write(request()), IsEmpty());
    EXPECT_EQ(take_notes(), GetParam().noted);
    expect_logged();
    // Nothing new to store.
    EXPECT_THAT(write(request()), IsEmpty());
    EXPECT_EQ(take_notes(), GetParam().noted);
    expect_logged();
}

TEST_P(NetworkScript, RunsAlsoWhenTheAddressCannotBeStored) {
    write_noting_script();
    run_elsewhere(kConfDb, "DELETE FROM ConfiguracionGen");
    EXPECT_THAT(write(request()), IsEmpty());
    EXPECT_EQ(take_notes(), "0 \n");
    expect_logged({kFailed});
}

TEST_P(NetworkScript, MayFailUnnoticed) {
    write_noting_script("exit 3");
    EXPECT_THAT(write(request()), IsEmpty());
    EXPECT_EQ(take_notes(), GetParam().noted);
    expect_logged();
    write_noting_script("kill -9 $$");
    EXPECT_THAT(write(request()), IsEmpty());
    EXPECT_EQ(take_notes(), GetParam().noted);
    expect_logged();
    std::remove(kNetworkScript.c_str());
    EXPECT_THAT(write(request()), IsEmpty());
    EXPECT_EQ(take_notes(), "");
    expect_logged();
}

TEST_P(NetworkScript, DoesNotRunForARefusedRequest) {
    write_noting_script();
    EXPECT_EQ(write({GetParam().code}).size(), 255U);
    EXPECT_EQ(take_notes(), "");
}

INSTANTIATE_TEST_SUITE_P(
    , NetworkScript,
    testing::Values(Address{.code = 68,
                            .text = "10.0.0.1",
                            .log = "<31>Subcomando SUBCOMMAND_IP_ADDRESS\n",
                            .noted = "0 10.0.0.1|255.255.255.0|192.168.1.1\n"},
                    Address{.code = 69,
                            .text = "255.0.0.0",
                            .log = "<31>Subcomando SUBCOMMAND_IP_MASK\n",
                            .noted = "0 192.168.1.50|255.0.0.0|192.168.1.1\n"},
                    Address{.code = 70,
                            .text = "10.255.255.254",
                            .log = "<31>Subcomando SUBCOMMAND_IP_GATEWAY\n",
                            .noted = "0 192.168.1.50|255.255.255.0|10.255.255.254\n"}),
    [](const auto& test) { return "Of" + std::to_string(int{test.param.code}); });

const std::vector<std::string> kReset = {kWrite, "<31>Subcomando SUBCOMMAND_RESET_FACTORY\n"};

TEST_F(ParameterWrite, RunsTheFactoryScriptAndStoresNothing) {
    write_script(kFactoryScript, "echo \"$#\" >> /tmp/notes");
    const Contents before = contents();
    for (const Bytes& info : {Bytes{80, 0}, Bytes{80, 1}, Bytes(255, 80)}) {
        EXPECT_THAT(write(info), IsEmpty());
        EXPECT_THAT(log_.take(), ElementsAreArray(kReset));
    }
    EXPECT_EQ(read_file("/tmp/notes"), "0\n0\n0\n");
    EXPECT_EQ(write({80}).size(), 255U);
    EXPECT_THAT(log_.take(), ElementsAre(kWrite, kBadLength));
    EXPECT_EQ(read_file("/tmp/notes"), "0\n0\n0\n");
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_F(ParameterWrite, LetsTheFactoryScriptFail) {
    for (const char* lines : {"exit 1", "exit 255", "kill -9 $$"}) {
        SCOPED_TRACE(lines);
        write_script(kFactoryScript, lines);
        EXPECT_THAT(write({80, 1}), IsEmpty());
        EXPECT_THAT(log_.take(), ElementsAreArray(kReset));
    }
    std::remove(kFactoryScript.c_str());
    EXPECT_THAT(write({80, 1}), IsEmpty());
    EXPECT_THAT(log_.take(), ElementsAreArray(kReset));
    conf_log = 0xFFFFFFBF;
    EXPECT_THAT(write({80, 1}), IsEmpty());
    EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
