// packaging/libexec/guard-replay around the real daemon, and around programs that only say what it
// says.
#include <dirent.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/support/daemon.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kGuard[] = ZONDAR_SOURCE_DIR "/packaging/libexec/guard-replay";
constexpr char kEnded[] = "guard-replay: the daemon carries out old requests again: it is ended\n";

class ReplayGuard : public testing::Test {
  protected:
    ReplayGuard() {
        make_board();
        setenv("RUNTIME_DIRECTORY", "/tmp", 1);
    }
};

// The descriptors it has are all that it may have, so the accept behind the next one fails.
void take_the_room(pid_t pid) {
    rlim_t free = 0;
    while (
        std::filesystem::is_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(free)))
        ++free;
    const rlimit none = {free, free};
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &none, nullptr), 0);
    nudge();
}

// Without a look for leaks, which needs a descriptor.
const Daemon::Setup kWithoutRoom = {.launcher = {kGuard}, .prepare = leave_faults_to_the_program};

TEST_F(ReplayGuard, EndsADaemonThatLostAnAccept) {
    Daemon daemon(kWithoutRoom);
    empty_connection();
    // A full ring: the oldest request is the first one that would be carried out again.
    for (int i = 0; i < 60; ++i)
        exchange(frame(3, "02 07"));
    empty_connection();
    take_the_room(daemon.pid());
    EXPECT_EQ(daemon.wait(), 1);
    EXPECT_TRUE(eventually([&] { return daemon.err().find(kEnded) != std::string::npos; }));
    EXPECT_THAT(daemon.err(), HasSubstr("accept error: Too many open files\n"
                                        "read: Bad file descriptor\n"));
}

TEST_F(ReplayGuard, EndsADaemonWithoutARequestToCarryOut) {
    Daemon daemon(kWithoutRoom);
    empty_connection();
    take_the_room(daemon.pid());
    EXPECT_EQ(daemon.wait(), 1);
    EXPECT_TRUE(eventually([&] { return daemon.err().find(kEnded) != std::string::npos; }));
}

// Idle, asked, waiting for its collector, in a long script, with a peer that resets and one that
// sends nonsense.
TEST_F(ReplayGuard, LeavesASoundDaemonAlone) {
    write_script("/quelt/script/set_interfaces_db.sh", "echo said >&2; sleep 2");
    Daemon daemon({.launcher = {kGuard}});
    empty_connection();
    const std::string children = "/proc/" + std::to_string(daemon.pid()) + "/task/" +
                                 std::to_string(daemon.pid()) + "/children";
    EXPECT_EQ(read_file(children), "");
    EXPECT_FALSE(std::filesystem::exists("/tmp/zondar-errors." + std::to_string(daemon.pid())));
    for (int i = 0; i < 20; ++i) {
        const Connection peer;
        peer.send(hex("A5"));
        peer.reset_at_end();
    }
    resynchronise();
    for (int i = 0; i < 20; ++i)
        send_request(hex("A5 04 00 00 00 00 00"));
    send_request(frame(3, "44 31 30 2E 31 2E 32 2E 33 00"));
    EXPECT_TRUE(eventually([&] { return daemon.err().find("said\n") != std::string::npos; }));
    EXPECT_EQ(collect_answer(), frame(3));
    EXPECT_TRUE(daemon.running());
    EXPECT_THAT(daemon.err(), HasSubstr("Checksum NOK in message received\n"));
    EXPECT_THAT(daemon.err(), Not(HasSubstr("guard-replay")));
    EXPECT_EQ(daemon.stop(SIGTERM), 1);
}

ProgramRun guarded(const std::string& program) {
    return run_program({kGuard, "/bin/sh", "-c", program});
}

constexpr char kSix[] = "for i in 1 2 3 4 5 6; do echo 'read: Bad file descriptor' >&2; done; ";

TEST_F(ReplayGuard, PassesOnWhatItIsTold) {
    const ProgramRun run =
        guarded("printf '%s\\n' '[ERROR]  \\t x' >&2; echo out; printf end >&2; exit 7");
    EXPECT_EQ(run.status, 7);
    EXPECT_EQ(run.out, "out\n");
    EXPECT_EQ(run.err, "[ERROR]  \\t x\nend\n");
}

// As a supervisor tells them to.
TEST_F(ReplayGuard, PassesOnTheLastWordsOfAGroupThatEnds) {
    const ProgramRun run = run_program(
        {"/usr/bin/setsid", "-w", kGuard, "/bin/sh", "-c",
         "trap 'sleep 1; echo last >&2; exit 7' TERM; echo first >&2; sleep 1; kill -s TERM 0"});
    EXPECT_EQ(run.status, 7);
    EXPECT_EQ(run.err, "first\nlast\n");
}

TEST_F(ReplayGuard, TakesSevenInARow) {
    const ProgramRun six =
        guarded(std::string(kSix) + "echo 'read: Connection reset by peer' >&2; " + kSix +
                "echo ' read: Bad file descriptor' >&2; exit 7");
    EXPECT_EQ(six.status, 7);
    EXPECT_THAT(six.err, Not(HasSubstr("guard-replay")));
    const ProgramRun seven =
        guarded(std::string(kSix) + "echo 'read: Bad file descriptor' >&2; exec sleep 100");
    EXPECT_EQ(seven.status, 1000 + SIGTERM);
}

TEST_F(ReplayGuard, KillsWhatDoesNotEnd) {
    const ProgramRun run = guarded(std::string("trap '' TERM; ") + kSix +
                                   "echo 'read: Bad file descriptor' >&2; exec sleep 100");
    EXPECT_EQ(run.status, 1000 + SIGKILL);
    EXPECT_THAT(run.err, HasSubstr(kEnded));
}

TEST_F(ReplayGuard, LeavesOutALineWithoutEnd) {
    const ProgramRun run =
        guarded("head -c 6000000 /dev/zero | tr '\\0' a >&2; echo >&2; echo behind >&2; " +
                std::string(kSix) + "echo 'read: Bad file descriptor' >&2; exec sleep 100");
    EXPECT_EQ(run.status, 1000 + SIGTERM);
    EXPECT_THAT(run.err, HasSubstr("guard-replay: a line without end is left out\n"));
    EXPECT_THAT(run.err, HasSubstr("behind\n"));
    EXPECT_LT(run.err.size(), 6'000'000U);
}

TEST_F(ReplayGuard, StartsTheDaemonAllTheSameWithoutAPipe) {
    setenv("RUNTIME_DIRECTORY", "/nowhere", 1);
    const ProgramRun run = guarded("echo said >&2; exit 7");
    EXPECT_EQ(run.status, 7);
    EXPECT_THAT(run.err, HasSubstr("guard-replay: the daemon is started without a guard\nsaid\n"));
}

}  // namespace
