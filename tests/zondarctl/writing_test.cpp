// The commands that change something, against the real daemon on the sample board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <map>
#include <regex>
#include <sstream>

#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/peer.h"
#include "tests/support/protocol_document.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

// What can be set, as the protocol has it.
struct Row {
    std::string name;
    unsigned limit;    // the largest number, or the longest text in bytes
    int block;         // that shows it; 0 for none
    std::string cell;  // table, row and column; empty when nothing is stored
    bool text = false;
};

int block_of(const std::string& name) {
    for (const int block : {1, 2}) {
        for (const document::Place& place : document::layout("Block " + std::to_string(block))) {
            if (place.name == name)
                return block;
        }
    }
    return 0;
}

std::vector<Row> rows() {
    std::vector<Row> all = {{"RFOut.Canal_Salida", 0xFF, 1, "RFOut 1 Canal_Salida"},
                            {"RFOut.Frecuencia", 0xFFFFFF, 1, "RFOut 1 Frecuencia"},
                            {"Red.TSID_Out", 0xFFFF, 1, ""},
                            {"Red.ONID_Out", 0xFFFF, 1, ""}};
    for (const document::Plain& each : document::plain_subcommands()) {
        const bool text = each.bytes == 0;
        if (!each.column.empty())
            all.push_back({each.column, text ? each.room - 1 : (1U << 8U * each.bytes) - 1,
                           block_of(each.column), each.cell, text});
    }
    return all;
}

// The numbers in rows of these tables.
std::vector<Row> numbers_of(const std::vector<std::string>& tables) {
    std::vector<Row> numbers;
    for (const Row& row : rows()) {
        const std::string table = row.name.substr(0, row.name.find('.'));
        if (!row.text && std::ranges::find(tables, table) != tables.end())
            numbers.push_back(row);
    }
    return numbers;
}

// The answer of a module whose block has zeros alone.
Bytes block(std::uint8_t number) {
    Bytes info(number == 1 ? 114 : 185);
    info[0] = number;
    return frame(1, info);
}

// As an SQL literal.
std::string cell(const std::string& name) {
    return contents().at(name);
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

// What becomes of a value that is set.
struct Outcome {
    Json read;           // what the module shows
    bool matches;        // whether that is as it should be
    std::string stored;  // in its cell
};

// Sets it, whatever it means, and finds all that is promised of that.
void expect_set(const Row& row, const std::string& value, const Json& as_json,
                const Outcome& outcome) {
    SCOPED_TRACE(row.name + " " + value);
    const bool fails = row.block != 0 && !outcome.matches;
    const Json json = json_of({"--yes", "--any", "set", row.name, value}, fails ? 1 : 0);
    EXPECT_EQ(json["command"], "set");
    EXPECT_EQ(json["ok"], !fails);
    const Json& parameters = json["data"]["parameters"];
    ASSERT_EQ(parameters.size(), 1U);
    EXPECT_EQ(parameters[0]["name"], row.name);
    EXPECT_EQ(parameters[0]["value"], as_json);
    EXPECT_EQ(parameters[0]["read_back"], row.block == 0 ? Json() : outcome.read);
    EXPECT_EQ(parameters[0]["matches"], row.block == 0 ? Json() : Json(outcome.matches));
    EXPECT_EQ(json.contains("error"), fails);
    if (fails) {
        EXPECT_EQ(json["error"]["stage"], "read_back");
    }
    if (!row.cell.empty()) {
        EXPECT_EQ(cell(row.cell), outcome.stored);
    }
}

Outcome outcome_of(const Row& row, unsigned value) {
    const std::string& name = row.name;
    if (row.cell.empty())
        return {0, value == 0, ""};
    if (name.starts_with("PIDsSalida"))
        return {value == 1 ? 1 : 0, value <= 1, value == 0 ? "2" : std::to_string(value)};
    if (name == "RFOut.Constelacion")
        return {value, true, std::to_string(value + 1)};
    return {value, true, std::to_string(value)};
}

void expect_round_trips(const std::vector<Row>& rows) {
    const Contents before = contents();
    std::map<std::string, std::string> originals;
    const Json configuration = json_of({"config"});
    for (const Json& parameter : configuration["data"]["parameters"])
        originals[parameter["name"]] = parameter["value"].dump();
    for (const Row& row : rows) {
        // The odd one is doubled on the wire, each byte of it.
        const unsigned odd = row.limit == 255 ? 165 : row.limit == 65535 ? 42405 : 10855845;
        for (const unsigned value : {0U, row.limit, odd})
            expect_set(row, std::to_string(value), value, outcome_of(row, value));
        // What no block shows is stored as it was sent.
        const std::string original = row.block == 0 ? before.at(row.cell) : originals.at(row.name);
        EXPECT_EQ(run_zondarctl({"--yes", "--any", "set", row.name, original}).status, 0);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

class Writing : public testing::Test {
  protected:
    RunningDaemon daemon_;
};

TEST_F(Writing, TakesTheNumbersOfTheInputsThereAndBack) {
    expect_round_trips(numbers_of({"EntradaAV"}));
}

// The write of the audio bitrate switches the output, too, which is set back behind it.
TEST_F(Writing, KeepsTheOutputOnWhenAnAudioBitrateIsSet) {
    const Contents before = contents();
    const ProgramRun run = run_zondarctl({"-v", "--yes", "set", "EntradaAV.1.Audio_Bitrate", "7"});
    EXPECT_EQ(run.out, "EntradaAV.1.Audio_Bitrate  7  read back, was 4\n");
    EXPECT_THAT(run.err, HasSubstr("Tx: " + to_hex(frame(3, {17, 7})) + "\nRx: " +
                                   to_hex(frame(3)) + "\nTx: " + to_hex(frame(3, {18, 0}))));
    EXPECT_THAT(changes(before, contents()), ElementsAre("EntradaAV 1 Audio_Bitrate: 4 -> 7"));
    // Unless it is told what that shall be.
    EXPECT_EQ(
        run_zondarctl({"--yes", "set", "RFOut.Cofdm_Off=1", "EntradaAV.1.Audio_Bitrate=2"}).out,
        "RFOut.Cofdm_Off            1  read back, was 0\n"
        "EntradaAV.1.Audio_Bitrate  2  read back, was 7\n");
    EXPECT_EQ(cell("RFOut 1 Cofdm_Off"), "1");
    const Words words = {"set", "EntradaAV.1.Audio_Bitrate", "3"};
    const ProgramRun no = zondarctl_on_terminal(words, "n\n");
    EXPECT_EQ(no.status, 2);
    EXPECT_THAT(no.out, HasSubstr("127.0.0.1:8001: this passes RFOut.Cofdm_Off through 3 for a "
                                  "moment. Go on? [y/N] "));
    EXPECT_EQ(cell("EntradaAV 1 Audio_Bitrate"), "2");
}

TEST_F(Writing, TakesTheNumbersOfTheOutputThereAndBack) {
    expect_round_trips(numbers_of({"RFOut", "Red", "PIDsSalida"}));
    for (const Row& row : numbers_of({"PIDsSalida"}))
        expect_set(row, "1", 1, {1, true, "1"});
}

TEST_F(Writing, TakesTheOtherNumbersThereAndBack) {
    expect_round_trips(numbers_of({"ServiciosSalida", "IPOut", "ConfiguracionGen"}));
    const Row mode = {"ConfiguracionGen.Modo_Entrada", 255, 1, "ConfiguracionGen 1 Modo_Entrada"};
    expect_set(mode, "2", 2, {2, true, "2"});
    expect_set(mode, "3", 3, {10, true, "10"});
    expect_set(mode, "4", 4, {11, true, "11"});
    expect_set(mode, "10", 10, {10, true, "10"});
    expect_set(mode, "0x0b", 11, {11, true, "11"});
}

TEST_F(Writing, TakesTheTextsThereAndBack) {
    const Contents before = contents();
    const std::string letters = "abcdefghijklmnopqrstuvwxyz";
    for (const Row& row : rows()) {
        if (!row.text)
            continue;
        const std::string original = cell(row.cell).substr(1, cell(row.cell).size() - 2);
        const auto set = [&](const std::string& text) {
            expect_set(row, text, text, {text, true, quoted(text)});
        };
        set("");
        set(letters.substr(0, row.limit));
        set(" a ");
        // The last byte is no UTF-8.
        expect_set(row, "\xC3\xB1 \xA5", "\xC3\xB1 \xEF\xBF\xBD",
                   {"\xC3\xB1 \xEF\xBF\xBD", true, "'\xC3\xB1 \xA5'"});
        // The first per cent sign becomes a blank.
        expect_set(row, "5%%", "5%%", {"5 %", false, "'5 %'"});
        EXPECT_EQ(run_zondarctl({"--yes", "--any", "set", row.name, original}).status, 0);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_F(Writing, KnowsEveryParameterOfTheList) {
    std::vector<std::string> known = {"ConfiguracionGen.Country"};
    for (const Row& row : rows())
        known.push_back(row.name);
    std::vector<std::string> listed;
    const Json list = json_of({"list"});
    for (const Json& parameter : list["data"]["parameters"])
        listed.push_back(parameter["name"]);
    EXPECT_THAT(listed, testing::UnorderedElementsAreArray(known));
}

TEST_F(Writing, ChangesChannelAndFrequencyTogetherAndSaysSo) {
    const struct {
        Words words;
        const char* out;
    } cases[] = {
        {{"RFOut.Canal_Salida", "30"},
         "RFOut.Canal_Salida  30      read back, was 21\n"
         "RFOut.Frecuencia    546000  changed with it, was 474000\n"},
        {{"RFOut.Frecuencia", "500000"},
         "RFOut.Frecuencia    500000  read back, was 546000\n"
         "RFOut.Canal_Salida  24      changed with it, was 30\n"},
        {{"--any", "RFOut.Canal_Salida", "100"},
         "RFOut.Canal_Salida  100     read back, was 24\n"
         "RFOut.Frecuencia    736500  changed with it, was 500000\n"},
        {{"--any", "RFOut.Frecuencia", "1"},
         "RFOut.Frecuencia    1  read back, was 736500\n"
         "RFOut.Canal_Salida  0  changed with it, was 100\n"},
        {{"RFOut.Canal_Salida", "21"},
         "RFOut.Canal_Salida  21      read back, was 0\n"
         "RFOut.Frecuencia    474000  changed with it, was 1\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.out);
        Words words = {"set"};
        words.insert(words.end(), each.words.begin(), each.words.end());
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, each.out);
    }
}

// By the country that the module has, or has by then.
TEST_F(Writing, TakesChannelsAndFrequenciesOfTheCountry) {
    const struct {
        Words assignments;
        const char* problem;
    } cases[] = {
        {{"RFOut.Canal_Salida=70"}, "RFOut.Canal_Salida takes a channel of Spain: 2 to 69, not 70"},
        {{"RFOut.Frecuencia=469999"},
         "RFOut.Frecuencia takes a frequency of Spain: 47000 to 68000, 118000 to 173875, 174000 to "
         "229875, 230000 to 299875, 302000 to 445875, 470000 to 862000 kHz, not 469999"},
        {{"RFOut.Canal_Salida=13", "ConfiguracionGen.Country=Australia"},
         "RFOut.Canal_Salida takes a channel of Australia: 6 to 12, 28 to 69, not 13"},
    };
    const Contents before = contents();
    for (const auto& each : cases) {
        Words words = {"--yes", "set"};
        words.insert(words.end(), each.assignments.begin(), each.assignments.end());
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.err, std::string("zondarctl: 127.0.0.1:8001: ") + each.problem +
                               "; --any sends it all the same\n");
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    EXPECT_EQ(run_zondarctl(
                  {"--yes", "set", "RFOut.Canal_Salida=28", "ConfiguracionGen.Country=australia"})
                  .status,
              0);
    EXPECT_EQ(cell("RFOut 1 Frecuencia"), "529500");
}

TEST_F(Writing, SaysWhatItFound) {
    const struct {
        Words words;
        int status;
        const char* out;
        const char* err;
    } cases[] = {
        {{"EntradaAV.0.Brillo", "7"}, 0, "EntradaAV.0.Brillo  7  read back, was 51\n", ""},
        {{"entradaav.0.BRILLO", "0x10"}, 0, "EntradaAV.0.Brillo  16  read back, was 7\n", ""},
        {{"EntradaAV.0.Brillo", "016"}, 0, "EntradaAV.0.Brillo  16  read back\n", ""},
        {{"ConfiguracionGen.Modo_Entrada", "3"},
         0,
         "ConfiguracionGen.Modo_Entrada  10  read back, was 0\n",
         ""},
        {{"ServiciosSalida.0.Nombre", "Canal Tres"},
         0,
         "ServiciosSalida.0.Nombre  Canal Tres  read back, was Canal Uno\n",
         ""},
        {{"ServiciosSalida.0.Nombre", "--", "-v"},
         0,
         "ServiciosSalida.0.Nombre  -v  read back, was Canal Tres\n",
         ""},
        {{"ServiciosSalida.0.Nombre", "a=b"},
         0,
         "ServiciosSalida.0.Nombre  a=b  read back, was -v\n",
         ""},
        {{"ServiciosSalida.0.Nombre", "--any", "5%"},
         1,
         "ServiciosSalida.0.Nombre  5   read back, was a=b\n",
         "zondarctl: 127.0.0.1:8001: ServiciosSalida.0.Nombre is 5  instead of 5%: the first per cent sign of a text is stored as a blank\n"},
        {{"ServiciosSalida.0.Nombre", "Al 5%"},
         0,
         "ServiciosSalida.0.Nombre  Al 5%  read back, was 5\n",
         ""},
        {{"Red.TSID_Out", "21", "--any"},
         1,
         "Red.TSID_Out  0  read back\n",
         "zondarctl: 127.0.0.1:8001: Red.TSID_Out is 0 instead of 21: the module takes it and never stores it\n"},
        {{"--any", "PIDsSalida.1.2.Seleccionado", "2"},
         1,
         "PIDsSalida.1.2.Seleccionado  0  read back, was 1\n",
         "zondarctl: 127.0.0.1:8001: PIDsSalida.1.2.Seleccionado is 0 instead of 2: it would read back as 0\n"},
        {{"ConfiguracionGen.Lcd_Bloqueo", "1"},
         0,
         "ConfiguracionGen.Lcd_Bloqueo  1  sent; no answer of the module holds it, so it was not "
         "read back\n",
         ""},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        Words words = {"set"};
        words.insert(words.end(), each.words.begin(), each.words.end());
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.out, each.out);
        EXPECT_EQ(run.err, each.err);
    }
    // What the module could not store.
    run_elsewhere(kConfDb, "DELETE FROM Red");
    const ProgramRun run = run_zondarctl({"set", "Red.NID", "7"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Red.NID  0  read back\n");
    EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: Red.NID is 0 instead of 7\n");
}

// Whatever their order is, each block is read once before and once behind all of them.
TEST_F(Writing, TakesSeveralValuesInOneSession) {
    const ProgramRun run =
        run_zondarctl({"-v", "set", "EntradaAV.*.Bitrate=5000", "IPOut.Ttl=7", "Red.NID=0x11"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "EntradaAV.0.Bitrate  5000  read back, was 8000\n"
              "EntradaAV.1.Bitrate  5000  read back, was 6500\n"
              "IPOut.Ttl            7     read back, was 16\n"
              "Red.NID              17    read back, was 1\n");
    Words requests;
    for (const std::string& line : lines_of(run.err)) {
        if (line.starts_with("Tx"))
            requests.push_back(line.substr(4));
    }
    const std::string block_1 = to_hex(frame(1, {1}));
    const std::string block_2 = to_hex(frame(1, {2}));
    EXPECT_THAT(requests,
                ElementsAre(block_1, block_2, to_hex(frame(3, {8, 0x13, 0x88})),
                            to_hex(frame(3, {16, 0x13, 0x88})), to_hex(frame(3, {39, 0, 17})),
                            to_hex(frame(3, {48, 7})), block_1, block_2));

    const ProgramRun lines =
        run_zondarctl({"set", "-"},
                      "# by night\n\nEntradaAV.0.Brillo=1\r\n  Red.NetworkName =  Mi Red \n"
                      "ServiciosSalida.0.Nombre   Canal Uno=1\nIPOut.SAP_User =");
    EXPECT_EQ(lines.status, 0);
    EXPECT_EQ(lines.out,
              "EntradaAV.0.Brillo        1            read back, was 51\n"
              "Red.NetworkName           Mi Red       read back, was Red Local\n"
              "ServiciosSalida.0.Nombre  Canal Uno=1  read back, was Canal Uno\n"
              "IPOut.SAP_User                         read back, was cabecera\n");
}

TEST(Set, TellsWhenItCouldNotReadBack) {
    const Peer peer([](const Peer::Accept& accept) {
        answer_in_turn(accept, {block(1), block(2), frame(3, {})});
        answer_with(accept, {});
    });
    const ProgramRun run = run_zondarctl({"--json", "set", "Red.NID", "7", "-r", "0", "-t", "20"});
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err,
              "zondarctl: 127.0.0.1:8001: sent, but not read back: the module gave no answer\n");
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json["error"]["stage"], "answer");
    EXPECT_EQ(json["error"]["outcome"], "unknown");
    EXPECT_EQ(json["data"], Json::parse(R"({"parameters": [], "changed": []})"));
}

// What became of a write that failed is said, and told to scripts.
TEST(Set, TellsTheFateOfAWrite) {
    const struct {
        std::vector<Bytes> answers;
        int status;
        const char* outcome;
        const char* message;
    } cases[] = {
        {{Bytes()}, 4, "not sent", "the module gave no answer"},
        {{block(1), block(2), frame(3, Bytes(255))},
         1,
         "not taken",
         "the module refused the request"},
        {{block(1), block(2), Bytes()},
         4,
         "unknown",
         "sent; the module gave no answer; the module may have carried it out: read it back"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.message);
        const Peer peer([&](const Peer::Accept& accept) {
            answer_in_turn(accept, each.answers);
            answer_with(accept, {});
        });
        const Json json = json_of({"set", "Red.NID", "7", "-r", "0", "-t", "20"}, each.status);
        EXPECT_EQ(json["error"]["outcome"], each.outcome);
        EXPECT_EQ(json["error"]["message"], std::string(each.message));
    }
    EXPECT_EQ(json_of({"set", "Red.NID", "7"}, 3)["error"]["outcome"], "not sent");
    EXPECT_FALSE(json_of({"get", "Red.NID"}, 3)["error"].contains("outcome"));
}

// The longest time that it would wait for something, in seconds begun: as it tells the system.
int longest_wait(const Words& write) {
    Words words = {"/usr/bin/strace", "-o", "/tmp/calls", "-e", "trace=poll", zondarctl_path()};
    words.insert(words.end(), write.begin(), write.end());
    EXPECT_EQ(run_program(words).status, 0);
    const std::string calls = read_file("/tmp/calls");
    int longest = 0;
    const std::regex poll_call("poll\\(\\[.*\\], [0-9]+, ([0-9]+)\\)");
    for (std::sregex_iterator at(calls.begin(), calls.end(), poll_call), end; at != end; ++at)
        longest = std::max(longest, std::stoi((*at)[1]));
    return (longest + 999) / 1000;
}

TEST_F(Writing, WaitsLongerForWhatTakesLonger) {
    EXPECT_EQ(longest_wait({"set", "Red.NID", "7"}), 5);
    EXPECT_EQ(longest_wait({"--yes", "country", "France"}), 60);
    EXPECT_EQ(longest_wait({"--yes", "set", "ConfiguracionGen.Ip_Mask", "255.0.0.0"}), 60);
    EXPECT_EQ(longest_wait({"--yes", "reset-factory"}), 60);
    EXPECT_EQ(longest_wait({"--yes", "raw", "3", "50", "00"}), 60);
    EXPECT_EQ(longest_wait({"--yes", "reset-factory", "-t", "4"}), 4);
}

// All that must not reach a module finds this one.
class Untouched : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(visitors_, 0); }

    // Runs it in a script.
    void expect_usage_error(const Words& words, const std::string& message) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "zondarctl: " + message + "\n");
        const Json json = json_of(words, 2);
        EXPECT_EQ(json["ok"], false);
        EXPECT_EQ(json["data"], Json::object());
        EXPECT_EQ(json["error"]["stage"], "usage");
    }

  private:
    std::atomic<int> visitors_ = 0;
    const Peer peer_{[this](const Peer::Accept& accept) {
        while (accept())
            ++visitors_;
    }};
};

TEST_F(Untouched, ByValuesThatDoNotFit) {
    const char* const kBrillo = "EntradaAV.0.Brillo";
    const char* const kLcn = "ServiciosSalida.0.LCN";
    const char* const kNombre = "ServiciosSalida.0.Nombre";
    const struct {
        Words value;
        const char* message;
    } cases[] = {
        {{kBrillo, "256"}, "EntradaAV.0.Brillo takes 0 to 255, not '256'"},
        {{kBrillo, "0x100"}, "EntradaAV.0.Brillo takes 0 to 255, not '0x100'"},
        {{kBrillo, "4294967296"}, "EntradaAV.0.Brillo takes 0 to 255, not '4294967296'"},
        {{kBrillo, "-1"}, "EntradaAV.0.Brillo takes 0 to 255, not '-1'"},
        {{kBrillo, "--", "-1"}, "EntradaAV.0.Brillo takes 0 to 255, not '-1'"},
        {{kBrillo, "1x"}, "EntradaAV.0.Brillo takes 0 to 255, not '1x'"},
        {{kBrillo, "0x"}, "EntradaAV.0.Brillo takes 0 to 255, not '0x'"},
        {{kBrillo, "1.5"}, "EntradaAV.0.Brillo takes 0 to 255, not '1.5'"},
        {{kBrillo, " 1"}, "EntradaAV.0.Brillo takes 0 to 255, not ' 1'"},
        {{kBrillo, ""}, "EntradaAV.0.Brillo takes 0 to 255, not ''"},
        {{kLcn, "65536"}, "ServiciosSalida.0.LCN takes 0 to 65535, not '65536'"},
        {{"RFOut.Frecuencia", "16777216"},
         "RFOut.Frecuencia takes 0 to 16777215 kHz, not '16777216'"},
        {{kNombre, "123456789012345"},
         "ServiciosSalida.0.Nombre takes a text of at most 14 bytes, not '123456789012345' with 15"},
        // Bytes count, not letters.
        {{kNombre, "\u00F1\u00F1\u00F1\u00F1\u00F1\u00F1\u00F1\u00F1"},
         "ServiciosSalida.0.Nombre takes a text of at most 14 bytes, not "
         "'\u00F1\u00F1\u00F1\u00F1\u00F1\u00F1\u00F1\u00F1' with 16"},
        {{"ConfiguracionGen.Lcd_Codbloqueo", "12345"},
         "ConfiguracionGen.Lcd_Codbloqueo takes a text of at most 4 bytes, not '12345' with 5"},
        {{"RFOut.Cofdm_Off", "2"},
         "RFOut.Cofdm_Off takes 0 or 1, not 2; --any sends it all the same"},
        {{"PIDsSalida.0.1.Seleccionado=3"},
         "PIDsSalida.0.1.Seleccionado takes 0 or 1, not 3; --any sends it all the same"},
        {{"IPOut.SAP_Ip", "224.2.127"},
         "IPOut.SAP_Ip takes an IPv4 address, not '224.2.127'; --any sends it all the same"},
        {{"ConfiguracionGen.Ip_Mask", "255.0.255.0"},
         "ConfiguracionGen.Ip_Mask takes a mask such as 255.255.255.0, not '255.0.255.0'; --any "
         "sends it all the same"},
        {{"Red.TSID_Out", "5"},
         "Red.TSID_Out cannot become 5: the module takes it and never stores it; --any sends it "
         "all the same"},
        {{kNombre, "5%"},
         "ServiciosSalida.0.Nombre cannot become '5%': the first per cent sign of a text is stored "
         "as a blank; --any sends it all the same"},
        {{kBrillo}, "EntradaAV.0.Brillo has no value"},
        {{"EntradaAV.0.Brillo=1", "Entradaav.*.Brillo=2"}, "EntradaAV.0.Brillo is given twice"},
        {{kNombre, "Canal", "Uno"}, "'Uno' is one word too many: quote a text with blanks"},
        {{"ServiciosSalida.0.Nombre=Canal", "Uno"},
         "'Uno' is no NAME=VALUE: quote a text with blanks"},
        {{"-"}, "no NAME=VALUE on standard input"},
    };
    for (const auto& each : cases) {
        Words words = {"--yes", "set"};
        words.insert(words.end(), each.value.begin(), each.value.end());
        expect_usage_error(words, each.message);
    }
}

TEST_F(Untouched, ByWhatAScriptDidNotConfirm) {
    const std::string clock = "127.0.0.1:8001: this sets the clock of the module: it needs --yes";
    const std::string factory =
        "127.0.0.1:8001: this resets the module to its factory configuration: it needs --yes";
    const std::string network =
        "127.0.0.1:8001: this resets the network of the module, which may then have another address: "
        "it needs --yes";
    const std::pair<Words, std::string> cases[] = {
        {{"time", "09.05"}, clock},
        {{"time", "9:5"}, clock},
        {{"time", "now"}, clock},
        {{"date", "28.02.2026"}, clock},
        {{"date", "2026-02-28"}, clock},
        {{"date", "now"}, clock},
        {{"raw", "3", "48 30 39 2E 30 35"}, clock},
        {{"raw", "3", "49", "00"}, clock},
        {{"reset-factory"}, factory},
        {{"raw", "3", "50", "00"}, factory},
        {{"raw", "0x3", "5000"}, factory},
        {{"set", "ConfiguracionGen.Ip_Address", "192.168.1.51"}, network},
        {{"set", "configuraciongen.ip_mask", "255.255.0.0"}, network},
        {{"set", "ConfiguracionGen.Ip_Gateway", "192.168.1.3"}, network},
        {{"raw", "3", "44", "00"}, network},
        {{"raw", "3", "45", "00"}, network},
        {{"raw", "3", "46", "00"}, network},
    };
    for (const auto& [words, message] : cases)
        expect_usage_error(words, message);
}

// A question needs somebody who reads it and can answer.
TEST_F(Untouched, WithoutATerminalToAskOn) {
    const std::string refusal =
        "zondarctl: 127.0.0.1:8001: this resets the module to its factory configuration: it needs "
        "--yes\n";
    const std::string reset = zondarctl_path() + " reset-factory";
    const ProgramRun unseen =
        run_on_terminal({"/bin/sh", "-c", "exec " + reset + " 2> /tmp/err"}, "y\n");
    EXPECT_EQ(unseen.status, 2);
    EXPECT_THAT(unseen.out, Not(HasSubstr("Go on?")));
    EXPECT_EQ(read_file("/tmp/err"), refusal);
    const ProgramRun unasked =
        run_on_terminal({"/bin/sh", "-c", "echo y | " + reset + "; exit $?"});
    EXPECT_EQ(unasked.status, 2);
    EXPECT_EQ(unasked.out, refusal.substr(0, refusal.size() - 1) + "\r\n");
}

// As of a script's variable that was not set.
TEST_F(Untouched, ByEmptyWords) {
    expect_usage_error({"--yes", "country", ""}, "NAME: it is empty");
    expect_usage_error({"--yes", "time", ""}, "TIME: it is empty");
    expect_usage_error({"--yes", "date", ""}, "DATE: it is empty");
    for (const std::string address : {"", "0.0.0.0", "255.255.255.255", "224.0.0.1", "10.0.0.01"})
        expect_usage_error({"--yes", "set", "ConfiguracionGen.Ip_Address", address},
                           "ConfiguracionGen.Ip_Address takes an IPv4 address, not '" + address +
                               "'; --any sends it all the same");
}

TEST_F(Untouched, ByTimesAndDatesThatAreNone) {
    const auto no_time = [](const std::string& text) {
        return "'" + text + "' is no time: it is written as in 09.05";
    };
    const auto no_date = [](const std::string& text) {
        return "'" + text + "' is no date: it is written as in 31.12.2026";
    };
    for (const std::string text : {"25.00", "24.00", "12.60", "12", "12.", "12.30x", "12.30.15",
                                   "x", " ", "-1.00", "NOW", "12,30"})
        expect_usage_error({"--yes", "time", "--", text}, no_time(text));
    for (const std::string text :
         {"31.02.2026", "29.02.2026", "31.04.2026", "2026-02-29", "32.01.2026", "00.01.2026",
          "01.13.2026", "2026-13-01", "1.1", "28/02/2026", "28.02.2026 ", "1.1.26", "01.01.1969"})
        expect_usage_error({"--yes", "date", "--", text}, no_date(text));
}

TEST_F(Untouched, ByCountriesWithoutDefaults) {
    for (const std::string name : {"Narnia", "Spai", " Spain", ""}) {
        const std::string message =
            "ConfiguracionGen.Country takes a country that it has defaults for: Australia, France, "
            "Great Britain, Italy, Portugal, Spain, not '" +
            name + "'; --any sends it all the same";
        if (!name.empty())
            expect_usage_error({"country", name}, message);
        expect_usage_error({"set", "ConfiguracionGen.Country", name}, message);
    }
    expect_usage_error({"country", "--any", "123456789012345"},
                       "ConfiguracionGen.Country takes a text of at most 14 bytes, not "
                       "'123456789012345' with 15");
}

TEST_F(Untouched, ByWhatNoSlaveCanSend) {
    const std::string mac = "0a1b2c3d4e5f";
    const std::pair<Words, std::string> cases[] = {
        {{"pending", "", "0"}, "'' is no MAC address"},
        {{"pending", "0a1b2c3d4e5", "0"}, "'0a1b2c3d4e5' is no MAC address"},
        {{"pending", "0a1b2c3d4e5f6", "0"}, "'0a1b2c3d4e5f6' is no MAC address"},
        {{"encoder", "0a1b2c3d4e5g", "0"}, "'0a1b2c3d4e5g' is no MAC address"},
        {{"report", "0a-1b-2c-3d-4e-5f", "0"}, "'0a-1b-2c-3d-4e-5f' is no MAC address"},
        {{"register", "0a 1b 2c 3d "}, "'0a 1b 2c 3d ' is no MAC address"},
        {{"register", "0a 1b 2c 3d 4e 5f"}, "'0a 1b 2c 3d 4e 5f' is no MAC address"},
        {{"upgrade", "0a1b2c3d4e 5"}, "'0a1b2c3d4e 5' is no MAC address"},
        {{"state", "::", "0"}, "'::' is no MAC address"},
        {{"pending", mac, "256"}, "'256' is no channel: it is 0 to 255"},
        {{"encoder", mac, "-1"}, "'-1' is no channel: it is 0 to 255"},
        {{"clear", "x"}, "'x' is no channel: it is 0 to 255"},
        {{"confirm", "1x"}, "'1x' is no channel: it is 0 to 255"},
        {{"report", mac, "123456789"},
         "'123456789' is longer than the 8 bytes of the status of the remote encoder"},
        {{"state", mac, "256"}, "'256' is no state: it is 0 to 255"},
        {{"state", mac, ""}, "'' is no state: it is 0 to 255"},
        {{"register", mac, "--hostname", "123456789012345678"},
         "'123456789012345678' is longer than the 17 bytes of the host name"},
        {{"register", mac, "--serial", "1234567890123"},
         "'1234567890123' is longer than the 12 bytes of the serial number"},
        {{"register", mac, "--model", "1234567890"},
         "'1234567890' is longer than the 9 bytes of the model"},
        {{"register", mac, "--ip", "1234567890123456"},
         "'1234567890123456' is longer than the 15 bytes of the IP address"},
        {{"register", mac, "--software", "256.0.0"}, "'256' is no version: it is 0 to 255"},
        {{"register", mac, "--software", "1.256"}, "'256' is no version: it is 0 to 255"},
        {{"register", mac, "--software", "1.2."}, "'' is no version: it is 0 to 255"},
        {{"register", mac, "--software", "1..2"}, "'' is no version: it is 0 to 255"},
        {{"register", mac, "--software", "v1"}, "'v1' is no version: it is 0 to 255"},
        {{"register", mac, "--software", "1.2.3.4"},
         "'1.2.3.4' is no version: it has 3 parts, as in 1.2.3"},
        {{"register", mac, "--software", "1.2.3.0"},
         "'1.2.3.0' is no version: it has 3 parts, as in 1.2.3"},
    };
    for (const auto& [arguments, message] : cases) {
        Words words = {"slave"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        expect_usage_error(words, message);
    }
}

// Of a terminal the line ends are two bytes.
TEST_F(Writing, AsksOnATerminalBeforeAReset) {
    const std::string question =
        "127.0.0.1:8001: this resets the module to its factory configuration. Go on? [y/N] ";
    const Contents factory = contents();
    EXPECT_EQ(run_zondarctl({"set", "EntradaAV.0.Brillo", "7"}).status, 0);
    const Contents changed = contents();
    // The last one is the end of what is typed.
    for (const char* const typed : {"n\n", "\n", "yess\n", "no\n", "\x04"}) {
        SCOPED_TRACE(typed);
        const ProgramRun run = zondarctl_on_terminal({"reset-factory"}, typed);
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.out, HasSubstr(question));
        EXPECT_THAT(run.out, EndsWith("zondarctl: nothing was done\r\n"));
        EXPECT_THAT(changes(changed, contents()), IsEmpty());
    }
    for (const char* const typed : {"y\n", "Y\n", "yes\n"}) {
        EXPECT_EQ(run_zondarctl({"set", "EntradaAV.0.Brillo", "7"}).status, 0);
        const ProgramRun run = zondarctl_on_terminal({"reset-factory"}, typed);
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.out, HasSubstr(question));
        EXPECT_THAT(run.out, EndsWith("reset to the factory configuration\r\n"
                                      "EntradaAV.0.Brillo  51  reset, was 7\r\n"));
        EXPECT_THAT(changes(factory, contents()), IsEmpty());
    }
    EXPECT_EQ(run_zondarctl({"set", "EntradaAV.0.Brillo", "7"}).status, 0);
    const ProgramRun yes = zondarctl_on_terminal({"reset-factory", "--yes"});
    EXPECT_EQ(yes.status, 0);
    EXPECT_EQ(yes.out,
              "reset to the factory configuration\r\n"
              "EntradaAV.0.Brillo  51  reset, was 7\r\n");
    EXPECT_THAT(changes(factory, contents()), IsEmpty());
}

TEST_F(Writing, ResetsToTheFactoryConfiguration) {
    const Contents factory = contents();
    for (const Words& words :
         {Words{"reset-factory", "--yes"}, Words{"--yes", "raw", "3", "50", "00"}}) {
        EXPECT_EQ(run_zondarctl({"set", "EntradaAV.0.Brillo", "7"}).status, 0);
        EXPECT_EQ(cell("EntradaAV 0 Brillo"), "7");
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_THAT(changes(factory, contents()), IsEmpty());
    }
    EXPECT_EQ(run_zondarctl({"reset-factory", "--yes"}).out,
              "reset to the factory configuration\n");
    EXPECT_EQ(json_of({"reset-factory", "--yes"})["data"],
              Json({{"reset", true}, {"changed", Json::array()}}));
}

TEST_F(Writing, RebuildsTheNetworkOnlyWhenThatIsConfirmed) {
    const std::string question =
        "127.0.0.1:8001: this resets the network of the module, which may then have another address. "
        "Go on? "
        "[y/N] ";
    const Words address = {"set", "ConfiguracionGen.Ip_Address", "192.168.1.51"};
    const ProgramRun no = zondarctl_on_terminal(address, "n\n");
    EXPECT_EQ(no.status, 2);
    EXPECT_THAT(no.out, HasSubstr(question));
    EXPECT_EQ(read_file("/tmp/interfaces"), "");

    const ProgramRun yes = zondarctl_on_terminal(address, "y\n");
    EXPECT_EQ(yes.status, 0);
    EXPECT_THAT(
        yes.out,
        EndsWith("ConfiguracionGen.Ip_Address  192.168.1.51  read back, was 192.168.1.50\r\n"));
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 192.168.1.51 255.255.255.0 192.168.1.1\n");
    EXPECT_EQ(run_zondarctl({"--yes", "set", "ConfiguracionGen.Ip_Mask", "255.0.0.0"}).out,
              "ConfiguracionGen.Ip_Mask  255.0.0.0  read back, was 255.255.255.0\n");
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 192.168.1.51 255.0.0.0 192.168.1.1\n");
    // "10.0.0.1" and its NUL.
    EXPECT_EQ(run_zondarctl({"--yes", "raw", "3", "46", "31302E302E302E31", "00"}).status, 0);
    EXPECT_EQ(read_file("/tmp/interfaces"), "0 192.168.1.51 255.0.0.0 10.0.0.1\n");
}

TEST_F(Writing, ChangesTheCountryAndWhatDependsOnIt) {
    const struct {
        const char* name;
        std::vector<std::string> changes;  // against the country before
    } cases[] = {
        {"Spain", {}},
        {"France",
         {"ConfiguracionGen 1 Codtimezone: 'ESP' -> 'FRA'",
          "ConfiguracionGen 1 Country: 'Spain' -> 'France'",
          "ConfiguracionGen 1 Idtimezone: 'es' -> 'fr'",
          "ConfiguracionGen 1 Language: 'es_ES' -> 'fr_FR'", "EntradaAV 1 Bitrate: 6500 -> 8000",
          "RFOut 1 Intervalo_Guarda: 0 -> 2", "Red 1 NIT_Patron: 0 -> 1"}},
        {"Great Britain",
         {"ConfiguracionGen 1 Codtimezone: 'FRA' -> 'GBR'",
          "ConfiguracionGen 1 Country: 'France' -> 'Great Britain'",
          "ConfiguracionGen 1 Idtimezone: 'fr' -> 'gb'",
          "ConfiguracionGen 1 Language: 'fr_FR' -> 'en_US'", "RFOut 1 Intervalo_Guarda: 2 -> 0",
          "RFOut 1 Modo_OFDM: 1 -> 0", "Red 1 LCN_Mode: 1 -> 2"}},
        {"Italy",
         {"ConfiguracionGen 1 Codtimezone: 'GBR' -> 'ITA'",
          "ConfiguracionGen 1 Country: 'Great Britain' -> 'Italy'",
          "ConfiguracionGen 1 Idtimezone: 'gb' -> 'it'",
          "ConfiguracionGen 1 Language: 'en_US' -> 'it_IT'", "EntradaAV 0 Bitrate: 8000 -> 7000",
          "EntradaAV 1 Bitrate: 8000 -> 7000", "RFOut 1 Intervalo_Guarda: 0 -> 3",
          "RFOut 1 Modo_OFDM: 0 -> 1", "Red 1 LCN_Mode: 2 -> 1"}},
        {"Portugal",
         {"ConfiguracionGen 1 Codtimezone: 'ITA' -> 'PRT'",
          "ConfiguracionGen 1 Country: 'Italy' -> 'Portugal'",
          "ConfiguracionGen 1 Idtimezone: 'it' -> 'pt'",
          "ConfiguracionGen 1 Language: 'it_IT' -> 'en_US'", "EntradaAV 0 Bitrate: 7000 -> 8000",
          "EntradaAV 1 Bitrate: 7000 -> 8000", "RFOut 1 Intervalo_Guarda: 3 -> 0",
          "Red 1 LCN_Mode: 1 -> 5"}},
        {"Australia",
         {"ConfiguracionGen 1 Codtimezone: 'PRT' -> 'AUS'",
          "ConfiguracionGen 1 Country: 'Portugal' -> 'Australia'",
          "ConfiguracionGen 1 Idtimezone: 'pt' -> 'au'", "ConfiguracionGen 1 Subtimezone: 0 -> 6",
          "EntradaAV 0 Bitrate: 8000 -> 7000", "EntradaAV 1 Bitrate: 8000 -> 7000",
          "RFOut 1 Ancho_Banda: 0 -> 1", "RFOut 1 Canal_Salida: 21 -> 38",
          "RFOut 1 Code_Rate: 4 -> 2", "RFOut 1 Frecuencia: 474000 -> 599500",
          "RFOut 1 Intervalo_Guarda: 0 -> 1"}},
    };
    bool through_set = false;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Contents before = contents();
        const ProgramRun run =
            through_set ? run_zondarctl({"--yes", "set", "ConfiguracionGen.Country", each.name})
                        : run_zondarctl({"--yes", "country", each.name});
        through_set = !through_set;
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_THAT(lines_of(run.out)[0], MatchesRegex(std::string("ConfiguracionGen\\.Country +") +
                                                       each.name + " +read back(, was .*)?"));
        // What no answer of the module holds is not shown.
        EXPECT_EQ(lines_of(run.out).size(),
                  1 + std::ranges::count_if(each.changes, [](const std::string& change) {
                      return change.find("Country") == std::string::npos &&
                             change.find("Codtimezone") == std::string::npos &&
                             change.find("Idtimezone") == std::string::npos &&
                             change.find("Language") == std::string::npos;
                  }));
        EXPECT_THAT(changes(before, contents()), ElementsAreArray(each.changes));
    }
    const Json json = json_of({"--yes", "country", "Narnia", "--any"});
    EXPECT_EQ(json["data"]["parameters"], Json::parse(R"([{"name": "ConfiguracionGen.Country",
        "value": "Narnia", "read_back": "Narnia", "matches": true}])"));
    EXPECT_EQ(json["data"]["changed"][0], Json::parse(R"({"name": "EntradaAV.0.Bitrate",
        "unit": "kbit/s", "meaning": "video bitrate", "old": 7000, "new": 8000})"));
    EXPECT_EQ(cell("ConfiguracionGen 1 Country"), "'Narnia'");
    EXPECT_EQ(cell("ConfiguracionGen 1 Language"), "''");
    EXPECT_EQ(cell("RFOut 1 Canal_Salida"), "0");
}

// A time of day that is not now: the sandbox has no right to set the clock.
TEST_F(Writing, TellsThatTheClockIsAnotherThanItWasSetTo) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const std::string wanted = local.tm_hour < 12 ? "22.30" : "02.30";
    const Words set_time = {"-v", "--yes", "time", wanted};
    const ProgramRun run = run_zondarctl(set_time);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, MatchesRegex("[0-9]{2}\\.[0-9]{2}\n"));
    EXPECT_THAT(run.err, HasSubstr("\nzondarctl: 127.0.0.1:8001: the time of the module is " +
                                   run.out.substr(0, 5) + " instead of " + wanted + "\n"));
    EXPECT_THAT(run.err, HasSubstr("Tx: A5 03 00 00 00 06 48 " + to_hex(text_bytes(wanted))));
    EXPECT_EQ(json_of(set_time, 1)["error"]["stage"], "read_back");

    const ProgramRun date = run_zondarctl({"-v", "--yes", "date", "2001-02-03"});
    EXPECT_EQ(date.status, 1);
    EXPECT_THAT(date.err, HasSubstr("Tx: A5 03 00 00 00 0B 49 30 33 2E 30 32 2E 32 30 30 31 "));
    EXPECT_THAT(date.err, HasSubstr(" instead of 03.02.2001\n"));
    EXPECT_EQ(json_of({"date", "03.02.2001", "--yes"}, 1)["error"]["stage"], "read_back");
}

// Of a module with this clock; all else is 0.
Bytes clock_answer(const std::string& time, const std::string& date) {
    Bytes info(185);
    info[0] = 2;
    std::copy(time.begin(), time.end(), info.begin() + 168);
    std::copy(date.begin(), date.end(), info.begin() + 173);
    return frame(1, info);
}

TEST(Clock, IsSetWhenTheModuleShowsIt) {
    const struct {
        Words words;
        const char* sent;   // behind the sub-command
        const char* shows;  // the module, afterwards
        int status;
    } cases[] = {
        {{"time", "09.05"}, "48 30 39 2E 30 35", "09.05", 0},
        {{"time", "9:5"}, "48 30 39 2E 30 35", "09.05", 0},
        {{"time", "9.5"}, "48 30 39 2E 30 35", "09.05", 0},
        {{"time", "00:00"}, "48 30 30 2E 30 30", "00.00", 0},
        // It goes on meanwhile, but not for longer than a minute.
        {{"time", "09.05"}, "48 30 39 2E 30 35", "09.06", 0},
        {{"time", "09.59"}, "48 30 39 2E 35 39", "10.00", 0},
        {{"time", "23.59"}, "48 32 33 2E 35 39", "00.00", 0},
        {{"time", "09.05"}, "48 30 39 2E 30 35", "09.07", 1},
        {{"time", "09.05"}, "48 30 39 2E 30 35", "09.04", 1},
        {{"time", "09.05"}, "48 30 39 2E 30 35", "10.05", 1},
        {{"date", "28.02.2026"}, "49 32 38 2E 30 32 2E 32 30 32 36", "28.02.2026", 0},
        {{"date", "2026-02-28"}, "49 32 38 2E 30 32 2E 32 30 32 36", "28.02.2026", 0},
        {{"date", "1.1.2026"}, "49 30 31 2E 30 31 2E 32 30 32 36", "01.01.2026", 0},
        {{"date", "29.02.2028"}, "49 32 39 2E 30 32 2E 32 30 32 38", "29.02.2028", 0},
        {{"date", "28.02.2026"}, "49 32 38 2E 30 32 2E 32 30 32 36", "01.03.2026", 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words) + each.shows);
        const bool time = each.words[0] == "time";
        const Peer peer([&](const Peer::Accept& accept) {
            answer_in_turn(accept, {frame(3, {}), clock_answer(time ? each.shows : "01.01",
                                                               time ? "01.01.2000" : each.shows)});
        });
        Words words = {"-v", "--yes"};
        words.insert(words.end(), each.words.begin(), each.words.end());
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.out, std::string(each.shows) + "\n");
        EXPECT_EQ(run.err.substr(0, run.err.find('\n')), "Tx: " + to_hex(frame(3, hex(each.sent))));
    }
}

// A zone in which it is half past eleven at night now, with a summer time of a week that begins on
// one of the days at eleven, so that its last hour is left out.
std::string zone_without_this_hour(const char* summer) {
    constexpr std::time_t kHour = 3600;
    const std::time_t west = (std::time(nullptr) + kHour / 2) % (24 * kHour);
    return "TZ=WINTER" + std::to_string(west / kHour) + ":" + std::to_string(west / 60 % 60) + ":" +
           std::to_string(west % 60) + "SUMMER," + summer;
}

// Whether a day is one is asked for its noon: not for an hour that a summer time leaves out, nor
// for one before 1970 in the world's east.
TEST(Clock, TakesADayOfWhichAnHourIsMissing) {
    const struct {
        std::string zone;
        const char* date;
    } cases[] = {
        {zone_without_this_hour("M3.5.0/23,M4.1.0"), "29.03.2026"},
        {zone_without_this_hour("M9.4.0/23,M10.1.0"), "27.09.2026"},
        {"TZ=EAST-9", "01.01.1970"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.zone);
        const Peer peer([&](const Peer::Accept& accept) {
            answer_in_turn(accept, {frame(3, {}), clock_answer("01.01", each.date)});
        });
        const ProgramRun run =
            run_program({"/usr/bin/env", each.zone, zondarctl_path(), "--yes", "date", each.date});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, std::string(each.date) + "\n");
    }
}

// The module shows the machine's clock, and "now" is the machine's.
TEST_F(Writing, SetsTheClockToNow) {
    EXPECT_EQ(run_zondarctl({"--yes", "time", "now"}).status, 0);
    EXPECT_EQ(run_zondarctl({"--yes", "date", "now"}).status, 0);
}

std::vector<std::string> slaves() {
    std::vector<std::string> rows;
    for (const auto& row : Database(kConfDb).rows("SELECT * FROM EsclavosModulo")) {
        rows.emplace_back();
        for (const std::string& value : row)
            rows.back() += (rows.back().empty() ? "" : "|") + value;
    }
    return rows;
}

TEST_F(Writing, SpeaksForASlave) {
    const std::string mac = "0a1b2c3d4e5f";
    const std::string unknown = "sent; the module does not say whether it was stored\n";
    const std::string master =
        "mac         001a2b3c4d5e\n"
        "hostname    cabecera-1\n"
        "serial      ZN2024000123\n"
        "model       ZND2AV-T\n"
        "ip          169.254.34.21\n"
        "software    2.4.1\n"
        "registered  yes\n";
    EXPECT_THAT(slaves(), IsEmpty());
    const struct {
        Words words;
        std::string out;
        const char* row;  // of the slave afterwards
    } cases[] = {
        {{"register", "0A:1B:2C:3D:4E:5F", "--hostname", "12345678901234567", "--serial",
          "123456789012", "--model", "123456789", "--ip", "123456789012345", "--software",
          "12.3.4"},
         master,
         "1|0A1B2C3D4E5F|12345678901234567|123456789012|123456789|123456789012345|12.3.4|1|0|0|0"},
        {{"register", mac, "--hostname", "encoder-1", "--serial", "SL2024000077", "--model",
          "RE100", "--ip", "169.254.34.50", "--software", "1.2"},
         master,
         "1|0a1b2c3d4e5f|encoder-1|SL2024000077|RE100|169.254.34.50|1.2.0|1|0|0|0"},
        {{"state", mac, "0x11"},
         unknown,
         "1|0a1b2c3d4e5f|encoder-1|SL2024000077|RE100|169.254.34.50|1.2.0|17|0|0|0"},
        {{"upgrade", mac},
         "upgrade  0\nmac      001a2b3c4d5e\n",
         "1|0a1b2c3d4e5f|encoder-1|SL2024000077|RE100|169.254.34.50|1.2.0|17|0|0|0"},
        {{"register", mac}, master, "1|0a1b2c3d4e5f|||||0.0.0|1|0|0|0"},
    };
    for (const auto& each : cases) {
        Words words = {"slave"};
        words.insert(words.end(), each.words.begin(), each.words.end());
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, each.out);
        EXPECT_THAT(slaves(), ElementsAre(each.row));
    }
    const Json registered = json_of({"slave", "register", mac});
    EXPECT_EQ(registered["command"], "slave register");
    EXPECT_EQ(registered["data"], Json::parse(R"({
        "mac": "001a2b3c4d5e", "hostname": "cabecera-1", "serial": "ZN2024000123",
        "model": "ZND2AV-T", "ip": "169.254.34.21", "software": "2.4.1", "registered": true})"));
    run_elsewhere(kConfDb, "UPDATE EsclavosModulo SET Upgrade = 3");
    EXPECT_EQ(json_of({"slave", "upgrade", mac})["data"],
              Json::parse(R"({"upgrade": 3, "mac": "001a2b3c4d5e"})"));
}

TEST_F(Writing, HandlesThePendingStatesOfRemoteEncoders) {
    const std::string mac = "0a1b2c3d4e5f";
    const auto pending = [&](const char* channel) {
        return run_zondarctl({"slave", "pending", mac, channel}).out;
    };
    const std::string unknown = "sent; the module does not say whether it was stored\n";
    EXPECT_EQ(pending("1"), "channel        1\npending_state  0\n");
    EXPECT_THAT(slaves(),
                ElementsAre("1|0a1b2c3d4e5f|NULL|NULL|NULL|NULL|NULL|NULL|NULL|NULL|NULL"));
    run_elsewhere(kConfDb, "UPDATE EntradaAV SET EstadoPendienteRE = 7 + IdEntradaAV");
    EXPECT_EQ(pending("0"), "channel        0\npending_state  7\n");
    EXPECT_EQ(json_of({"slave", "pending", mac, "1"})["data"],
              Json::parse(R"({"channel": 1, "pending_state": 8})"));
    EXPECT_EQ(run_zondarctl({"slave", "clear", "1"}).out, unknown);
    EXPECT_EQ(cell("EntradaAV 0 EstadoPendienteRE") + cell("EntradaAV 1 EstadoPendienteRE"), "70");
    EXPECT_EQ(run_zondarctl({"slave", "confirm", "0"}).out, unknown);
    EXPECT_EQ(cell("EntradaAV 0 EstadoPendienteRE") + cell("EntradaAV 1 EstadoPendienteRE"), "20");
    EXPECT_EQ(json_of({"slave", "confirm", "1"})["data"], Json::object());
    EXPECT_EQ(cell("EntradaAV 1 EstadoPendienteRE"), "2");

    EXPECT_EQ(run_zondarctl({"slave", "report", mac, "00000011"}).out, "result  0\n");
    EXPECT_EQ(cell("alarmasEstado estado_remote_encoder valor"), "'00000011'");
    EXPECT_EQ(json_of({"slave", "report", mac, ""})["data"], Json({{"result", 0}}));
    EXPECT_EQ(cell("alarmasEstado estado_remote_encoder valor"), "''");
}

TEST_F(Writing, ShowsTheSettingsOfAnEncoder) {
    const ProgramRun run = run_zondarctl({"slave", "encoder", "0a:1b:2c:3d:4e:5f", "1"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "channel                       1\n"
              "Sharpness                     4\n"
              "Video_Enc_Standard            1\n"
              "Bitrate                       6500\n"
              "Audio_Enc_Standard            1\n"
              "Audio_Bitrate                 4\n"
              "Video_Aspect_Ratio            0\n"
              "Remux_Av                      0\n"
              "Pid_Video_Ch                  512\n"
              "Pid_Audio_Ch                  513\n"
              "Pid_Pcr_Ch                    512\n"
              "Filter_Mode                   1\n"
              "Low_Latency                   1\n"
              "Profile                       1\n"
              "Level                         3\n"
              "Remote_Audio_Sampling_Rate    44100\n"
              "Remote_Needs_Reload_Firmware  0\n"
              "Remote_Sistema_TV             17\n"
              "Remote_Stop                   0\n"
              "Remote_Video_Present          1\n"
              "Remote_Audio_Present          1\n"
              "Remote_Modo_Salida            0\n");
    const Json data = json_of({"slave", "encoder", "0a1b2c3d4e5f", "0"})["data"];
    EXPECT_EQ(data["channel"], 0);
    EXPECT_EQ(data["Remote_Audio_Sampling_Rate"], 48000);
    EXPECT_EQ(data["Level"], 4);
    EXPECT_EQ(data.size(), 22U);
}

TEST(Slave, IsNotRegisteredByAModuleThatRefuses) {
    Bytes info(75);
    info[0] = 110;
    info[74] = 1;
    const Peer peer([&](const Peer::Accept& accept) { answer_with(accept, frame(3, info)); });
    const ProgramRun run = run_zondarctl({"slave", "register", "0a1b2c3d4e5f"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: the module could not register the slave\n");
    EXPECT_THAT(run.out, EndsWith("registered  no\n"));
    const Json json = json_of({"slave", "register", "0a1b2c3d4e5f"}, 1);
    EXPECT_EQ(json["ok"], false);
    EXPECT_EQ(json["error"]["stage"], "refused");
    EXPECT_EQ(json["data"]["registered"], false);
}

}  // namespace
