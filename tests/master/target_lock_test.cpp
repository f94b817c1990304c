// Who waits for a target that somebody else asks, and in what order.
#include "master/target_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "master/requests.h"
#include "tests/master/outcomes.h"
#include "tests/support/files.h"
#include "tests/support/wait.h"

namespace master {

namespace {

// Until it is killed.
pid_t hold_in_another_process() {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t holder = in_another_process([&] {
        const Session session({});
        [[maybe_unused]] const ssize_t written = write(ready[1], "x", 1);
        pause();
        return true;
    });
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    return holder;
}

TEST(TargetLock, KeepsOthersOutUntilItsHolderIsGone) {
    const pid_t holder = hold_in_another_process();
    for (const char* const host : {"127.0.0.1", "localhost"}) {
        EXPECT_EQ(outcome_of([&] {
                      return Session({.target = {.host = host}, .timeout = kShort}), Bytes();
                  }),
                  "lock: another program is asking this module: master_test, process " +
                      std::to_string(holder));
    }
    // Of other targets nothing is known.
    for (const Target& other : {Target{"127.0.0.2", 8001}, Target{"127.0.0.1", 8002}})
        EXPECT_EQ(
            outcome_of([&] { return Session({.target = other, .timeout = kShort}), Bytes(); }),
            "0 bytes");
    kill(holder, SIGKILL);
    EXPECT_EQ(outcome_of([&] { return Session({.timeout = kForEver}), Bytes(); }), "0 bytes");
    EXPECT_FALSE(marked());
    status_of(holder);
}

TEST(TargetLock, IsHeldByOneSessionOfAProcessAtATime) {
    {
        const Session session({});
        EXPECT_EQ(outcome_of([] { return Session({.timeout = kShort}), Bytes(); }),
                  "lock: another program is asking this module: master_test, process " +
                      std::to_string(getpid()));
    }
    EXPECT_EQ(outcome_of([] { return Session({.timeout = kShort}), Bytes(); }), "0 bytes");
}

TEST(TargetLock, IsAFileThatEveryUserCanLock) {
    umask(077);
    EXPECT_EQ(outcome_of([] { return Session({}), Bytes(); }), "0 bytes");
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(kLockFile).permissions(),
              perms::owner_read | perms::owner_write | perms::group_read | perms::group_write |
                  perms::others_read | perms::others_write);
}

// Its owner makes it writable for all right behind the making.
TEST(TargetLock, IsAFileThatAnotherUserIsStillMaking) {
    write_file(kLockFile, "");
    ASSERT_EQ(chmod(kLockFile, 0), 0);
    std::thread owner([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        chmod(kLockFile, 0666);
    });
    EXPECT_EQ(outcome_of([] { return Session({.timeout = kForEver}), Bytes(); }), "0 bytes");
    owner.join();
}

TEST(TargetLock, FollowsNoLinkThatSomebodyLaid) {
    write_file("/tmp/precious", "text");
    std::filesystem::create_symlink("/tmp/precious", kLockFile);
    EXPECT_EQ(outcome(identification_request()), std::string("lock: cannot lock the target: ") +
                                                     kLockFile +
                                                     ": Too many levels of symbolic links");
    EXPECT_EQ(read_file("/tmp/precious"), "text");
}

// Places in the queue that are taken, of all locks.
std::ptrdiff_t queued() {
    std::ifstream table("/proc/locks");
    std::ptrdiff_t count = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.find(" OFDLCK ") != std::string::npos && !line.ends_with(" 0 0"))
            ++count;
    }
    return count;
}

TEST(TargetLock, ServesThreadsAndProcessesInTheOrderInWhichTheyCame) {
    int order[2];
    ASSERT_EQ(pipe2(order, O_CLOEXEC), 0);
    const auto wait_in_turn = [&](char name) {
        const Session session({.timeout = kForEver});
        return write(order[1], &name, 1) == 1;
    };
    const pid_t holder = hold_in_another_process();
    std::vector<std::thread> threads;
    std::vector<pid_t> programs;
    for (const char name : {'a', 'b', 'c', 'd', 'e', 'f', 'g'}) {
        if (name < 'e')
            programs.push_back(in_another_process([&] { return wait_in_turn(name); }));
        else
            threads.emplace_back([&, name] { wait_in_turn(name); });
        EXPECT_TRUE(eventually([&] { return queued() == name - 'a' + 1; }));
    }
    kill(programs[1], SIGKILL);
    EXPECT_EQ(status_of(programs[1]), SIGKILL);
    kill(holder, SIGKILL);
    EXPECT_EQ(status_of(holder), SIGKILL);
    for (std::thread& thread : threads)
        thread.join();
    char served[8] = "";
    EXPECT_EQ(read(order[0], served, sizeof served - 1), 6);
    EXPECT_STREQ(served, "acdefg");
    for (const pid_t program : {programs[0], programs[2], programs[3]})
        EXPECT_EQ(status_of(program), 0);
}

// Of another program than ours, on the whole file: there is no queue then.
TEST(TargetLock, IsNotHeldUpForEverByAnotherKindOfLock) {
    EXPECT_EQ(outcome_of([] { return Session({}), Bytes(); }), "0 bytes");
    const int file = open(kLockFile, O_RDWR | O_CLOEXEC);
    struct flock range {};
    for (const off_t start : {0, 7}) {
        range.l_type = F_WRLCK;
        range.l_start = start;
        ASSERT_EQ(fcntl(file, F_OFD_SETLK, &range), 0);
        EXPECT_EQ(outcome_of([] { return Session({.timeout = kShort}), Bytes(); }),
                  "lock: another program is asking this module");
    }
    close(file);
    EXPECT_EQ(outcome_of([] { return Session({}), Bytes(); }), "0 bytes");
}

}  // namespace

}  // namespace master
