// The change of country and the slaves' sub-commands by the real daemon: whole frames, what each
// changes in the databases, and what is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

#include "tests/processor/slave_requests.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/syslog_reader.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kWrite = "<31>CMD: Comando escritura parametros.\n";
const std::string kCountry = "<31>Subcomando SUBCOMMAND_COUNTRY\n";
const std::string kError = "<28>ERROR: Peticion de escritura no exitosa.\n";

Bytes country(const std::string& name) {
    return frame(3, joined({{71}, text_bytes(name), {0}}));
}

// One request after the other, each to the board as the ones before left it.
struct Step {
    const char* name;
    Bytes request;
    Bytes answer = frame(3);
    const char* before = "";  // SQL that another process runs on the configuration first
    Lines changes = {};
    Lines logged = {kWrite};
};

const Step kCountries[] = {
    {.name = "the stored country", .request = country("Spain"), .logged = {kWrite, kCountry}},
    {.name = "to another of 8 MHz",
     .request = country("France"),
     .changes = {"ConfiguracionGen 1 Codtimezone: 'ESP' -> 'FRA'",
                 "ConfiguracionGen 1 Country: 'Spain' -> 'France'",
                 "ConfiguracionGen 1 Idtimezone: 'es' -> 'fr'",
                 "ConfiguracionGen 1 Language: 'es_ES' -> 'fr_FR'",
                 "EntradaAV 1 Bitrate: 6500 -> 8000", "RFOut 1 Intervalo_Guarda: 0 -> 2",
                 "Red 1 NIT_Patron: 0 -> 1"},
     .logged = {kWrite, kCountry}},
    {.name = "to 7 MHz",
     .request = country("Australia"),
     .changes = {"ConfiguracionGen 1 Codtimezone: 'FRA' -> 'AUS'",
                 "ConfiguracionGen 1 Country: 'France' -> 'Australia'",
                 "ConfiguracionGen 1 Idtimezone: 'fr' -> 'au'",
                 "ConfiguracionGen 1 Language: 'fr_FR' -> 'en_US'",
                 "ConfiguracionGen 1 Subtimezone: 0 -> 6", "EntradaAV 0 Bitrate: 8000 -> 7000",
                 "EntradaAV 1 Bitrate: 8000 -> 7000", "RFOut 1 Ancho_Banda: 0 -> 1",
                 "RFOut 1 Canal_Salida: 21 -> 38", "RFOut 1 Code_Rate: 4 -> 2",
                 "RFOut 1 Frecuencia: 474000 -> 599500", "RFOut 1 Intervalo_Guarda: 2 -> 1",
                 "Red 1 LCN_Mode: 1 -> 5"},
     .logged = {kWrite, kCountry}},
    {.name = "back to 8 MHz",
     .request = country("Spain"),
     .changes = {"ConfiguracionGen 1 Codtimezone: 'AUS' -> 'ESP'",
                 "ConfiguracionGen 1 Country: 'Australia' -> 'Spain'",
                 "ConfiguracionGen 1 Idtimezone: 'au' -> 'es'",
                 "ConfiguracionGen 1 Language: 'en_US' -> 'es_ES'",
                 "ConfiguracionGen 1 Subtimezone: 6 -> 0", "EntradaAV 0 Bitrate: 7000 -> 8000",
                 "EntradaAV 1 Bitrate: 7000 -> 8000", "RFOut 1 Ancho_Banda: 1 -> 0",
                 "RFOut 1 Canal_Salida: 38 -> 21", "RFOut 1 Code_Rate: 2 -> 4",
                 "RFOut 1 Frecuencia: 599500 -> 474000", "RFOut 1 Intervalo_Guarda: 1 -> 0",
                 "Red 1 LCN_Mode: 5 -> 0"},
     .logged = {kWrite, kCountry}},
    // "Italy" in CRC8 mode and not ended: checksum 8F and CRC 47 belong to the name
    {.name = "not ended, in CRC8 mode",
     .request = frame(0x83, "47 49 74 61 6C 79"),
     .before = "DELETE FROM Red; UPDATE ConfiguracionGen SET Modo_Entrada = 3",
     .changes = {"ConfiguracionGen 1 Codtimezone: 'ESP' -> 'ITA'",
                 "ConfiguracionGen 1 Country: 'Spain' -> 'Italy\x8FG'",
                 "ConfiguracionGen 1 Idtimezone: 'es' -> 'it'",
                 "ConfiguracionGen 1 Language: 'es_ES' -> 'it_IT'",
                 "EntradaAV 0 Bitrate: 8000 -> 15000", "RFOut 1 Intervalo_Guarda: 0 -> 3"},
     .logged = {kWrite, kCountry, kError, kError, kError, kError, kError}},
};

// A write of a slave, whose MAC address is 0a1b2c3d4e5f but where another one registers.
Bytes from_slave(std::uint8_t code, const Bytes& data = {}) {
    return frame(3, of_slave(code, "0a1b2c3d4e5f", data));
}

// The master's own identity, and that the slave is registered.
const Bytes kRegistered = hex(document::answer("A5 03 00 00 00 4A 6E"));
const Bytes kNotRegistered = [] {
    Bytes info = info_of(kRegistered, 3);
    info.back() = 1;
    return frame(3, info);
}();

const Registration kSlave1 = {"0a1b2c3d4e5f", "esclavo-1",     "SN0001",
                              "ZND1",         "169.254.34.22", {1, 2, 3}};
const Registration kSlave2 = {"f5e4d3c2b1a0", "esclavo-2",     "SN0002",
                              "ZND2",         "169.254.34.23", {255, 255, 255}};

const Lines kRefusedLines = {kWrite, kError, kError, kError, kError, kError,
                             kError, kError, kError, kError, kError};

const Step kSlaves[] = {
    {.name = "105 of channel 0, the first of a slave",
     .request = from_slave(105, {0}),
     .answer = frame(3, "69 00 00"),
     .changes =
         {"EsclavosModulo 1 Estado: nothing -> NULL", "EsclavosModulo 1 Hostname: nothing -> NULL",
          "EsclavosModulo 1 IP: nothing -> NULL", "EsclavosModulo 1 IdEsclavosModulo: nothing -> 1",
          "EsclavosModulo 1 MAC: nothing -> '0a1b2c3d4e5f'",
          "EsclavosModulo 1 Master: nothing -> NULL", "EsclavosModulo 1 Modelo: nothing -> NULL",
          "EsclavosModulo 1 Reset_Factory: nothing -> NULL",
          "EsclavosModulo 1 SWVersion: nothing -> NULL", "EsclavosModulo 1 Serial: nothing -> NULL",
          "EsclavosModulo 1 Upgrade: nothing -> NULL"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_GET_ESTADOPENDIENTE_RE\n"}},
    {.name = "110",
     .request = frame(3, registration(kSlave1)),
     .answer = kRegistered,
     .changes =
         {"EsclavosModulo 1 Estado: NULL -> 1", "EsclavosModulo 1 Hostname: NULL -> 'esclavo-1'",
          "EsclavosModulo 1 IP: NULL -> '169.254.34.22'", "EsclavosModulo 1 Master: NULL -> 0",
          "EsclavosModulo 1 Modelo: NULL -> 'ZND1'", "EsclavosModulo 1 Reset_Factory: NULL -> 0",
          "EsclavosModulo 1 SWVersion: NULL -> '1.2.3'",
          "EsclavosModulo 1 Serial: NULL -> 'SN0001'", "EsclavosModulo 1 Upgrade: NULL -> 0"}},
    // 15 bytes, the master's MAC address 001a2b3c4d5e
    {.name = "111",
     .request = from_slave(111),
     .answer = frame(3, "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00")},
    {.name = "111 when there is an upgrade",
     .request = from_slave(111),
     .answer = frame(3, "6F 01 30 30 31 61 32 62 33 63 34 64 35 65 00"),
     .before = "UPDATE EsclavosModulo SET Upgrade = 1"},
    // 7
    {.name = "112",
     .request = from_slave(112, {7}),
     .changes = {"EsclavosModulo 1 Estado: 1 -> 7"}},
    // A5, doubled on the wire
    {.name = "112 of the start byte",
     .request = from_slave(112, {165}),
     .changes = {"EsclavosModulo 1 Estado: 7 -> 165"}},
    // 8
    {.name = "112 in CRC8 mode",
     .request = frame(0x83, of_slave(112, "0a1b2c3d4e5f", {8})),
     .changes = {"EsclavosModulo 1 Estado: 165 -> 8"}},
    {.name = "106 of channel 1",
     .request = from_slave(106, {1}),
     .answer = hex(document::answer("A5 03 00 00 00 0F 6A")),
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_GET_ENTRADAAV\n"}},
    {.name = "108 of channel 1",
     .request = frame(3, "6C 01"),
     .changes = {"EntradaAV 1 EstadoPendienteRE: 0 -> 2"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_CONFIRM_ESTADOPENDIENTE_RE\n"}},
    {.name = "105 of channel 1",
     .request = from_slave(105, {1}),
     .answer = frame(3, "69 01 02"),
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_GET_ESTADOPENDIENTE_RE\n"}},
    {.name = "107 of channel 1",
     .request = frame(3, "6B 01"),
     .changes = {"EntradaAV 1 EstadoPendienteRE: 2 -> 0"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_RESET_ESTADOPENDIENTE_RE\n"}},
    // "00000003"
    {.name = "109",
     .request = from_slave(109, hex("30 30 30 30 30 30 30 33 00")),
     .answer = frame(3, "6D 00"),
     .changes = {"alarmasEstado estado_remote_encoder EstadoPendienteRE: 0 -> 2",
                 "alarmasEstado estado_remote_encoder valor: '00000000' -> '00000003'"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_REMOTE_ENCODER_STATUS\n"}},
    {.name = "110 of another slave",
     .request = frame(3, registration(kSlave2)),
     .answer = kRegistered,
     .changes = {"EsclavosModulo 1 Estado: 8 -> 1",
                 "EsclavosModulo 1 Hostname: 'esclavo-1' -> 'esclavo-2'",
                 "EsclavosModulo 1 IP: '169.254.34.22' -> '169.254.34.23'",
                 "EsclavosModulo 1 MAC: '0a1b2c3d4e5f' -> 'f5e4d3c2b1a0'",
                 "EsclavosModulo 1 Modelo: 'ZND1' -> 'ZND2'",
                 "EsclavosModulo 1 SWVersion: '1.2.3' -> '255.255'",
                 "EsclavosModulo 1 Serial: 'SN0001' -> 'SN0002'",
                 "EsclavosModulo 1 Upgrade: 1 -> 0"}},
    {.name = "110 without the row",
     .request = frame(3, registration(kSlave1)),
     .answer = kNotRegistered,
     .before = "UPDATE EsclavosModulo SET IdEsclavosModulo = 7",
     .logged = kRefusedLines},
};

// The lines of the protocol but those of every cycle.
class ProtocolLog {
  public:
    // Passes over what is logged until the first request can come.
    void await_start() {
        ASSERT_TRUE(log_.wait_for("Waiting for zondar message:"));
        take();
    }
    Lines take() {
        Lines taken;
        const std::vector<LogLine> lines = log_.lines();
        for (; seen_ < lines.size(); ++seen_) {
            const std::string line = with_priority(lines[seen_]);
            if (!line.starts_with("<30>"))
                taken.push_back(line);
        }
        return taken;
    }

  private:
    SyslogReader log_;
    std::size_t seen_ = 0;
};

void take(std::span<const Step> steps) {
    make_board();
    ProtocolLog log;
    const Daemon daemon({.options = {"-s", "5", "-l", "64"}});
    log.await_start();
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        if (*step.before != '\0')
            run_elsewhere(kConfDb, step.before);
        const Contents before = contents();
        EXPECT_EQ(to_hex(exchange(step.request)), to_hex(step.answer));
        EXPECT_EQ(changes(before, contents()), step.changes);
        EXPECT_EQ(log.take(), step.logged);
    }
    EXPECT_EQ(daemon.err(), "");
}

TEST(Country, IsChangedWithItsDefaults) {
    take(kCountries);
}

TEST(SlaveModules, RegisterAskAndReport) {
    take(kSlaves);
}

}  // namespace
