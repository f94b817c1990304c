// What the tool knows without a module: the list of parameters, the catalogue for other languages,
// the frames that it makes; its usage, its texts, the completion of its command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <utility>

#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/files.h"
#include "tests/support/protocol_document.h"
#include "tests/zondarctl/zondarctl.h"
#include "zondarctl/commands.h"

namespace zondarctl {

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

Json committed_catalogue() {
    return Json::parse(read_file(ZONDAR_SOURCE_DIR "/docs/commands.json"));
}

// The parameters of the catalogue, as the list has them.
std::vector<Json> parameters_of(const Json& catalogue) {
    std::vector<Json> all;
    for (const Json& row : catalogue["sub_commands"]) {
        if (row["kind"] != "action")
            all.push_back(row);
    }
    return all;
}

TEST(List, ShowsPeopleAndScriptsEveryParameter) {
    const ProgramRun run = run_zondarctl({"list"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    const Words lines = lines_of(run.out);
    const Json answer = json_of({"list"});
    EXPECT_EQ(answer["target"], nullptr);
    const Json& listed = answer["data"]["parameters"];
    const std::vector<Json> known = parameters_of(committed_catalogue());
    ASSERT_EQ(listed.size(), known.size());
    ASSERT_EQ(lines.size(), known.size() + 1);
    for (std::size_t i = 0; i < known.size(); ++i) {
        SCOPED_TRACE(known[i]["name"]);
        for (const auto& [key, value] : listed[i].items())
            EXPECT_EQ(value, known[i][key]) << key;
        for (const char* const key : {"name", "sub_command", "meaning", "position"})
            EXPECT_THAT(lines[i + 1],
                        HasSubstr(known[i][key].is_string() ? known[i][key].get<std::string>()
                                  : known[i][key].is_null() ? "nowhere"
                                                            : known[i][key].dump()));
    }
}

TEST(List, HasALineOfEachKind) {
    Words lines = lines_of(run_zondarctl({"list"}).out);
    for (std::string& line : lines)
        line = std::regex_replace(line, std::regex(" {2,}"), "|");
    for (
        const char* const line :
        {"NAME|SUB-COMMAND|VALUE|READ BACK|MEANING|REMARK",
         "EntradaAV.0.Brillo|2|0 to 255|block 1, at 2|brightness",
         "EntradaAV.1.Audio_Bitrate|17|0 to 255|block 1, at 20|audio bitrate|RFOut.Cofdm_Off takes "
         "the same value",
         "RFOut.Cofdm_Off|18|0 or 1|block 1, at 22|RF output: 1 is off",
         "RFOut.Frecuencia|20|0 to 16777215 kHz|block 1, at 24|RF frequency|channel and frequency "
         "change together, by the plan of the stored country",
         "ServiciosSalida.1.Nombre|36|a text of at most 14 bytes|block 1, at 60|name of the service",
         "ConfiguracionGen.Lcd_Codbloqueo|76|a text of at most 4 bytes|nowhere|lock code of the "
         "front panel"})
        EXPECT_THAT(lines, testing::Contains(line));
}

Words names_in(const Json& data) {
    Words names;
    for (const Json& parameter : data["parameters"])
        names.push_back(parameter["name"]);
    return names;
}

TEST(List, FindsAWordInNamesMeaningsAndUnits) {
    const std::pair<const char*, Words> cases[] = {
        {"khz", {"RFOut.Frecuencia"}},
        {"KBIT/S", {"EntradaAV.0.Bitrate", "EntradaAV.1.Bitrate"}},
        {"red.n", {"Red.NetworkName", "Red.NID", "Red.NIT_Patron"}},
        {"lock", {"ConfiguracionGen.Lcd_Bloqueo", "ConfiguracionGen.Lcd_Codbloqueo"}},
    };
    for (const auto& [word, names] : cases)
        EXPECT_EQ(names_in(json_of({"list", word})["data"]), names) << word;
}

// describe.

TEST(Describe, TellsAllThatIsKnown) {
    const std::pair<const char*, const char*> cases[] = {
        {"entradaav.1.audio_bitrate",
         "EntradaAV.1.Audio_Bitrate\n"
         "  meaning      audio bitrate\n"
         "  kind         code: a number whose values are not documented, beyond what the meaning "
         "says\n"
         "  takes        0 to 255\n"
         "  sub-command  17\n"
         "  read back    block 1, at 20\n"
         "  effect       RFOut.Cofdm_Off takes the same value\n"
         "  changes too  RFOut.Cofdm_Off\n"
         "  example      zondarctl set EntradaAV.1.Audio_Bitrate 1\n"},
        {"Modo_Entrada",
         "ConfiguracionGen.Modo_Entrada\n"
         "  meaning      mode of the AV inputs\n"
         "  kind         code: a number whose values are not documented, beyond what the meaning "
         "says\n"
         "  takes        0 to 255\n"
         "  sub-command  1\n"
         "  read back    block 1, at 1\n"
         "  stored       3 as 10\n"
         "               4 as 11\n"
         "  example      zondarctl set ConfiguracionGen.Modo_Entrada 1\n"},
        {"Bitrate",
         "EntradaAV.0.Bitrate\n"
         "  meaning      video bitrate\n"
         "  unit         kbit/s\n"
         "  kind         number: unsigned, the most significant byte first\n"
         "  takes        0 to 65535 kbit/s\n"
         "  sub-command  8\n"
         "  read back    block 1, at 8\n"
         "  example      zondarctl set EntradaAV.0.Bitrate 1000\n"},
        {"Red.TSID_Out",
         "Red.TSID_Out\n"
         "  meaning      transport stream identifier\n"
         "  kind         number: unsigned, the most significant byte first\n"
         "  takes        0 to 65535\n"
         "  sub-command  40\n"
         "  read back    block 1, at 107\n"
         "  stored       never: it always reads back as 0\n"
         "  example      zondarctl set Red.TSID_Out 1000\n"},
    };
    for (const auto& [name, told] : cases) {
        const ProgramRun run = run_zondarctl({"describe", name});
        EXPECT_TRUE(run.out.starts_with(told)) << run.out;
        EXPECT_EQ(run.err, "");
    }
    EXPECT_THAT(
        run_zondarctl({"describe", "Country"}).out,
        HasSubstr("  values       Australia, France, Great Britain, Italy, Portugal, Spain\n"));
    EXPECT_EQ(names_in(json_of({"describe", "bitrate"})["data"]),
              (Words{"EntradaAV.0.Bitrate", "EntradaAV.0.Audio_Bitrate", "EntradaAV.1.Bitrate",
                     "EntradaAV.1.Audio_Bitrate"}));
}

// As a shell takes it apart.
TEST(Describe, GivesExamplesThatCanBeSent) {
    for (const Json& parameter : json_of({"describe", "*"})["data"]["parameters"]) {
        std::string line = parameter["example"];
        ASSERT_TRUE(line.starts_with("zondarctl set ")) << line;
        line.replace(0, 13, "encode");
        const ProgramRun run = run_program({"/bin/sh", "-c", zondarctl_path() + " " + line});
        EXPECT_EQ(run.err, "") << line;
    }
}

// targets.

void write_targets() {
    setenv("XDG_CONFIG_HOME", "/tmp", 1);
    write_file("/tmp/zondar/targets.json", R"([
        {"targets": ["10.0.0.5", "10.0.0.6:8002"], "labels": {"site": "sur"}},
        {"targets": ["192.168.1.50"], "labels": {"name": "Norte-1", "site": "norte"}}])");
}

TEST(Targets, AreListed) {
    write_targets();
    EXPECT_EQ(run_zondarctl({"targets"}).out,
              "NAME     ADDRESS            LABELS\n"
              "         10.0.0.5:8001      site=sur\n"
              "         10.0.0.6:8002      site=sur\n"
              "Norte-1  192.168.1.50:8001  name=Norte-1 site=norte\n");
    EXPECT_EQ(json_of({"targets", "--where", "site=norte"})["data"], Json::parse(R"({"targets": [
        {"name": "Norte-1", "address": "192.168.1.50:8001",
         "labels": {"name": "Norte-1", "site": "norte"}}]})"));
    EXPECT_EQ(json_of({"targets", "--where", "site=sur"})["data"]["targets"].size(), 2U);
    const ProgramRun none = run_zondarctl({"targets", "--where", "site=este"});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, testing::StartsWith("zondarctl: no target has site=este"));
}

// docs/commands.json.

TEST(Catalogue, IsCurrent) {
    const ProgramRun run = run_program({ZONDAR_COMMANDS_JSON});
    EXPECT_TRUE(run.out == read_file(ZONDAR_SOURCE_DIR "/docs/commands.json"))
        << "docs/commands.json is not what the description says. Make it anew:\n"
        << "    build/release/zondarctl/commands_json > docs/commands.json";
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

// Each list and each row of it in its form; no other keys, no value of another kind.
TEST(Catalogue, HasTheFormThatItsSchemaTells) {
    const auto validated = [](const std::string& folder) {
        return run_program({ZONDAR_SOURCE_DIR "/tests/zondarctl/validate",
                            ZONDAR_SOURCE_DIR "/docs/commands.schema.json", folder});
    };
    write_file("/tmp/sound/commands.json", committed_catalogue().dump());
    EXPECT_EQ(validated("/tmp/sound").out, "1 files, 0 problems\n");

    const std::pair<const char*, const char*> kSpoilings[] = {
        {"/sub_commands/0/kind", "\"colour\""}, {"/sub_commands/0/sub_command", "256"},
        {"/layouts/status/length", "-1"},       {"/layouts/status/fields/0/unit", "3"},
        {"/countries/0/plan", "null"},          {"/plans/Europe/bands/0/step", "\"8 MHz\""},
        {"/layouts/status/fields/0/bit", "3"},  {"/layouts/status/fields/1/kind", "\"number\""},
        {"/sub_commands/0/width", "\"wide\""},  {"/layouts/slave/fields/1/ends_in_nul", "null"},
        {"/commands/0/answers", "\"status\""},  {"/anything", "1"},
    };
    for (const auto& [place, value] : kSpoilings) {
        Json spoilt = committed_catalogue();
        spoilt[Json::json_pointer(place)] = Json::parse(value);
        std::string name = place;
        std::ranges::replace(name, '/', ' ');
        write_file("/tmp/spoilt/" + name, spoilt.dump());
    }
    const ProgramRun run = validated("/tmp/spoilt");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, testing::EndsWith("\n12 files, 12 problems\n"));
}

// What no name may be missing for: each layout, effect and kind that a row names is defined.
TEST(Catalogue, DefinesWhatItNames) {
    const Json catalogue = committed_catalogue();
    const auto expect_layout = [&](const Json& name) {
        EXPECT_TRUE(name.is_null() || catalogue["layouts"].contains(name.get<std::string>()))
            << name;
    };
    for (const char* const list : {"commands", "sub_commands"}) {
        for (const Json& row : catalogue[list]) {
            SCOPED_TRACE(row);
            if (row.contains("request"))
                expect_layout(row["request"]);
            for (const Json& answer : row.value("answers", Json::array()))
                expect_layout(answer);
            if (row.contains("effect")) {
                EXPECT_TRUE(catalogue["effects"].contains(row["effect"].get<std::string>()));
            }
            if (row.contains("kind") && row["kind"] != "action") {
                EXPECT_TRUE(catalogue["kinds"].contains(row["kind"].get<std::string>()));
            }
        }
    }
    for (const Json& layout : catalogue["layouts"]) {
        for (const Json& field : layout["fields"])
            EXPECT_TRUE(catalogue["kinds"].contains(field["kind"].get<std::string>())) << field;
    }
    for (const Json& country : catalogue["countries"])
        EXPECT_TRUE(catalogue["plans"].contains(country["plan"].get<std::string>())) << country;
}

TEST(Catalogue, TellsWhatASubCommandChangesBesides) {
    Words told;
    const Json catalogue = committed_catalogue();
    for (const Json& row : catalogue["sub_commands"]) {
        if (row["kind"] == "action" || !row.contains("effect"))
            continue;
        std::string line = row["sub_command"].dump() + " " + row["effect"].get<std::string>() + ":";
        const Json also = row.value("also_writes", Json::object());
        for (const auto& [name, when] : also.items())
            line += " " + name + (when == "always" ? "" : " (" + when.get<std::string>() + ")");
        told.push_back(line);
    }
    EXPECT_THAT(
        told, ElementsAre(
                  "17 next_too: RFOut.Cofdm_Off", "19 tunes: RFOut.Frecuencia",
                  "20 tunes: RFOut.Canal_Salida", "27 masks_input: EntradaAV.0.Remux_Av",
                  "28 masks_input: EntradaAV.0.Remux_Av", "32 masks_input: EntradaAV.1.Remux_Av",
                  "33 masks_input: EntradaAV.1.Remux_Av",
                  "68 resets_network:", "69 resets_network:", "70 resets_network:",
                  "71 changes_country: ConfiguracionGen.Language ConfiguracionGen.Subtimezone "
                  "ConfiguracionGen.Idtimezone ConfiguracionGen.Codtimezone Red.NID Red.NIT_Patron "
                  "Red.LCN_Mode RFOut.Modo_OFDM RFOut.Intervalo_Guarda "
                  "RFOut.Code_Rate (from or to the plan Australia) "
                  "RFOut.Canal_Salida (from or to the plan Australia) "
                  "RFOut.Frecuencia (from or to the plan Australia) "
                  "RFOut.Ancho_Banda (from or to the plan Australia) "
                  "EntradaAV.0.Bitrate (by input mode) EntradaAV.1.Bitrate (by input mode)"));
}

TEST(Catalogue, TellsWhatIsNotStoredAsItIsSent) {
    Words told;
    const Json catalogue = committed_catalogue();
    for (const Json& row : catalogue["sub_commands"]) {
        for (const char* const key : {"stored", "stored_as"}) {
            if (row.contains(key))
                told.push_back(row["name"].get<std::string>() + " " + key + " " + row[key].dump());
        }
    }
    EXPECT_THAT(told, ElementsAre("ConfiguracionGen.Modo_Entrada stored_as {\"3\":10,\"4\":11}",
                                  "Red.TSID_Out stored false", "Red.ONID_Out stored false"));
}

// encode.

struct Encoding {
    Words words;
    const char* frame;
};

const Encoding kEncodings[] = {
    {{"4"}, "A5 04 00 00 00 00 FC"},
    {{"0x04"}, "A5 04 00 00 00 00 FC"},
    {{"--crc8", "4"}, "A5 84 00 00 00 00 7C D4"},
    {{"4", "--crc8"}, "A5 84 00 00 00 00 7C D4"},
    {{"--sequence", "1", "4"}, "A5 14 00 00 00 00 EC"},
    {{"4", "--sequence", "7"}, "A5 74 00 00 00 00 8C"},
    {{"15"}, "A5 0F 00 00 00 00 F1"},
    {{"1", "02"}, "A5 01 00 00 00 01 02 FC"},
    {{"3", "02", "34"}, "A5 03 00 00 00 02 02 34 C5"},
    {{"3", "0234"}, "A5 03 00 00 00 02 02 34 C5"},
    {{"--crc8", "3", "02 34"}, "A5 83 00 00 00 02 57 61 C3 BD"},
    {{"EntradaAV.0.Brillo", "52"}, "A5 03 00 00 00 02 02 34 C5"},
    {{"entradaav.0.BRILLO", "0x34"}, "A5 03 00 00 00 02 02 34 C5"},
    {{"EntradaAV.0.Brillo", "52", "--crc8", "--sequence", "5"}, "A5 D3 00 00 00 02 57 61 73 81"},
    // Bytes that are doubled, and a header byte that keeps the checksum from being one.
    {{"EntradaAV.0.Brillo", "165"}, "A5 03 00 00 00 02 02 A5 A5 54"},
    {{"Red.TSID_Out", "300"}, "A5 03 00 00 01 03 28 01 2C A4"},
    {{"3", "02", "54"}, "A5 03 00 00 01 02 02 54 A4"},
    {{"Red.NetworkName", ""}, "A5 03 00 00 00 02 25 00 D6"},
    {{"Red.NetworkName", "\xC3\xB1"}, "A5 03 00 00 00 04 25 C3 B1 00 60"},
};

TEST(Encode, MakesFrames) {
    for (const Encoding& each : kEncodings) {
        SCOPED_TRACE(each.frame);
        Words words = {"encode"};
        words.insert(words.end(), each.words.begin(), each.words.end());
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.out, std::string(each.frame) + "\n");
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0);
    }
    const Json answer = json_of({"encode", "4"});
    EXPECT_EQ(answer["data"], (Json{{"frame", "A5 04 00 00 00 00 FC"}}));
    EXPECT_EQ(answer["target"], nullptr);
}

std::string encoded(const Words& words, bool crc8_mode = false, unsigned sequence = 0) {
    return encode(words, crc8_mode, sequence).lines.at(0).cells.at(0);
}

// The value that the example of a parameter's sub-command carries.
std::string value_in(const std::string& example, const Json& parameter) {
    const Bytes frame = hex(example);
    const auto value = frame.begin() + 7;
    if (parameter.contains("length"))
        return {value, std::find(value, frame.end(), 0)};
    unsigned number = 0;
    for (int i = 0; i < parameter["width"].get<int>(); ++i)
        number = number << 8U | value[i];
    return std::to_string(number);
}

TEST(Encode, MakesTheDocumentedExamples) {
    const std::vector<document::Row> rows = document::table("| Code | Name in the log");
    for (const Json& parameter : parameters_of(committed_catalogue())) {
        SCOPED_TRACE(parameter["name"]);
        const auto row = std::ranges::find(rows, parameter["sub_command"].dump(),
                                           [](const document::Row& each) { return each[0]; });
        ASSERT_NE(row, rows.end());
        const std::string example = document::quoted(row->at(5)).at(0);
        EXPECT_EQ(encoded({parameter["name"], value_in(example, parameter)}), example);
    }
}

// A doubled byte is found only where the info itself has it.
TEST(Encode, LetsNoCodeByteBeA5) {
    for (const bool crc8_mode : {false, true}) {
        for (unsigned sequence = 0; sequence < 8; ++sequence) {
            for (unsigned value = 0; value < 256; ++value) {
                const std::string frame =
                    encoded({"EntradaAV.0.Brillo", std::to_string(value)}, crc8_mode, sequence);
                const bool doubled = frame.find("A5 A5") != std::string::npos;
                EXPECT_EQ(doubled, value == (crc8_mode ? 0xF0 : 0xA5)) << frame;
            }
        }
    }
}

TEST(Encode, FillsAFrame) {
    std::string digits;
    for (int i = 0; i < 255; ++i)
        digits += "00";
    const ProgramRun run = run_zondarctl({"encode", "3", digits});
    EXPECT_TRUE(run.out.starts_with("A5 03 00 00 00 FF 00 00")) << run.out;
    EXPECT_TRUE(run.out.ends_with(" 00 00 FE\n")) << run.out;
    EXPECT_EQ(run.out.size(), 3 * 262);
    EXPECT_EQ(run_zondarctl({"encode", "3", digits + "00"}).err,
              "zondarctl: 256 bytes are more than the 255 of a frame\n");
}

// Usage.

struct Misuse {
    Words words;
    const char* message;
    int status = 2;
};

const Misuse kMisuses[] = {
    {{}, "a command is required; `zondarctl help` lists them"},
    {{"-v"}, "a command is required; `zondarctl help` lists them"},
    {{"nonsense"}, "no command nonsense"},
    {{"--nonsense"}, "no option --nonsense"},
    {{"nonsense", "list"}, "'nonsense' is one word too many"},
    {{"list", "x", "y"}, "'y' is one word too many"},
    {{"list", "--nonsense"}, "no option --nonsense"},
    {{"list", "nonsense"}, "no parameter has 'nonsense' in its name or meaning"},
    {{"describe"}, "NAME is required"},
    {{"describe", "nonsense"}, "no parameter nonsense; `zondarctl list` has them all"},
    {{"help", "nonsense"}, "no command nonsense"},
    {{"identify", "x"}, "'x' is one word too many"},
    {{"config", "3"}, "BLOCK: '3' is out of range; 1 to 2"},
    {{"config", "x"}, "BLOCK: 'x' is no number; 1 to 2"},
    {{"config", "1", "2"}, "'2' is one word too many"},
    {{"get"}, "NAME is required"},
    {{"get", "nonsense"}, "no parameter nonsense; `zondarctl list` has them all"},
    {{"get", "ConfiguracionGen.Lcd_Bloqueo"},
     "ConfiguracionGen.Lcd_Bloqueo cannot be read back: no answer of the module holds it"},
    {{"set"}, "NAME is required"},
    {{"country", "a", "b"}, "'b' is one word too many: quote a text with blanks"},
    {{"time", "9", "5"}, "'5' is one word too many"},
    {{"date", "9", "5"}, "'5' is one word too many"},
    {{"raw"}, "COMMAND is required"},
    {{"raw", "16"}, "'16' is no command: it is 0 to 15"},
    {{"raw", "3", "0"}, "'0' are no bytes in hexadecimal digits"},
    {{"slave"}, "a command is required; `zondarctl help slave` lists them"},
    {{"slave", "nonsense"}, "no command nonsense"},
    {{"slave", "pending"}, "MAC is required"},
    {{"slave", "pending", "0a1b2c3d4e5f"}, "CHANNEL is required"},
    {{"slave", "pending", "0a1b2c3d4e5", "0"}, "'0a1b2c3d4e5' is no MAC address"},
    {{"slave", "pending", "0x0a1b2c3d4e5f", "0"}, "'0x0a1b2c3d4e5f' is no MAC address"},
    {{"slave", "pending", "0a1b2c3d4e5f", "256"}, "'256' is no channel: it is 0 to 255"},
    {{"slave", "register", "0a1b2c3d4e5f", "--software", "1.256"},
     "'256' is no version: it is 0 to 255"},
    {{"slave", "register", "0a1b2c3d4e5f", "--model", "0123456789"},
     "'0123456789' is longer than the 9 bytes of the model"},
    {{"db"}, "a command is required; `zondarctl help db` lists them"},
    {{"db", "nonsense"}, "no command nonsense"},
    {{"db", "check"}, "CONF is required"},
    {{"db", "check", "a"}, "TEMP is required"},
    {{"db", "check", "a", "b", "c"}, "'c' is one word too many"},
    {{"encode"}, "WORDS is required"},
    {{"encode", "16"}, "'16' is no command or parameter: it is 0 to 15"},
    {{"encode", "-1"}, "'-1' is no command or parameter: it is 0 to 15"},
    {{"encode", "Brillo", "1"},
     "no parameter Brillo; did you mean EntradaAV.0.Brillo or EntradaAV.1.Brillo?"},
    {{"encode", "3", "0"}, "'0' are no bytes in hexadecimal digits"},
    {{"encode", "3", "xy"}, "'xy' are no bytes in hexadecimal digits"},
    {{"encode", "Red.NID"}, "Red.NID takes one value"},
    {{"encode", "Red.NID", "1", "2"}, "Red.NID takes one value"},
    {{"encode", "Red.NID", "65536"}, "Red.NID takes 0 to 65535, not '65536'"},
    {{"encode", "Red.NetworkName", "123456789012345"},
     "Red.NetworkName takes a text of at most 14 bytes, not '123456789012345' with 15"},
    {{"encode", "4", "--sequence", "8"}, "--sequence: '8' is out of range; 0 to 7"},
    {{"encode", "4", "--sequence", "x"}, "--sequence: 'x' is no number; 0 to 7"},
    {{"watch", "--interval", "-1"}, "--interval: '-1' is out of range; 0 to 86400"},
    {{"watch", "-n", "x"}, "--interval: 'x' is no number; 0 to 86400"},
    {{"watch", "--count", "0"}, "--count: '0' is out of range; 1 to 4294967295"},
    {{"--port", "0", "list"}, "--port: '0' is out of range; 1 to 65535"},
    {{"--port", "65536", "list"}, "--port: '65536' is out of range; 1 to 65535"},
    {{"list", "--port", "x"}, "--port: 'x' is no number; 1 to 65535"},
    {{"-t", "0", "list"}, "--timeout: '0' is out of range; 0.001 to 86400"},
    {{"--timeout", "nan", "list"}, "--timeout: 'nan' is out of range; 0.001 to 86400"},
    {{"-r", "101", "list"}, "--retries: '101' is out of range; 0 to 100"},
    {{"--retries", "-1", "list"}, "--retries: '-1' is out of range; 0 to 100"},
    {{"--parallel", "0", "list"}, "--parallel: '0' is out of range; 1 to 1000"},
    {{"list", "--host"}, "--host: 1 required HOST missing"},
    {{"--pcap", "/none/trace", "list"},
     "cannot write frames to /none/trace: No such file or directory"},
    // 3 is a monitoring plugin's UNKNOWN.
    {{"check", "x"}, "'x' is one word too many", 3},
    {{"check", "--host", "127.0.0.1", "x"}, "'x' is one word too many", 3},
    {{"check", "--where", "site=sur", "x"}, "'x' is one word too many", 3},
    {{"check", "--nonsense"}, "no option --nonsense", 3},
    {{"check", "--warn"}, "--warn: 1 required NAME[:RANGE] missing", 3},
    {{"check", "-t", "x"}, "--timeout: 'x' is no number; 0.001 to 86400", 3},
    {{"--port", "x", "check"}, "--port: 'x' is no number; 1 to 65535", 3},
    {{"check", "--pcap", "/none/trace"},
     "cannot write frames to /none/trace: No such file or directory",
     3},
};

TEST(Usage, IsToldInOneLine) {
    for (const Misuse& misuse : kMisuses) {
        const ProgramRun run = run_zondarctl(misuse.words);
        SCOPED_TRACE(misuse.message);
        // Monitoring reads a line of a plugin in any case.
        EXPECT_EQ(run.out, misuse.status == 3
                               ? std::string("ZONDAR UNKNOWN - ") + misuse.message + "\n"
                               : "");
        EXPECT_EQ(run.err, std::string("zondarctl: ") + misuse.message + "\n");
        EXPECT_EQ(run.status, misuse.status);
    }
}

TEST(Usage, IsToldScriptsAsAnObject) {
    // The way is the same for all: some of them will do.
    for (std::size_t i = 0; i < std::size(kMisuses); i += 7) {
        const Misuse& misuse = kMisuses[i];
        SCOPED_TRACE(misuse.message);
        const Json answer = json_of(misuse.words, misuse.status);
        EXPECT_EQ(answer["schema"], 2);
        EXPECT_EQ(answer["ok"], false);
        EXPECT_EQ(answer["data"],
                  misuse.status == 3 ? Json({{"state", "UNKNOWN"}}) : Json::object());
        EXPECT_EQ(answer["target"], nullptr);
        EXPECT_EQ(answer["error"], (Json{{"stage", "usage"}, {"message", misuse.message}}));
    }
}

const Words kCommands = {
    "identify", "status",  "config", "get",   "dump",    "check",  "watch", "resync",        "list",
    "describe", "targets", "help",   "set",   "country", "time",   "date",  "reset-factory", "raw",
    "diff",     "restore", "copy",   "slave", "encode",  "decode", "db"};
const Words kSlaveCommands = {"pending", "encoder",  "clear",   "confirm",
                              "report",  "register", "upgrade", "state"};

std::vector<Words> all_commands() {
    std::vector<Words> all;
    for (const std::string& command : kCommands)
        all.push_back({command});
    for (const std::string& command : kSlaveCommands)
        all.push_back({"slave", command});
    all.push_back({"db", "check"});
    return all;
}

std::string help_of(Words words) {
    words.emplace_back("--help");
    const ProgramRun run = run_zondarctl(words);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    return run.out;
}

// The first words of the lines below this heading.
Words named_below(const std::string& heading, const std::string& help) {
    Words names;
    bool below = false;
    for (const std::string& line : lines_of(help)) {
        if (!line.starts_with(" "))
            below = line == heading;
        else if (below && line[2] != ' ')
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

TEST(Usage, IsShownWhenAskedFor) {
    const std::string help = help_of({});
    EXPECT_TRUE(help.starts_with("The master's side of a television head-end module.\nUsage: "));
    EXPECT_THAT(named_below("Subcommands:", help), ElementsAreArray(kCommands));
    EXPECT_THAT(named_below("Subcommands:", help_of({"slave"})), ElementsAreArray(kSlaveCommands));
    EXPECT_THAT(named_below("Subcommands:", help_of({"db"})), ElementsAre("check"));
    EXPECT_THAT(named_below("Options:", help),
                ElementsAre("-h,--help", "--version", "--host", "--port", "--all", "--where",
                            "--parallel", "-t,--timeout", "-r,--retries", "--crc8", "--json",
                            "-v,--verbose", "--pcap", "--any", "--yes"));
    EXPECT_EQ(run_zondarctl({"list", "-h"}).out, help_of({"list"}));
    for (const Words& words : all_commands()) {
        SCOPED_TRACE(words.back());
        EXPECT_THAT(help_of(words), HasSubstr("Usage: "));
    }
    EXPECT_THAT(help_of({"slave", "pending"}), HasSubstr(" MAC CHANNEL\n"));
    EXPECT_THAT(help_of({"db", "check"}), HasSubstr(" CONF TEMP\n"));
    for (const Words& words : {Words{"--version"}, Words{"list", "--version"}}) {
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.out, "zondarctl " ZONDAR_VERSION "\n");
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0);
    }
}

// A full disk, for example.
TEST(Usage, FailsWhenTheAnswerCannotBeWritten) {
    for (const std::string command : {"list", "--json list", "encode 4"}) {
        const ProgramRun run =
            run_program({"/bin/sh", "-c", zondarctl_path() + " " + command + " > /dev/full"});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.err, "zondarctl: cannot write to standard output: No space left on device\n");
    }
}

// Texts.

struct Shown {
    std::string text;
    std::string shown;
};

using namespace std::string_literals;

const Shown kShown[] = {
    {"", ""},
    {"Canal Uno ~", "Canal Uno ~"},
    {"a\tb\nc\r", R"(a\x09b\x0Ac\x0D)"},
    {"\x1B[31mrojo\x1B[0m", R"(\x1B[31mrojo\x1B[0m)"},
    {"uno\0dos"s, R"(uno\x00dos)"},
    {"\x7F", R"(\x7F)"},
    // The controls behind ASCII, whose 9B begins a sequence as ESC [ does; the first that is none.
    {"\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0", "\\xC2\\x80\\xC2\\x9B\\xC2\\x9F\xC2\xA0"},
    {"Espa\xC3\xB1"
     "a \xE2\x82\xAC \xF0\x9F\x93\xBA",
     "Espa\xC3\xB1"
     "a \xE2\x82\xAC \xF0\x9F\x93\xBA"},
    {"\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF",
     "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF"},
    // Latin-1; a byte that continues nothing; a character that is cut.
    {"Espa\xF1"
     "a",
     R"(Espa\xF1a)"},
    {"\x80\xBF", R"(\x80\xBF)"},
    {"\xE2\x82", R"(\xE2\x82)"},
    {"\xE2\x82x", R"(\xE2\x82x)"},
    // Longer than need be; surrogates; beyond the last character.
    {"\xC0\xAF\xC1\xBF", R"(\xC0\xAF\xC1\xBF)"},
    {"\xE0\x80\xAF\xF0\x80\x80\xAF", R"(\xE0\x80\xAF\xF0\x80\x80\xAF)"},
    {"\xED\xA0\x80\xED\xBF\xBF", R"(\xED\xA0\x80\xED\xBF\xBF)"},
    {"\xF4\x90\x80\x80\xF7\xBF\xBF\xBF", R"(\xF4\x90\x80\x80\xF7\xBF\xBF\xBF)"},
    {"\xF8\x88\x80\x80\x80\xFE\xFF", R"(\xF8\x88\x80\x80\x80\xFE\xFF)"},
};

TEST(Report, ShowsNothingThatATerminalActsOn) {
    for (const Shown& each : kShown)
        EXPECT_EQ(printable(each.text), each.shown);
}

// JSON holds these texts and parses, and one has its bytes beside it exactly when it does not come
// through as it is.
void expect_put(const Words& texts) {
    Json objects = Json::array();
    for (const std::string& text : texts)
        put_text(objects.emplace_back(Json::object()), "text", text);
    const Json parsed = Json::parse(objects.dump(-1, ' ', false, Json::error_handler_t::replace));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string digits = to_hex(Bytes(texts[i].begin(), texts[i].end()));
        const bool came_through = parsed[i]["text"] == texts[i];
        ASSERT_EQ(parsed[i].value("text_hex", "none"), came_through ? "none" : digits) << digits;
    }
}

TEST(Report, PutsAnyTextIntoJson) {
    expect_put({""});
    for (int first = 0; first < 256 && !HasFailure(); ++first) {
        const std::string one(1, static_cast<char>(first));
        Words texts = {one};
        for (int second = 0; second < 256; ++second) {
            // Those that begin nothing longer are all alike.
            if (first < 0xC0 && second % 16 != 15)
                continue;
            const std::string two = one + static_cast<char>(second);
            texts.push_back(two);
            // Behind a byte that begins a longer character, what may continue it and what may not.
            for (const char last : {'\x7F', '\x80', '\xBF', '\xC0'}) {
                if (first >= 0xE0)
                    texts.push_back(two + last);
                if (first >= 0xF0)
                    texts.push_back(two + '\xBF' + last);
            }
        }
        expect_put(texts);
    }
}

std::string printed(const Report& report, const Style& style) {
    return printed_by([&] { print(report, "test", std::nullopt, std::chrono::seconds(0), style); })
        .out;
}

TEST(Report, AlignsTheCellsOfNeighbours) {
    Report report;
    report.line({"A HEADING THAT IS LONGER THAN THE CELLS"}, TextLine::Look::heading);
    report.line({"name",
                 "Espa\xC3\xB1"
                 "a",
                 "x"});
    report.line({"\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC", "1", ""});
    report.line({"alarm", "", "y"}, TextLine::Look::alert);
    report.line({"two", "cells"});
    EXPECT_EQ(printed(report, {}),
              "A HEADING THAT IS LONGER THAN THE CELLS\n"
              "name   Espa\xC3\xB1"
              "a  x\n"
              "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC    1\n"
              "alarm          y\n"
              "two  cells\n");
    EXPECT_EQ(printed(report, {.color = true}),
              "\x1B[1mA HEADING THAT IS LONGER THAN THE CELLS\x1B[0m\n"
              "name   Espa\xC3\xB1"
              "a  x\n"
              "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC    1\n"
              "\x1B[1;31malarm          y\x1B[0m\n"
              "two  cells\n");
    EXPECT_EQ(printed({}, {}), "");
}

TEST(Report, TellsAnErrorInOneLine) {
    Report report;
    report.fail(4, "answer", "not \xF1\nnot two lines");
    const Printed printed = printed_by([&] {
        print(report, "a \"b\"", Target{.host = "h", .port = 1}, std::chrono::milliseconds(1999),
              {.json = true, .compact = true});
    });
    EXPECT_EQ(printed.err, "zondarctl: not \\xF1\\x0Anot two lines\n");
    EXPECT_EQ(printed.out,
              "{\"schema\":2,\"target\":\"h:1\",\"command\":\"a \\\"b\\\"\",\"ok\":false,"
              "\"elapsed_ms\":1999,\"data\":{},\"error\":{\"stage\":\"answer\","
              "\"message\":\"not \xEF\xBF\xBD\\nnot two lines\",\"message_hex\":"
              "\"6E 6F 74 20 F1 0A 6E 6F 74 20 74 77 6F 20 6C 69 6E 65 73\"}}\n");
}

// The completion in bash.

Words completed(Words words) {
    words.insert(words.begin(),
                 {"/bin/bash", "-c",
                  "source " ZONDAR_SOURCE_DIR "/zondarctl/zondarctl.bash-completion\n"
                  "COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1))\n"
                  "_zondarctl\n"
                  "((${#COMPREPLY[@]} == 0)) || printf '%s\\n' \"${COMPREPLY[@]}\"",
                  "bash", zondarctl_path()});
    const ProgramRun run = run_program(words);
    EXPECT_EQ(run.err, "");
    return lines_of(run.out);
}

struct Completion {
    Words words;
    Words offers;
};

const Completion kCompletions[] = {
    {{"st"}, {"status"}},
    {{"ST"}, {"status"}},
    {{"re"}, {"resync", "reset-factory", "restore"}},
    {{"x"}, {}},
    {{"--js"}, {"--json"}},
    {{"--json", "li"}, {"list"}},
    {{"-v", "--crc8", "li"}, {"list"}},
    {{"-t", "li"}, {}},
    {{"-t", "5", "li"}, {"list"}},
    {{"--host", "=", "localhost", "li"}, {"list"}},
    {{"--host", "l"}, {}},
    {{"--host", "nor"}, {"Norte-1"}},
    {{"--host", "=", "Nor"}, {"Norte-1"}},
    {{"--host", "="}, {"Norte-1"}},
    {{"--host", "Norte-1,n"}, {"Norte-1,Norte-1"}},
    {{"--where", ""}, {"name=Norte-1", "site=norte", "site=sur"}},
    {{"--where", "site", "=", "sur", "li"}, {"list"}},
    {{"--port", "80"}, {}},
    {{"--pcap", "/tmp/fi"}, {"/tmp/file one", "/tmp/file.pcap"}},
    {{"--pcap", "=", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"status", "--pcap", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"status", ""}, {}},
    {{"list", ""}, {}},
    {{"config", ""}, {"1", "2"}},
    {{"config", "1", ""}, {}},
    {{"get", "IPOut.SAP_"}, {"IPOut.SAP_Mode", "IPOut.SAP_Ip", "IPOut.SAP_User", "IPOut.SAP_Time"}},
    {{"get", "Red.NID", "Red.Prov"}, {"Red.Proveedor"}},
    {{"get", "redsal"}, {}},
    {{"get", "red.prov"}, {"Red.Proveedor"}},
    {{"describe", "ENTRADAAV.0.BR"}, {"EntradaAV.0.Brillo"}},
    {{"describe", "Red.NID", ""}, {}},
    {{"get", "--json", "Red.Prov"}, {"Red.Proveedor"}},
    // Only what can be read back.
    {{"get", "ConfiguracionGen.Lcd"}, {}},
    {{"set", "ConfiguracionGen.Lcd"},
     {"ConfiguracionGen.Lcd_Bloqueo", "ConfiguracionGen.Lcd_Codbloqueo"}},
    {{"set", "Red.NID", ""}, {}},
    {{"set", "RFOut.Cofdm_Off", ""}, {"0", "1"}},
    {{"set", "rfout.cofdm_off", "="}, {"0", "1"}},
    {{"set", "RFOut.Cofdm_Off", "=", "1"}, {"1"}},
    {{"set", "Red.NID", "=", "1", "Red.Prov"}, {"Red.Proveedor"}},
    {{"set", "Red.NID", "=", "1", "RFOut.Cofdm_Off", "="}, {"0", "1"}},
    {{"set", "ConfiguracionGen.Country", "G"}, {"Great\\ Britain"}},
    {{"set", "Red.NID", "1", ""}, {}},
    {{"encode", "EntradaAV.1.B"}, {"EntradaAV.1.Brillo", "EntradaAV.1.Bitrate"}},
    {{"encode", "--sequence", "1", "Red.NI"}, {"Red.NID", "Red.NIT_Patron"}},
    {{"encode", "Red.NID", ""}, {}},
    {{"encode", "--s"}, {"--sequence"}},
    {{"country", ""}, {"Australia", "France", "Great\\ Britain", "Italy", "Portugal", "Spain"}},
    {{"country", "spa"}, {"Spain"}},
    {{"country", "Great\\ "}, {"Great\\ Britain"}},
    {{"country", "\"Great "}, {"Great Britain"}},
    {{"country", "'G"}, {"Great Britain"}},
    {{"country", "Spain", ""}, {}},
    {{"country", "--an"}, {"--any"}},
    {{"time", ""}, {"now"}},
    {{"date", "n"}, {"now"}},
    {{"decode", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"decode", "/tmp/file.pcap", "/tmp"}, {}},
    {{"decode", "--port", "9000", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"db", ""}, {"check"}},
    {{"db", "check", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"db", "check", "x", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"db", "check", "x", "y", "/tmp/file."}, {}},
    {{"slave", "re"}, {"report", "register"}},
    {{"slave", "upgrade", ""}, {}},
    {{"slave", "register", "x", "--se"}, {"--serial"}},
    {{"slave", "pending", "x", "--se"}, {}},
    {{"check", ""}, {}},
    {{"check", "--wa"}, {"--warn"}},
    {{"check", "--warn", "alarma_i"}, {"alarma_in", "alarma_ip"}},
    {{"check", "--ignore", "out"}, {"output_sync"}},
    {{"check", "--warn", "alarma_in", "alarma_h"}, {}},
    {{"watch", "--"},
     {"--help", "--version", "--host", "--port", "--all", "--where", "--parallel", "--timeout",
      "--retries", "--crc8", "--json", "--verbose", "--pcap", "--any", "--yes", "--interval",
      "--count", "--changes"}},
    {{"watch", "--count", "3", "--i"}, {"--interval"}},
    {{"help", "st"}, {"status"}},
    {{"help", "slave", "re"}, {"report", "register"}},
    {{"help", "status", ""}, {}},
    {{"restore", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"restore", "--d"}, {"--dry-run"}},
    {{"diff", "/tmp/file."}, {"/tmp/file.pcap"}},
    {{"diff", "/tmp/file.pcap", "nor"}, {"Norte-1"}},
    {{"copy", "Norte-1", "N"}, {"Norte-1"}},
    {{"copy", "a", "b", ""}, {}},
};

TEST(Completion, OffersWhatFits) {
    write_file("/tmp/file.pcap", "");
    write_file("/tmp/file one", "");
    write_targets();
    for (const Completion& each : kCompletions)
        EXPECT_THAT(completed(each.words), testing::UnorderedElementsAreArray(each.offers))
            << testing::PrintToString(each.words);
}

TEST(Completion, OffersEveryParameter) {
    Words names;
    Words readable;
    for (const Json& parameter : parameters_of(committed_catalogue())) {
        names.push_back(parameter["name"]);
        if (!parameter["block"].is_null())
            readable.push_back(names.back());
    }
    EXPECT_THAT(completed({"set", ""}), ElementsAreArray(names));
    EXPECT_LT(readable.size(), names.size());
    EXPECT_THAT(completed({"get", ""}), ElementsAreArray(readable));
}

Words long_options(const std::string& help) {
    Words options;
    for (const std::string& option : named_below("Options:", help)) {
        const std::size_t at = option.find("--");
        if (at != std::string::npos)
            options.push_back(option.substr(at));
    }
    return options;
}

// Nothing that the tool's help has is forgotten.
TEST(Completion, OffersEveryCommandAndOption) {
    EXPECT_THAT(completed({""}), ElementsAreArray(named_below("Subcommands:", help_of({}))));
    EXPECT_THAT(completed({"slave", ""}),
                ElementsAreArray(named_below("Subcommands:", help_of({"slave"}))));
    EXPECT_THAT(completed({"db", ""}),
                ElementsAreArray(named_below("Subcommands:", help_of({"db"}))));
    const Words of_all = long_options(help_of({}));
    EXPECT_THAT(completed({"-"}), ElementsAreArray(of_all));
    for (Words words : all_commands()) {
        SCOPED_TRACE(words.back());
        Words options = of_all;
        for (const std::string& option : long_options(help_of(words))) {
            if (std::ranges::find(options, option) == options.end())
                options.push_back(option);
        }
        words.emplace_back("--");
        EXPECT_THAT(completed(words), ElementsAreArray(options));
    }
}

}  // namespace

}  // namespace zondarctl
