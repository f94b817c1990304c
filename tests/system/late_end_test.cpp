// Fatal signals whose handler meets something that never comes: the daemon ends all the same, and
// with its ordinary status.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/database.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/traced_daemon.h"
#include "tests/support/wait.h"
#include "tests/system/program_end.h"

namespace {

using testing::MatchesRegex;

const Bytes kStatus = frame(0);
const Bytes kUnsupported = frame(5);

class LateEnd : public testing::Test {
  protected:
    LateEnd() {
        leave_faults_to_the_program();
        make_board();
    }
};

// The main thread, for a while already.
bool stands_in(const Daemon& daemon, long call) {
    const std::string state = "/proc/" + std::to_string(daemon.pid()) + "/syscall";
    return !eventually([&] { return !read_file(state).starts_with(std::to_string(call) + " "); },
                       std::chrono::milliseconds(100));
}

void expect_sound_databases() {
    for (const std::string& path : {kConfDb, kTempDb})
        EXPECT_EQ(Database(path).value("PRAGMA integrity_check"), "ok") << path;
}

struct Held {
    const char* name;
    const char* letter;
};

void PrintTo(const Held& held, std::ostream* out) {
    *out << held.name;
}

class LateEndOf : public LateEnd, public testing::WithParamInterface<Held> {};

TEST_P(LateEndOf, AThreadThatHoldsWhatTheEndNeeds) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers have an allocator of their own";
#endif
    const SyslogReader log;
    Daemon daemon({.prepare = [] { setenv("LD_PRELOAD", ZONDAR_HELD_LOCK, 1); }});
    ASSERT_TRUE(up(log));
    write_file("/tmp/hold", GetParam().letter);
    const auto before = std::chrono::steady_clock::now();
    send_request(kStatus);
    EXPECT_EQ(daemon.wait(), 1);
    // An end in order would have come long before.
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(2900));
    expect_sound_databases();
}

INSTANTIATE_TEST_SUITE_P(Thread, LateEndOf,
                         testing::Values(Held{"InTheAllocator", "a"}, Held{"InSqlite", "s"},
                                         Held{"WhoseHandlerMeetsAFault", "f"}),
                         [](const auto& instance) { return std::string(instance.param.name); });

// The daemon stands in the log when the signal comes, and nobody reads that any more.
void expect_an_end_beside_a_full_log(SyslogReader& log, Daemon& daemon) {
    log.pause();
    {
        const Connection master;
        EXPECT_TRUE(eventually([&] {
            master.send(kUnsupported);
            return stands_in(daemon, SYS_sendto);
        }));
    }
    EXPECT_EQ(daemon.stop(SIGTERM), 1);
    log.go_on();
    expect_sound_databases();
}

// Also under a supervisor that blocks the signal by which the end is limited.
TEST_F(LateEnd, WhileNobodyReadsTheLog) {
    for (const bool blocked : {false, true}) {
        SCOPED_TRACE(blocked);
        SyslogReader log;
        Daemon daemon({.options = {"-l", "64"}, .prepare = [=] {
                           sigset_t alarm;
                           sigemptyset(&alarm);
                           sigaddset(&alarm, SIGALRM);
                           sigprocmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &alarm, nullptr);
                       }});
        ASSERT_TRUE(up(log));
        expect_an_end_beside_a_full_log(log, daemon);
    }
}

// From then on the thread that stands in the log is the only one to which a signal can come.
TEST_F(LateEnd, WhileNobodyReadsTheLogAndTheWatchdogIsThrough) {
    SyslogReader log;
    Daemon daemon({.options = {"-l", "64"}});
    ASSERT_TRUE(up(log));
    exchange(kStatus);
    const std::string threads = "/proc/" + std::to_string(daemon.pid()) + "/task";
    ASSERT_TRUE(eventually(
        [&] { return std::distance(std::filesystem::directory_iterator(threads), {}) == 1; },
        std::chrono::seconds(60)));
    expect_an_end_beside_a_full_log(log, daemon);
}

TEST_F(LateEnd, WhileNobodyReadsWhatItPrinted) {
    std::array<int, 2> output{};
    ASSERT_EQ(pipe2(output.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const SyslogReader log;
    Daemon daemon({.prepare = [&] {
        const std::string own = "/proc/self/fd/" + std::to_string(output[1]);
        dup2(open(own.c_str(), O_WRONLY | O_CLOEXEC), STDOUT_FILENO);  // one that blocks
    }});
    ASSERT_TRUE(up(log));
    const std::array<char, 4096> page{};
    while (write(output[1], page.data(), page.size()) > 0) {
    }
    while (write(output[1], page.data(), 1) > 0) {
    }
    send_request(kStatus);
    ASSERT_TRUE(eventually([&] { return stands_in(daemon, SYS_write); }));
    EXPECT_EQ(daemon.stop(SIGTERM), 1);
    EXPECT_EQ(log.count("Exiting due to signal Terminated."), 1);
    expect_sound_databases();
    close(output[0]);
    close(output[1]);
}

// Before anything that may wait, and not before there is a signal.
TEST_F(LateEnd, IsLimitedToThreeSecondsByTheFirstCallsOfTheHandler) {
    const SyslogReader log;
    TracedDaemon daemon({"-s", "200", "-e", "trace=alarm,rt_sigaction,rt_sigprocmask,sendto"});
    ASSERT_TRUE(up(log));
    daemon.stop();
    const std::string calls = TracedDaemon::calls();
    const std::size_t signal = calls.find("--- SIGTERM");
    ASSERT_NE(signal, std::string::npos);
    EXPECT_EQ(calls.find("SIGALRM"), calls.find("SIGALRM", signal));
    EXPECT_EQ(calls.find("alarm("), calls.find("alarm(", signal));
    EXPECT_THAT(calls.substr(signal),
                MatchesRegex("[^\n]*\n"
                             "rt_sigaction\\(SIGALRM, [^\n]*\n"
                             "rt_sigprocmask\\(SIG_UNBLOCK, \\[ALRM\\], [^\n]*\n"
                             "alarm\\(3\\)[^\n]*\n"
                             "sendto\\([^\n]*Exiting due to signal Terminated[^\n]*\n"
                             "(.|\n)*"));
}

}  // namespace
