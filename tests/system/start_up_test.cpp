// The start of the real daemon: its log lines, the pid file, the databases, daemon mode, and what
// its scripts get to see.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/wait.h"
#include "tests/system/program_end.h"

namespace fs = std::filesystem;

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;

const std::string kPidFile = "/tmp/zondar_net_receiver.pid";
const std::string kMissing = "/quelt/db/missing.sqlite";

const LogLine kNoDatabase = logged(kFatal, "No existe la base de datos. Saliendo...");
const LogLine kEntering = logged(kNotice, "Entering deamon mode...");
const LogLine kOddPidFile =
    logged(kPidError, "Unexpected pidfile contents. Cannot detect multiple process instances.");
const LogLine kOtherInstance = logged(kFatal, "Program already running, exiting...");

std::string pid_line(pid_t pid) {
    return std::to_string(pid) + "\n";
}

pid_t pid_of_the_dead() {
    const pid_t pid = fork();
    if (pid == 0)
        _exit(0);
    waitpid(pid, nullptr, 0);
    return pid;
}

class StartUp : public testing::Test {
  protected:
    StartUp() { make_board(); }
};

// The last two come from two threads.
TEST_F(StartUp, LogsItsStepsInOrder) {
    const SyslogReader log;
    const Daemon daemon;
    ASSERT_TRUE(up(log));
    EXPECT_THAT(log.lines(),
                AnyOf(ElementsAre(kStarted, running_with(daemon.pid()), kReady, kWatching),
                      ElementsAre(kStarted, running_with(daemon.pid()), kWatching, kReady)));
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(StartUp, NamesTheUserWhoStartsIt) {
    const ProgramEnd end = run_to_end({
        .paths = {kMissing, kMissing},
        .launcher = {"strace", "-o", "/dev/null", "-e", "trace=getuid", "-e",
                     "inject=getuid:retval=1234"},
        .prepare = leave_faults_to_the_program,
    });
    EXPECT_THAT(end.log, Contains(logged(kNotice, "Program started by User 1234")));
}

TEST_F(StartUp, IgnoresFurtherPaths) {
    const SyslogReader log;
    const Daemon daemon({.paths = {kConfDb, kTempDb, kMissing, "-"}});
    EXPECT_TRUE(up(log));
}

TEST_F(StartUp, TakesOptionsBetweenAndBehindThePaths) {
    const SyslogReader log;
    const Daemon daemon({.paths = {kConfDb, "-p", "/tmp/a.pid", kTempDb, "-s", "5"}});
    EXPECT_TRUE(up(log));
    EXPECT_EQ(read_file("/tmp/a.pid"), pid_line(daemon.pid()));
    EXPECT_FALSE(fs::exists(kPidFile));
}

// Databases

TEST_F(StartUp, EndsWhenADatabaseIsMissing) {
    const std::vector<std::string> cases[] = {{kMissing, kTempDb}, {kConfDb, kMissing}};
    for (const std::vector<std::string>& paths : cases) {
        SCOPED_TRACE(testing::PrintToString(paths));
        const ProgramEnd end = run_to_end({.options = {"-p", ""}, .paths = paths});
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out + end.err, "");
        EXPECT_THAT(end.log, ElementsAre(kStarted, kNoDatabase));
        EXPECT_FALSE(fs::exists(kMissing)) << "nothing may be made in its place";
        EXPECT_FALSE(fs::exists("/tmp/g_ether_reload.log")) << "the processor must not be reached";
    }
}

TEST_F(StartUp, EndsWhenADatabaseCannotBeOpened) {
    const std::vector<std::string> cases[] = {{"/quelt/db", kTempDb}, {kConfDb, "/quelt/db"}};
    for (const std::vector<std::string>& paths : cases) {
        SCOPED_TRACE(testing::PrintToString(paths));
        const ProgramEnd end = run_to_end({.options = {"-p", ""}, .paths = paths});
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out + end.err, "");
        EXPECT_THAT(end.log,
                    ElementsAre(kStarted,
                                logged(kFatal,
                                       "Error abriendo base de datos: /quelt/db : Is a directory. "
                                       "Saliendo...")));
    }
}

// The first one is looked at first: of two bad ones it is the one complained about.
TEST_F(StartUp, OpensTheConfigurationFirst) {
    const ProgramEnd end = run_to_end({.options = {"-p", ""}, .paths = {"/quelt/db", kMissing}});
    EXPECT_THAT(end.log, Contains(logged(kFatal,
                                         "Error abriendo base de datos: /quelt/db : Is a "
                                         "directory. Saliendo...")));
    EXPECT_THAT(end.log, Not(Contains(kNoDatabase)));
}

// A pipe that nobody writes to holds it up while it opens the databases. A signal still has its
// default effect then.
TEST_F(StartUp, InstallsItsHandlersAfterTheDatabases) {
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    constexpr int kKilledByTerm = 1015;
    for (const std::vector<std::string>& paths :
         {std::vector<std::string>{"/tmp/pipe", kTempDb}, {kConfDb, "/tmp/pipe"}}) {
        SCOPED_TRACE(testing::PrintToString(paths));
        const SyslogReader log;
        Daemon daemon({.paths = paths});
        ASSERT_TRUE(log.wait_for("Program running with pid"));
        daemon.send(SIGTERM);
        EXPECT_EQ(daemon.wait(), kKilledByTerm);
        EXPECT_EQ(log.count("Exiting due to signal"), 0);
    }
}

// The guard against a second instance. Without databases the program ends right behind it.

struct PidFileCase {
    std::string name;
    std::optional<std::string> content;  // before the start
    std::vector<LogLine> complaint;
    std::vector<std::string> launcher = {};
};

TEST_F(StartUp, TakesOverAStalePidFile) {
    const std::vector<std::string> not_permitted = {
        "strace", "-o", "/dev/null", "-e", "trace=kill", "-e", "inject=kill:error=EPERM"};
    const PidFileCase cases[] = {
        {.name = "absent", .content = std::nullopt, .complaint = {}},
        {.name = "dead", .content = pid_line(pid_of_the_dead()), .complaint = {}},
        {.name = "dead, no line end",
         .content = std::to_string(pid_of_the_dead()),
         .complaint = {}},
        {.name = "longer than the new one",
         .content = pid_line(pid_of_the_dead()) + "and a long rest of some other program\n",
         .complaint = {}},
        {.name = "alive, but of somebody else",
         .content = pid_line(getpid()),
         .complaint = {},
         .launcher = not_permitted},
        {.name = "largest", .content = "2147483647\n", .complaint = {}},
        {.name = "zero", .content = "0\n", .complaint = {kOddPidFile}},
        {.name = "negative", .content = "-1\n", .complaint = {kOddPidFile}},
        {.name = "negative of a live group",
         .content = pid_line(-getpgrp()),
         .complaint = {kOddPidFile}},
        {.name = "empty", .content = "", .complaint = {kOddPidFile}},
        {.name = "text", .content = "none\n", .complaint = {kOddPidFile}},
        {.name = "huge", .content = "99999999999999999999\n", .complaint = {kOddPidFile}},
    };
    for (const PidFileCase& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.content)
            write_file(kPidFile, *c.content);
        else
            fs::remove(kPidFile);
        const ProgramEnd end = run_to_end({
            .paths = {kMissing, kTempDb},
            .launcher = c.launcher,
            .prepare = leave_faults_to_the_program,
        });
        EXPECT_EQ(end.status, 1);
        const std::string written = read_file(kPidFile);
        ASSERT_THAT(written, testing::MatchesRegex("[1-9][0-9]*\n"));
        std::vector<LogLine> expected = {kStarted};
        expected.insert(expected.end(), c.complaint.begin(), c.complaint.end());
        expected.push_back(running_with(std::stoi(written)));
        expected.push_back(kNoDatabase);
        EXPECT_THAT(end.log, ElementsAreArray(expected));
        EXPECT_EQ(end.out + end.err, "");
    }
}

TEST_F(StartUp, EndsWhenThePidFileNamesALivingProcess) {
    const std::string contents[] = {pid_line(getpid()), std::to_string(getpid()),
                                    "\n  " + pid_line(getpid()), std::to_string(getpid()) + "x",
                                    "1\n"};
    for (const std::string& content : contents) {
        SCOPED_TRACE(content);
        write_file(kPidFile, content);
        const ProgramEnd end = run_to_end({});
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(read_file(kPidFile), content);
        EXPECT_THAT(end.log, ElementsAre(kStarted, kOtherInstance));
        EXPECT_EQ(end.out + end.err, "");
    }
}

TEST_F(StartUp, StopsASecondDaemonOnly) {
    const SyslogReader log;
    Daemon first;
    ASSERT_TRUE(up(log));
    EXPECT_EQ(read_file(kPidFile), pid_line(first.pid()));

    Daemon second;
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(log.count(kOtherInstance.text), 1);
    EXPECT_TRUE(first.running());
    EXPECT_EQ(read_file(kPidFile), pid_line(first.pid()));
}

TEST_F(StartUp, LivesWithoutItsPidFile) {
    write_file("/tmp/read_only.pid", "0\n");
    fs::permissions("/tmp/read_only.pid", fs::perms::owner_read);
    struct Unwritable {
        std::string path;
        std::vector<LogLine> complaint;  // before the one that it cannot be written
    };
    const Unwritable cases[] = {
        {"/missing/x.pid", {}},
        {"/tmp/read_only.pid", {kOddPidFile}},
        {"/tmp", {kOddPidFile}},  // a folder can be opened, but not read
    };
    for (const Unwritable& c : cases) {
        SCOPED_TRACE(c.path);
        const SyslogReader log;
        const Daemon daemon({.options = {"-p", c.path}});
        ASSERT_TRUE(up(log));
        std::vector<LogLine> expected = {kStarted};
        expected.insert(expected.end(), c.complaint.begin(), c.complaint.end());
        expected.push_back(
            logged(kPidError, "Unable to create pidfile: " + c.path + ", continuing..."));
        expected.push_back(running_with(daemon.pid()));
        std::vector<LogLine> lines = log.lines();
        ASSERT_GT(lines.size(), expected.size());
        lines.resize(expected.size());
        EXPECT_THAT(lines, ElementsAreArray(expected));
        EXPECT_EQ(read_file("/tmp/read_only.pid"), "0\n");
    }
}

// One that cannot be read counts as none.
TEST_F(StartUp, OverwritesAnUnreadablePidFile) {
    write_file(kPidFile, pid_line(getpid()));
    fs::permissions(kPidFile, fs::perms::owner_write);
    const ProgramEnd end = run_to_end({.paths = {kMissing, kTempDb}});
    fs::permissions(kPidFile, fs::perms::owner_read);
    const pid_t pid = std::stoi(read_file(kPidFile));
    EXPECT_NE(pid, getpid());
    EXPECT_THAT(end.log, ElementsAre(kStarted, running_with(pid), kNoDatabase));
}

TEST_F(StartUp, HasNoGuardWithAnEmptyPidFilePath) {
    const std::string content = pid_line(getpid());
    write_file(kPidFile, content);
    const ProgramEnd end = run_to_end({.options = {"-p", ""}, .paths = {kMissing, kTempDb}});
    EXPECT_THAT(end.log, ElementsAre(kStarted, kNoDatabase));
    EXPECT_EQ(read_file(kPidFile), content);
}

// Logging

struct Leveled {
    std::string text;
    int first_level;  // at which it gets through
};

class LogLevel : public testing::TestWithParam<int> {
  protected:
    LogLevel() { make_board(); }
};

TEST_P(LogLevel, LetsThroughWhatBelongsToIt) {
    const Leveled lines[] = {
        {"Program started by User " + std::to_string(getuid()), 3},
        {"Program running with pid: ", 4},
        {"ZONDAR_NET_RECEIVER: ready...", 4},
        {"FILE: Error al recuperar tipo y modelo del equipo.", 2},
        {"Waiting for zondar message:\n", 4},
        {"CMD: Peticion de identificacion\n", 5},
        {"Exiting due to signal Terminated.", 1},
        {"Se cierra quelt_listener por recepcion señal LINUX\n", 1},
    };
    fs::remove("/quelt/conf/quelt_modelo");
    const SyslogReader log;
    Daemon daemon({.options = {"-l", "112", "-s", std::to_string(GetParam())}});
    ask(4, {});
    EXPECT_EQ(daemon.stop(SIGTERM), 1);
    for (const Leveled& line : lines)
        EXPECT_EQ(log.count(line.text) > 0, GetParam() >= line.first_level) << line.text;
}

INSTANTIATE_TEST_SUITE_P(Levels, LogLevel, testing::Range(0, 6));

TEST_F(StartUp, LogsUpToInfoWithoutALevel) {
    const SyslogReader log;
    const Daemon daemon({.options = {"-l", "64"}});
    exchange(frame(4));
    EXPECT_TRUE(log.wait_for("Response to received frame:\n"));
    EXPECT_EQ(log.count("CMD: Peticion de identificacion"), 0);
}

TEST_F(StartUp, CopiesItsLogToStandardErrorWhenAsked) {
    const SyslogReader log;
    const Daemon daemon({.options = {"-t"}});
    ASSERT_TRUE(up(log));
    std::string expected;
    for (const LogLine& line : log.lines())
        expected +=
            "ZONDAR_NET_RECEIVER[" + std::to_string(daemon.pid()) + "]: " + line.text + "\n";
    EXPECT_TRUE(eventually([&] { return daemon.err().size() >= expected.size(); }));
    EXPECT_THAT(daemon.err(), testing::StartsWith(expected.substr(0, expected.find(kReady.text))));
    EXPECT_THAT(daemon.err(), HasSubstr(kReady.text + "\n"));
    EXPECT_THAT(daemon.err(), HasSubstr(kWatching.text + "\n"));
}

// Daemon mode

// Starts the daemon so that it detaches itself, and adopts it.
class Detached {
  public:
    explicit Detached(Daemon::Setup setup) {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        setup.options.emplace_back("-d");
        starter_.emplace(setup);
        starter_status_ = starter_->wait();
        if (log_.wait_for("Program running with pid: "))
            pid_ = std::stoi(read_file(kPidFile));
    }
    ~Detached() { stop(); }
    Detached(const Detached&) = delete;
    Detached& operator=(const Detached&) = delete;

    int stop() {
        if (pid_ == 0)
            return -1;
        Daemon::deliver(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] int starter_status() const { return starter_status_; }
    [[nodiscard]] const Daemon& starter() const { return *starter_; }
    [[nodiscard]] const SyslogReader& log() const { return log_; }
    // Where a link of its /proc folder leads.
    [[nodiscard]] std::string link(const std::string& name) const {
        return fs::read_symlink("/proc/" + std::to_string(pid_) + "/" + name);
    }

  private:
    SyslogReader log_;
    std::optional<Daemon> starter_;
    int starter_status_ = -1;
    pid_t pid_ = 0;
};

TEST_F(StartUp, DetachesInDaemonMode) {
    write_file("/tmp/here/mark", "");
    const Detached daemon({.prepare = [] {
        if (chdir("/tmp/here") != 0)
            _exit(127);
    }});
    EXPECT_EQ(daemon.starter_status(), 0);
    ASSERT_TRUE(up(daemon.log()));

    EXPECT_NE(daemon.pid(), daemon.starter().pid());
    EXPECT_EQ(getsid(daemon.pid()), daemon.pid());
    EXPECT_EQ(daemon.link("cwd"), "/tmp/here");
    for (const char* const stream : {"fd/0", "fd/1", "fd/2"})
        EXPECT_EQ(daemon.link(stream), "/dev/null");
    EXPECT_EQ(read_file(kPidFile), pid_line(daemon.pid()));
    EXPECT_THAT(daemon.log().lines(),
                ElementsAre(kStarted, kEntering, running_with(daemon.pid()),
                            AnyOf(kReady, kWatching), AnyOf(kReady, kWatching)));
    EXPECT_EQ(daemon.starter().out() + daemon.starter().err(), "");
    EXPECT_EQ(to_hex(exchange(frame(4))), document::answer(frame(4)));
}

// What was logged before the detachment is still seen, nothing after it.
TEST_F(StartUp, CopiesNothingToStandardErrorInDaemonMode) {
    Detached daemon({.options = {"-t"}});
    ASSERT_TRUE(up(daemon.log()));
    EXPECT_EQ(daemon.stop(), 1);
    const std::string name =
        "ZONDAR_NET_RECEIVER[" + std::to_string(daemon.starter().pid()) + "]: ";
    EXPECT_EQ(daemon.starter().err(), name + "Program started by User " + std::to_string(getuid()) +
                                          "\n" + name + "Entering deamon mode...\n");
    EXPECT_EQ(daemon.starter().out(), "");
}

TEST_F(StartUp, KeepsItsLogMaskInDaemonMode) {
    Detached daemon({.options = {"-l", "32"}});
    ASSERT_TRUE(up(daemon.log()));
    EXPECT_EQ(daemon.stop(), 1);
    EXPECT_EQ(daemon.log().count("Se cierra quelt_listener por recepcion señal LINUX\n"), 1);
}

// Each fatal condition behind the detachment leaves the starter's status alone.
TEST_F(StartUp, ReportsNoFailureToTheStarterInDaemonMode) {
    const SyslogReader log;
    Daemon starter({.options = {"-d"}, .paths = {kMissing, kTempDb}});
    EXPECT_EQ(starter.wait(), 0);
    EXPECT_TRUE(log.wait_for(kNoDatabase.text));
}

// When it cannot detach itself it goes on in the foreground.
TEST_F(StartUp, GoesOnWhenItCannotDetach) {
    const ProgramEnd end = run_to_end({
        .options = {"-d"},
        .paths = {kMissing, kTempDb},
        .launcher = {"strace", "-o", "/dev/null", "-e", "trace=fork,clone,clone3", "-e",
                     "inject=fork,clone,clone3:error=EAGAIN"},
        .prepare = leave_faults_to_the_program,
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(end.log, Contains(kEntering));
    EXPECT_THAT(end.log, Contains(kNoDatabase));
}

// Scripts

TEST_F(StartUp, ReloadsTheNetworkOnce) {
    const SyslogReader log;
    const Daemon daemon;
    ASSERT_TRUE(up(log));
    EXPECT_EQ(read_file("/tmp/g_ether_reload.log"), "reloaded\n");
}

TEST_F(StartUp, DoesNotMindAFailingReload) {
    write_script("/quelt/script/g_ether_reload.sh", "exit 1");
    {
        const SyslogReader log;
        const Daemon daemon;
        EXPECT_TRUE(up(log));
    }
    fs::remove("/quelt/script/g_ether_reload.sh");
    const SyslogReader log;
    const Daemon daemon;
    EXPECT_TRUE(up(log));
}

// Nothing but what the shell sets by itself.
TEST_F(StartUp, GivesItsScriptsAnEmptyEnvironment) {
    const std::string script = "/quelt/script/g_ether_reload.sh";
    write_script(script, "env > /tmp/environment");
    ASSERT_EQ(std::system(("env -i /bin/sh -c " + script).c_str()), 0);
    const std::string empty = read_file("/tmp/environment");
    write_script(script, "env > /tmp/environment");
    write_script("/quelt/script/MAC", "env > /tmp/environment_of_MAC");

    const SyslogReader log;
    const Daemon daemon({.prepare = [] { setenv("OF_THE_STARTER", "yes", 1); }});
    ASSERT_TRUE(up(log));
    EXPECT_EQ(read_file("/tmp/environment"), empty);
    EXPECT_EQ(read_file("/tmp/environment_of_MAC"), empty);
    EXPECT_THAT(empty, Not(HasSubstr("OF_THE_STARTER")));
}

// A script that outlives the daemon does not hold the port: the next daemon gets it.
TEST_F(StartUp, KeepsItsSocketFromItsScripts) {
    write_script("/quelt/script/MAC", "sleep 100 > /dev/null 2>&1 &");
    const SyslogReader log;
    Daemon first;
    ASSERT_TRUE(up(log));
    EXPECT_EQ(first.stop(SIGTERM), 1);
    const Daemon second;
    EXPECT_TRUE(log.wait_for(kReady.text, 2)) << second.err();
}

// Who connects meanwhile waits in the queue, and is answered when the device is known. A pipe holds
// up the first look at it.
TEST_F(StartUp, ListensBeforeItLooksAtItsDevice) {
    const std::string model = "/quelt/conf/quelt_modelo";
    fs::remove(model);
    ASSERT_EQ(mkfifo(model.c_str(), 0600), 0);
    const SyslogReader log;
    const Daemon daemon;
    send_request(frame(4));
    EXPECT_EQ(log.count(kReady.text), 0);
    const int pipe = open(model.c_str(), O_WRONLY | O_CLOEXEC);
    fs::remove(model);
    write_file(model, "ZND2AV-T\n");
    EXPECT_EQ(write(pipe, "ABC\n", 4), 4);
    close(pipe);
    Bytes expected = info_of(hex(document::answer(frame(4))), 4);
    document::put({{"model", text_bytes("ABC")}}, "Identification", expected);
    EXPECT_EQ(to_hex(collect_answer()), to_hex(frame(4, expected)));
}

TEST_F(StartUp, EndsWhenThePortIsTaken) {
    const int taken = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(8001);
    ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(taken, 1), 0);

    const ProgramEnd end = run_to_end({.options = {"-p", ""}});
    close(taken);
    EXPECT_EQ(end.status, 255);
    EXPECT_THAT(end.err, HasSubstr("bind error"));
    EXPECT_THAT(end.log, ElementsAre(kStarted));
}

}  // namespace
