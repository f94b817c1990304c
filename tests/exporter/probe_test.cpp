// What a probe tells of a module: of real ones, and of what only looks like one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "tests/exporter/exporter.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/peer.h"
#include "tests/zondarctl/running_daemon.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kHere[] = R"([{"targets": ["127.0.0.1"], "labels": {"name": "Sur 1"}}])";
constexpr char kStatus[] = "/probe?target=127.0.0.1";
constexpr char kConfiguration[] = "/probe?target=127.0.0.1&collect=configuration";
constexpr char kLockFile[] = "/tmp/zondar-127.0.0.1-8001.lock";

// Without what is another one each time.
std::string without_durations(const std::string& exposition) {
    return std::regex_replace(exposition, std::regex("(duration_seconds(\\{[^}]*\\})?) [0-9.e-]+"),
                              "$1 T");
}

TEST(Probe, TellsStatusAndIdentification) {
    const RunningDaemon daemon;
    const Exporter exporter(kHere);
    EXPECT_EQ(without_durations(page(kStatus)),
              read_file(std::string(ZONDAR_SOURCE_DIR) + "/tests/exporter/status.golden"));
}

TEST(Probe, TellsTheConfiguration) {
    const RunningDaemon daemon;
    const Exporter exporter(kHere);
    EXPECT_EQ(without_durations(page(kConfiguration)),
              read_file(std::string(ZONDAR_SOURCE_DIR) + "/tests/exporter/configuration.golden"));
}

TEST(Probe, LeavesOutFiguresThatBeginAnew) {
    const RunningDaemon daemon;
    const Exporter exporter(kHere);
    EXPECT_THAT(page(kStatus), Not(HasSubstr("zondar_multiplex_1")));
}

TEST(Probe, HasAnotherChecksumAfterAChangeOnly) {
    const RunningDaemon daemon;
    const Exporter exporter(kHere);
    const auto checksum = [] {
        return sample(page(kConfiguration), "zondar_configuration_checksum");
    };
    const std::string before = checksum();
    EXPECT_NE(before, "");
    EXPECT_EQ(checksum(), before);
    Database(kConfDb).run("UPDATE Red SET NetworkName = 'Otra'");
    const std::string after = checksum();
    EXPECT_NE(after, before);
    Database(kConfDb).run("UPDATE RFOut SET Canal_Salida = 22");
    EXPECT_NE(checksum(), after);
}

TEST(Probe, TellsTextsOfAnyEncoding) {
    const RunningDaemon daemon;
    Database(kConfDb).run("UPDATE Red SET NetworkName = CAST(x'4361F1616C' AS TEXT)");
    Database(kConfDb).run(R"(UPDATE Red SET Proveedor = 'a"b\c')");
    const Exporter exporter(kHere);
    const std::string exposition = page(kConfiguration);
    EXPECT_EQ(sample(exposition,
                     R"(zondar_parameter_info{parameter="Red.NetworkName",value="Ca\\xF1al"})"),
              "1");
    EXPECT_EQ(
        sample(exposition, R"(zondar_parameter_info{parameter="Red.Proveedor",value="a\"b\\c"})"),
        "1");
}

TEST(Probe, SaysThatNobodyListens) {
    const Exporter exporter(kHere);
    const std::string exposition = page(kStatus);
    EXPECT_EQ(sample(exposition, "zondar_up"), "0");
    EXPECT_EQ(failed_stage(exposition), "connect");
    EXPECT_THAT(exposition, Not(HasSubstr("zondar_alarm")));
}

TEST(Probe, SaysThatThereIsNoSuchHost) {
    const Exporter exporter(R"([{"targets": ["no-such-host.invalid"]}])");
    const std::string exposition = page("/probe?target=no-such-host.invalid");
    EXPECT_EQ(sample(exposition, "zondar_up"), "0");
    EXPECT_EQ(failed_stage(exposition), "resolve");
}

TEST(Probe, SaysThatTheAnswerDoesNotCome) {
    const Peer peer([](const Peer::Accept& accept) {
        std::vector<std::unique_ptr<Peer::Visitor>> visitors;
        while (auto visitor = accept())
            visitors.push_back(std::move(visitor));
    });
    const Exporter exporter(kHere);
    const std::string exposition = page(std::string(kStatus) + "&debug=true", patience("1"));
    EXPECT_EQ(sample(exposition, "zondar_up"), "0");
    EXPECT_EQ(failed_stage(exposition), "answer");
    // What is left of the time once a thread has taken the question.
    EXPECT_THAT(exposition, testing::ContainsRegex("no answer after 0\\.[45][0-9]* s"));
}

TEST(Probe, SaysThatTheAnswerIsDamaged) {
    Bytes damaged = frame(0, std::string(56, '0'));
    damaged.back() ^= 1U;
    const Peer peer([&](const Peer::Accept& accept) { answer_with(accept, damaged); });
    const Exporter exporter(kHere);
    const std::string exposition = page(kStatus);
    EXPECT_EQ(failed_stage(exposition), "code");
    EXPECT_EQ(sample(exposition, "zondar_probe_exchanges"), "3");
}

// Two answers one behind the other show a module whose answers are off by one.
TEST(Probe, BelievesNothingOfAModuleThatAnswersSomethingElse) {
    const Bytes status = frame(0, std::string(56, '0'));
    const Peer peer([&](const Peer::Accept& accept) { answer_with(accept, status); });
    const Exporter exporter(kHere);
    const std::string exposition = page(kStatus);
    EXPECT_EQ(failed_stage(exposition), "command");
    EXPECT_THAT(exposition, Not(HasSubstr("zondar_alarm")));
}

// It is not the module's fault.
TEST(Probe, DoesNotSayThatAModuleIsDownWhichAnotherProgramAsks) {
    const RunningDaemon daemon;
    const int lock = open(kLockFile, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const Exporter exporter(kHere);
    const std::string exposition = page(kStatus, patience("1"));
    EXPECT_EQ(failed_stage(exposition), "lock");
    EXPECT_EQ(sample(exposition, "zondar_up"), "");
    close(lock);
    EXPECT_EQ(sample(page(kStatus), "zondar_up"), "1");
}

TEST(Probe, TellsThatItBroughtTheModuleBack) {
    const RunningDaemon daemon;
    write_file(kLockFile, "x");
    const Exporter exporter(kHere);
    const std::string first = page(kStatus);
    EXPECT_EQ(sample(first, "zondar_up"), "1");
    EXPECT_EQ(sample(first, "zondar_probe_resynchronised"), "1");
    EXPECT_EQ(sample(page(kStatus), "zondar_probe_resynchronised"), "0");
    EXPECT_EQ(sample(page("/metrics"), "zondar_exporter_resynchronisations_total"), "1");
}

TEST(Probe, LeavesNothingUnsettled) {
    const RunningDaemon daemon;
    const Exporter exporter(kHere);
    page(kStatus);
    page(kConfiguration);
    EXPECT_EQ(std::filesystem::file_size(kLockFile), 0U);
}

TEST(Probe, ShowsStagesBytesAndMeaningsToPeople) {
    const RunningDaemon daemon;
    const Exporter exporter(kHere);
    const std::string shown = page("/probe?target=sur%201&debug=true", patience("4"));
    for (const char* const part :
         {" s  asks Sur 1 (127.0.0.1:8001) for its status within 3.", " s  open\n", " s  status\n",
          " s  Tx: A5 00 00 00 00 00 00\n", "request: status\n", " s  Rx: A5 00 00 00 00 1C 05 02",
          "answer: status\n", "alarma_in = yes\n", "null_level = -5\n", " s  identification\n",
          "serial = ZN2024000123\n", " s  ends\n", "\nzondar_up 1\n"})
        EXPECT_THAT(shown, HasSubstr(part));
}

}  // namespace
