// The change of country and the slaves' sub-commands by the real daemon: whole frames, what each
// changes in the databases, and what is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/master.h"
#include "tests/support/syslog_reader.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char kEmptyAnswer[] = "A5 03 00 00 00 00 FD";
const std::string kWrite = "<31>CMD: Comando escritura parametros.\n";
const std::string kCountry = "<31>Subcomando SUBCOMMAND_COUNTRY\n";
const std::string kError = "<28>ERROR: Peticion de escritura no exitosa.\n";

// One request after the other, each to the board as the ones before left it.
struct Step {
    const char* name;
    const char* request;
    std::string answer = kEmptyAnswer;
    const char* before = "";  // SQL that another process runs on the configuration first
    Lines changes = {};
    Lines logged = {kWrite};
};

// Frames begin with start, control, three header bytes and the length, and end with the checksum;
// the info begins with the sub-command. The comments name what is behind it.
const Step kCountries[] = {
    // "Spain"
    {.name = "the stored country",
     .request = "A5 03 00 00 00 07 47 53 70 61 69 6E 00 B4",
     .logged = {kWrite, kCountry}},
    // "France"
    {.name = "to another of 8 MHz",
     .request = "A5 03 00 00 00 08 47 46 72 61 6E 63 65 00 5F",
     .changes = {"ConfiguracionGen 1 Codtimezone: 'ESP' -> 'FRA'",
                 "ConfiguracionGen 1 Country: 'Spain' -> 'France'",
                 "ConfiguracionGen 1 Idtimezone: 'es' -> 'fr'",
                 "ConfiguracionGen 1 Language: 'es_ES' -> 'fr_FR'",
                 "EntradaAV 1 Bitrate: 6500 -> 8000", "RFOut 1 Intervalo_Guarda: 0 -> 2",
                 "Red 1 NIT_Patron: 0 -> 1"},
     .logged = {kWrite, kCountry}},
    // "Australia"
    {.name = "to 7 MHz",
     .request = "A5 03 00 00 00 0B 47 41 75 73 74 72 61 6C 69 61 00 05",
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
    // "Spain"
    {.name = "back to 8 MHz",
     .request = "A5 03 00 00 00 07 47 53 70 61 69 6E 00 B4",
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
     .request = "A5 83 00 00 00 06 12 1C 21 34 39 2C 8F 47",
     .before = "DELETE FROM Red; UPDATE ConfiguracionGen SET Modo_Entrada = 3",
     .changes = {"ConfiguracionGen 1 Codtimezone: 'ESP' -> 'ITA'",
                 "ConfiguracionGen 1 Country: 'Spain' -> 'Italy\x8FG'",
                 "ConfiguracionGen 1 Idtimezone: 'es' -> 'it'",
                 "ConfiguracionGen 1 Language: 'es_ES' -> 'it_IT'",
                 "EntradaAV 0 Bitrate: 8000 -> 15000", "RFOut 1 Intervalo_Guarda: 0 -> 3"},
     .logged = {kWrite, kCountry, kError, kError, kError, kError, kError}},
};

// The master's own identity: MAC address, host name, serial number, model, address and version
// 2.4.1, and that the slave is registered.
const std::string kRegistered =
    "A5 03 00 00 00 4B 6E "
    "30 30 31 61 32 62 33 63 34 64 35 65 00 "
    "63 61 62 65 63 65 72 61 2D 31 00 00 00 00 00 00 00 00 "
    "5A 4E 32 30 32 34 30 30 30 31 32 33 00 "
    "5A 4E 44 32 41 56 2D 54 00 00 "
    "31 36 39 2E 32 35 34 2E 33 34 2E 32 31 0A 00 00 "
    "02 04 01 00 06";
// The same, not registered.
const std::string kNotRegistered =
    "A5 03 00 00 00 4B 6E "
    "30 30 31 61 32 62 33 63 34 64 35 65 00 "
    "63 61 62 65 63 65 72 61 2D 31 00 00 00 00 00 00 00 00 "
    "5A 4E 32 30 32 34 30 30 30 31 32 33 00 "
    "5A 4E 44 32 41 56 2D 54 00 00 "
    "31 36 39 2E 32 35 34 2E 33 34 2E 32 31 0A 00 00 "
    "02 04 01 01 05";

// 0a1b2c3d4e5f: esclavo-1, SN0001, ZND1, 169.254.34.22, 1.2.3
constexpr char kRegistration1[] =
    "A5 03 00 00 00 4A 6E "
    "30 61 31 62 32 63 33 64 34 65 35 66 00 "
    "65 73 63 6C 61 76 6F 2D 31 00 00 00 00 00 00 00 00 00 "
    "53 4E 30 30 30 31 00 00 00 00 00 00 00 "
    "5A 4E 44 31 00 00 00 00 00 00 "
    "31 36 39 2E 32 35 34 2E 33 34 2E 32 32 00 00 00 "
    "01 02 03 61";
// f5e4d3c2b1a0: esclavo-2, SN0002, ZND2, 169.254.34.23, 255.255.255
constexpr char kRegistration2[] =
    "A5 03 00 00 00 4A 6E "
    "66 35 65 34 64 33 63 32 62 31 61 30 00 "
    "65 73 63 6C 61 76 6F 2D 32 00 00 00 00 00 00 00 00 00 "
    "53 4E 30 30 30 32 00 00 00 00 00 00 00 "
    "5A 4E 44 32 00 00 00 00 00 00 "
    "31 36 39 2E 32 35 34 2E 33 34 2E 32 33 00 00 00 "
    "FF FF FF 66";

const Lines kRefusedLines = {kWrite, kError, kError, kError, kError, kError,
                             kError, kError, kError, kError, kError};

// The slave's MAC address is 0a1b2c3d4e5f but where another one registers.
const Step kSlaves[] = {
    {.name = "105 of channel 0, the first of a slave",
     .request = "A5 03 00 00 00 0F 69 30 61 31 62 32 63 33 64 34 65 35 66 00 00 01",
     .answer = "A5 03 00 00 00 03 69 00 00 91",
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
     .request = kRegistration1,
     .answer = kRegistered,
     .changes =
         {"EsclavosModulo 1 Estado: NULL -> 1", "EsclavosModulo 1 Hostname: NULL -> 'esclavo-1'",
          "EsclavosModulo 1 IP: NULL -> '169.254.34.22'", "EsclavosModulo 1 Master: NULL -> 0",
          "EsclavosModulo 1 Modelo: NULL -> 'ZND1'", "EsclavosModulo 1 Reset_Factory: NULL -> 0",
          "EsclavosModulo 1 SWVersion: NULL -> '1.2.3'",
          "EsclavosModulo 1 Serial: NULL -> 'SN0001'", "EsclavosModulo 1 Upgrade: NULL -> 0"}},
    // 15 bytes, the master's MAC address 001a2b3c4d5e
    {.name = "111",
     .request = "A5 03 00 00 00 0E 6F 30 61 31 62 32 63 33 64 34 65 35 66 00 FC",
     .answer = "A5 03 00 00 00 0F 6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00 31"},
    {.name = "111 when there is an upgrade",
     .request = "A5 03 00 00 00 0E 6F 30 61 31 62 32 63 33 64 34 65 35 66 00 FC",
     .answer = "A5 03 00 00 00 0F 6F 01 30 30 31 61 32 62 33 63 34 64 35 65 00 30",
     .before = "UPDATE EsclavosModulo SET Upgrade = 1"},
    // 7
    {.name = "112",
     .request = "A5 03 00 00 00 0F 70 30 61 31 62 32 63 33 64 34 65 35 66 00 07 F3",
     .changes = {"EsclavosModulo 1 Estado: 1 -> 7"}},
    // A5, doubled on the wire
    {.name = "112 of the start byte",
     .request = "A5 03 00 00 00 0F 70 30 61 31 62 32 63 33 64 34 65 35 66 00 A5 A5 55",
     .changes = {"EsclavosModulo 1 Estado: 7 -> 165"}},
    // 8
    {.name = "112 in CRC8 mode",
     .request = "A5 83 00 00 00 0F 25 65 34 64 37 67 36 66 31 61 30 60 33 55 5D 0B 0D",
     .changes = {"EsclavosModulo 1 Estado: 165 -> 8"}},
    // settings of the sample board, 6500 being 1964 and 44100 being AC44
    {.name = "106 of channel 1",
     .request = "A5 03 00 00 00 0F 6A 30 61 31 62 32 63 33 64 34 65 35 66 00 01 FF",
     .answer =
         "A5 03 00 00 00 1C 6A 01 04 01 19 64 01 04 00 00 02 00 02 01 02 00 01 01 01 03 AC 44 "
         "00 11 00 01 01 00 DF",
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_GET_ENTRADAAV\n"}},
    {.name = "108 of channel 1",
     .request = "A5 03 00 00 00 02 6C 01 8E",
     .changes = {"EntradaAV 1 EstadoPendienteRE: 0 -> 2"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_CONFIRM_ESTADOPENDIENTE_RE\n"}},
    {.name = "105 of channel 1",
     .request = "A5 03 00 00 00 0F 69 30 61 31 62 32 63 33 64 34 65 35 66 00 01 00",
     .answer = "A5 03 00 00 00 03 69 01 02 8E",
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_GET_ESTADOPENDIENTE_RE\n"}},
    {.name = "107 of channel 1",
     .request = "A5 03 00 00 00 02 6B 01 8F",
     .changes = {"EntradaAV 1 EstadoPendienteRE: 2 -> 0"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_RESET_ESTADOPENDIENTE_RE\n"}},
    // "00000003"
    {.name = "109",
     .request = "A5 03 00 00 00 17 6D 30 61 31 62 32 63 33 64 34 65 35 66 00 "
                "30 30 30 30 30 30 30 33 00 72",
     .answer = "A5 03 00 00 00 02 6D 00 8E",
     .changes = {"alarmasEstado estado_remote_encoder EstadoPendienteRE: 0 -> 2",
                 "alarmasEstado estado_remote_encoder valor: '00000000' -> '00000003'"},
     .logged = {kWrite, "<31>Subcomando SUBCOMMAND_REMOTE_ENCODER_STATUS\n"}},
    {.name = "110 of another slave",
     .request = kRegistration2,
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
     .request = kRegistration1,
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
        EXPECT_EQ(to_hex(exchange(hex(step.request))), step.answer);
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
