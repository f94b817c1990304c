// `watch`: pictures, changes, and how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <optional>
#include <regex>

#include "tests/support/peer.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/status_of_module.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

std::string without_times(const std::string& text) {
    static const std::regex kTime(
        "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"
        "[+-][0-9]{2}:[0-9]{2}");
    return std::regex_replace(text, kTime, "TIME");
}

// Of a line of JSON.
Json data_of(const std::string& line) {
    return Json::parse(without_times(line))["data"];
}

TEST(Watch, ShowsPicturesAndSumsUp) {
    const RunningDaemon daemon;
    const ProgramRun run = run_zondarctl({"watch", "--count", "3", "-n", "0"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    const std::string once = run_zondarctl({"status"}).out;
    const std::string head = "# 127.0.0.1:8001 at TIME\n";
    EXPECT_EQ(without_times(run.out),
              head + once + head + once + head + once + "3 exchanges, 3 answers, 0 losses\n");

    const std::vector<std::string> lines =
        lines_of(run_zondarctl({"--json", "watch", "--count", "2", "-n", "0"}).out);
    ASSERT_EQ(lines.size(), 3U);
    for (const std::size_t i : {0U, 1U}) {
        const Json json = Json::parse(lines[i]);
        EXPECT_EQ(json["command"], "watch");
        EXPECT_EQ(json["ok"], true);
        EXPECT_EQ(json["data"]["null_level"], -5);
        EXPECT_EQ(json["data"]["changed"], Json::array());
        EXPECT_EQ(without_times(json["data"]["time"]), "TIME");
    }
    EXPECT_EQ(data_of(lines[2]), Json::parse(R"({"time": "TIME", "exchanges": 2, "answers": 2,
                                                 "losses": 0})"));
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
        EXPECT_EQ(run.err, "zondarctl: 127.0.0.1:8001: wrong checksum or CRC in the answer\n");
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
        EXPECT_EQ(data_of(lines[5]), Json::parse(R"({"time": "TIME", "exchanges": 5, "answers": 4,
                                                     "losses": 1})"));
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
        EXPECT_THAT(without_times(pictures[1]),
                    HasSubstr(std::string(kHome) + "# 127.0.0.1:8001 at TIME\r\n"));
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

// Of two answers with a loss between them and one behind.
std::vector<Bytes> changing_answers() {
    Bytes damaged = status_answer(0);
    damaged.back() ^= 1U;
    return {status_answer(0), damaged, damaged, status_answer(0b10, 0x85), damaged};
}
const Words kChanges = {"watch", "--changes", "--count", "5", "-n", "0", "-r", "0", "-t", "20"};

TEST(WatchChanges, TellsTheFirstStateThenChangesAndLosses) {
    const Peer peer([](const Peer::Accept& accept) { answer_in_turn(accept, changing_answers()); });
    const ProgramRun run = run_zondarctl(kChanges);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(without_times(run.out),
              "# 127.0.0.1:8001 since TIME\n"
              "TIME  input_sync       0\n"
              "TIME  alarma_hw        no\n"
              "TIME  alarma_in        no\n"
              "TIME  alarma_cod       no\n"
              "TIME  alarma_si        no\n"
              "TIME  alarma_mod       no\n"
              "TIME  alarma_ip        no\n"
              "TIME  output_sync      no\n"
              "TIME  tv_system_1      0\n"
              "TIME  tv_system_2      0\n"
              "TIME  hdmi_1           0\n"
              "TIME  hdsdi_1          0\n"
              "TIME  hdmi_2           0\n"
              "TIME  hdsdi_2          0\n"
              "TIME  null_level       0\n"
              "TIME  multiplex_1      0\n"
              "TIME  multiplex_total  0\n"
              "TIME  multiplex_2      0\n"
              "TIME  multiplex_net    0\n"
              "TIME  ip_total         0\n"
              "TIME  ip_0             0\n"
              "TIME  ip_1             0\n"
              "TIME  player           0\n"
              "TIME  lost: wrong checksum or CRC in the answer\n"
              "TIME  answers again, losses: 2\n"
              "TIME  alarma_in        no -> yes\n"
              "TIME  null_level       0 -> -5\n"
              "TIME  lost: wrong checksum or CRC in the answer\n"
              "# 5 exchanges, 2 answers, 3 losses\n");
}

TEST(WatchChanges, TellsScriptsEachInAnObject) {
    const Peer peer([](const Peer::Accept& accept) { answer_in_turn(accept, changing_answers()); });
    Words words = kChanges;
    words.emplace_back("--json");
    const ProgramRun run = run_zondarctl(words);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    const std::vector<std::string> lines = lines_of(run.out);
    ASSERT_EQ(lines.size(), 30U);
    EXPECT_EQ(Json::parse(lines[0])["target"], "127.0.0.1:8001");
    std::vector<std::string> data;
    for (const std::size_t i : {0, 1, 2, 24, 25, 26, 27, 28, 29})
        data.push_back(data_of(lines[i]).dump());
    EXPECT_THAT(data, ElementsAre(R"({"time":"TIME"})",
                                  R"({"time":"TIME","name":"input_sync","old":null,"new":0})",
                                  R"({"time":"TIME","name":"alarma_hw","old":null,"new":false})",
                                  R"({"time":"TIME","lost":true,"stage":"code",)"
                                  R"("message":"wrong checksum or CRC in the answer"})",
                                  R"({"time":"TIME","lost":false,"losses":2})",
                                  R"({"time":"TIME","name":"alarma_in","old":false,"new":true})",
                                  R"({"time":"TIME","name":"null_level","old":0,"new":-5})",
                                  R"({"time":"TIME","lost":true,"stage":"code",)"
                                  R"("message":"wrong checksum or CRC in the answer"})",
                                  R"({"time":"TIME","exchanges":5,"answers":2,"losses":3})"));
}

TEST(WatchChanges, TellsTheTimeInTheZoneOfItsUser) {
    const auto first_line = [](const std::string& zone) {
        return lines_of(run_program({"/usr/bin/env", "TZ=" + zone, zondarctl_path(), "watch",
                                     "--changes", "--count", "1"})
                            .out)[0];
    };
    EXPECT_THAT(first_line("EST+3:30"),
                MatchesRegex("# 127.0.0.1:8001 since [-0-9]{10}T[0-9:]{8}-03:30"));
    EXPECT_THAT(first_line("EAST-1"),
                MatchesRegex("# 127.0.0.1:8001 since [-0-9]{10}T[0-9:]{8}[+]01:00"));
}

TEST(Watch, FailsWhenEveryExchangeWasLost) {
    const struct {
        Words words;
        const char* out;
        const char* err;
    } cases[] = {
        {{"watch", "--count", "2", "-n", "0"},
         "# 127.0.0.1:8001 at TIME\n"
         "# 127.0.0.1:8001 at TIME\n"
         "2 exchanges, 0 answers, 2 losses\n",
         "zondarctl: 127.0.0.1:8001: no connection: Connection refused\n"
         "zondarctl: 127.0.0.1:8001: no connection: Connection refused\n"
         "zondarctl: 127.0.0.1:8001: every exchange was lost\n"},
        {{"watch", "--changes", "--count", "2", "-n", "0"},
         "# 127.0.0.1:8001 since TIME\n"
         "TIME  lost: no connection: Connection refused\n"
         "# 2 exchanges, 0 answers, 2 losses\n",
         "zondarctl: 127.0.0.1:8001: every exchange was lost\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        const ProgramRun run = run_zondarctl(each.words);
        EXPECT_EQ(run.status, 4);
        EXPECT_EQ(without_times(run.out), each.out);
        EXPECT_EQ(run.err, each.err);
    }
}

// The watch of a user who sends it to a file, until `meanwhile` is done and Ctrl-C is pressed.
ProgramRun watched(const std::string& option, const std::function<void()>& meanwhile) {
    return run_program({"/bin/sh", "-c",
                        "exec " + zondarctl_path() + " --json watch -n 0.01 " + option +
                            " > /tmp/watch.out 2> /tmp/watch.err"},
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
    const ProgramRun run = watched("", [&] {
        std::size_t line = 0;
        EXPECT_TRUE(comes(line, answered));
        for (int times = 0; times < 2; ++times) {
            EXPECT_EQ(daemon->stop(SIGKILL), 1009);
            EXPECT_TRUE(comes(line, lost));
            daemon.emplace();
            EXPECT_TRUE(comes(line, answered));
        }
        set_state("alarma_si", "1");
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

// Each line is in the file as soon as there is something to tell.
TEST(WatchChanges, TellsOfARestartAtOnce) {
    make_board();
    std::optional<Daemon> daemon(std::in_place);
    const ProgramRun run = watched("--changes", [&] {
        std::size_t line = 0;
        const auto told = [&](const Json& expected) {
            return comes(line, [&](const Json& json) {
                Json data = json["data"];
                for (const char* const varying : {"time", "stage", "message", "losses"})
                    data.erase(varying);
                return data == expected;
            });
        };
        EXPECT_TRUE(told({{"name", "alarma_si"}, {"old", nullptr}, {"new", false}}));
        EXPECT_EQ(daemon->stop(SIGKILL), 1009);
        EXPECT_TRUE(told({{"lost", true}}));
        set_state("alarma_si", "1");
        daemon.emplace();
        EXPECT_TRUE(told({{"lost", false}}));
        EXPECT_TRUE(told({{"name", "alarma_si"}, {"old", false}, {"new", true}}));
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(read_file("/tmp/watch.err"), "");
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

}  // namespace
