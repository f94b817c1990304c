// One command for many modules, side by side: real daemons, of which some are dead or hung.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/fleet.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::size_t kModules = 6;
constexpr std::size_t kDead = 4;
constexpr std::size_t kHung = 5;

// Six modules at two sites, in the user's file of targets.
class Several : public testing::Test {
  protected:
    Several() {
        Json groups = Json::array();
        for (std::size_t i = 0; i < kModules; ++i)
            groups.push_back(
                {{"targets", {Fleet::address(i) + ":8001"}},
                 {"labels",
                  {{"name", "m" + std::to_string(i)}, {"site", i % 2 == 0 ? "norte" : "sur"}}}});
        setenv("XDG_CONFIG_HOME", "/tmp/config", 1);
        std::filesystem::create_directories("/tmp/config/zondar");
        write_file("/tmp/config/zondar/targets.json", groups.dump());
    }

    static std::string named(std::size_t i) {
        return "m" + std::to_string(i) + " (" + Fleet::address(i) + ":8001)";
    }

    Fleet fleet_{kModules};
};

TEST_F(Several, AreATableWithARowForEach) {
    fleet_.kill(kDead);
    fleet_.hang(kHung);
    const ProgramRun run =
        run_zondarctl({"--all", "-t", "5", "-r", "0", "get", "EntradaAV.0.Brillo", "Red.NID"});
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        "module               EntradaAV.0.Brillo  Red.NID  error\n"
        "m0 (127.1.0.1:8001)  51                  1\n"
        "m1 (127.1.0.2:8001)  51                  1\n"
        "m2 (127.1.0.3:8001)  51                  1\n"
        "m3 (127.1.0.4:8001)  51                  1\n"
        "m4 (127.1.0.5:8001)  -                   -        no connection: Connection refused\n"
        "m5 (127.1.0.6:8001)  -                   -        no answer after 5 s\n");
}

// In JSON they are a list of what each of them would give alone.
TEST_F(Several, AreAListInJson) {
    fleet_.kill(kDead);
    const Json list = json_of({"--all", "identify"}, 3);
    ASSERT_THAT(list, SizeIs(kModules));
    for (std::size_t i = 0; i < kModules; ++i) {
        EXPECT_EQ(list[i]["target"], Fleet::address(i) + ":8001");
        EXPECT_EQ(list[i]["name"], "m" + std::to_string(i));
        EXPECT_EQ(list[i]["ok"], i != kDead);
    }
    EXPECT_EQ(list[0]["data"]["serial"], Fleet::serial_number(0));
    EXPECT_EQ(list[3]["data"]["serial"], Fleet::serial_number(3));
    EXPECT_EQ(list[kDead]["error"]["stage"], "connect");
    EXPECT_THAT(json_of({"--where", "site=sur", "dump"}), SizeIs(3));
}

TEST_F(Several, AreChosenByHostNameAndLabel) {
    const auto modules = [](const Words& options) {
        Words words = options;
        words.insert(words.end(), {"get", "Red.NID"});
        Words first;
        for (const std::string& line : lines_of(run_zondarctl(words).out))
            first.push_back(line.substr(0, line.find(' ')));
        return first;
    };
    EXPECT_THAT(modules({"--where", "site=sur"}), ElementsAre("module", "m1", "m3", "m5"));
    EXPECT_THAT(modules({"--host", "m2,127.1.0.2"}), ElementsAre("module", "m2", "127.1.0.2:8001"));
    EXPECT_THAT(modules({"--host", "m0", "--host", "m1"}), ElementsAre("module", "m0", "m1"));
    EXPECT_THAT(modules({"--all", "--where", "site=sur", "--where", "name=m3"}),
                ElementsAre("module", "m3"));
    // One that is named alone is asked as ever.
    EXPECT_EQ(run_zondarctl({"--host", "m3", "get", "Red.NID"}).out, "Red.NID  1\n");
    EXPECT_EQ(json_of({"--host", "M3", "get", "Red.NID"})["name"], "m3");
    setenv("ZONDAR_HOST", "m1,m2", 1);
    EXPECT_THAT(modules({}), ElementsAre("module", "m1", "m2"));
    EXPECT_THAT(modules({"--where", "name=m3"}), ElementsAre("module", "m3"));
    EXPECT_THAT(modules({"--host", "m0,m4"}), ElementsAre("module", "m0", "m4"));
    EXPECT_EQ(run_zondarctl({"restore", "/dev/null"}).err,
              "zondarctl: restore is for one module, not for 2\n");
}

TEST_F(Several, AreChangedAtOnceAndAskedAboutOnce) {
    const Words words = {"--where", "site=sur", "set", "EntradaAV.1.Audio_Bitrate=2"};
    const ProgramRun unasked = run_zondarctl(words);
    EXPECT_EQ(unasked.status, 2);
    EXPECT_EQ(unasked.err,
              "zondarctl: 3 modules: this passes RFOut.Cofdm_Off through 2 for a moment: it needs "
              "--yes\n");
    const ProgramRun run = zondarctl_on_terminal(words, "y\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("3 modules: this passes RFOut.Cofdm_Off through 2 for a moment. "
                                   "Go on? [y/N] "));
    for (std::size_t i = 0; i < kModules; ++i) {
        const Database database(Fleet::conf_db(i));
        EXPECT_EQ(database.value("SELECT Audio_Bitrate FROM EntradaAV WHERE IdEntradaAV = 1"),
                  i % 2 == 1 ? "2" : "4");
        EXPECT_EQ(database.value("SELECT Cofdm_Off FROM RFOut"), "0");
    }
    EXPECT_EQ(run_zondarctl({"--host", "m0,m1", "set", "RFOut.Canal_Salida", "30"}).out,
              "module               RFOut.Canal_Salida  besides\n"
              "m0 (127.1.0.1:8001)  21 -> 30            RFOut.Frecuencia 474000 -> 546000\n"
              "m1 (127.1.0.2:8001)  21 -> 30            RFOut.Frecuencia 474000 -> 546000\n");
    EXPECT_EQ(
        run_zondarctl({"--yes", "--all", "set", "ConfiguracionGen.Ip_Address", "10.0.0.9"}).err,
        "zondarctl: ConfiguracionGen.Ip_Address is for one module, not for 6 modules: each has "
        "its own\n");
    EXPECT_EQ(run_zondarctl({"--all", "set", "EntradaAV.0.Brillo", "256"}).err,
              "zondarctl: EntradaAV.0.Brillo takes 0 to 255, not '256'\n");
}

TEST_F(Several, AreComparedWithOneDump) {
    write_file("/tmp/dump.json", run_zondarctl({"--host", "m0", "dump"}).out);
    EXPECT_EQ(run_zondarctl({"--host", "m1", "set", "EntradaAV.0.Brillo", "7"}).status, 0);
    const ProgramRun run = run_zondarctl({"--host", "m0,m1", "diff", "/tmp/dump.json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out,
              "module               differences\n"
              "m0 (127.1.0.1:8001)  0\n"
              "m1 (127.1.0.2:8001)  1\n");
}

// A thread for each that is asked at the same time, and no more than so many.
TEST_F(Several, AreAskedSideBySideUpToABound) {
    const auto threads = [](const std::string& at_once) {
        const ProgramRun run =
            run_program({"/usr/bin/strace", "-f", "-o", "/tmp/calls", "-e", "trace=clone3,clone",
                         zondarctl_path(), "--all", "--parallel", at_once, "identify"});
        EXPECT_EQ(run.status, 0) << run.err;
        const Words calls = lines_of(read_file("/tmp/calls"));
        return std::ranges::count_if(calls, [](const std::string& line) {
            return line.find(" = ") != std::string::npos && line.find("clone") != std::string::npos;
        });
    };
    EXPECT_EQ(threads("2"), 2);
    EXPECT_EQ(threads("32"), 6);
}

// What is waited for is told on a terminal, and gone when it came.
TEST_F(Several, AreWaitedForInALine) {
    fleet_.hang(kHung);
    const ProgramRun run = zondarctl_on_terminal({"--all", "-t", "5", "-r", "0", "identify"});
    EXPECT_THAT(run.out, HasSubstr("\r\033[Kwaiting for " + named(kHung) + ", 5 of 6 done ..."));
    EXPECT_THAT(run.out, HasSubstr("...\r\033[K\033[1mmodule "));
    const ProgramRun alone =
        zondarctl_on_terminal({"--host", "m5", "-t", "2", "-r", "0", "identify"});
    EXPECT_THAT(alone.out, HasSubstr("\r\033[Kwaiting for " + named(kHung) + " ..."));
}

}  // namespace
