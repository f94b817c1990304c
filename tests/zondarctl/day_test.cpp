// A day of those who are responsible for twenty modules, as they would type it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/fleet.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr std::size_t kModules = 20;

// The modules "sur-01" to "sur-10" and "norte-11" to "norte-20", in a file of the machine's user.
class Day : public testing::Test {
  protected:
    Day() {
        Json groups = Json::array();
        for (std::size_t i = 0; i < kModules; ++i)
            groups.push_back({{"targets", {Fleet::address(i) + ":8001"}},
                              {"labels", {{"name", name(i)}, {"site", site(i)}}}});
        std::filesystem::create_directories("/tmp/home/.config/zondar");
        write_file("/tmp/home/.config/zondar/targets.json", groups.dump());
        setenv("HOME", "/tmp/home", 1);
        setenv("PATH",
               (std::filesystem::path(zondarctl_path()).parent_path().string() + ":/usr/bin:/bin")
                   .c_str(),
               1);
    }

    static std::string site(std::size_t i) { return i < kModules / 2 ? "sur" : "norte"; }
    static std::string name(std::size_t i) {
        const std::string number = std::to_string(i + 1);
        return site(i) + "-" + (number.size() == 1 ? "0" : "") + number;
    }

    // What a shell shows of a line.
    static ProgramRun type(const std::string& line) { return run_program({"/bin/sh", "-c", line}); }
    static void report(std::size_t i, const std::string& state, const std::string& value) {
        run_elsewhere(Fleet::temp_db(i), "UPDATE alarmasEstado SET valor = '" + value +
                                             "' WHERE nombre = '" + state + "'");
    }
    static std::string stored(std::size_t i, const std::string& query) {
        return Database(Fleet::conf_db(i)).value(query);
    }

    Fleet fleet_{kModules};
};

// In the morning: who is ill, and with what.
TEST_F(Day, BeginsWithALookAtAllModules) {
    for (std::size_t i = 0; i < kModules; ++i)
        report(i, "alarma_in", "0");
    report(2, "alarma_mod", "1");
    fleet_.kill(4);
    fleet_.kill(5);
    fleet_.hang(6);
    const ProgramRun run = type("zondarctl --all -t 8 -r 0 check");
    EXPECT_EQ(run.status, 2);
    const Words lines = lines_of(run.out);
    ASSERT_THAT(lines, SizeIs(2 + kModules));
    EXPECT_THAT(lines[0], HasSubstr("ZONDAR CRITICAL - 4 of 20: sur-03 alarma_mod, sur-05 "));
    EXPECT_THAT(lines[2 + 2], HasSubstr("sur-03 (127.1.0.3:8001)"));
    EXPECT_THAT(lines[2 + 2], HasSubstr("alarma_mod"));
    EXPECT_THAT(lines[2 + 6], HasSubstr("no answer after 8 s"));
    EXPECT_EQ(type("zondarctl --host sur-01 check").status, 0);
    EXPECT_THAT(type("zondarctl --host sur-03 status | grep yes").out,
                HasSubstr("alarma_mod       yes\n"));
    EXPECT_EQ(type("zondarctl --host sur-5 status").err.substr(0, 26),
              "zondarctl: sur-5:8001: no ");
    EXPECT_EQ(type("zondarctl --host sur-05 status").err,
              "zondarctl: sur-05 (127.1.0.5:8001): no connection: Connection refused\n");
}

// Both video bitrates, and nothing else.
TEST_F(Day, ChangesBothVideoBitrates) {
    const ProgramRun run = type("zondarctl --host norte-11 set 'EntradaAV.*.Bitrate=7200'");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "EntradaAV.0.Bitrate  7200  read back, was 8000\n"
              "EntradaAV.1.Bitrate  7200  read back, was 6500\n");
    EXPECT_EQ(type("zondarctl --host norte-11 get -q EntradaAV.0.Bitrate").out, "7200\n");
    EXPECT_EQ(type("zondarctl --host norte-12 get Bitrate").out,
              "EntradaAV.0.Bitrate        8000\n"
              "EntradaAV.0.Audio_Bitrate  3\n"
              "EntradaAV.1.Bitrate        6500\n"
              "EntradaAV.1.Audio_Bitrate  4\n");
}

// A country is changed after a question, and what came with it is told.
TEST_F(Day, ChangesACountryAndTakesItBack) {
    EXPECT_EQ(type("zondarctl --host norte-11 dump > /tmp/before.json").status, 0);
    const ProgramRun unasked = type("zondarctl --host norte-11 country italy < /dev/null");
    EXPECT_EQ(unasked.status, 2);
    EXPECT_EQ(
        unasked.err,
        "zondarctl: norte-11 (127.1.0.11:8001): this stores the country's defaults in all that "
        "depends on the country: it needs --yes\n");
    EXPECT_EQ(type("zondarctl --host norte-11 --yes country italy").out,
              "ConfiguracionGen.Country  Italy  read back, was Spain\n"
              "EntradaAV.0.Bitrate       7000   changed with it, was 8000\n"
              "EntradaAV.1.Bitrate       7000   changed with it, was 6500\n"
              "RFOut.Intervalo_Guarda    3      changed with it, was 0\n"
              "Red.NIT_Patron            1      changed with it, was 0\n");
    EXPECT_EQ(type("zondarctl --host norte-11 diff /tmp/before.json > /dev/null").status, 1);
    EXPECT_EQ(type("zondarctl --host norte-11 --yes restore /tmp/before.json").status, 0);
    EXPECT_EQ(type("zondarctl --host norte-11 diff /tmp/before.json").out, "no differences\n");
}

// One module is like another one, but for its addresses.
TEST_F(Day, CarriesAConfigurationToAnotherModule) {
    EXPECT_EQ(type("zondarctl --host sur-01 set RFOut.Canal_Salida=30 IPOut.Ttl=9 "
                   "ServiciosSalida.0.Nombre='Canal Sur'")
                  .status,
              0);
    EXPECT_EQ(type("zondarctl --host sur-01 --yes set ConfiguracionGen.Ip_Gateway=10.0.0.1").status,
              0);
    const ProgramRun run = type("zondarctl copy sur-01 sur-02");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, HasSubstr("RFOut.Canal_Salida           21 -> 30\n"));
    EXPECT_THAT(run.out,
                HasSubstr("ConfiguracionGen.Ip_Gateway  not 10.0.0.1: addresses stay as they "
                          "are\n"));
    EXPECT_THAT(run.out, HasSubstr("\n3 values written, 0 different\n"));
    EXPECT_EQ(stored(1, "SELECT Frecuencia FROM RFOut"), "546000");
    EXPECT_EQ(stored(1, "SELECT Ip_Gateway FROM ConfiguracionGen"), "192.168.1.1");
    EXPECT_EQ(stored(2, "SELECT Frecuencia FROM RFOut"), "474000");
}

// An alarm that comes and goes, while nobody looks.
TEST_F(Day, FollowsTheAlarmsOfAModule) {
    const ProgramRun run =
        run_program({"/bin/sh", "-c",
                     "exec zondarctl --host sur-07 watch --changes -n 0.05 > /tmp/log 2> /tmp/err"},
                    "", [](int pid) {
                        const auto logged = [](const std::string& text) {
                            return eventually([&] {
                                return read_file("/tmp/log").find(text) != std::string::npos;
                            });
                        };
                        EXPECT_TRUE(logged("  player "));  // the last of the first state
                        report(6, "alarma_si", "1");
                        EXPECT_TRUE(logged("  alarma_si        no -> yes\n"));
                        report(6, "alarma_si", "0");
                        EXPECT_TRUE(logged("  alarma_si        yes -> no\n"));
                        kill(pid, SIGINT);
                    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(read_file("/tmp/err"), "");
    const Words lines = lines_of(read_file("/tmp/log"));
    EXPECT_THAT(lines[0], testing::StartsWith("# sur-07 (127.1.0.7:8001) since 20"));
    EXPECT_THAT(lines.back(), HasSubstr(" 0 losses"));
}

// All of a site at once; two that are dead and one that is hung keep nobody waiting, and are said.
TEST_F(Day, ChangesAWholeSiteAtOnce) {
    fleet_.kill(11);
    fleet_.kill(12);
    fleet_.hang(13);
    const ProgramRun run =
        type("zondarctl --where site=norte -t 8 -r 0 set Red.NetworkName='Red Norte'");
    EXPECT_EQ(run.status, 4);
    const Words lines = lines_of(run.out);
    ASSERT_THAT(lines, SizeIs(11));
    for (std::size_t i = 10; i < kModules; ++i) {
        const bool healthy = i < 11 || i > 13;
        EXPECT_THAT(lines[i - 9], HasSubstr(name(i)));
        EXPECT_EQ(lines[i - 9].find("Red Norte") != std::string::npos, healthy);
        if (healthy) {
            EXPECT_EQ(stored(i, "SELECT NetworkName FROM Red"), "Red Norte");
        }
    }
    EXPECT_THAT(lines[3], HasSubstr("no connection: Connection refused"));
    EXPECT_THAT(lines[4], HasSubstr("no answer after 8 s"));
    EXPECT_EQ(stored(9, "SELECT NetworkName FROM Red"), "Red Local");
}

}  // namespace
