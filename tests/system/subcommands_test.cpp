// Parameter writes to the real daemon: whole frames, its log as it arrives, the databases as
// another process finds them afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/processor/plain_subcommands.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/system/cycle_log.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr std::uint8_t kWriteCommand = 3;
const std::string kRead = "<30>Zondar message readed.\n";
const std::string kResponse = "<30>Response to received frame:\n";
const std::string kWrite = "<31>CMD: Comando escritura parametros.\n";
const std::string kFailed = "<28>ERROR: Peticion de escritura no exitosa.\n";
const std::string kBadLength = "<28>Comando con longitud no esperada.\n";
const std::string kBadSubcommand = "<28>Comando - Subcomando no reconocido.\n";

// start, control: command 3, three header bytes, length, checksum
const std::string kDone = "A5 03 00 00 00 00 FD";
const std::string kRefusal = to_hex(joined({hex("A5 03 00 00 00 FF"), Bytes(255), hex("FE")}));

// The daemon on a board, and its log request by request.
class Writes : public testing::Test {
  protected:
    Writes() { make_board(); }

    [[nodiscard]] Daemon start() { return Daemon({.options = {"-l", "64", "-s", "5"}}); }

    // The lines between a request and the next waiting, without the frame of those that all
    // requests have.
    std::vector<std::string> log_of_request() {
        // That it waits for the first request.
        if (!started_)
            log_.next_cycle();
        started_ = true;
        const std::vector<std::string> lines = log_.next_cycle();
        if (lines.size() < 3 || lines.front() != kRead || lines[lines.size() - 2] != kResponse)
            return {"not a request and its answer: " + testing::PrintToString(lines)};
        return {lines.begin() + 1, lines.end() - 2};
    }

  private:
    CycleLog log_;
    bool started_ = false;
};

TEST_F(Writes, OfEachNumberStoreItInItsCellAlone) {
    number_cells();
    const Daemon daemon = start();
    Contents expected = contents();
    for (const Plain& row : kPlain) {
        if (row.bytes == 0)
            continue;
        SCOPED_TRACE(int{row.code});
        // 0, and an odd one
        for (const std::size_t i : {0U, 1U}) {
            const WireNumber& value = numbers_for(row).at(i);
            SCOPED_TRACE(value.bytes);
            for (const auto& cell : stored(row, value.number))
                expected.at(cell.first) = cell.second;
            EXPECT_THAT(ask(kWriteCommand, write_of(row, hex(value.bytes))), IsEmpty());
            EXPECT_THAT(changes(expected, contents()), IsEmpty());
            EXPECT_THAT(log_of_request(), ElementsAreArray(log_of(row)));
        }
    }
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(Writes, OfEachTextStoreWhatFitsInItsCellAlone) {
    number_cells();
    const Daemon daemon = start();
    for (const Plain& row : kPlain) {
        if (row.bytes != 0)
            continue;
        SCOPED_TRACE(int{row.code});
        const std::string letters = "abcdefghijklmnopqrstuvwxyz";
        Contents expected = contents();
        expected.at(row.cell) = "'" + letters.substr(0, row.room - 1) + "'";
        EXPECT_THAT(ask(kWriteCommand, write_of(row, joined({text_bytes(letters), {0}}))),
                    IsEmpty());
        EXPECT_THAT(changes(expected, contents()), IsEmpty());
        EXPECT_THAT(log_of_request(), ElementsAreArray(log_of(row)));
    }
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(Writes, LogThatTheirRowIsNotThere) {
    run_elsewhere(kConfDb,
                  "DELETE FROM ConfiguracionGen; DELETE FROM EntradaAV; DELETE FROM RFOut;"
                  "DELETE FROM ServiciosSalida; DELETE FROM PIDsSalida; DELETE FROM Red;"
                  "DELETE FROM IPOut");
    const Contents before = contents();
    const Daemon daemon = start();
    for (const Plain& row : kPlain) {
        SCOPED_TRACE(int{row.code});
        EXPECT_THAT(ask(kWriteCommand, write_of(row, hex("07 07 00"))), IsEmpty());
        std::vector<std::string> expected;
        for (const std::string& line : log_of(row)) {
            expected.push_back(line);
            if (line != kWrite)
                expected.push_back(kFailed);
        }
        EXPECT_THAT(log_of_request(), ElementsAreArray(expected));
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    EXPECT_EQ(daemon.err(), "");
}

struct Frame {
    const char* name;
    const char* request;
    std::vector<std::string> log;  // behind the line of the command
    std::vector<std::string> changes = {};
    std::string sql = {};  // before, by another process
    std::string answer = kDone;
};

// In this order, each on top of the ones before it. CRC8 mode is control 83, the info XORed with
// 55, and a CRC behind the checksum.
const std::vector<Frame> kFrames = {
    {.name = "brightness 77",
     .request = "A5 03 00 00 00 02 02 4D AC",
     .log = {"<31>Subcomando Brillo ch1.\n"},
     .changes = {"EntradaAV 0 Brillo: 51 -> 77"}},
    {.name = "bitrate A55A, its A5 doubled",
     .request = "A5 03 00 00 00 03 08 A5 A5 5A F3",
     .log = {"<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n"},
     .changes = {"EntradaAV 0 Bitrate: 8000 -> 42330"}},
    {.name = "input mode 3",
     .request = "A5 03 00 00 00 02 01 03 F7",
     .log = {"<31>Subcomando Modo Entrada.\n"},
     .changes = {"ConfiguracionGen 1 Modo_Entrada: 0 -> 10"}},
    {.name = "audio bitrate, and COFDM",
     .request = "A5 03 00 00 00 02 11 01 E9",
     .log = {"<31>Subcomando SUBCOMMAND_AUDIO_BITRATE_CH2\n",
             "<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n"},
     .changes = {"EntradaAV 1 Audio_Bitrate: 4 -> 1", "RFOut 1 Cofdm_Off: 0 -> 1"}},
    {.name = "constellation 0, CRC8 mode",
     .request = "A5 83 00 00 00 02 4C 55 DA AD",
     .log = {"<31>Subcomando SUBCOMMAND_INTERVALO_GUARDA_1\n"},
     .changes = {"RFOut 1 Constelacion: 3 -> 1"}},
    {.name = "video of service 1 off",
     .request = "A5 03 00 00 00 02 1B 00 E0",
     .log = {"<31>Subcomando SUBCOMMAND_VIDEO_SERV1\n"},
     .changes = {"EntradaAV 0 Remux_Av: 0 -> 2", "PIDsSalida 0.1 Seleccionado: 1 -> 2"}},
    {.name = "TSID 1234, which is not stored",
     .request = "A5 03 00 00 00 03 28 12 34 8C",
     .log = {"<31>Subcomando SUBCOMMAND_TSID_OUT\n"}},
    {.name = "channel 30",
     .request = "A5 03 00 00 00 02 13 1E CA",
     .log = {"<31>Subcomando SUBCOMMAND_CANAL_SALIDA_1\n"},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 30", "RFOut 1 Frecuencia: 474000 -> 546000"}},
    {.name = "frequency 474000, CRC8 mode",
     .request = "A5 83 00 00 00 04 41 52 6E C5 B3 6F",
     .log = {"<31>Subcomando SUBCOMMAND_FRECUENCIA_1\n"},
     .changes = {"RFOut 1 Canal_Salida: 30 -> 21", "RFOut 1 Frecuencia: 546000 -> 474000"}},
    // only its first per cent sign is changed
    {.name = "it's 100%",
     .request = "A5 03 00 00 00 0B 1F 69 74 27 73 20 31 30 30 25 00 86",
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'it''s 100 '"}},
    // A text that is not ended runs on into the codes, and not into what came before.
    {.name = "ABC, open",
     .request = "A5 03 00 00 00 04 1F 41 42 43 14",
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'it''s 100 ' -> 'ABC\x14'"}},
    {.name = "A, open",
     .request = "A5 03 00 00 00 02 1F 41 9B",
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'ABC\x14' -> 'A\x9B'"}},
    {.name = "ABC, open, CRC8 mode",
     .request = "A5 83 00 00 00 04 4A 14 17 16 EE AA",
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'A\x9B' -> 'ABC\xEE\xAA'"}},
    {.name = "A and a quote, open, CRC8 mode, checksum A5 doubled",
     .request = "A5 83 00 00 00 03 4A 14 77 A5 A5 28",
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'ABC\xEE\xAA' -> 'A\"\xA5('"}},
    // So does a number that is cut short: 12 E1; 12 D7.
    {.name = "bitrate 12",
     .request = "A5 03 00 00 00 02 08 12 E1",
     .log = {"<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n"},
     .changes = {"EntradaAV 0 Bitrate: 42330 -> 4833"}},
    {.name = "bitrate 12, CRC8 mode",
     .request = "A5 83 00 00 00 02 5D 47 D7 A4",
     .log = {"<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n"},
     .changes = {"EntradaAV 0 Bitrate: 4833 -> 4823"}},
    {.name = "no value",
     .request = "A5 03 00 00 00 01 02 FA",
     .log = {kBadLength},
     .answer = kRefusal},
    {.name = "nothing, CRC8 mode",
     .request = "A5 83 00 00 00 00 7D 85",
     .log = {kBadLength},
     .answer = kRefusal},
    {.name = "sub-command 0",
     .request = "A5 03 00 00 00 02 00 01 FA",
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "sub-command 54",
     .request = "A5 03 00 00 00 02 36 01 C4",
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "sub-command 81, CRC8 mode",
     .request = "A5 83 00 00 00 02 04 54 23 1E",
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "sub-command 113",
     .request = "A5 03 00 00 00 02 71 01 89",
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "brightness without a row",
     .request = "A5 03 00 00 00 02 02 4D AC",
     .log = {"<31>Subcomando Brillo ch1.\n", kFailed},
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 0"},
    {.name = "audio bitrate without a row, COFDM none the less",
     .request = "A5 03 00 00 00 02 11 01 E9",
     .log = {"<31>Subcomando SUBCOMMAND_AUDIO_BITRATE_CH2\n", kFailed,
             "<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n"},
     .changes = {"RFOut 1 Cofdm_Off: 0 -> 1"},
     .sql = "DELETE FROM EntradaAV; UPDATE RFOut SET Cofdm_Off = 0"},
};

TEST_F(Writes, AreAnsweredStoredAndLoggedFrameByFrame) {
    const Daemon daemon = start();
    for (const Frame& frame : kFrames) {
        SCOPED_TRACE(frame.name);
        if (!frame.sql.empty())
            run_elsewhere(kConfDb, frame.sql);
        const Contents before = contents();
        EXPECT_EQ(to_hex(exchange(hex(frame.request))), frame.answer);
        EXPECT_THAT(changes(before, contents()), ElementsAreArray(frame.changes));
        std::vector<std::string> expected = {kWrite};
        expected.insert(expected.end(), frame.log.begin(), frame.log.end());
        EXPECT_THAT(log_of_request(), ElementsAreArray(expected));
    }
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(Writes, OfTheAddressesAreSeenByTheNetworkScript) {
    const Daemon daemon = start();
    EXPECT_FALSE(fs::exists("/tmp/interfaces"));
    // 68: 10.1.2.3
    EXPECT_EQ(to_hex(exchange(hex("A5 03 00 00 00 0A 44 31 30 2E 31 2E 32 2E 33 00 2E"))), kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.255.255.0 192.168.1.1\n");
    EXPECT_THAT(log_of_request(), ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_ADDRESS\n"));
    // 69: 255.0.0.0
    EXPECT_EQ(to_hex(exchange(hex("A5 03 00 00 00 0B 45 32 35 35 2E 30 2E 30 2E 30 00 F7"))),
              kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.0.0.0 192.168.1.1\n");
    EXPECT_THAT(log_of_request(), ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_MASK\n"));
    // 70: 10.1.2.1
    EXPECT_EQ(to_hex(exchange(hex("A5 03 00 00 00 0A 46 31 30 2E 31 2E 32 2E 31 00 2E"))), kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.0.0.0 10.1.2.1\n");
    EXPECT_THAT(log_of_request(), ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_GATEWAY\n"));
    // Also when there is nothing to store it in, and when the script cannot do anything.
    run_elsewhere(kConfDb, "DELETE FROM ConfiguracionGen");
    write_script("/quelt/script/set_interfaces_db.sh", "echo run >> /tmp/interfaces; exit 1");
    EXPECT_EQ(to_hex(exchange(hex("A5 03 00 00 00 0A 44 31 30 2E 31 2E 32 2E 33 00 2E"))), kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.0.0.0 10.1.2.1\nrun\n");
    EXPECT_THAT(log_of_request(),
                ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_ADDRESS\n", kFailed));
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(Writes, BringTheFactorySettingsBack) {
    const std::vector<std::string> reset = {kWrite, "<31>Subcomando SUBCOMMAND_RESET_FACTORY\n"};
    const Contents factory = contents();
    const Daemon daemon = start();
    EXPECT_THAT(ask(kWriteCommand, {2, 9}), IsEmpty());
    EXPECT_THAT(changes(factory, contents()), ElementsAre("EntradaAV 0 Brillo: 51 -> 9"));
    log_of_request();
    EXPECT_EQ(to_hex(exchange(hex("A5 03 00 00 00 02 50 00 AB"))), kDone);
    EXPECT_THAT(changes(factory, contents()), IsEmpty());
    EXPECT_THAT(log_of_request(), ElementsAreArray(reset));
    // Nobody learns that it failed.
    write_script("/quelt/script/reset_factory_default.sh", "exit 1");
    EXPECT_EQ(to_hex(exchange(hex("A5 03 00 00 00 02 50 00 AB"))), kDone);
    EXPECT_THAT(log_of_request(), ElementsAreArray(reset));
    fs::remove("/quelt/script/reset_factory_default.sh");
    EXPECT_EQ(to_hex(exchange(hex("A5 83 00 00 00 02 05 55 21 84"))), kDone);
    EXPECT_THAT(log_of_request(), ElementsAreArray(reset));
    EXPECT_THAT(changes(factory, contents()), IsEmpty());
    // And it is written to as before.
    EXPECT_THAT(ask(kWriteCommand, {2, 10}), IsEmpty());
    EXPECT_THAT(changes(factory, contents()), ElementsAre("EntradaAV 0 Brillo: 51 -> 10"));
}

}  // namespace
