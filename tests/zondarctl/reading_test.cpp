// The commands that only read, against the real daemon on the sample board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <ctime>
#include <regex>

#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/peer.h"
#include "tests/support/protocol_document.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

using Json = nlohmann::ordered_json;
using Words = std::vector<std::string>;

// The clock of this machine, which is the daemon's, too.
std::string now_as(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, format, &local);
    return text;
}

void set_state(const std::string& name, const std::string& value) {
    run_elsewhere(kTempDb,
                  "UPDATE alarmasEstado SET valor = '" + value + "' WHERE nombre = '" + name + "'");
}

const Bytes kIdentification = frame(
    4, hex("5A 4E 44 02 04 5A 4E 44 32 41 56 2D 54 01 03 03 01 5A 4E 32 30 32 34 30 30 30 31 32 33"
           "30 30 31 61 32 62 33 63 34 64 35 65 00 00 00 00 00 00 00"));

// Of a module with these alarms and this null packet level, and 0 for all else.
Bytes status_answer(std::uint8_t alarms, std::uint8_t level = 0) {
    Bytes info(28);
    info[1] = alarms;
    info[15] = level;
    return frame(0, info);
}

class Reading : public testing::Test {
  protected:
    RunningDaemon daemon_;
};

TEST_F(Reading, IdentifiesTheModule) {
    const ProgramRun run = run_zondarctl({"identify"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "model        ZND\n"
              "software     2.4\n"
              "name         ZND2AV-T\n"
              "boot_loader  1.3\n"
              "hardware     3.1\n"
              "serial       ZN2024000123\n"
              "mac          001a2b3c4d5e\n");
    EXPECT_EQ(json_of({"identify"})["data"], Json::parse(R"({
        "model": "ZND", "software": "2.4", "name": "ZND2AV-T", "boot_loader": "1.3",
        "hardware": "3.1", "serial": "ZN2024000123", "mac": "001a2b3c4d5e"})"));
}

// What the page calls the values of the status, in its order.
std::vector<std::string> names_of_the_status() {
    std::vector<std::string> names;
    for (const document::Place& place : document::layout("Status")) {
        if (!place.name.empty())
            names.push_back(place.name);
    }
    return names;
}

TEST_F(Reading, ShowsTheStatusOfTheSampleBoard) {
    const ProgramRun run = run_zondarctl({"status"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    std::vector<std::string> names;
    for (const std::string& line : lines_of(run.out))
        names.push_back(line.substr(0, line.find(' ')));
    EXPECT_EQ(names, names_of_the_status());
    EXPECT_THAT(lines_of(run.out), testing::IsSupersetOf({
                                       "input_sync       5",
                                       "alarma_hw        no",
                                       "alarma_in        yes",
                                       "output_sync      yes",
                                       "tv_system_1      34",
                                       "tv_system_2      33",
                                       "hdmi_1           33",
                                       "hdsdi_1          34",
                                       "hdmi_2           1",
                                       "null_level       -5",
                                       "multiplex_1      160",
                                       "multiplex_total  16",
                                       "multiplex_2      178",
                                       "multiplex_net    16",
                                       "ip_total         0",
                                       "player           0",
                                   }));
    const Json data = json_of({"status"})["data"];
    names.emplace_back("alarms");
    EXPECT_EQ(data.size(), names.size());
    const Json expected = Json::parse(R"({
        "input_sync": 5, "alarma_hw": false, "alarma_in": true, "alarma_cod": false,
        "alarma_si": false, "alarma_mod": false, "alarma_ip": false, "output_sync": true,
        "tv_system_1": 34, "tv_system_2": 33, "hdmi_1": 33, "hdsdi_1": 34, "hdmi_2": 1,
        "hdsdi_2": 0, "null_level": -5, "multiplex_1": 160, "multiplex_total": 16,
        "multiplex_2": 178, "multiplex_net": 16, "ip_total": 0, "ip_0": 0, "ip_1": 0, "player": 0,
        "alarms": ["alarma_in"]})");
    for (const auto& [name, value] : expected.items())
        EXPECT_EQ(data[name], value) << name;
}

// 0x2008 and 0x1A2C are the bitrates of the sample board.
TEST_F(Reading, ShowsEachItemOfTheStatusAsOtherProcessesReportIt) {
    const struct {
        const char* database;
        const char* sql;
        const char* item;
        const char* value;
    } reports[] = {
        {"temp", "estado_entradaAV_sync', '00001010", "input_sync", "10"},
        {"temp", "alarma_in', '0", "alarma_in", "false"},
        {"temp", "alarma_hw', '1", "alarma_hw", "true"},
        {"temp", "alarma_cod', '1", "alarma_cod", "true"},
        {"temp", "alarma_si', '1", "alarma_si", "true"},
        {"temp", "alarma_mod', '1", "alarma_mod", "true"},
        {"temp", "alarma_ip', '1", "alarma_ip", "true"},
        {"temp", "estado_sync', '0", "output_sync", "false"},
        {"temp", "estado_entradaAV_sistemaTV_12', '00450067", "tv_system_1", "103"},
        {"temp", "estado_entradaAV_sistemaTV_12', '00450067", "tv_system_2", "69"},
        {"temp", "estado_entradaAV_hdmi', '890B0000", "hdmi_1", "11"},
        {"temp", "estado_entradaAV_hdmi', '890B0000", "hdmi_2", "137"},
        {"temp", "estado_entradaAV_hdsdi', 'CDEF0000", "hdsdi_1", "239"},
        {"temp", "estado_entradaAV_hdsdi', 'CDEF0000", "hdsdi_2", "205"},
        {"temp", "estado_player', '1", "player", "1"},
        {"null", "Nivel = '127'", "null_level", "127"},
        {"null", "Nivel = '-127'", "null_level", "-127"},
        {"null", "Canal_1 = '400'", "multiplex_1", "200"},
        {"null", "Canal_2 = '402'", "multiplex_2", "201"},
        {"null", "Total = '404'", "multiplex_total", "202"},
        {"mode", "Modo_Salida = 1", "multiplex_total", "0"},
        {"mode", "Modo_Salida = 1", "ip_0", "8200"},
        {"mode", "Modo_Salida = 1", "ip_1", "6000"},
        {"mode", "Modo_Salida = 1", "ip_total", "14200"},
    };
    for (const auto& report : reports) {
        SCOPED_TRACE(report.sql);
        const std::string sql = report.sql;
        if (const std::string database = report.database; database == "temp")
            set_state(sql.substr(0, sql.find('\'')), sql.substr(sql.rfind('\'') + 1));
        else if (database == "null")
            run_elsewhere(kTempDb, "UPDATE Bitrate_Nulos SET " + sql);
        else
            run_elsewhere(kConfDb, "UPDATE ConfiguracionGen SET " + sql);
        EXPECT_EQ(json_of({"status"})["data"][report.item].dump(), report.value) << report.item;
    }
    EXPECT_EQ(
        json_of({"status"})["data"]["alarms"],
        Json::parse(R"(["alarma_hw", "alarma_cod", "alarma_si", "alarma_mod", "alarma_ip"])"));
    for (const char* const alarm : {"hw", "cod", "si", "mod", "ip"})
        set_state(std::string("alarma_") + alarm, "0");
    EXPECT_EQ(json_of({"status"})["data"]["alarms"], Json::array());
}

struct Held {
    const char* name;
    Json value;
};

const std::vector<Held> kBlock1 = {
    {"ConfiguracionGen.Modo_Entrada", 0},
    {"EntradaAV.0.Brillo", 51},
    {"EntradaAV.0.Contraste", 52},
    {"EntradaAV.0.Saturacion", 50},
    {"EntradaAV.0.Sharpness", 3},
    {"EntradaAV.0.Video_Enc_Standard", 1},
    {"EntradaAV.0.Video_Aspect_Ratio", 1},
    {"EntradaAV.0.Bitrate", 8000},
    {"EntradaAV.0.Audio_Bitrate", 3},
    {"EntradaAV.0.Low_Latency", 0},
    {"EntradaAV.1.Brillo", 61},
    {"EntradaAV.1.Contraste", 62},
    {"EntradaAV.1.Saturacion", 60},
    {"EntradaAV.1.Sharpness", 4},
    {"EntradaAV.1.Video_Enc_Standard", 1},
    {"EntradaAV.1.Video_Aspect_Ratio", 0},
    {"EntradaAV.1.Bitrate", 6500},
    {"EntradaAV.1.Audio_Bitrate", 4},
    {"EntradaAV.1.Low_Latency", 1},
    {"RFOut.Cofdm_Off", 0},
    {"RFOut.Canal_Salida", 21},
    {"RFOut.Frecuencia", 474000},
    {"ConfiguracionGen.Atenuacion", 10},
    {"RFOut.Modo_OFDM", 1},
    {"RFOut.Ancho_Banda", 0},
    {"RFOut.Intervalo_Guarda", 0},
    {"RFOut.Constelacion", 2},
    {"RFOut.Code_Rate", 4},
    {"PIDsSalida.0.1.Seleccionado", 1},
    {"PIDsSalida.0.2.Seleccionado", 1},
    {"ServiciosSalida.0.LCN", 1},
    {"ServiciosSalida.0.SID", 101},
    {"ServiciosSalida.0.Nombre", "Canal Uno"},
    {"PIDsSalida.1.1.Seleccionado", 1},
    {"PIDsSalida.1.2.Seleccionado", 1},
    {"ServiciosSalida.1.LCN", 2},
    {"ServiciosSalida.1.SID", 102},
    {"ServiciosSalida.1.Nombre", "Canal Dos"},
    {"Red.NetworkName", "Red Local"},
    {"Red.Proveedor", "Proveedor"},
    {"Red.NID", 1},
    {"Red.TSID_Out", 0},
    {"Red.ONID_Out", 0},
    {"Red.NIT_Patron", 0},
    {"Red.LCN_Mode", 1},
    {"Red.Insertar_TDT", 1},
};

const std::vector<Held> kBlock2 = {
    {"IPOut.Ip_Off", 0},
    {"IPOut.Protocolo", 1},
    {"IPOut.Qos", 4},
    {"IPOut.Ttl", 16},
    {"IPOut.Vlan_Mode", 0},
    {"IPOut.Vlan_Id", 100},
    {"IPOut.Vlan_Tpid", 33024},
    {"ServiciosSalida.0.IP_address_source", "239.1.1.1"},
    {"ServiciosSalida.0.IP_port_source", 5000},
    {"ServiciosSalida.0.Nombre_SAP", "SAP Uno"},
    {"ServiciosSalida.1.IP_address_source", "239.1.1.2"},
    {"ServiciosSalida.1.IP_port_source", 5002},
    {"ServiciosSalida.1.Nombre_SAP", "SAP Dos"},
    {"IPOut.SAP_Mode", 1},
    {"IPOut.SAP_Ip", "224.2.127.254"},
    {"IPOut.SAP_User", "cabecera"},
    {"IPOut.SAP_Time", 5},
    {"ConfiguracionGen.Player_Mode", 0},
    {"ConfiguracionGen.Ip_Dhcp", 0},
    {"ConfiguracionGen.Ip_Address", "192.168.1.50"},
    {"ConfiguracionGen.Ip_Mask", "255.255.255.0"},
    {"ConfiguracionGen.Ip_Gateway", "192.168.1.1"},
    {"ConfiguracionGen.Country", "Spain"},
    {"ConfiguracionGen.Subtimezone", 0},
    {"IPOut.Mpts_Mode", 0},
};

std::vector<Held> both_blocks() {
    std::vector<Held> both = kBlock1;
    both.insert(both.end(), kBlock2.begin(), kBlock2.end());
    return both;
}

Json parameters_json(const std::vector<Held>& held) {
    Json list = Json::array();
    for (const Held& each : held)
        list.push_back({{"name", each.name}, {"value", each.value}});
    return list;
}

// "NAME VALUE" of each line, but for the clock's two.
std::vector<std::string> shown_parameters(const std::string& text) {
    std::vector<std::string> shown;
    for (const std::string& line : lines_of(text)) {
        if (!line.starts_with("time ") && !line.starts_with("date "))
            shown.push_back(std::regex_replace(line, std::regex(" {2,}"), " "));
    }
    return shown;
}

std::vector<std::string> as_shown(const std::vector<Held>& held) {
    std::vector<std::string> lines;
    for (const Held& each : held)
        lines.push_back(
            std::string(each.name) + " " +
            (each.value.is_string() ? each.value.get<std::string>() : each.value.dump()));
    return lines;
}

TEST_F(Reading, ShowsTheConfigurationWhollyOrABlockOfIt) {
    const struct {
        Words words;
        std::vector<Held> held;
        bool clock;
    } cases[] = {
        {{"config"}, both_blocks(), true},
        {{"config", "1"}, kBlock1, false},
        {{"config", "2"}, kBlock2, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        const ProgramRun run = run_zondarctl(each.words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_THAT(shown_parameters(run.out), ElementsAreArray(as_shown(each.held)));
        const Json data = json_of(each.words)["data"];
        EXPECT_EQ(data["parameters"], parameters_json(each.held));
        EXPECT_EQ(data.contains("time"), each.clock);
        EXPECT_EQ(data.contains("date"), each.clock);
        EXPECT_EQ(data.size(), each.clock ? 3U : 1U);
    }
    EXPECT_THAT(run_zondarctl({"config", "1"}).out,
                HasSubstr("\nEntradaAV.0.Brillo              51\n"
                          "EntradaAV.0.Contraste           52\n"));
}

TEST_F(Reading, GetsParametersByName) {
    const ProgramRun one = run_zondarctl({"get", "EntradaAV.0.Brillo"});
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.err, "");
    EXPECT_EQ(one.out, "EntradaAV.0.Brillo  51\n");

    const Words several = {
        "get",      "-v", "IPOUT.sap_user", "entradaav.1.bitrate", "ServiciosSalida.0.Nombre",
        "IPOut.Ttl"};
    const ProgramRun run = run_zondarctl(several);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "IPOut.SAP_User            cabecera\n"
              "EntradaAV.1.Bitrate       6500\n"
              "ServiciosSalida.0.Nombre  Canal Uno\n"
              "IPOut.Ttl                 16\n");
    // Each block is asked for once, in the order in which they are needed.
    const std::vector<std::string> exchanged = lines_of(run.err);
    ASSERT_EQ(exchanged.size(), 4U);
    EXPECT_EQ(exchanged[0], "Tx: A5 01 00 00 00 01 02 FC");
    EXPECT_EQ(exchanged[2], "Tx: A5 01 00 00 00 01 01 FD");
    EXPECT_EQ(json_of(several)["data"], Json::parse(R"({"parameters": [
        {"name": "IPOut.SAP_User", "value": "cabecera"},
        {"name": "EntradaAV.1.Bitrate", "value": 6500},
        {"name": "ServiciosSalida.0.Nombre", "value": "Canal Uno"},
        {"name": "IPOut.Ttl", "value": 16}]})"));
    Words all = {"get"};
    for (const Held& held : both_blocks())
        all.emplace_back(held.name);
    EXPECT_EQ(json_of(all)["data"]["parameters"], parameters_json(both_blocks()));
}

TEST_F(Reading, TellsWhyAParameterCannotBeGot) {
    const struct {
        Words names;
        const char* message;
    } cases[] = {
        {{"ConfiguracionGen.Lcd_Bloqueo"},
         "ConfiguracionGen.Lcd_Bloqueo cannot be read back: no answer of the module holds it"},
        {{"configuraciongen.lcd_codbloqueo"},
         "ConfiguracionGen.Lcd_Codbloqueo cannot be read back: no answer of the module holds it"},
        {{"ConfiguracionGen.brillo"},
         "no parameter ConfiguracionGen.brillo; there is EntradaAV.0.Brillo"},
        {{"EntradaAV.2.Bitrate"}, "no parameter EntradaAV.2.Bitrate; there is EntradaAV.0.Bitrate"},
        {{"SAP_Time"}, "no parameter SAP_Time; there is IPOut.SAP_Time"},
        {{"EntradaAV.0.Brillo", "Red.Nothing"},
         "no parameter Red.Nothing; `zondarctl list` has them all"},
        {{""}, "no parameter ; `zondarctl list` has them all"},
    };
    for (const auto& each : cases) {
        Words words = {"get", "-v"};
        words.insert(words.end(), each.names.begin(), each.names.end());
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "zondarctl: " + std::string(each.message) + "\n");
        const Json json = json_of(words, 2);
        EXPECT_EQ(json["ok"], false);
        EXPECT_EQ(json["error"], Json({{"stage", "usage"}, {"message", each.message}}));
    }
}

TEST_F(Reading, ShowsCountryTimeAndDate) {
    EXPECT_EQ(run_zondarctl({"country"}).out, "Spain\n");
    EXPECT_EQ(json_of({"country"})["data"], Json::parse(R"({"country": "Spain", "known":
        ["Australia", "France", "Great Britain", "Italy", "Portugal", "Spain"]})"));
    run_elsewhere(kConfDb, "UPDATE ConfiguracionGen SET Country = 'Narnia'");
    EXPECT_EQ(run_zondarctl({"country"}).out, "Narnia\n");
    EXPECT_EQ(json_of({"country"})["data"]["country"], "Narnia");

    // Unless the minute changes in between, twice in a row the same.
    for (const auto& [word, format] : {std::pair{"time", "%H.%M"}, {"date", "%d.%m.%Y"}}) {
        const std::string before = now_as(format);
        const ProgramRun run = run_zondarctl({word});
        const Json data = json_of({word})["data"];
        const std::string after = now_as(format);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_THAT(run.out, testing::AnyOf(before + "\n", after + "\n"));
        EXPECT_THAT(data[word].get<std::string>(), testing::AnyOf(before, after));
        EXPECT_EQ(data.size(), 2U);  // time and date
    }
}

TEST_F(Reading, DumpsEverythingInOneDocument) {
    const ProgramRun run = run_zondarctl({"dump"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json["command"], "dump");
    EXPECT_EQ(json["ok"], true);
    const Json& data = json["data"];
    EXPECT_EQ(data["tool"], "zondarctl " ZONDAR_VERSION);
    EXPECT_THAT(data["taken"].get<std::string>(),
                MatchesRegex("20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z"));
    EXPECT_EQ(data["identification"], json_of({"identify"})["data"]);
    EXPECT_EQ(data["identification"]["serial"], "ZN2024000123");
    EXPECT_EQ(data["status"]["alarms"], Json::array({"alarma_in"}));
    EXPECT_EQ(data["configuration_1"]["parameters"], parameters_json(kBlock1));
    EXPECT_EQ(data["configuration_2"]["parameters"], parameters_json(kBlock2));
    EXPECT_EQ(data["configuration_2"]["time"].get<std::string>().size(), 5U);
    EXPECT_EQ(data.size(), 6U);
}

TEST(Dump, KeepsWhatAModuleHasAnsweredBeforeItFellSilent) {
    const Peer peer([](const Peer::Accept& accept) {
        answer_in_turn(accept, {kIdentification, status_answer(0b100000, 0x85)});
        answer_with(accept, {});
    });
    const ProgramRun run = run_zondarctl({"dump", "-t", "20"});
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err, "zondarctl: the module gave no answer\n");
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json["ok"], false);
    EXPECT_EQ(json["error"]["stage"], "answer");
    EXPECT_EQ(json["data"]["identification"]["serial"], "ZN2024000123");
    EXPECT_EQ(json["data"]["status"]["alarms"], Json::array({"alarma_ip"}));
    EXPECT_EQ(json["data"]["status"]["null_level"], -5);
    EXPECT_TRUE(json["data"]["configuration_1"].is_null());
    EXPECT_TRUE(json["data"]["configuration_2"].is_null());
}

TEST(Dump, IsADocumentWithoutAModule) {
    const ProgramRun run = run_zondarctl({"dump"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "zondarctl: no connection: Connection refused\n");
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json["error"]["stage"], "connect");
    for (const char* const part :
         {"identification", "status", "configuration_1", "configuration_2"}) {
        ASSERT_TRUE(json["data"].contains(part));
        EXPECT_TRUE(json["data"][part].is_null());
    }
}

TEST(Dump, GoesOnBehindAPartThatFails) {
    Bytes wrong = kIdentification;
    wrong.back() ^= 1U;
    const Peer peer([&](const Peer::Accept& accept) {
        answer_in_turn(accept, {wrong, status_answer(0), frame(1, {}), frame(1, {})});
    });
    const ProgramRun run = run_zondarctl({"dump", "-r", "0", "-t", "20"});
    EXPECT_EQ(run.status, 5);
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json["error"]["stage"], "code");
    EXPECT_TRUE(json["data"]["identification"].is_null());
    EXPECT_EQ(json["data"]["status"]["alarms"], Json::array());
    EXPECT_TRUE(json["data"]["configuration_1"].is_null());
}

// label=value[unit][;warn[;crit[;min[;max]]]], as the graphing programs read it.
constexpr char kPluginLine[] =
    "ZONDAR (OK|WARNING|CRITICAL|UNKNOWN) - [^|\n]+"
    "( \\|( [a-z_0-9]+=-?[0-9]+(\\.[0-9]+)?(s|%|[KMGT]?B|c)?(;[0-9.]*){0,4})+)?\n";

TEST_F(Reading, ChecksAsAMonitoringPlugin) {
    const struct {
        std::vector<std::string> alarms;  // that are on
        Words warn;
        int status;
        const char* begin;
    } cases[] = {
        {{}, {}, 0, "ZONDAR OK - no alarms | time="},
        {{}, {"hw"}, 0, "ZONDAR OK - no alarms | time="},
        {{"hw"}, {}, 2, "ZONDAR CRITICAL - alarma_hw | time="},
        {{"in"}, {}, 2, "ZONDAR CRITICAL - alarma_in | time="},
        {{"cod"}, {}, 2, "ZONDAR CRITICAL - alarma_cod | time="},
        {{"si"}, {}, 2, "ZONDAR CRITICAL - alarma_si | time="},
        {{"mod"}, {}, 2, "ZONDAR CRITICAL - alarma_mod | time="},
        {{"ip"}, {}, 2, "ZONDAR CRITICAL - alarma_ip | time="},
        {{"in"}, {"in"}, 1, "ZONDAR WARNING - alarma_in | time="},
        {{"in", "ip"}, {"ip", "in"}, 1, "ZONDAR WARNING - alarma_in, alarma_ip | time="},
        {{"in", "ip"}, {"ip"}, 2, "ZONDAR CRITICAL - alarma_in, alarma_ip | time="},
        {{"hw"}, {"in"}, 2, "ZONDAR CRITICAL - alarma_hw | time="},
    };
    for (const auto& each : cases) {
        run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor = '0' WHERE nombre LIKE 'alarma%'");
        for (const std::string& alarm : each.alarms)
            set_state("alarma_" + alarm, "1");
        Words words = {"check"};
        for (const std::string& alarm : each.warn)
            words.insert(words.end(), {"--warn", "alarma_" + alarm});
        SCOPED_TRACE(each.begin + testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out.substr(0, std::string(each.begin).size()), each.begin);
        EXPECT_TRUE(std::regex_match(run.out, std::regex(kPluginLine))) << run.out;
        EXPECT_THAT(run.out, HasSubstr("s alarms=" + std::to_string(each.alarms.size()) +
                                       ";;;0;6 input_sync=5 "));
    }
    const Json data = json_of({"check"}, 2)["data"];
    EXPECT_EQ(data["state"], "CRITICAL");
    EXPECT_EQ(data["alarms"], Json::array({"alarma_hw"}));
    EXPECT_EQ(json_of({"check"}, 2)["ok"], true);
    EXPECT_THAT(run_zondarctl({"check"}).out,
                HasSubstr(" tv_system_1=34 tv_system_2=33 hdmi_1=33 hdsdi_1=34 hdmi_2=1 hdsdi_2=0 "
                          "null_level=-5 multiplex_1=160 multiplex_total=16 multiplex_2=178 "
                          "multiplex_net=16 ip_total=0 ip_0=0 ip_1=0 player=0\n"));
}

TEST(Check, IsCriticalWithoutAModuleAndUnknownWithoutAnAnswerToTheQuestion) {
    const struct {
        Words words;
        int status;
        const char* out;
    } cases[] = {
        {{"check"}, 2, "ZONDAR CRITICAL - no connection: Connection refused\n"},
        {{"check", "--warn", "alarma_in"},
         2,
         "ZONDAR CRITICAL - no connection: Connection refused\n"},
        {{"check", "--nothing"},
         3,
         "ZONDAR UNKNOWN - The following argument was not expected: --nothing\n"},
        {{"check", "--port", "0"}, 3, "ZONDAR UNKNOWN - --port: Value 0 not in range 1 to 65535\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        const ProgramRun run = run_zondarctl(each.words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.out, each.out);
        EXPECT_THAT(run.err, MatchesRegex("zondarctl: [^\n]+\n"));
    }
    const Json json = json_of({"check"}, 2);
    EXPECT_EQ(json["ok"], false);
    EXPECT_EQ(json["data"], Json({{"state", "CRITICAL"}}));
    EXPECT_EQ(json["error"]["stage"], "connect");
}

TEST(Check, PrintsOneLineWhateverTheModuleSays) {
    const Peer peer(
        [](const Peer::Accept& accept) { answer_with(accept, frame(0, hex("01 02 03"))); });
    const ProgramRun run = run_zondarctl({"check", "-r", "0"});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(std::regex_match(run.out, std::regex(kPluginLine))) << run.out;
    EXPECT_EQ(run.out, "ZONDAR CRITICAL - an answer to another request\n");
}

TEST_F(Reading, WatchesAndSumsUp) {
    const ProgramRun run = run_zondarctl({"watch", "--count", "3", "-n", "0"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    const std::string once = run_zondarctl({"status"}).out;
    EXPECT_EQ(run.out, once + once + once + "3 exchanges, 3 answers, 0 losses\n");

    const std::vector<std::string> lines =
        lines_of(run_zondarctl({"--json", "watch", "--count", "2", "-n", "0"}).out);
    ASSERT_EQ(lines.size(), 3U);
    for (const std::size_t i : {0U, 1U}) {
        const Json json = Json::parse(lines[i]);
        EXPECT_EQ(json["command"], "watch");
        EXPECT_EQ(json["ok"], true);
        EXPECT_EQ(json["data"]["null_level"], -5);
        EXPECT_EQ(json["data"]["changed"], Json::array());
    }
    EXPECT_EQ(Json::parse(lines[2])["data"],
              Json::parse(R"({"exchanges": 2, "answers": 2, "losses": 0})"));
}

TEST(Watch, TellsWhatChangedAndCountsLosses) {
    Bytes damaged = status_answer(0);
    damaged.back() ^= 1U;
    const std::vector<Bytes> answers = {status_answer(0), status_answer(0b10, 0x85), damaged,
                                        status_answer(0b10, 0x85), status_answer(0, 0x85)};
    const auto module = [&](const Peer::Accept& accept) { answer_in_turn(accept, answers); };
    const Words words = {"watch", "--count", "5", "-n", "0", "-r", "0", "-t", "20"};
    {
        const Peer peer(module);
        Words as_json = words;
        as_json.emplace_back("--json");
        const ProgramRun run = run_zondarctl(as_json);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "zondarctl: wrong checksum or CRC in the answer\n");
        const std::vector<std::string> lines = lines_of(run.out);
        ASSERT_EQ(lines.size(), 6U);
        const auto changed = [&](std::size_t i) {
            return Json::parse(lines[i])["data"]["changed"];
        };
        EXPECT_EQ(changed(0), Json::array());
        EXPECT_EQ(changed(1), Json::parse(R"(["alarma_in", "null_level"])"));
        EXPECT_EQ(Json::parse(lines[2])["error"]["stage"], "code");
        EXPECT_EQ(Json::parse(lines[2])["ok"], false);
        EXPECT_EQ(changed(3), Json::array());
        EXPECT_EQ(changed(4), Json::array({"alarma_in"}));
        EXPECT_EQ(Json::parse(lines[5])["data"],
                  Json::parse(R"({"exchanges": 5, "answers": 4, "losses": 1})"));
    }
    const Peer peer(module);
    const ProgramRun run = run_zondarctl(words);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("alarma_in        yes  was no\n"));
    EXPECT_THAT(run.out, HasSubstr("alarma_in        no  was yes\n"));
    EXPECT_THAT(run.out, HasSubstr("null_level       -5   was 0\n"));
    EXPECT_THAT(run.out, testing::EndsWith("\n5 exchanges, 4 answers, 1 losses\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("\033")));
}

constexpr char kHome[] = "\033[H\033[J";

TEST(Watch, ShowsChangesInPlaceOnATerminal) {
    const std::vector<Bytes> answers = {status_answer(0), status_answer(0b10, 0x85),
                                        status_answer(0b10, 0x85)};
    for (const bool colored : {true, false}) {
        SCOPED_TRACE(colored);
        const Peer peer([&](const Peer::Accept& accept) { answer_in_turn(accept, answers); });
        Words words = {"/usr/bin/env",
                       colored ? "NO_COLOR=" : "NO_COLOR=1",
                       zondarctl_path(),
                       "watch",
                       "--count",
                       "3",
                       "-n",
                       "0"};
        const ProgramRun run = run_on_terminal(words);
        EXPECT_EQ(run.status, 0);
        std::vector<std::string> pictures;
        for (std::size_t at = run.out.find(kHome); at != std::string::npos;) {
            const std::size_t next = run.out.find(kHome, at + 1);
            pictures.push_back(run.out.substr(at, next - at));
            at = next;
        }
        ASSERT_EQ(pictures.size(), 3U);
        EXPECT_THAT(pictures[0], HasSubstr("alarma_in        no\r\n"));
        EXPECT_THAT(pictures[1],
                    HasSubstr(colored ? "\033[1;31malarma_in        yes  was no\033[0m\r\n"
                                      : "\nalarma_in        yes  was no\r\n"));
        EXPECT_THAT(pictures[1], HasSubstr(colored ? "\033[1mnull_level       -5   was 0\033[0m\r\n"
                                                   : "\nnull_level       -5   was 0\r\n"));
        EXPECT_THAT(pictures[2], HasSubstr(colored ? "\033[1;31malarma_in        yes\033[0m\r\n"
                                                   : "\nalarma_in        yes\r\n"));
        EXPECT_THAT(pictures[2], HasSubstr("\nnull_level       -5\r\n"));
        EXPECT_THAT(pictures[2], HasSubstr("\r\n3 exchanges, 3 answers, 0 losses\r\n"));
    }
}

// The watch of a user who sends it to a file, until `meanwhile` is done and Ctrl-C is pressed.
ProgramRun watched(const std::function<void()>& meanwhile) {
    return run_program(
        {"/bin/sh", "-c",
         "exec " + zondarctl_path() + " --json watch -n 0.01 > /tmp/watch.out 2> /tmp/watch.err"},
        "", [&](int pid) {
            meanwhile();
            kill(pid, SIGINT);
        });
}

// The first of the objects that `watched` printed so far from line `from` on for which it holds.
bool comes(std::size_t& from, const std::function<bool(const Json&)>& condition) {
    return eventually([&] {
        const std::string text = read_file("/tmp/watch.out");
        const std::vector<std::string> lines = lines_of(text.substr(0, text.rfind('\n') + 1));
        for (; from < lines.size(); ++from) {
            if (condition(Json::parse(lines[from])))
                return true;
        }
        return false;
    });
}

TEST(Watch, OutlivesTheDaemonAndSumsUpAtCtrlC) {
    make_board();
    std::optional<Daemon> daemon(std::in_place);
    const auto answered = [](const Json& json) { return json["ok"] == true; };
    const auto lost = [](const Json& json) { return json["ok"] == false; };
    const ProgramRun run = watched([&] {
        std::size_t line = 0;
        EXPECT_TRUE(comes(line, answered));
        for (int times = 0; times < 2; ++times) {
            EXPECT_EQ(daemon->stop(SIGKILL), 1009);
            EXPECT_TRUE(comes(line, lost));
            daemon.emplace();
            EXPECT_TRUE(comes(line, answered));
        }
        run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor = '1' WHERE nombre = 'alarma_si'");
        EXPECT_TRUE(comes(line, [](const Json& json) {
            return json["ok"] == true && json["data"]["changed"] == Json::array({"alarma_si"});
        }));
    });
    EXPECT_EQ(run.status, 0);
    int answers = 0;
    int losses = 0;
    const std::vector<std::string> lines = lines_of(read_file("/tmp/watch.out"));
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        const Json json = Json::parse(lines[i]);
        ++(json["ok"] == true ? answers : losses);
        if (json["ok"] == false) {
            EXPECT_THAT(json["error"]["stage"].get<std::string>(),
                        testing::AnyOf("connect", "answer"));
        }
    }
    const Json summary = Json::parse(lines.back());
    EXPECT_EQ(summary["ok"], true);
    const Json& figures = summary["data"];
    // The signal may have cut an exchange short that was not shown then.
    EXPECT_EQ(figures["answers"], answers);
    EXPECT_GE(figures["losses"], losses);
    EXPECT_EQ(figures["exchanges"].get<int>(),
              figures["answers"].get<int>() + figures["losses"].get<int>());
    EXPECT_GE(losses, 2);
    EXPECT_THAT(lines_of(read_file("/tmp/watch.err")),
                testing::Each(MatchesRegex("zondarctl: .+")));
}

// True as soon as a signal that was sent to a process has reached it.
bool reached(int pid) {
    return eventually([&] {
        const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
        return status.find("\nShdPnd:\t0000000000000000\n") != std::string::npos;
    });
}

// The first one lets it finish what it asks, the second one does not wait for that.
TEST(Watch, EndsAtTheSecondCtrlCWhateverItWaitsFor) {
    std::atomic<bool> asked = false;
    const Peer peer([&](const Peer::Accept& accept) {
        const auto request = accept();
        const auto collection = accept();
        asked = true;
        accept();
    });
    const ProgramRun run = run_program({zondarctl_path(), "watch", "-t", "20"}, "", [&](int pid) {
        EXPECT_TRUE(eventually([&] { return asked.load(); }));
        kill(pid, SIGINT);
        EXPECT_TRUE(reached(pid));
        kill(pid, SIGINT);
    });
    EXPECT_EQ(run.status, 1000 + SIGINT);
    EXPECT_EQ(run.out, "");
}

// The info of the page's answer, 16 bytes a line.
std::string shown(std::uint8_t command) {
    std::string text = to_hex(info_of(hex(document::answer(frame(command))), command)) + "\n";
    for (std::size_t end = 47; end < text.size(); end += 48)
        text[end] = '\n';
    return text;
}

TEST_F(Reading, SendsAnyRequest) {
    const struct {
        Words words;
        int status;
        std::string out;
        const char* err;
    } cases[] = {
        {{"raw", "4"}, 0, shown(4), ""},
        {{"raw", "0x4"}, 0, shown(4), ""},
        {{"raw", "2"}, 0, shown(0), ""},
        // A configuration request of a wrong length has an answer without info.
        {{"raw", "1"}, 0, "", ""},
        {{"raw", "1", "01", "02"}, 0, "", ""},
        {{"raw", "3", "02", "34"}, 0, "", ""},
        {{"raw", "3", "1d00", "a5"}, 0, "", ""},
        {{"raw", "3"}, 1, "", "zondarctl: the module refused the request\n"},
        {{"raw", "3", "02"}, 1, "", "zondarctl: the module refused the request\n"},
        {{"raw", "3", "36 01"}, 1, "", "zondarctl: the module refused the request\n"},
        {{"raw", "3", "FF", "01"}, 1, "", "zondarctl: the module refused the request\n"},
        {{"raw", "16"}, 2, "", "zondarctl: '16' is no command: it is 0 to 15\n"},
        {{"raw", "x"}, 2, "", "zondarctl: 'x' is no command: it is 0 to 15\n"},
        {{"raw", "1", "1"}, 2, "", "zondarctl: '1' are no bytes in hexadecimal digits\n"},
        {{"raw", "1", "0g"}, 2, "", "zondarctl: '0g' are no bytes in hexadecimal digits\n"},
        {{"raw", "1", std::string(512, '0')},
         2,
         "",
         "zondarctl: 256 bytes are more than the 255 of a frame\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        const ProgramRun run = run_zondarctl(each.words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.out, each.out);
        EXPECT_EQ(run.err, each.err);
    }
    EXPECT_EQ(Database(kConfDb).value("SELECT Brillo FROM EntradaAV WHERE IdEntradaAV = 0"), "52");
    EXPECT_EQ(Database(kConfDb).value("SELECT LCN FROM ServiciosSalida WHERE IdServicio = 0"),
              "165");
    for (int command = 5; command <= 15; ++command) {
        const ProgramRun run = run_zondarctl({"raw", std::to_string(command), "01"});
        EXPECT_EQ(run.status, 4) << command;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "zondarctl: the module gave no answer\n");
    }
    EXPECT_EQ(json_of({"raw", "1"})["data"],
              Json::parse(R"({"command": 1, "length": 0, "info": ""})"));
    const Json json = json_of({"raw", "0x0"})["data"];
    EXPECT_EQ(json["command"], 0);
    EXPECT_EQ(json["length"], document::length("Status"));
    EXPECT_EQ(json["info"], to_hex(info_of(hex(document::answer(frame(0))), 0)));
}

TEST_F(Reading, ResynchronisesTheModule) {
    const char* const kAnswering =
        "between two frames, and answering\n"
        "model        ZND\n"
        "software     2.4\n"
        "name         ZND2AV-T\n"
        "boot_loader  1.3\n"
        "hardware     3.1\n"
        "serial       ZN2024000123\n"
        "mac          001a2b3c4d5e\n";
    const ProgramRun healthy = run_zondarctl({"resync", "-t", "60"});
    EXPECT_EQ(healthy.status, 0);
    EXPECT_EQ(healthy.err, "");
    EXPECT_EQ(healthy.out, kAnswering);

    // Half of a write of 200 bytes, and an answer that nobody has collected.
    send_request(hex("A5 03 00 00 00 C8 02 07"));
    EXPECT_EQ(run_zondarctl({"resync", "-t", "60"}).out, kAnswering);
    send_request(hex("A5 00 00 00 00 00 00"));
    const Json json = json_of({"resync", "-t", "60"});
    EXPECT_EQ(json["data"]["name"], "ZND2AV-T");
    EXPECT_EQ(run_zondarctl({"get", "EntradaAV.0.Brillo"}).out, "EntradaAV.0.Brillo  51\n");
}

// An exchange that finds the module in the middle of a frame fails, and mends that for the next.
TEST_F(Reading, RecoversByItselfFromHalfAFrameOfAnotherMaster) {
    send_request(hex("A5 03 00 00 00 C8 02 07"));
    const ProgramRun run = run_zondarctl({"status", "-t", "60"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, HasSubstr("null_level       -5\n"));
}

}  // namespace
