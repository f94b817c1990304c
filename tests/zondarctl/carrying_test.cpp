// A configuration carried: compared, restored, copied, on real daemons, and broken off on the way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <random>

#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/fleet.h"
#include "tests/support/peer.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr char kDump[] = "/tmp/dump.json";

// What no dump holds, as it is told behind a plan.
constexpr char kNeverCarried[] =
    "never carried: Red.TSID_Out, Red.ONID_Out, ConfiguracionGen.Lcd_Bloqueo, "
    "ConfiguracionGen.Lcd_Codbloqueo\n";

// Writes what the module holds to a file; gives it.
Json dump_to(const std::string& path, const std::string& host = "127.0.0.1") {
    const ProgramRun run = run_zondarctl({"--host", host, "dump"});
    EXPECT_EQ(run.status, 0) << run.err;
    write_file(path, run.out);
    return Json::parse(run.out);
}

// The entry of a parameter in a dump.
Json& entry_of(Json& dump, const std::string& name) {
    for (const char* const block : {"configuration_1", "configuration_2"}) {
        for (Json& entry : dump["data"][block]["parameters"]) {
            if (entry["name"] == name)
                return entry;
        }
    }
    throw std::invalid_argument(name);
}

void edit(const std::string& name, const Json& value) {
    Json dump = Json::parse(read_file(kDump));
    entry_of(dump, name)["value"] = value;
    write_file(kDump, dump.dump());
}

void set(const Words& assignments) {
    Words words = {"--yes", "set"};
    words.insert(words.end(), assignments.begin(), assignments.end());
    const ProgramRun run = run_zondarctl(words);
    EXPECT_EQ(run.status, 0) << run.err;
}

std::string cell(const std::string& name) {
    return contents().at(name);
}

class Carrying : public testing::Test {
  protected:
    Carrying() { dump_to(kDump); }

    RunningDaemon daemon_;
};

TEST_F(Carrying, ComparesADumpWithTheModule) {
    const ProgramRun equal = run_zondarctl({"diff", kDump});
    EXPECT_EQ(equal.status, 0);
    EXPECT_EQ(equal.out, "no differences\n");
    EXPECT_EQ(json_of({"diff", kDump})["data"],
              Json::parse(R"({"a": "/tmp/dump.json", "b": "127.0.0.1:8001", "differences": []})"));

    set({"EntradaAV.1.Bitrate=5000", "Red.NetworkName=Otra Red"});
    const ProgramRun run = run_zondarctl({"diff", kDump});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "NAME                 /tmp/dump.json  127.0.0.1:8001  MEANING\n"
              "EntradaAV.1.Bitrate  6500            5000            video bitrate, kbit/s\n"
              "Red.NetworkName      Red Local       Otra Red        network name\n");
    EXPECT_EQ(json_of({"diff", kDump}, 1)["data"]["differences"], Json::parse(R"([
        {"name": "EntradaAV.1.Bitrate", "unit": "kbit/s", "meaning": "video bitrate",
         "a": 6500, "b": 5000},
        {"name": "Red.NetworkName", "meaning": "network name", "a": "Red Local", "b": "Otra Red"}
        ])"));
}

TEST_F(Carrying, ComparesTwoDumpsWithoutAModule) {
    edit("EntradaAV.0.Brillo", 7);
    Json other = Json::parse(read_file(kDump));
    entry_of(other, "EntradaAV.0.Brillo")["value"] = 8;
    Json& names = entry_of(other, "Red.Proveedor");
    names["value"] = "\uFFFD";
    names["value_hex"] = "FF";
    write_file("/tmp/other.json", other.dump());
    (*daemon_).stop(SIGKILL);
    EXPECT_EQ(run_zondarctl({"diff", kDump, kDump}).status, 0);
    const ProgramRun run = run_zondarctl({"diff", kDump, "/tmp/other.json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out,
              "NAME                /tmp/dump.json  /tmp/other.json  MEANING\n"
              "EntradaAV.0.Brillo  7               8                brightness\n"
              "Red.Proveedor       Proveedor       \\xFF             provider\n");
    const Json json = json_of({"diff", kDump, "/tmp/other.json"}, 1);
    EXPECT_TRUE(json["target"].is_null());
    EXPECT_EQ(json["data"]["differences"][1]["b_hex"], "FF");
}

TEST_F(Carrying, ComparesTwoModules) {
    EXPECT_EQ(run_zondarctl({"diff", "127.0.0.1", "127.0.0.2:8001"}).out, "no differences\n");
    const ProgramRun run = run_zondarctl({"diff", "127.0.0.1", "127.0.0.2:8002"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "zondarctl: 127.0.0.2:8002: no connection: Connection refused\n");
}

TEST_F(Carrying, RefusesAFileThatIsNoWholeDumpBeforeAnythingIsAsked) {
    (*daemon_).stop(SIGKILL);
    const std::string whole = read_file(kDump);
    Json without_a_block = Json::parse(whole);
    without_a_block["data"]["configuration_2"] = nullptr;
    Json without_a_value = Json::parse(whole);
    entry_of(without_a_value, "IPOut.Ttl").erase("value");
    const std::pair<std::string, const char*> cases[] = {
        {"", "no JSON"},
        {"{", "no JSON"},
        {"3", "no whole dump: `zondarctl dump` has not written it"},
        {"{\"command\": 3}", "no whole dump: it has another shape"},
        {"{\"command\": \"status\", \"data\": {}}",
         "no whole dump: `zondarctl dump` has not written it"},
        {"{\"command\": \"dump\", \"data\": {\"configuration_1\": {}}}",
         "no whole dump: configuration_1 has no parameters"},
        {"{\"command\": \"dump\", \"data\": {}}",
         "no whole dump: configuration_1 could not be read"},
        {without_a_block.dump(), "no whole dump: configuration_2 could not be read"},
        {without_a_value.dump(), "no whole dump: IPOut.Ttl has no value"},
        {"[" + whole + "," + whole + "]", "holds the dumps of 2 modules, not of one"},
    };
    for (const auto& [content, message] : cases) {
        write_file("/tmp/file", content);
        for (const char* const command : {"restore", "diff"}) {
            const ProgramRun run = run_zondarctl({command, "/tmp/file"});
            EXPECT_EQ(run.status, 2);
            EXPECT_EQ(run.out, "");
            EXPECT_EQ(run.err, std::string("zondarctl: /tmp/file: ") + message + "\n");
        }
    }
    EXPECT_EQ(run_zondarctl({"restore", "/tmp/none"}).err, "zondarctl: /tmp/none: no such file\n");
    EXPECT_EQ(run_zondarctl({"diff", "/tmp/none"}).err, "zondarctl: /tmp/none: no such file\n");
    EXPECT_EQ(run_zondarctl({"restore", "/tmp"}).err, "zondarctl: /tmp: Is a directory\n");
    EXPECT_EQ(run_zondarctl({"restore", "/dev/zero"}).err,
              "zondarctl: /dev/zero: more than 4 MiB\n");
    // A list with one is one.
    write_file("/tmp/file", "[" + whole + "]");
    EXPECT_EQ(run_zondarctl({"diff", "/tmp/file", kDump}).status, 0);
}

TEST_F(Carrying, RestoresWhatDiffersAndNothingElse) {
    const Contents before = contents();
    set({"EntradaAV.1.Bitrate=5000", "RFOut.Canal_Salida=30", "Red.NetworkName=Otra Red"});
    const Contents changed = contents();
    const std::string plan =
        "EntradaAV.1.Bitrate  5000 -> 6500\n"
        "RFOut.Canal_Salida   30 -> 21\n"
        "Red.NetworkName      Otra Red -> Red Local\n";
    const ProgramRun dry = run_zondarctl({"restore", kDump, "--dry-run"});
    EXPECT_EQ(dry.status, 0);
    EXPECT_EQ(dry.out, plan + kNeverCarried + "3 values would be written\n");
    EXPECT_THAT(changes(changed, contents()), IsEmpty());

    const ProgramRun run = run_zondarctl({"-v", "restore", kDump});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, plan + kNeverCarried + "3 values written, 0 different\n");
    EXPECT_THAT(run.err, HasSubstr("Tx: A5 03 "));
    EXPECT_THAT(changes(before, contents()), IsEmpty());

    const ProgramRun again = run_zondarctl({"-v", "restore", kDump});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "0 values written, 0 different\n");
    EXPECT_THAT(again.err, Not(HasSubstr("Tx: A5 03 ")));
    EXPECT_EQ(json_of({"restore", kDump})["data"], Json::parse(R"({"dry_run": false, "plan": [],
        "left": [], "never_carried": ["Red.TSID_Out", "Red.ONID_Out",
        "ConfiguracionGen.Lcd_Bloqueo", "ConfiguracionGen.Lcd_Codbloqueo"], "done": 0,
        "differences": []})"));
}

TEST_F(Carrying, TellsWhatItCannotRestore) {
    edit("Red.TSID_Out", 5);
    edit("EntradaAV.0.Brillo", 256);
    edit("Red.Proveedor", "5%");
    edit("ConfiguracionGen.Ip_Mask", "255.255.0.0");
    Json dump = Json::parse(read_file(kDump));
    Json& list = dump["data"]["configuration_1"]["parameters"];
    list.push_back({{"name", "ConfiguracionGen.Lcd_Bloqueo"}, {"value", 1}});
    list.push_back({{"name", "Red.Narnia"}, {"value", 1}});
    write_file(kDump, dump.dump());
    const Contents before = contents();
    const ProgramRun run = run_zondarctl({"restore", kDump});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(lines_of(run.out),
                testing::IsSupersetOf(
                    {"EntradaAV.0.Brillo            not 256: it takes 0 to 255",
                     "Red.TSID_Out                  not 5: the module takes it and never stores it",
                     "Red.Proveedor                 not 5%: the first per cent sign of a text is "
                     "stored as a blank",
                     "ConfiguracionGen.Ip_Mask      not 255.255.0.0: addresses stay as they are",
                     "ConfiguracionGen.Lcd_Bloqueo  not 1: no answer of the module holds it",
                     "Red.Narnia                    not 1: the module has no such parameter"}));
    EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: 5 values are not as in /tmp/dump.json\n");
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    const Json data = json_of({"restore", kDump}, 1)["data"];
    EXPECT_EQ(data["left"].size(), 6U);
    EXPECT_EQ(data["differences"].size(), 3U);
}

TEST_F(Carrying, RestoresAddressesLastAndOnlyWhenTold) {
    set({"ConfiguracionGen.Ip_Gateway=192.168.1.2", "ConfiguracionGen.Ip_Address=192.168.1.51",
         "ConfiguracionGen.Ip_Dhcp=1"});
    const Contents before = contents();
    EXPECT_EQ(run_zondarctl({"--yes", "restore", kDump}).status, 0);
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    // A script must say that the network may go.
    const ProgramRun unasked = run_zondarctl({"restore", kDump, "--addresses"});
    EXPECT_EQ(unasked.status, 2);
    EXPECT_EQ(unasked.err,
              "zondarctl: 127.0.0.1:8001: this resets the network of the module, which may then "
              "have another address: it needs --yes\n");
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    const ProgramRun run = run_zondarctl({"--yes", "restore", kDump, "--addresses"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, std::string("ConfiguracionGen.Ip_Dhcp     1 -> 0\n"
                                   "ConfiguracionGen.Ip_Gateway  192.168.1.2 -> 192.168.1.1\n"
                                   "ConfiguracionGen.Ip_Address  192.168.1.51 -> 192.168.1.50\n") +
                           kNeverCarried + "3 values written, 0 different\n");
}

TEST_F(Carrying, AsksBeforeItCarriesToAnotherModel) {
    Json dump = Json::parse(read_file(kDump));
    dump["data"]["identification"]["name"] = "ZND4AV-T";
    write_file(kDump, dump.dump());
    EXPECT_EQ(run_zondarctl({"restore", kDump}).status, 0);  // nothing to write
    set({"EntradaAV.0.Brillo=7"});
    const ProgramRun run = run_zondarctl({"restore", kDump});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(
        run.err,
        "zondarctl: 127.0.0.1:8001: this carries the configuration of a ZND ZND4AV-T to a ZND "
        "ZND2AV-T: it needs --yes\n");
    EXPECT_EQ(cell("EntradaAV 0 Brillo"), "7");
    const ProgramRun yes = zondarctl_on_terminal({"restore", kDump}, "y\n");
    EXPECT_EQ(yes.status, 0);
    EXPECT_THAT(yes.out, HasSubstr("Go on? [y/N] "));
    EXPECT_EQ(cell("EntradaAV 0 Brillo"), "51");
}

// What `set` would refuse is what the dump has; so it asks.
TEST_F(Carrying, AsksBeforeItRestoresWhatIsNotMeant) {
    edit("RFOut.Cofdm_Off", 7);
    const ProgramRun run = run_zondarctl({"restore", kDump});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(
        run.err,
        "zondarctl: 127.0.0.1:8001: this writes what is not meant: RFOut.Cofdm_Off takes 0 or "
        "1, not 7: it needs --yes\n");
    // The plan stands above the question.
    const ProgramRun no = zondarctl_on_terminal({"restore", kDump}, "n\n");
    EXPECT_THAT(no.out, HasSubstr("RFOut.Cofdm_Off  0 -> 7\r\nnever carried: "));
    EXPECT_THAT(no.out, HasSubstr("this writes what is not meant"));
    EXPECT_EQ(cell("RFOut 1 Cofdm_Off"), "0");
    EXPECT_EQ(run_zondarctl({"--yes", "restore", kDump}).status, 0);
    EXPECT_EQ(cell("RFOut 1 Cofdm_Off"), "7");
}

TEST_F(Carrying, KeepsTheOutputOnWhenItRestoresAnAudioBitrate) {
    set({"EntradaAV.1.Audio_Bitrate=1"});
    EXPECT_EQ(cell("RFOut 1 Cofdm_Off"), "0");
    EXPECT_THAT(run_zondarctl({"restore", kDump}).err,
                HasSubstr("this passes RFOut.Cofdm_Off through 4 for a moment: it needs --yes"));
    EXPECT_EQ(run_zondarctl({"--yes", "restore", kDump}).out,
              std::string("EntradaAV.1.Audio_Bitrate  1 -> 4\n"
                          "RFOut.Cofdm_Off            4 -> 0\n") +
                  kNeverCarried + "2 values written, 0 different\n");
}

// Whichever of both writes is lost, or its answer: the second one is made good. The connections:
// two for each block, then that of a request and that of its answer.
TEST_F(Carrying, SetsTheOutputBackThatAnAudioBitrateHadSwitched) {
    for (const std::string lost : {"6", "7", "8"}) {
        SCOPED_TRACE(lost);
        const ProgramRun run =
            run_program({"/usr/bin/strace", "-o", "/dev/null", "-e",
                         "inject=connect:error=ECONNREFUSED:when=" + lost, "-e", "trace=connect",
                         zondarctl_path(), "--yes", "set", "EntradaAV.1.Audio_Bitrate", lost});
        EXPECT_THAT(run.status, testing::AnyOf(3, 4));
        EXPECT_THAT(run.err, MatchesRegex("[^\n]+; RFOut.Cofdm_Off (is|was set back to) 0\n"));
        EXPECT_EQ(json_of({"get", "RFOut.Cofdm_Off"})["data"]["parameters"][0]["value"], 0);
        EXPECT_EQ(run_zondarctl({"get", "-q", "EntradaAV.1.Audio_Bitrate"}).out, lost + "\n");
    }
}

// The addresses that the tool connects to, in their order, each run of equal ones once.
Words places(const Words& words) {
    Words command = {"/usr/bin/strace", "-f", "-o", "/tmp/calls", "-e", "trace=connect",
                     zondarctl_path()};
    command.insert(command.end(), words.begin(), words.end());
    EXPECT_EQ(run_program(command).status, 0);
    Words all;
    for (const std::string& line : lines_of(read_file("/tmp/calls"))) {
        const std::size_t begin = line.find("inet_addr(\"");
        if (begin == std::string::npos)
            continue;
        const std::string address =
            line.substr(begin + 11, line.find('"', begin + 11) - begin - 11);
        if (all.empty() || all.back() != address)
            all.push_back(address);
    }
    return all;
}

// Any address of this machine is the module's. Where it cannot be reached at the new one, it is
// read where it was.
TEST_F(Carrying, ReadsAModuleBackAtItsNewAddress) {
    EXPECT_THAT(places({"--yes", "set", "ConfiguracionGen.Ip_Address", "127.0.0.9"}),
                ElementsAre("127.0.0.1", "127.0.0.9"));
    EXPECT_THAT(places({"--yes", "set", "ConfiguracionGen.Ip_Address", "192.168.1.51"}),
                ElementsAre("127.0.0.1", "192.168.1.51", "127.0.0.1"));
    EXPECT_THAT(places({"--yes", "restore", kDump, "--addresses"}),
                ElementsAre("127.0.0.1", "192.168.1.50", "127.0.0.1"));
    EXPECT_THAT(places({"--yes", "--any", "set", "ConfiguracionGen.Ip_Address", "nowhere"}),
                ElementsAre("127.0.0.1"));
}

class Chance {
  public:
    explicit Chance(unsigned seed) : random_(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

    // "NAME=VALUE" for all that can be read back and stored.
    std::string configuration(const Json& parameters) {
        std::string lines;
        for (const Json& parameter : parameters) {
            if (!parameter["block"].is_null() && parameter.value("stored", true))
                lines += parameter["name"].get<std::string>() + "=" + value(parameter) + "\n";
        }
        return lines;
    }

  private:
    std::string value(const Json& parameter) {
        constexpr const char* kCountries[] = {"Australia", "France",   "Great Britain",
                                              "Italy",     "Portugal", "Spain"};
        constexpr const char* kLetters[] = {"a", "Z", " ", "\u00F1", "'", "\"", "5", "%", "="};
        if (parameter["name"] == "ConfiguracionGen.Country")
            return kCountries[below(6)];
        if (parameter["kind"] == "switch")
            return std::to_string(below(2));
        if (parameter["kind"] == "address") {
            return std::to_string(below(256)) + "." + std::to_string(below(256)) + "." +
                   std::to_string(below(256)) + "." + std::to_string(below(256));
        }
        if (!parameter.contains("length"))
            return std::to_string(below(parameter["maximum"].get<unsigned>() + 1));
        std::string text = "x";
        const unsigned length = below(parameter["length"].get<unsigned>() - 2);
        while (text.size() < length)
            text += kLetters[below(9)];
        return text + "y";
    }

    std::mt19937 random_;
};

// How many configurations are tried; evidence/restore tries many.
unsigned number_of_configurations() {
    const char* const wanted = std::getenv("ZONDAR_CONFIGURATIONS");
    return wanted == nullptr ? 2 : static_cast<unsigned>(std::atoi(wanted));
}

void make_configuration(Chance& chance, const Json& parameters) {
    const ProgramRun run =
        run_zondarctl({"--yes", "--any", "set", "-"}, chance.configuration(parameters));
    EXPECT_THAT(run.status, testing::AnyOf(0, 1)) << run.err;  // a per cent sign is a blank
    EXPECT_THAT(run.out, HasSubstr("EntradaAV.0.Brillo "));
}

void expect_restored(const std::string& path) {
    const ProgramRun run = run_zondarctl({"--yes", "restore", path, "--addresses"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(run_zondarctl({"diff", path}).out, "no differences\n");
    EXPECT_THAT(run_zondarctl({"--yes", "restore", path, "--addresses"}).out,
                StartsWith("0 values written"));
}

TEST_F(Carrying, GoesFromAnyConfigurationToTheDefaultsOfEachCountryAndBack) {
    const Json parameters = json_of({"list"})["data"]["parameters"];
    Chance chance(20261122);
    for (unsigned i = 0; i < number_of_configurations(); ++i) {
        make_configuration(chance, parameters);
        dump_to("/tmp/one.json");
        for (const char* const country :
             {"Australia", "France", "Great Britain", "Italy", "Portugal", "Spain"}) {
            SCOPED_TRACE(std::to_string(i) + " " + country);
            EXPECT_EQ(run_zondarctl({"--yes", "--any", "country", "Narnia"}).status, 0);
            EXPECT_EQ(run_zondarctl({"--yes", "country", country}).status, 0);
            dump_to("/tmp/defaults.json");
            ASSERT_NO_FATAL_FAILURE(expect_restored("/tmp/one.json"));
            ASSERT_NO_FATAL_FAILURE(expect_restored("/tmp/defaults.json"));
        }
    }
}

// A program that is killed with a request, or as it reads the answer; with few configurations at
// some of them.
TEST_F(Carrying, EndsRightWhereverItWasKilledBefore) {
    const Json parameters = json_of({"list"})["data"]["parameters"];
    const unsigned step = number_of_configurations() > 2 ? 1 : 24;
    Chance chance(4);
    make_configuration(chance, parameters);
    dump_to("/tmp/one.json");
    make_configuration(chance, parameters);
    dump_to("/tmp/two.json");
    const char* from = "/tmp/two.json";
    const char* to = "/tmp/one.json";
    for (const std::string call : {"sendto", "recvfrom"}) {
        unsigned killed = 0;
        for (unsigned which = 1;; which += step, ++killed) {
            SCOPED_TRACE(call + std::to_string(which));
            const ProgramRun run =
                run_program({"/usr/bin/strace", "-o", "/dev/null", "-e", "trace=" + call, "-e",
                             "inject=" + call + ":signal=KILL:when=" + std::to_string(which),
                             zondarctl_path(), "--yes", "-t", "60", "restore", to, "--addresses"});
            if (run.status == 0)
                break;
            EXPECT_EQ(run.status, 1000 + SIGKILL);
            ASSERT_NO_FATAL_FAILURE(expect_restored(to));
            std::swap(from, to);
        }
        EXPECT_GT(killed * step, 48U);
    }
}

// As slow as over a network, so that it is in the middle when it is disturbed.
ProgramRun slow_restore(const std::function<void(int pid)>& meanwhile) {
    return run_program(
        {"/usr/bin/strace", "-D", "-o", "/tmp/calls", "-e", "trace=sendto", "-e",
         "inject=sendto:delay_enter=30000", zondarctl_path(), "--yes", "restore", "/tmp/one.json"},
        "", meanwhile);
}

constexpr char kBrokenOff[] =
    "; [1-9][0-9]? of [0-9]+ values were written: run it again to finish\n";

class BrokenOff : public Carrying {
  protected:
    BrokenOff() {
        Chance chance(7);
        make_configuration(chance, json_of({"list"})["data"]["parameters"]);
        dump_to("/tmp/one.json");
        expect_restored(kDump);
    }

    // Its first six requests only read, before the plan is made and after it.
    static void wait_for_a_write() {
        EXPECT_TRUE(eventually([] { return lines_of(read_file("/tmp/calls")).size() > 9; }));
    }
    // The addresses stay, and the rest is as it was to be.
    static void expect_finished() {
        EXPECT_EQ(run_zondarctl({"-t", "60", "--yes", "restore", "/tmp/one.json"}).status, 0);
        EXPECT_EQ(json_of({"restore", "/tmp/one.json"})["data"]["plan"], Json::array());
    }
};

void expect_told_how_far_it_came(const ProgramRun& run) {
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err,
                MatchesRegex(std::string("zondarctl: 127.0.0.1:8001: interrupted") + kBrokenOff));
    EXPECT_THAT(run.out, HasSubstr(" different\n"));
}

TEST_F(BrokenOff, ByCtrlCTellsHowFarItCame) {
    expect_told_how_far_it_came(slow_restore([&](int pid) {
        wait_for_a_write();
        kill(pid, SIGINT);
    }));
    expect_finished();
}

// With the terminal that it was started on.
TEST_F(BrokenOff, ByTheEndOfItsTerminalTellsHowFarItCame) {
    expect_told_how_far_it_came(slow_restore([&](int pid) {
        wait_for_a_write();
        kill(pid, SIGHUP);
    }));
}

TEST_F(BrokenOff, ByALostModuleTellsHowFarItCame) {
    const ProgramRun run = slow_restore([&](int /*pid*/) {
        wait_for_a_write();
        (*daemon_).stop(SIGKILL);
    });
    EXPECT_THAT(run.status, testing::AnyOf(3, 4));
    EXPECT_THAT(run.err,
                MatchesRegex("zondarctl: 127.0.0.1:8001: [^\n]+" + std::string(kBrokenOff)));
    const Daemon again;
    empty_connection();
    expect_finished();
}

// A command that only reads has nothing to finish.
TEST(Diff, EndsAtCtrlC) {
    std::atomic<bool> asked = false;
    const Peer silent([&](const Peer::Accept& accept) {
        const auto request = accept();
        const auto collection = accept();
        asked = true;
        accept();
    });
    const ProgramRun run =
        run_program({zondarctl_path(), "-t", "20", "diff", "127.0.0.1"}, "", [&](int pid) {
            EXPECT_TRUE(eventually([&] { return asked.load(); }));
            kill(pid, SIGINT);
        });
    EXPECT_EQ(run.status, 1000 + SIGINT);
}

// Two modules of a fleet, and one that does not answer.
TEST(Copy, BringsOneModuleToTheConfigurationOfAnotherOne) {
    const Fleet fleet(2);
    const std::string one = Fleet::address(0);
    const std::string other = Fleet::address(1);
    const auto set_at = [](const std::string& host, const Words& assignments) {
        Words words = {"--yes", "--host", host, "set"};
        words.insert(words.end(), assignments.begin(), assignments.end());
        EXPECT_EQ(run_zondarctl(words).status, 0);
    };
    set_at(one, {"EntradaAV.0.Brillo=7", "ServiciosSalida.0.Nombre=Canal Sur"});
    set_at(other, {"EntradaAV.0.Contraste=9"});
    const ProgramRun dry = run_zondarctl({"copy", one, other, "--dry-run"});
    EXPECT_EQ(dry.out, std::string("EntradaAV.0.Brillo        51 -> 7\n"
                                   "EntradaAV.0.Contraste     9 -> 52\n"
                                   "ServiciosSalida.0.Nombre  Canal Uno -> Canal Sur\n") +
                           kNeverCarried + "3 values would be written\n");
    const Json json = json_of({"copy", one, other});
    EXPECT_EQ(json["target"], other + ":8001");
    EXPECT_EQ(json["data"]["done"], 3);
    EXPECT_EQ(run_zondarctl({"diff", one, other}).status, 0);
    EXPECT_EQ(
        Database(Fleet::conf_db(1)).value("SELECT Brillo FROM EntradaAV WHERE IdEntradaAV = 0"),
        "7");

    const ProgramRun run = run_zondarctl({"copy", one + ":8002", other});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "zondarctl: " + one + ":8002: no connection: Connection refused\n");
    EXPECT_EQ(run_zondarctl({"--host", one, "copy", one, other}).err,
              "zondarctl: copy names both modules: --host, --all and --where are not for it\n");
}

}  // namespace
