// Signals to the real daemon: what it logs, how it ends, and which it does not mind.
#include <gmock/gmock.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/traced_daemon.h"
#include "tests/support/wait.h"
#include "tests/system/program_end.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr std::chrono::milliseconds kMoment{100};

// Behind the lines of the start.
std::vector<LogLine> lines_from(const SyslogReader& log, const std::string& text) {
    std::vector<LogLine> lines = log.lines();
    while (!lines.empty() && lines.front().text.find(text) == std::string::npos)
        lines.erase(lines.begin());
    return lines;
}

std::uint64_t signal_set(pid_t pid, const std::string& name) {
    const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    const std::size_t at = status.find(name + ":\t");
    return at == std::string::npos ? 0
                                   : std::stoull(status.substr(at + name.size() + 2), nullptr, 16);
}

constexpr std::uint64_t bit(int signal) {
    return std::uint64_t{1} << (signal - 1);
}

class SystemSignals : public testing::Test {
  protected:
    SystemSignals() {
        leave_faults_to_the_program();
        make_board();
    }
};

TEST_F(SystemSignals, EndTheDaemonWithTheirNameInTheLog) {
    struct Ending {
        int signal;
        std::string name;
    };
    const Ending cases[] = {
        {SIGTERM, "Terminated"}, {SIGINT, "Interrupt"}, {SIGHUP, "Hangup"}, {SIGABRT, "Aborted"}};
    for (const Ending& ending : cases) {
        SCOPED_TRACE(ending.name);
        const SyslogReader log;
        Daemon daemon({.options = {"-l", "95"}});  // all but the database messages
        ASSERT_TRUE(up(log));
        // While its main thread logs, another one takes the signal, and that line may come last.
        ASSERT_TRUE(log.wait_for("Waiting for zondar message:"));
        EXPECT_EQ(daemon.stop(ending.signal), 1);
        EXPECT_THAT(lines_from(log, "Exiting"),
                    ElementsAre(logged(kFatal, "Exiting due to signal " + ending.name + ".")));
        EXPECT_EQ(read_file("/tmp/zondar_net_receiver.pid"), std::to_string(daemon.pid()) + "\n");
        EXPECT_EQ(daemon.err(), "");
    }
}

class SignalWhileLogging : public SystemSignals, public testing::WithParamInterface<int> {};

// While the log is full, whoever logs stands still in the middle of it. The handler of a signal
// that comes then must not wait for that log.
TEST_P(SignalWhileLogging, EndsTheDaemon) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer delivers signals later, outside of the log";
#endif
    SyslogReader log;
    Daemon daemon({.options = {"-l", "96"}});
    ASSERT_TRUE(up(log));
    log.pause();
    const Connection master;
    do
        master.send(frame(5));
    while (!log.full());
    EXPECT_FALSE(eventually([&] { return !daemon.running(); }, kMoment));
    Daemon::deliver(daemon.pid(), GetParam());
    // It has come: the handler's first act is to limit the time until the end.
    ASSERT_TRUE(
        eventually([&] { return (signal_set(daemon.pid(), "SigCgt") & bit(SIGALRM)) != 0; }));
    EXPECT_TRUE(daemon.running());
    log.go_on();
    EXPECT_EQ(daemon.wait(), 1);
    EXPECT_EQ(log.count("Exiting due to signal"), 1);
    EXPECT_EQ(log.count("Se cierra quelt_listener"), 1);
}

INSTANTIATE_TEST_SUITE_P(Signal, SignalWhileLogging,
                         testing::Values(SIGTERM, SIGINT, SIGHUP, SIGABRT, SIGSEGV, SIGBUS, SIGILL,
                                         SIGFPE),
                         [](const auto& instance) { return sigabbrev_np(instance.param); });

// Errors are told without allocating: the handler of a signal that comes meanwhile would wait for
// the allocator's lock for ever. perror calls dup when it would make a stream of its own.
TEST_F(SystemSignals, EndADaemonThatTellsOfErrors) {
    const SyslogReader log;
    TracedDaemon daemon({"-e", "trace=accept4,dup", "-e", "inject=accept4:error=EMFILE:when=1"});
    ASSERT_TRUE(up(log));
    ASSERT_TRUE(eventually(
        [&] { return daemon.err().find("read: Bad file descriptor\n") != std::string::npos; }));
    daemon.stop();
    EXPECT_THAT(TracedDaemon::calls(), Not(HasSubstr("dup(")));
}

// The log is closed before it, so it comes under the program's own name.
TEST_F(SystemSignals, TellOfTheCloseInTheDatabaseCategory) {
    const SyslogReader log;
    Daemon daemon({.options = {"-l", "32"}});
    ASSERT_TRUE(up(log));
    EXPECT_EQ(daemon.stop(SIGTERM), 1);
    EXPECT_THAT(lines_from(log, "Exiting"),
                ElementsAre(logged(kFatal, "Exiting due to signal Terminated."),
                            LogLine{27, "zondar_net_receiver",
                                    "Se cierra quelt_listener por recepcion señal LINUX\n"}));
}

TEST_F(SystemSignals, OfTheUserDoNothing) {
    const SyslogReader log;
    Daemon daemon;
    ASSERT_TRUE(up(log));
    for (const int signal : {SIGUSR1, SIGUSR2, SIGUSR1})
        daemon.send(signal);
    EXPECT_EQ(to_hex(exchange(frame(4))), document::answer(frame(4)));
    EXPECT_TRUE(daemon.running());
    EXPECT_EQ(log.count("signal"), 0);
}

// The numbers above are the C library's own affair.
constexpr std::uint64_t kOrdinary = bit(SIGSYS) * 2 - 1;

TEST_F(SystemSignals, AreHandledIgnoredOrLeftAlone) {
    for (const bool ignored : {true, false}) {
        SCOPED_TRACE(ignored);
        const SyslogReader log;
        Daemon daemon({.prepare = [=] { std::signal(SIGPIPE, ignored ? SIG_IGN : SIG_DFL); }});
        ASSERT_TRUE(up(log));
        EXPECT_EQ(signal_set(daemon.pid(), "SigIgn"),
                  bit(SIGUSR1) | bit(SIGUSR2) | (ignored ? bit(SIGPIPE) : 0));
        constexpr std::uint64_t handled = bit(SIGFPE) | bit(SIGILL) | bit(SIGSEGV) | bit(SIGBUS) |
                                          bit(SIGABRT) | bit(SIGHUP) | bit(SIGTERM) | bit(SIGINT);
        EXPECT_EQ(signal_set(daemon.pid(), "SigCgt") & kOrdinary, handled);
        EXPECT_EQ(signal_set(daemon.pid(), "SigBlk"), 0U);

        daemon.send(SIGPIPE);
        constexpr int kKilledByPipe = 1013;
        EXPECT_EQ(ignored ? daemon.stop(SIGTERM) : daemon.wait(), ignored ? 1 : kKilledByPipe);
    }
}

// Makes `signal` look like the fault `code` at `address` on its way to the daemon.
void deliver_fault(pid_t pid, int signal, int code, std::uintptr_t address) {
    ASSERT_EQ(ptrace(PTRACE_SEIZE, pid, nullptr, nullptr), 0);
    syscall(SYS_tgkill, pid, pid, signal);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFSTOPPED(status));
    ASSERT_EQ(WSTOPSIG(status), signal);
    siginfo_t information{};
    information.si_signo = signal;
    information.si_code = code;
    information.si_addr = reinterpret_cast<void*>(address);
    ASSERT_EQ(ptrace(PTRACE_SETSIGINFO, pid, nullptr, &information), 0);
    ASSERT_EQ(ptrace(PTRACE_DETACH, pid, nullptr, signal), 0);
}

struct FaultText {
    int code;
    std::string text;
};

struct FaultSignal {
    int signal;
    std::string name;
    std::vector<FaultText> texts;
};

const FaultSignal kFaults[] = {
    {SIGILL,
     "Illegal instruction",
     {{1, "illegal opcode"},
      {2, "illegal operand"},
      {3, "illegal addressing mode"},
      {4, "illegal trap"},
      {5, "privileged opcode"},
      {6, "privileged register"},
      {7, "coprocessor error"},
      {8, "internal stack error"},
      {0, "unknown error"},
      {9, "unknown error"},
      {-1, "unknown error"}}},
    {SIGFPE,
     "Floating point exception",
     {{1, "integer divide by zero"},
      {2, "unknown error"},  // the integer overflow has no text of its own
      {3, "floating-point divide by zero"},
      {4, "floating-point overflow"},
      {5, "floating-point underflow"},
      {6, "floating-point inexact result"},
      {7, "floating-point invalid operation"},
      {8, "subscript out of range"},
      {0, "unknown error"},
      {9, "unknown error"}}},
    {SIGSEGV,
     "Segmentation fault",
     {{1, "address not mapped to object"},
      {2, "invalid permissions for mapped object"},
      {0, "unknown error"},
      {3, "unknown error"},
      {128, "unknown error"}}},
    {SIGBUS,
     "Bus error",
     {{1, "invalid address alignment"},
      {2, "nonexistent physical address"},
      {3, "object-specific hardware error"},
      {0, "unknown error"},
      {4, "unknown error"}}},
};

class FaultOf : public testing::TestWithParam<int> {
  protected:
    FaultOf() {
        leave_faults_to_the_program();
        make_board();
    }
};

TEST_P(FaultOf, IsNamedWithItsAddressInDecimal) {
    const FaultSignal& fault = kFaults[GetParam()];
    for (const FaultText& expected : fault.texts) {
        SCOPED_TRACE(testing::Message() << fault.name << ", code " << expected.code);
        const SyslogReader log;
        Daemon daemon({.options = {"-l", "32"}});
        ASSERT_TRUE(up(log));
        ASSERT_NO_FATAL_FAILURE(
            deliver_fault(daemon.pid(), fault.signal, expected.code, 0xDEADBEEF));
        EXPECT_EQ(daemon.wait(), 1);
        EXPECT_THAT(lines_from(log, "Exiting"),
                    ElementsAre(logged(kFatal, "Exiting due to signal " + fault.name + "."),
                                logged(kFatal, expected.text + " at address 0x3735928559"),
                                LogLine{27, "zondar_net_receiver",
                                        "Se cierra quelt_listener por recepcion señal LINUX\n"}));
    }
}

INSTANTIATE_TEST_SUITE_P(Signal, FaultOf, testing::Range(0, 4));

TEST_F(SystemSignals, NameAFaultAtAddressZero) {
    const SyslogReader log;
    Daemon daemon;
    ASSERT_TRUE(up(log));
    ASSERT_NO_FATAL_FAILURE(deliver_fault(daemon.pid(), SIGSEGV, 1, 0));
    EXPECT_EQ(daemon.wait(), 1);
    EXPECT_THAT(log.lines(),
                Contains(logged(kFatal, "address not mapped to object at address 0x0")));
}

// An abort has no address, whatever comes with it.
TEST_F(SystemSignals, NameNoAddressForAnAbort) {
    const SyslogReader log;
    Daemon daemon;
    ASSERT_TRUE(up(log));
    ASSERT_NO_FATAL_FAILURE(deliver_fault(daemon.pid(), SIGABRT, 1, 0xDEADBEEF));
    EXPECT_EQ(daemon.wait(), 1);
    EXPECT_THAT(lines_from(log, "Exiting"),
                ElementsAre(logged(kFatal, "Exiting due to signal Aborted.")));
}

}  // namespace
