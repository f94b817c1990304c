// `check` as monitoring programs run it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <regex>

#include "tests/support/peer.h"
#include "tests/support/protocol_document.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/status_of_module.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

// label=value[unit][;warn[;crit[;min[;max]]]], as the graphing programs read it.
constexpr char kPluginLine[] =
    "ZONDAR (OK|WARNING|CRITICAL|UNKNOWN) - [^|\n]+"
    "( \\|( [a-z_0-9]+=-?[0-9]+(\\.[0-9]+)?(s|%|[KMGT]?B|c)?(;[-0-9.:~@]*){0,4})+)?\n";

class Check : public testing::Test {
  protected:
    Check() { set_state("alarma_in", "0"); }

    // "OK - no alarms", what follows being the figures.
    static void expect_said(const Words& options, int status, const std::string& said) {
        Words words = {"check"};
        words.insert(words.end(), options.begin(), options.end());
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.err, "");
        EXPECT_TRUE(std::regex_match(run.out, std::regex(kPluginLine))) << run.out;
        EXPECT_EQ(run.out.substr(0, run.out.find(" | ")), "ZONDAR " + said);
    }

    RunningDaemon daemon_;
};

TEST_F(Check, JudgesTheAlarmsAndTheOutput) {
    const struct {
        Words on;
        Words options;
        int status;
        const char* said;
    } cases[] = {
        {{}, {}, 0, "OK - no alarms"},
        {{}, {"--warn", "alarma_hw"}, 0, "OK - no alarms"},
        {{"hw"}, {}, 2, "CRITICAL - alarma_hw"},
        {{"in"}, {}, 2, "CRITICAL - alarma_in"},
        {{"cod"}, {}, 2, "CRITICAL - alarma_cod"},
        {{"si"}, {}, 2, "CRITICAL - alarma_si"},
        {{"mod"}, {}, 2, "CRITICAL - alarma_mod"},
        {{"ip"}, {}, 2, "CRITICAL - alarma_ip"},
        {{"sync"}, {}, 2, "CRITICAL - output not synchronised"},
        {{"in"}, {"--warn", "ALARMA_in"}, 1, "WARNING - alarma_in"},
        {{"in", "ip"},
         {"--warn", "alarma_ip", "--warn", "alarma_in"},
         1,
         "WARNING - alarma_in, alarma_ip"},
        {{"in", "ip"}, {"--warn", "alarma_in"}, 2, "CRITICAL - alarma_ip, alarma_in"},
        {{"hw"}, {"--warn", "alarma_in"}, 2, "CRITICAL - alarma_hw"},
        {{"sync"}, {"--warn", "output_sync"}, 1, "WARNING - output not synchronised"},
        {{"sync"},
         {"--ignore", "Output_Sync"},
         0,
         "OK - no alarms; ignored: output not synchronised"},
        {{"in", "ip"}, {"--ignore", "alarma_in"}, 2, "CRITICAL - alarma_ip; ignored: alarma_in"},
        {{"in", "ip"},
         {"--ignore", "alarma_in", "--ignore", "alarma_ip"},
         0,
         "OK - no alarms; ignored: alarma_in, alarma_ip"},
        {{"in"},
         {"--ignore", "alarma_in", "--warn", "alarma_in"},
         0,
         "OK - no alarms; ignored: alarma_in"},
    };
    for (const auto& each : cases) {
        run_elsewhere(kTempDb,
                      "UPDATE alarmasEstado SET valor = (nombre = 'estado_sync') "
                      "WHERE nombre LIKE 'alarma%' OR nombre = 'estado_sync'");
        for (const std::string& what : each.on)
            set_state(what == "sync" ? "estado_sync" : "alarma_" + what,
                      what == "sync" ? "0" : "1");
        SCOPED_TRACE(testing::PrintToString(each.on));
        expect_said(each.options, each.status, each.said);
    }
}

TEST_F(Check, JudgesFiguresByRanges) {
    const struct {
        Words options;
        int status;
        const char* said;
    } cases[] = {
        {{"--warn", "null_level:0:10"}, 1, "WARNING - null_level -5 outside 0:10"},
        {{"--warn", "null_level:10"}, 1, "WARNING - null_level -5 outside 0:10"},
        {{"--critical", "NULL_level:-4:"}, 2, "CRITICAL - null_level -5 outside -4:"},
        {{"--critical", "null_level:-5:"}, 0, "OK - no alarms"},
        {{"--critical", "null_level:~:-5"}, 0, "OK - no alarms"},
        {{"--critical", "null_level:@~:-5"}, 2, "CRITICAL - null_level -5 inside ~:-5"},
        {{"--warn", "null_level:0:", "--critical", "null_level:-10:"},
         1,
         "WARNING - null_level -5 outside 0:"},
        {{"--warn", "null_level:0:", "--critical", "null_level:-1:"},
         2,
         "CRITICAL - null_level -5 outside -1:"},
        {{"--warn", "null_level:0:", "--critical", "multiplex_net:15"},
         2,
         "CRITICAL - multiplex_net 16 outside 0:15, null_level -5 outside 0:"},
        {{"--warn", "input_sync:@5:5"}, 1, "WARNING - input_sync 5 inside 5:5"},
        {{"--warn", "time:3600"}, 0, "OK - no alarms"},
    };
    for (const auto& each : cases)
        expect_said(each.options, each.status, each.said);
    EXPECT_THAT(run_zondarctl({"check", "--critical", "time:@0:3600"}).out,
                MatchesRegex("ZONDAR CRITICAL - time [0-9]+[.][0-9]+s inside 0:3600 [|] .+\n"));
}

TEST_F(Check, ShowsTheFiguresWithTheirRanges) {
    const ProgramRun run = run_zondarctl({"check", "--warn", "time:3600", "--critical", "time:7200",
                                          "--critical", "ip_0:@5:", "--warn", "null_level:~:0"});
    EXPECT_THAT(run.out, MatchesRegex("ZONDAR OK - no alarms [|] time=[0-9]+[.][0-9]{3}s;3600;7200 "
                                      "alarms=0;;;0;6 input_sync=5 tv_system_1=34 tv_system_2=33 "
                                      "hdmi_1=33 hdsdi_1=34 hdmi_2=1 hdsdi_2=0 null_level=-5;~:0 "
                                      "multiplex_net=16 ip_total=0 ip_0=0;;@5: ip_1=0 player=0\n"));
    set_state("alarma_hw", "1");
    EXPECT_THAT(run_zondarctl({"check", "--ignore", "alarma_hw"}).out,
                HasSubstr("s alarms=1;;;0;6 input_sync=5 "));
}

// Of 402 a module sends 201, of 514 it sends 1.
TEST_F(Check, HasNoFiguresThatBeginAnew) {
    const std::string out = run_zondarctl({"check"}).out;
    std::size_t count = 0;
    for (const document::Place& place : document::layout("Status")) {
        const bool wraps = place.kind == "remainder";
        const bool is_figure =
            place.kind == "number" || place.kind == "code" || place.kind == "sign and magnitude";
        if (wraps || is_figure) {
            EXPECT_EQ(out.find(" " + place.name + "=") == std::string::npos, wraps) << place.name;
        }
        if (!wraps)
            continue;
        ++count;
        EXPECT_EQ(run_zondarctl({"check", "--critical", place.name + ":1"}).out,
                  "ZONDAR UNKNOWN - " + place.name +
                      " cannot be judged: the module sends the low byte of a larger number, which "
                      "behind 255 begins anew at 0\n");
    }
    EXPECT_EQ(count, 3U);
}

TEST_F(Check, TellsScriptsWhatIsIll) {
    set_state("alarma_hw", "1");
    set_state("alarma_ip", "1");
    const Json json = json_of(
        {"check", "--ignore", "alarma_hw", "--warn", "null_level:0:", "--warn", "alarma_ip"}, 1);
    EXPECT_EQ(json["ok"], true);
    const Json& data = json["data"];
    EXPECT_EQ(data["state"], "WARNING");
    EXPECT_EQ(data["null_level"], -5);
    EXPECT_EQ(data["alarms"], Json::parse(R"(["alarma_hw", "alarma_ip"])"));
    EXPECT_EQ(data["problems"], Json::parse(R"([
        {"name": "alarma_ip", "state": "WARNING", "said": "alarma_ip"},
        {"name": "null_level", "state": "WARNING", "said": "null_level -5 outside 0:"},
        {"name": "alarma_hw", "state": "OK", "said": "alarma_hw"}])"));
}

TEST(CheckWithoutAModule, IsUnknownWhenItCannotDoWhatItWasAsked) {
    const struct {
        Words options;
        const char* said;
    } cases[] = {
        {{"--nothing"}, "no option --nothing"},
        {{"--port", "0"}, "--port: '0' is out of range; 1 to 65535"},
        {{"--warn", "alarma_inn"},
         "the status has no 'alarma_inn'; did you mean alarma_in, alarma_ip, alarma_hw or alarma_cod?"},
        {{"--ignore", "output_snyc"}, "the status has no 'output_snyc'; did you mean output_sync?"},
        {{"--critical", "nul_level:1"}, "the status has no 'nul_level'; did you mean null_level?"},
        {{"--critical", "Red.NID:1"}, "the status has no 'Red.NID'"},
        {{"--warn", "null_level"},
         "null_level is a number, and ill only by a range, as in null_level:10:20"},
        {{"--ignore", "time"}, "time is a number, and ill only by a range, as in time:10:20"},
        {{"--critical", "alarma_in"}, "alarma_in is no number, so it has no range"},
        {{"--warn", "output_sync:1"}, "output_sync is no number, so it has no range"},
        {{"--critical", "null_level"}, "null_level needs a range, as in null_level:10:20"},
        {{"--critical", "null_level:x"},
         "'x' is no range; 10, 10:, ~:10, 10:20 and @10:20 are some"},
        {{"--warn", "null_level:2:1"}, "the range '2:1' ends before it begins"},
        {{"--warn", "ip_0:1", "--warn", "IP_0:2"}, "ip_0 has two ranges"},
    };
    for (const auto& each : cases) {
        Words words = {"check"};
        words.insert(words.end(), each.options.begin(), each.options.end());
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 3);
        EXPECT_EQ(run.out, std::string("ZONDAR UNKNOWN - ") + each.said + "\n");
        EXPECT_EQ(run.err, std::string("zondarctl: ") + each.said + "\n");
    }
}

TEST(CheckWithoutAModule, IsCritical) {
    for (const Words& words : {Words{"check"}, Words{"check", "--warn", "alarma_in"}}) {
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "ZONDAR CRITICAL - no connection: Connection refused\n");
        EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: no connection: Connection refused\n");
    }
    const Json json = json_of({"check"}, 2);
    EXPECT_EQ(json["ok"], false);
    EXPECT_EQ(json["data"], Json({{"state", "CRITICAL"}}));
    EXPECT_EQ(json["error"]["stage"], "connect");
}

TEST_F(Check, IsUnknownWhenAnotherProgramKeepsTheModule) {
    run_zondarctl({"check"});
    const int lock = open("/tmp/zondar-127.0.0.1-8001.lock", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const ProgramRun run = run_zondarctl({"check", "-t", "0.1"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.out, StartsWith("ZONDAR UNKNOWN - another program"));
    close(lock);
}

TEST(CheckOfAStranger, PrintsOneLineWhateverItSays) {
    const Peer peer(
        [](const Peer::Accept& accept) { answer_with(accept, frame(0, hex("01 02 03"))); });
    const ProgramRun run = run_zondarctl({"check", "-r", "0"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "ZONDAR CRITICAL - an answer to another request\n");
}

// One after the other, since they are the same daemon.
ProgramRun check_hosts(const std::string& hosts, const Words& options = {}) {
    Words words = {"check", "--parallel", "1", "--host", hosts};
    words.insert(words.end(), options.begin(), options.end());
    return run_zondarctl(words);
}

TEST_F(Check, SumsUpSeveralModules) {
    const ProgramRun well = check_hosts("127.0.0.1,127.0.0.2");
    EXPECT_EQ(well.status, 0);
    EXPECT_EQ(well.err, "");
    EXPECT_EQ(well.out,
              "ZONDAR OK - 2 modules | modules=2 ok=2;;;0;2 warning=0;;;0;2 critical=0;;;0;2 "
              "unknown=0;;;0;2\n"
              "module          state  says\n"
              "127.0.0.1:8001  OK     no alarms\n"
              "127.0.0.2:8001  OK     no alarms\n");

    set_state("alarma_si", "1");
    const ProgramRun ill = check_hosts("127.0.0.1,192.0.2.1", {"--warn", "alarma_si"});
    EXPECT_EQ(ill.status, 2);
    EXPECT_EQ(lines_of(ill.out)[0],
              "ZONDAR CRITICAL - 2 of 2: 192.0.2.1:8001 no connection: Network is unreachable, "
              "127.0.0.1:8001 alarma_si | modules=2 ok=0;;;0;2 warning=1;;;0;2 critical=1;;;0;2 "
              "unknown=0;;;0;2");

    const ProgramRun warning =
        check_hosts("127.0.0.1,127.0.0.2", {"--warn", "alarma_si", "--ignore", "alarma_in"});
    EXPECT_EQ(warning.status, 1);
    EXPECT_THAT(warning.out, StartsWith("ZONDAR WARNING - 2 of 2: 127.0.0.1:8001 alarma_si, "
                                        "127.0.0.2:8001 alarma_si | modules=2 "));

    const Json list = json_of({"check", "--parallel", "1", "--host", "127.0.0.1,192.0.2.1"}, 2);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0]["data"]["problems"][0]["name"], "alarma_si");
    EXPECT_EQ(list[1]["data"], Json({{"state", "CRITICAL"}}));
    EXPECT_EQ(list[1]["error"]["stage"], "connect");
}

TEST(CheckWithoutAModule, KeepsItsLineShort) {
    std::string hosts = "192.0.2.1";
    for (int i = 2; i <= 40; ++i)
        hosts += ",192.0.2." + std::to_string(i);
    const ProgramRun run = check_hosts(hosts);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(lines_of(run.out).size(), 42U);
    const std::string line = lines_of(run.out)[0];
    const std::string said = line.substr(0, line.find(" | "));
    EXPECT_THAT(said,
                MatchesRegex("ZONDAR CRITICAL - 40 of 40: 192.0.2.1:8001 no .+ and [0-9]+ more"));
    EXPECT_LE(said.size(), 200U);
}

TEST(CheckWithoutAModule, IsUnknownForSeveralThatItCannotJudge) {
    const ProgramRun run = check_hosts("127.0.0.1,127.0.0.2", {"--warn", "null_level"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.out, StartsWith("ZONDAR UNKNOWN - null_level is a number, "));
}

}  // namespace
