// Fatal signals: real faults, the closing of the databases, and a second signal meanwhile.
#include "app/signals.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "app/database_files.h"
#include "app/log_system.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "tests/app/in_child.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::ExitedWithCode;
using testing::MatchesRegex;

// Under a name of its own and with a copy on standard error, where a death test can see it.
void open_log_and_install() {
    AbrirLogSistema("T", 5, true);
    install_signal_handlers();
}

volatile char* pages(int protection, int flags, int file) {
    return static_cast<volatile char*>(
        mmap(nullptr, static_cast<std::size_t>(getpagesize()), protection, flags, file, 0));
}

volatile char* unmapped_page() {
    volatile char* const page = pages(PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    munmap(const_cast<char*>(page), static_cast<std::size_t>(getpagesize()));
    return page;
}

volatile char* read_only_page() {
    return pages(PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1);
}

volatile char* page_behind_the_end_of_its_file() {
    return pages(PROT_READ | PROT_WRITE, MAP_SHARED, open("/tmp/empty", O_RDWR | O_CREAT, 0600));
}

struct BadPage {
    const char* name;
    volatile char* (*make)();
    std::string signal;
    std::string fault;
};

void PrintTo(const BadPage& page, std::ostream* out) {
    *out << page.name;
}

// Standard error begins with the bad address, alone on its line; `signal` and `fault` must follow.
MATCHER_P2(TellsOfFault, signal, fault, "") {
    const std::string address = arg.substr(0, arg.find('\n'));
    const std::string first = "]: Exiting due to signal " + std::string(signal) + ".\n";
    const std::string second = "]: " + std::string(fault) + " at address 0x" + address + "\n";
    const std::size_t at = arg.find(first);
    return at != std::string::npos && arg.find(second, at) != std::string::npos;
}

class BadPageDeathTest : public testing::TestWithParam<BadPage> {};

TEST_P(BadPageDeathTest, NamesTheFaultAndItsAddressInDecimal) {
    leave_faults_to_the_program();
    EXPECT_EXIT(
        {
            open_log_and_install();
            volatile char* const page = GetParam().make();
            std::fprintf(stderr, "%ju\n",
                         static_cast<std::uintmax_t>(reinterpret_cast<std::uintptr_t>(page)));
            *page = 1;
        },
        ExitedWithCode(1), TellsOfFault(GetParam().signal, GetParam().fault));
}

INSTANTIATE_TEST_SUITE_P(Pages, BadPageDeathTest,
                         testing::Values(BadPage{"Unmapped", unmapped_page, "Segmentation fault",
                                                 "address not mapped to object"},
                                         BadPage{"ReadOnly", read_only_page, "Segmentation fault",
                                                 "invalid permissions for mapped object"},
                                         BadPage{"BehindTheEndOfItsFile",
                                                 page_behind_the_end_of_its_file, "Bus error",
                                                 "nonexistent physical address"}),
                         [](const auto& instance) { return instance.param.name; });

#ifdef __x86_64__

__attribute__((no_sanitize("undefined"))) void divide_by_zero() {
    volatile int zero = 0;
    volatile int quotient = 100 / zero;
    static_cast<void>(quotient);
}

TEST(SignalsDeathTest, NamesFaultsOfInstructions) {
    leave_faults_to_the_program();
    EXPECT_EXIT(
        {
            open_log_and_install();
            divide_by_zero();
        },
        ExitedWithCode(1),
        MatchesRegex("T\\[[0-9]+\\]: Exiting due to signal Floating point exception\\.\n"
                     "T\\[[0-9]+\\]: integer divide by zero at address 0x[1-9][0-9]+\n"));
    EXPECT_EXIT(
        {
            open_log_and_install();
            __builtin_trap();
        },
        ExitedWithCode(1),
        MatchesRegex("T\\[[0-9]+\\]: Exiting due to signal Illegal instruction\\.\n"
                     "T\\[[0-9]+\\]: illegal operand at address 0x[1-9][0-9]+\n"));
}

#endif

TEST(SignalsDeathTest, TakesAnAbortWithoutAnAddress) {
    leave_faults_to_the_program();
    EXPECT_EXIT(
        {
            open_log_and_install();
            std::abort();
        },
        ExitedWithCode(1), MatchesRegex("T\\[[0-9]+\\]: Exiting due to signal Aborted\\.\n"));
}

// Without the bit that the C library sets for itself on some machines.
std::string disposition(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    std::string text = strsignal(signal);
    if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN)
        return text + ": ignored\n";
    if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL)
        return text + ": default\n";
    for (int blocked = 1; blocked < SIGRTMIN; ++blocked) {
        if (sigismember(&action.sa_mask, blocked) == 1)
            text += " blocking " + std::to_string(blocked);
    }
    if ((action.sa_flags & SA_SIGINFO) != 0)
        text += " informed";
    if ((action.sa_flags & SA_RESTART) != 0)
        text += " restarting";
    const auto others = static_cast<int>(SA_NODEFER | SA_RESETHAND | SA_ONSTACK | SA_NOCLDSTOP);
    if ((action.sa_flags & others) != 0)
        text += " otherwise";
    return text + "\n";
}

TEST(SignalsDeathTest, InstallsOneHandlerAndLeavesTheOtherSignalsAlone) {
    leave_faults_to_the_program();
    EXPECT_EXIT(
        {
            std::signal(SIGPIPE, SIG_DFL);
            install_signal_handlers();
            for (const int signal : {SIGFPE, SIGILL, SIGSEGV, SIGBUS, SIGABRT, SIGHUP, SIGTERM,
                                     SIGINT, SIGUSR1, SIGUSR2, SIGPIPE, SIGQUIT, SIGALRM, SIGCHLD})
                std::fputs(disposition(signal).c_str(), stderr);
            std::signal(SIGPIPE, SIG_IGN);
            install_signal_handlers();
            std::fputs(disposition(SIGPIPE).c_str(), stderr);
            std::_Exit(0);
        },
        ExitedWithCode(0),
        "^Floating point exception informed restarting\n"
        "Illegal instruction informed restarting\n"
        "Segmentation fault informed restarting\n"
        "Bus error informed restarting\n"
        "Aborted informed restarting\n"
        "Hangup informed restarting\n"
        "Terminated informed restarting\n"
        "Interrupt informed restarting\n"
        "User defined signal 1: ignored\n"
        "User defined signal 2: ignored\n"
        "Broken pipe: default\n"
        "Quit: default\n"
        "Alarm clock: default\n"
        "Child exited: default\n"
        "Broken pipe: ignored\n$");
}

const LogLine kTerminated{130, "T", "Exiting due to signal Terminated."};
const LogLine kConfOpen{27, "T", "Error al cerrar la BD config_local.sqlite\n"};
const LogLine kTempOpen{27, "T", "Error al cerrar la BD temp_local.sqlite\n"};
// After the log was closed once, under the program's own name.
const LogLine kClosed{27, "app_test", "Se cierra quelt_listener por recepcion señal LINUX\n"};

// A statement that is still open keeps its database from being closed.
sqlite3* database_at(const char* path, bool in_use) {
    write_file(path, "");
    sqlite3* const database = openDb(path);
    sqlite3_stmt* statement = nullptr;
    if (in_use)
        sqlite3_prepare_v2(database, "SELECT 1", -1, &statement, nullptr);
    return database;
}

TEST(Signals, ReportsDatabasesThatCannotBeClosed) {
    struct Case {
        std::uint32_t mask;
        bool conf_in_use;
        bool temp_in_use;
        std::vector<LogLine> log;
    };
    const Case cases[] = {
        {0x20, false, false, {kTerminated, kClosed}},
        {0x20, true, false, {kTerminated, kConfOpen, kClosed}},
        {0x20, false, true, {kTerminated, kTempOpen, kClosed}},
        {0x20, true, true, {kTerminated, kConfOpen, kTempOpen, kClosed}},
        {0x7F, true, true, {kTerminated, kConfOpen, kTempOpen, kClosed}},
        {0x5F, true, true, {kTerminated}},
        {0, true, true, {kTerminated}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.mask << c.conf_in_use << c.temp_in_use);
        const ChildEnd end = in_child([&] {
            AbrirLogSistema("T", 5, false);
            conf_log = c.mask;
            ConfDB = database_at("/tmp/conf.sqlite", c.conf_in_use);
            TempDB = database_at("/tmp/temp.sqlite", c.temp_in_use);
            install_signal_handlers();
            std::raise(SIGTERM);
        });
        EXPECT_EQ(end.status, 1);
        EXPECT_THAT(end.log, ElementsAreArray(c.log));
    }
}

// The log beside a database goes away only when the last connection is closed in order.
TEST(Signals, ClosesBothDatabases) {
    const ChildEnd end = in_child([] {
        ConfDB = database_at("/tmp/conf.sqlite", false);
        TempDB = database_at("/tmp/temp.sqlite", false);
        for (sqlite3* const database : {ConfDB, TempDB})
            sqlite3_exec(database, "PRAGMA journal_mode = WAL; CREATE TABLE T (c);", nullptr,
                         nullptr, nullptr);
        for (const char* const log : {"/tmp/conf.sqlite-wal", "/tmp/temp.sqlite-wal"}) {
            if (std::filesystem::exists(log))
                std::puts(log);
        }
        install_signal_handlers();
        std::raise(SIGINT);
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.out, "/tmp/conf.sqlite-wal\n/tmp/temp.sqlite-wal\n");
    EXPECT_FALSE(std::filesystem::exists("/tmp/conf.sqlite-wal"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/temp.sqlite-wal"));
}

TEST(Signals, IgnoresASecondOneDuringTheShutdown) {
    const ChildEnd end = in_child([] {
        AbrirLogSistema("T", 5, false);
        install_signal_handlers();
        std::atexit([] {
            std::raise(SIGINT);
            std::raise(SIGTERM);
            std::printf("in progress: %d", signal_in_progress);
        });
        std::raise(SIGTERM);
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(end.log, ElementsAre(kTerminated));
    EXPECT_EQ(end.out, "in progress: 15");
}

TEST(Signals, ComesBackAtOnceWhileOneIsInProgress) {
    const ChildEnd end = in_child([] {
        AbrirLogSistema("T", 5, false);
        install_signal_handlers();
        signal_in_progress = SIGHUP;
        std::raise(SIGTERM);
        std::printf("in progress: %d", signal_in_progress);
    });
    EXPECT_EQ(end.status, kCameBack);
    EXPECT_THAT(end.log, testing::IsEmpty());
    EXPECT_EQ(end.out, "in progress: 1");
}

}  // namespace
