// The commands that only read, against the real daemon on the sample board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <regex>

#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/peer.h"
#include "tests/support/protocol_document.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/status_of_module.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::MatchesRegex;

// The clock of this machine, which is the daemon's, too.
std::string now_as(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, format, &local);
    return text;
}

const Bytes kIdentification = frame(
    4, hex("5A 4E 44 02 04 5A 4E 44 32 41 56 2D 54 01 03 03 01 5A 4E 32 30 32 34 30 30 30 31 32 33"
           "30 30 31 61 32 62 33 63 34 64 35 65 00 00 00 00 00 00 00"));

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
         "no parameter ConfiguracionGen.brillo; did you mean EntradaAV.0.Brillo or EntradaAV.1.Brillo?"},
        {{"EntradaAV.2.Bitrate"},
         "no parameter EntradaAV.2.Bitrate; did you mean EntradaAV.0.Bitrate or "
         "EntradaAV.1.Bitrate?"},
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
    EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: the module gave no answer\n");
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
    EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: no connection: Connection refused\n");
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
        {{"raw", "3"}, 1, "", "zondarctl: 127.0.0.1:8001: the module refused the request\n"},
        {{"raw", "3", "02"}, 1, "", "zondarctl: 127.0.0.1:8001: the module refused the request\n"},
        {{"raw", "3", "36 01"},
         1,
         "",
         "zondarctl: 127.0.0.1:8001: the module refused the request\n"},
        {{"raw", "3", "FF", "01"},
         1,
         "",
         "zondarctl: 127.0.0.1:8001: the module refused the request\n"},
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
        EXPECT_EQ(run.err,
                  "zondarctl: 127.0.0.1:8001: sent; the module gave no answer; the module may have "
                  "carried it out: read it back\n");
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
