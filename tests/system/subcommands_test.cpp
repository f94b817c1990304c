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

const std::string kDone = to_hex(frame(3));
const std::string kRefusal = to_hex(frame(3, Bytes(255)));

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

Bytes text_write(std::uint8_t code, const std::string& text) {
    return frame(3, joined({{code}, text_bytes(text), {0}}));
}

struct Write {
    const char* name;
    Bytes request;
    std::vector<std::string> log;  // behind the line of the command
    std::vector<std::string> changes = {};
    std::string sql = {};  // before, by another process
    std::string answer = kDone;
};

// In this order, each on top of the ones before it.
const std::vector<Write> kWrites = {
    {.name = "brightness 77",
     .request = frame(3, "02 4D"),
     .log = {"<31>Subcomando Brillo ch1.\n"},
     .changes = {"EntradaAV 0 Brillo: 51 -> 77"}},
    {.name = "bitrate A55A, its A5 doubled",
     .request = frame(3, "08 A5 5A"),
     .log = {"<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n"},
     .changes = {"EntradaAV 0 Bitrate: 8000 -> 42330"}},
    {.name = "input mode 3",
     .request = frame(3, "01 03"),
     .log = {"<31>Subcomando Modo Entrada.\n"},
     .changes = {"ConfiguracionGen 1 Modo_Entrada: 0 -> 10"}},
    {.name = "audio bitrate, and COFDM",
     .request = frame(3, "11 01"),
     .log = {"<31>Subcomando SUBCOMMAND_AUDIO_BITRATE_CH2\n",
             "<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n"},
     .changes = {"EntradaAV 1 Audio_Bitrate: 4 -> 1", "RFOut 1 Cofdm_Off: 0 -> 1"}},
    {.name = "constellation 0, CRC8 mode",
     .request = frame(0x83, "19 00"),
     .log = {"<31>Subcomando SUBCOMMAND_INTERVALO_GUARDA_1\n"},
     .changes = {"RFOut 1 Constelacion: 3 -> 1"}},
    {.name = "video of service 1 off",
     .request = frame(3, "1B 00"),
     .log = {"<31>Subcomando SUBCOMMAND_VIDEO_SERV1\n"},
     .changes = {"EntradaAV 0 Remux_Av: 0 -> 2", "PIDsSalida 0.1 Seleccionado: 1 -> 2"}},
    {.name = "TSID 1234, which is not stored",
     .request = frame(3, "28 12 34"),
     .log = {"<31>Subcomando SUBCOMMAND_TSID_OUT\n"}},
    {.name = "channel 30",
     .request = frame(3, "13 1E"),
     .log = {"<31>Subcomando SUBCOMMAND_CANAL_SALIDA_1\n"},
     .changes = {"RFOut 1 Canal_Salida: 21 -> 30", "RFOut 1 Frecuencia: 474000 -> 546000"}},
    {.name = "frequency 474000, CRC8 mode",
     .request = frame(0x83, "14 07 3B 90"),
     .log = {"<31>Subcomando SUBCOMMAND_FRECUENCIA_1\n"},
     .changes = {"RFOut 1 Canal_Salida: 30 -> 21", "RFOut 1 Frecuencia: 546000 -> 474000"}},
    // only its first per cent sign is changed
    {.name = "it's 100%",
     .request = frame(3, "1F 69 74 27 73 20 31 30 30 25 00"),
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'Canal Uno' -> 'it''s 100 '"}},
    // A text that is not ended runs on into the codes, and not into what came before.
    {.name = "ABC, open",
     .request = frame(3, "1F 41 42 43"),
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'it''s 100 ' -> 'ABC\x14'"}},
    {.name = "A, open",
     .request = frame(3, "1F 41"),
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'ABC\x14' -> 'A\x9B'"}},
    {.name = "ABC, open, CRC8 mode",
     .request = frame(0x83, "1F 41 42 43"),
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'A\x9B' -> 'ABC\xEE\xAA'"}},
    {.name = "A and a quote, open, CRC8 mode, checksum A5 doubled",
     .request = frame(0x83, "1F 41 22"),
     .log = {"<31>Subcomando SUBCOMMAND_NOMBRE_SERV1\n"},
     .changes = {"ServiciosSalida 0 Nombre: 'ABC\xEE\xAA' -> 'A\"\xA5('"}},
    // So does a number that is cut short: 12 E1; 12 D7.
    {.name = "bitrate 12",
     .request = frame(3, "08 12"),
     .log = {"<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n"},
     .changes = {"EntradaAV 0 Bitrate: 42330 -> 4833"}},
    {.name = "bitrate 12, CRC8 mode",
     .request = frame(0x83, "08 12"),
     .log = {"<31>Subcomando SUBCOMMAND_BITRATE_CH1 \n"},
     .changes = {"EntradaAV 0 Bitrate: 4833 -> 4823"}},
    {.name = "no value", .request = frame(3, "02"), .log = {kBadLength}, .answer = kRefusal},
    {.name = "nothing, CRC8 mode", .request = frame(0x83), .log = {kBadLength}, .answer = kRefusal},
    {.name = "sub-command 0",
     .request = frame(3, "00 01"),
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "sub-command 54",
     .request = frame(3, "36 01"),
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "sub-command 255, CRC8 mode",
     .request = frame(0x83, "FF 01"),
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "sub-command 113",
     .request = frame(3, "71 01"),
     .log = {kBadSubcommand},
     .answer = kRefusal},
    {.name = "brightness without a row",
     .request = frame(3, "02 4D"),
     .log = {"<31>Subcomando Brillo ch1.\n", kFailed},
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 0"},
    {.name = "audio bitrate without a row, COFDM none the less",
     .request = frame(3, "11 01"),
     .log = {"<31>Subcomando SUBCOMMAND_AUDIO_BITRATE_CH2\n", kFailed,
             "<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n"},
     .changes = {"RFOut 1 Cofdm_Off: 0 -> 1"},
     .sql = "DELETE FROM EntradaAV; UPDATE RFOut SET Cofdm_Off = 0"},
};

TEST_F(Writes, AreAnsweredStoredAndLoggedFrameByFrame) {
    const Daemon daemon = start();
    for (const Write& write : kWrites) {
        SCOPED_TRACE(write.name);
        if (!write.sql.empty())
            run_elsewhere(kConfDb, write.sql);
        const Contents before = contents();
        EXPECT_EQ(to_hex(exchange(write.request)), write.answer);
        EXPECT_THAT(changes(before, contents()), ElementsAreArray(write.changes));
        std::vector<std::string> expected = {kWrite};
        expected.insert(expected.end(), write.log.begin(), write.log.end());
        EXPECT_THAT(log_of_request(), ElementsAreArray(expected));
    }
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(Writes, OfTheAddressesAreSeenByTheNetworkScript) {
    const Daemon daemon = start();
    EXPECT_FALSE(fs::exists("/tmp/interfaces"));
    EXPECT_EQ(to_hex(exchange(text_write(68, "10.1.2.3"))), kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.255.255.0 192.168.1.1\n");
    EXPECT_THAT(log_of_request(), ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_ADDRESS\n"));
    EXPECT_EQ(to_hex(exchange(text_write(69, "255.0.0.0"))), kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.0.0.0 192.168.1.1\n");
    EXPECT_THAT(log_of_request(), ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_MASK\n"));
    EXPECT_EQ(to_hex(exchange(text_write(70, "10.1.2.1"))), kDone);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 10.1.2.3 255.0.0.0 10.1.2.1\n");
    EXPECT_THAT(log_of_request(), ElementsAre(kWrite, "<31>Subcomando SUBCOMMAND_IP_GATEWAY\n"));
    // Also when there is nothing to store it in, and when the script cannot do anything.
    run_elsewhere(kConfDb, "DELETE FROM ConfiguracionGen");
    write_script("/quelt/script/set_interfaces_db.sh", "echo run >> /tmp/interfaces; exit 1");
    EXPECT_EQ(to_hex(exchange(text_write(68, "10.1.2.3"))), kDone);
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
    EXPECT_EQ(to_hex(exchange(frame(3, "50 00"))), kDone);
    EXPECT_THAT(changes(factory, contents()), IsEmpty());
    EXPECT_THAT(log_of_request(), ElementsAreArray(reset));
    // Nobody learns that it failed.
    write_script("/quelt/script/reset_factory_default.sh", "exit 1");
    EXPECT_EQ(to_hex(exchange(frame(3, "50 00"))), kDone);
    EXPECT_THAT(log_of_request(), ElementsAreArray(reset));
    fs::remove("/quelt/script/reset_factory_default.sh");
    EXPECT_EQ(to_hex(exchange(frame(0x83, "50 00"))), kDone);
    EXPECT_THAT(log_of_request(), ElementsAreArray(reset));
    EXPECT_THAT(changes(factory, contents()), IsEmpty());
    // And it is written to as before.
    EXPECT_THAT(ask(kWriteCommand, {2, 10}), IsEmpty());
    EXPECT_THAT(changes(factory, contents()), ElementsAre("EntradaAV 0 Brillo: 51 -> 10"));
}

}  // namespace
