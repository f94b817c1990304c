// The start-up supervisor over a processor of our own that comes up when the test wants it to.
#include "app/start_up.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <limits>

#include "app/log_system.h"
#include "processor/processor.h"
#include "tests/app/in_child.h"
#include "tests/support/files.h"

namespace {

using testing::IsEmpty;

constexpr int kNever = std::numeric_limits<int>::max();

int attempts = 0;
int attempts_needed = 1;

}  // namespace

// Takes its time: the supervisor must be waiting before it is told, and on a busy machine it may
// not get there at once.
int zondar_process_init() {
    constexpr useconds_t kMoment_us = 300'000;
    usleep(kMoment_us);
    ++attempts;
    return attempts < attempts_needed ? -1 : 0;
}

namespace {

// Supervises with `limit` a processor that is up at attempt `needed`; prints the result and the
// number of attempts when it comes back.
ChildEnd supervise(const std::timespec& limit, int needed) {
    return in_child([&] {
        AbrirLogSistema("T", 5, true);
        attempts_needed = needed;
        const int result = supervise_start_up(limit);
        std::printf("result %d, attempts %d", result, attempts);
    });
}

class StartUpSupervisor : public testing::Test {
  protected:
    StartUpSupervisor() {
        write_script("/quelt/script/g_ether_reload.sh", "echo once >> /tmp/reloaded");
    }
};

TEST_F(StartUpSupervisor, ComesBackWhenTheFirstAttemptSucceeds) {
    const ChildEnd end = supervise({10, 0}, 1);
    EXPECT_EQ(end.status, kCameBack);
    EXPECT_EQ(end.out, "result 0, attempts 1");
    EXPECT_EQ(read_file("/tmp/reloaded"), "once\n");
    EXPECT_THAT(end.log, IsEmpty());
}

TEST_F(StartUpSupervisor, TriesOnceASecondAndReloadsTheNetworkOnce) {
    const ChildEnd end = supervise({10, 0}, 3);
    EXPECT_EQ(end.status, kCameBack);
    EXPECT_EQ(end.out, "result 0, attempts 3");
    EXPECT_EQ(read_file("/tmp/reloaded"), "once\n");
    EXPECT_GT(end.lived.count(), 2.0);
}

TEST_F(StartUpSupervisor, DoesNotMindAFailingScript) {
    write_script("/quelt/script/g_ether_reload.sh", "exit 3");
    EXPECT_EQ(supervise({10, 0}, 1).out, "result 0, attempts 1");
    unlink("/quelt/script/g_ether_reload.sh");
    EXPECT_EQ(supervise({10, 0}, 1).out, "result 0, attempts 1");
}

TEST_F(StartUpSupervisor, WaitsForTheScriptBeforeTheFirstAttempt) {
    write_script("/quelt/script/g_ether_reload.sh", "exec sleep 60");
    const ChildEnd end = in_child([] {
        std::atexit([] { std::printf("attempts %d", attempts); });
        supervise_start_up({1, 0});
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.out, "attempts 0");
}

// The nanoseconds count, with whatever the clock adds to them.
TEST_F(StartUpSupervisor, EndsTheProcessSilentlyWhenTheLimitRunsOut) {
    struct Limit {
        std::timespec limit;
        double seconds;
    };
    for (const Limit& limit :
         {Limit{{2, 0}, 2.0}, {{0, 999'999'999}, 0.999}, {{1, 500'000'000}, 1.5}}) {
        SCOPED_TRACE(limit.seconds);
        const ChildEnd end = supervise(limit.limit, kNever);
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out + end.err, "");
        EXPECT_THAT(end.log, IsEmpty());
        EXPECT_GE(end.lived.count(), limit.seconds);
    }
}

// What it leaves behind does not hold up a second one.
TEST_F(StartUpSupervisor, ReleasesItsLock) {
    const ChildEnd end = in_child([] {
        supervise_start_up({10, 0});
        std::printf("%d", supervise_start_up({10, 0}));
    });
    EXPECT_EQ(end.status, kCameBack);
    EXPECT_EQ(end.out, "0");
}

}  // namespace
