// The exporter over HTTP: whom it asks, how often, and what it does meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <mutex>
#include <vector>

#include "tests/exporter/exporter.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/fleet.h"
#include "tests/support/peer.h"
#include "tests/support/wait.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kHere[] = R"([{"targets": ["127.0.0.1", "127.0.0.2:7000"],
                              "labels": {"site": "sur"}}])";
constexpr char kStatus[] = "/probe?target=127.0.0.1";
constexpr char kOther[] = "/probe?target=127.0.0.2:7000";

// Takes connections and does nothing with them until it is told to end them.
class Hung {
  public:
    ~Hung() { let_go(); }
    void let_go() {
        const std::lock_guard lock(mutex_);
        gone_ = true;
        visitors_.clear();
    }
    [[nodiscard]] std::size_t visitors() const { return count_; }

  private:
    void take(const Peer::Accept& accept) {
        while (auto visitor = accept()) {
            const std::lock_guard lock(mutex_);
            ++count_;
            if (!gone_)
                visitors_.push_back(std::move(visitor));
        }
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<Peer::Visitor>> visitors_;
    bool gone_ = false;
    std::atomic<std::size_t> count_ = 0;
    Peer peer_{[this](const Peer::Accept& accept) { take(accept); }};
};

std::future<Reply> get_meanwhile(const std::string& path, const std::string& headers = "") {
    return std::async(std::launch::async, [=] { return get(path, headers); });
}

bool in_flight(const std::string& count) {
    return eventually(
        [&] { return sample(page("/metrics"), "zondar_exporter_sessions_in_flight") == count; });
}

TEST(Server, AnswersWhatItHasAndRefusesAllElse) {
    const Exporter exporter(kHere);
    const struct {
        const char* path;
        int status;
        const char* body;
    } cases[] = {
        {"/-/healthy", 200, "healthy\n"},
        {"/nothing", 404, "there is /, /probe, /metrics, /-/healthy\n"},
        {"/probe/", 404, "there is /, /probe, /metrics, /-/healthy\n"},
        {"/probe", 400, "the target is missing: /probe?target=HOST\n"},
        {"/probe?target=", 400, "the target is missing: /probe?target=HOST\n"},
        {"/probe?target", 400, "the target is missing: /probe?target=HOST\n"},
        {"/probe?target=a&target=b", 400, "target is given twice\n"},
        {"/probe?target=127.0.0.1&colect=status", 400, "there is no parameter 'colect'\n"},
        {"/probe?target=127.0.0.1&collect=all", 400,
         "collect is status or configuration, not 'all'\n"},
        {"/probe?target=127.0.0.1&debug=yes", 400, "debug is true or false, not 'yes'\n"},
        {"/probe?target=10.0.0.5", 403, "'10.0.0.5' is in no file of targets\n"},
        {"/probe?target=127.0.0.1:8002", 403, "'127.0.0.1:8002' is in no file of targets\n"},
        {"/probe?target=127.0.0.1%00.evil", 403,
         "'127.0.0.1\\x00.evil' is in no file of targets\n"},
        {"/probe?target=%3Cb%3E%FF", 403, "'<b>\\xFF' is in no file of targets\n"},
    };
    for (const auto& [path, status, body] : cases) {
        const Reply reply = get(path);
        EXPECT_EQ(reply.status, status) << path;
        EXPECT_EQ(reply.body, body) << path;
        EXPECT_THAT(reply.headers, HasSubstr("Content-Type: text/plain; charset=utf-8\r\n"));
    }
}

TEST(Server, TellsPrometheusItsFormat) {
    const Exporter exporter(kHere);
    for (const char* const path : {"/metrics", kStatus})
        EXPECT_THAT(get(path).headers,
                    HasSubstr("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
}

TEST(Server, AnswersHeadWithoutABody) {
    const Exporter exporter(kHere);
    for (const char* const path : {"/", "/metrics", kStatus}) {
        const Reply reply = exchange("HEAD " + std::string(path) +
                                     " HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n");
        EXPECT_EQ(reply.status, 200) << path;
        EXPECT_EQ(reply.body, "") << path;
        EXPECT_THAT(reply.headers, Not(HasSubstr("Content-Length: 0\r\n")));
    }
}

TEST(Server, AnswersNoOtherMethods) {
    const Exporter exporter(kHere);
    for (const char* const method : {"POST", "PUT", "DELETE", "OPTIONS"}) {
        const Reply reply = exchange(std::string(method) +
                                     " /metrics HTTP/1.1\r\nHost: t\r\nConnection: close\r\n"
                                     "Content-Length: 2\r\n\r\nab");
        EXPECT_EQ(reply.status, 405) << method;
        EXPECT_THAT(reply.headers, HasSubstr("Allow: GET, HEAD\r\n"));
    }
}

TEST(Server, OutlivesRequestsThatAreNone) {
    const Exporter exporter(kHere);
    for (const std::string& bytes :
         {std::string("\r\n\r\n"), std::string("GET\r\n\r\n"), std::string("\0\r\n\r\n", 5),
          std::string("GET /probe?tar"), std::string("GET / HTTP/1.1\r\nHost"), std::string()})
        send_and_leave(bytes);
    const std::string long_word(100000, 'a');
    EXPECT_EQ(exchange("GET /" + long_word + " HTTP/1.1\r\nHost: t\r\n\r\n").status, 414);
    EXPECT_EQ(exchange("GET / HTTP/1.1\r\nHost: t\r\nX: " + long_word + "\r\n\r\n").status, 431);
    EXPECT_EQ(get("/-/healthy").status, 200);
}

// Two servers that watch the same modules, or one that was told of a module twice.
TEST(Server, AsksAModuleOnceForAllWhoWantToKnowAtATime) {
    const Hung hung;
    const Exporter exporter(kHere);
    std::future<Reply> first = get_meanwhile(kStatus, patience("4"));
    EXPECT_TRUE(in_flight("1"));
    std::future<Reply> second = get_meanwhile(kStatus, patience("4"));
    EXPECT_EQ(failed_stage(first.get().body), "answer");
    EXPECT_EQ(failed_stage(second.get().body), "answer");
    const std::string figures = page("/metrics");
    EXPECT_EQ(sample(figures, "zondar_exporter_joined_probes_total"), "1");
    EXPECT_EQ(sample(figures, "zondar_exporter_probes_total{result=\"failed\"}"), "2");
    // The question itself may end a moment behind those who asked.
    EXPECT_TRUE(eventually([] {
        return sample(page("/metrics"), "zondar_exporter_failures_total{stage=\"answer\"}") == "1";
    }));
    EXPECT_EQ(hung.visitors(), 2U);  // the two connections of an exchange
}

TEST(Server, AnswersInTimeWhoJoinsAQuestionOfSomebodyWithMorePatience) {
    Hung hung;
    const Exporter exporter(kHere);
    std::future<Reply> patient = get_meanwhile(kStatus, patience("60"));
    EXPECT_TRUE(in_flight("1"));
    const std::string exposition = page(kStatus, patience("1"));
    EXPECT_EQ(sample(exposition, "zondar_up"), "0");
    EXPECT_EQ(failed_stage(exposition), "answer");
    EXPECT_TRUE(in_flight("1"));
    hung.let_go();
    EXPECT_EQ(patient.get().status, 200);
}

// A module that is slow for one server may be in time for another one.
TEST(Server, AsksOnForWhoHasMorePatience) {
    Hung hung;
    const Exporter exporter(kHere);
    std::future<Reply> hasty = get_meanwhile(kStatus, patience("2"));
    EXPECT_TRUE(in_flight("1"));
    std::future<Reply> patient = get_meanwhile(kStatus, patience("60"));
    EXPECT_EQ(failed_stage(hasty.get().body), "answer");
    EXPECT_TRUE(in_flight("1"));
    hung.let_go();
    EXPECT_EQ(patient.get().status, 200);
}

// Else it could not be shown what goes over the wire.
TEST(Server, AsksOnItsOwnForPeople) {
    const Hung hung;
    const Exporter exporter(kHere);
    std::future<Reply> first = get_meanwhile(kStatus, patience("4"));
    EXPECT_TRUE(in_flight("1"));
    const std::string shown = page(std::string(kStatus) + "&debug=true", patience("1"));
    EXPECT_THAT(shown, HasSubstr(" s  does not ask 127.0.0.1:8001: no time left to wait for the "
                                 "answer to somebody else\n"));
    EXPECT_EQ(failed_stage(shown), "answer");
    EXPECT_EQ(failed_stage(first.get().body), "answer");
    EXPECT_EQ(sample(page("/metrics"), "zondar_exporter_joined_probes_total"), "0");
}

constexpr char kConfiguration[] = "/probe?target=127.0.0.1&collect=configuration";

// It would wait for a lock that this program holds, and say nothing about the module.
TEST(Server, SaysOfAModuleThatDoesNotAnswerToAllThatItHangs) {
    const Hung hung;
    const Exporter exporter(kHere);
    std::future<Reply> first = get_meanwhile(kStatus, patience("3"));
    EXPECT_TRUE(in_flight("1"));
    const std::string exposition = page(kConfiguration, patience("3"));
    EXPECT_EQ(failed_stage(exposition), "answer");
    EXPECT_EQ(sample(exposition, "zondar_up"), "0");
    EXPECT_EQ(failed_stage(first.get().body), "answer");
    EXPECT_EQ(hung.visitors(), 2U);
}

TEST(Server, AsksAModuleOneThingBehindTheOther) {
    const Bytes damaged = hex("A5 00 00 00 00 00 01");
    std::atomic<bool> goes_on = false;
    const Peer peer([&](const Peer::Accept& accept) {
        EXPECT_TRUE(eventually([&] { return goes_on.load(); }));
        answer_with(accept, damaged);
    });
    const Exporter exporter(kHere);
    std::future<Reply> first = get_meanwhile(kStatus, patience("60"));
    EXPECT_TRUE(in_flight("1"));
    std::future<Reply> second = get_meanwhile(kConfiguration, patience("60"));
    std::future<Reply> third =
        get_meanwhile(kConfiguration + std::string("&debug=true"), patience("60"));
    EXPECT_TRUE(in_flight("3"));
    goes_on = true;
    for (std::future<Reply>* const each : {&first, &second, &third}) {
        const std::string exposition = each->get().body;
        EXPECT_EQ(failed_stage(exposition), "code");
        EXPECT_EQ(sample(exposition, "zondar_probe_exchanges"), "3");
    }
    EXPECT_EQ(sample(page("/metrics"), "zondar_exporter_failures_total{stage=\"code\"}"), "3");
}

// Else the page would show them for ever.
TEST(Server, ForgetsModulesThatAreInNoFileAnyMore) {
    const Exporter exporter(kHere);
    page(kOther);
    EXPECT_THAT(page("/"), HasSubstr("FAILED"));
    write_file(Exporter::kTargets, R"([{"targets": ["127.0.0.1"]}])");
    EXPECT_TRUE(eventually([] { return page("/").find("127.0.0.2") == std::string::npos; }));
    write_file(Exporter::kTargets, kHere);
    EXPECT_TRUE(eventually([] { return page("/").find("127.0.0.2") != std::string::npos; }));
    EXPECT_THAT(page("/"), Not(HasSubstr("FAILED")));
}

TEST(Server, SaysAtTheBoundThatItIsBusy) {
    Hung hung;
    const Exporter exporter(kHere, {"--probes", "1"});
    std::future<Reply> first = get_meanwhile(kStatus, patience("60"));
    EXPECT_TRUE(in_flight("1"));
    const Reply refused = get(kOther);
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.body, "1 probes are on their way, which is the bound; see --probes\n");
    EXPECT_EQ(sample(page("/metrics"), "zondar_exporter_probes_total{result=\"busy\"}"), "1");
    hung.let_go();
    EXPECT_EQ(first.get().status, 200);
    EXPECT_EQ(failed_stage(page(kOther)), "connect");
}

TEST(Server, EndsOnceAllHaveTheirAnswers) {
    for (const int signal : {SIGTERM, SIGINT}) {
        std::filesystem::remove("/tmp/zondar-127.0.0.1-8001.lock");
        const Hung hung;
        Exporter exporter(kHere);
        std::future<Reply> asked = get_meanwhile(kStatus, patience("3"));
        EXPECT_TRUE(in_flight("1"));
        kill(exporter.pid(), signal);
        EXPECT_EQ(exporter.wait(), 0);
        EXPECT_EQ(failed_stage(asked.get().body), "answer");
    }
}

TEST(Server, FollowsTheFileOfTargets) {
    const Exporter exporter(kHere);
    const char* const kNew = "/probe?target=127.0.0.3";
    EXPECT_EQ(get(kNew).status, 403);
    EXPECT_EQ(get(kOther).status, 200);
    write_file(Exporter::kTargets, R"([{"targets": ["127.0.0.3"]}])");
    EXPECT_TRUE(eventually([&] { return get(kNew).status == 200; }));
    EXPECT_EQ(get(kOther).status, 403);
    EXPECT_EQ(sample(page("/metrics"), "zondar_exporter_targets"), "1");
}

TEST(Server, KeepsItsTargetsWhenTheirFileIsBroken) {
    const std::string ok = "zondar_exporter_targets_file_ok{file=\"/tmp/targets.json\"}";
    const Exporter exporter(kHere);
    EXPECT_EQ(sample(page("/metrics"), ok), "1");
    write_file(Exporter::kTargets, "[{]");
    EXPECT_TRUE(eventually([&] { return sample(page("/metrics"), ok) == "0"; }));
    EXPECT_EQ(get(kOther).status, 200);
    EXPECT_THAT(exporter.err(), HasSubstr("zondar_exporter: /tmp/targets.json: "));
    EXPECT_THAT(exporter.err(), HasSubstr("; its 2 targets of before stay\n"));
    write_file(Exporter::kTargets, kHere);
    EXPECT_TRUE(eventually([&] { return sample(page("/metrics"), ok) == "1"; }));
}

TEST(Server, WarnsWhenTheBoundIsTooLow) {
    std::string targets = R"([{"targets": ["127.0.0.1")";
    for (int i = 2; i <= 100; ++i)
        targets += ", \"127.0.0." + std::to_string(i) + "\"";
    targets += "]}]";
    {
        const Exporter exporter(targets, {"--probes", "40"});
        EXPECT_THAT(exporter.err(),
                    HasSubstr("warning: 100 targets every 20 s can need 55 probes at a time, "
                              "should they hang, and the bound is 40; see --probes\n"));
    }
    const Exporter exporter(targets, {"--probes", "40", "--interval", "60"});
    EXPECT_THAT(exporter.err(), Not(HasSubstr("warning")));
}

TEST(Server, HasAPageWithTheLastResultAndFailureOfEachModule) {
    Fleet fleet(1);
    const std::string probe = "/probe?target=" + Fleet::address(0);
    const Exporter exporter(R"([{"targets": [")" + Fleet::address(0) + R"("],
        "labels": {"name": "<b>Sur</b> & \"co\"", "site": "s"}}, {"targets": ["10.0.0.5"]}])");
    EXPECT_THAT(page("/"), HasSubstr("not asked yet"));
    fleet.kill(0);
    page(probe);
    EXPECT_THAT(page("/"), HasSubstr("<td class=\"is\">FAILED</td>"));
    fleet.revive(0);
    page(probe);
    const std::string html = page("/");
    EXPECT_THAT(html, HasSubstr("<td class=\"is\">ok</td>"));
    EXPECT_THAT(html, HasSubstr("<td>connect: no connection: Connection refused</td>"));
    EXPECT_THAT(html, HasSubstr("&lt;b&gt;Sur&lt;/b&gt; &amp; &quot;co&quot;"));
    EXPECT_THAT(html, Not(HasSubstr("<b>Sur")));
    EXPECT_THAT(get("/").headers, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
}

TEST(Server, AsksManyModulesAtATime) {
    constexpr std::size_t kModules = 20;
    constexpr std::size_t kHungOne = 7;
    Fleet fleet(kModules);
    std::string targets;
    for (std::size_t i = 0; i < kModules; ++i)
        targets += (i == 0 ? "\"" : ", \"") + Fleet::address(i) + "\"";
    const Exporter exporter("[{\"targets\": [" + targets + "]}]");
    fleet.hang(kHungOne);
    std::vector<std::future<Reply>> replies;
    for (std::size_t i = 0; i < kModules; ++i)
        replies.push_back(get_meanwhile("/probe?target=" + Fleet::address(i), patience("5")));
    for (std::size_t i = 0; i < kModules; ++i) {
        const std::string exposition = replies[i].get().body;
        EXPECT_EQ(sample(exposition, "zondar_up"), i == kHungOne ? "0" : "1") << i;
        const std::string serial = "serial=\"" + Fleet::serial_number(i) + "\"";
        EXPECT_EQ(exposition.find(serial) == std::string::npos, i == kHungOne) << i;
    }
    fleet.resume(kHungOne);
}

TEST(CommandLine, IsRefusedInOneLine) {
    write_file("/tmp/good.json", kHere);
    write_file("/tmp/broken.json", "[");
    using Words = std::vector<std::string>;
    const struct {
        Words words;
        int status;
        const char* problem;
    } cases[] = {
        {{}, 2, "--targets is required"},
        {{"--targets", "/tmp/none.json"}, 1, "/tmp/none.json: No such file or directory"},
        {{"--targets", "/tmp/broken.json"}, 1, "/tmp/broken.json: "},
        {{"--targets", "/tmp/good.json", "--nothing"}, 2, "The following argument was not "},
        {{"--targets", "/tmp/good.json", "/tmp/good.json"}, 2, "The following argument was not "},
        {{"--targets", "/tmp/good.json", "--listen", "9801"},
         2,
         "--listen: '9801' is not ADDRESS:PORT, such as 127.0.0.1:9801"},
        {{"--targets", "/tmp/good.json", "--listen", "localhost:9801"},
         1,
         "'localhost' is no address"},
        {{"--targets", "/tmp/good.json", "--listen", "10.1.2.3:9801"},
         1,
         "cannot listen at 10.1.2.3:9801: Cannot assign requested address"},
        {{"--targets", "/tmp/good.json", "--probes", "0"}, 2, "--probes: "},
        {{"--targets", "/tmp/good.json", "--interval", "0"}, 2, "--interval: "},
    };
    for (const auto& [words, status, problem] : cases) {
        const ProgramRun run = run_exporter(words);
        EXPECT_EQ(run.status, status) << run.err;
        EXPECT_THAT(run.err, StartsWith(std::string("zondar_exporter: ") + problem));
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_EQ(run.out, "");
    }
}

TEST(CommandLine, HasHelpAndVersion) {
    EXPECT_EQ(run_exporter({"--version"}).out, "zondar_exporter " ZONDAR_VERSION "\n");
    EXPECT_THAT(run_exporter({"--help"}).out, HasSubstr("--targets FILE"));
}

TEST(CommandLine, TakesAddressesOfBothKinds) {
    const Exporter exporter(kHere, {"--listen", "[::]:9801"});
    EXPECT_EQ(get("/-/healthy").status, 200);
}

}  // namespace
