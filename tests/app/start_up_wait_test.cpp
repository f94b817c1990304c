// The start-up supervisor while its wait ends in odd ways. The C library's wait and sleep are
// replaced here, so this is a program of its own.
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <vector>

#include "app/start_up.h"
#include "processor/processor.h"

namespace {

std::vector<int> results;  // of the waits to come, the last one first
std::vector<std::timespec> deadlines;
std::vector<unsigned> sleeps;

int next_result() {
    const int result = results.back();
    results.pop_back();
    return result;
}

}  // namespace

extern "C" int pthread_cond_timedwait(pthread_cond_t* /*cond*/, pthread_mutex_t* /*mutex*/,
                                      const std::timespec* abstime) {
    deadlines.push_back(*abstime);
    return next_result();
}

extern "C" unsigned sleep(unsigned seconds) {
    sleeps.push_back(seconds);
    return 0;
}

int zondar_process_init() {
    return 0;
}

namespace {

bool all_alike(const std::vector<std::timespec>& times) {
    return std::ranges::all_of(times, [&](const std::timespec& time) {
        return time.tv_sec == times.front().tv_sec && time.tv_nsec == times.front().tv_nsec;
    });
}

TEST(StartUpWait, GoesOnToTheSameDeadlineAfterAnOddEnd) {
    results = {0, EPERM, EINVAL};
    EXPECT_EQ(supervise_start_up({10, 0}), 0);
    EXPECT_THAT(sleeps, testing::ElementsAre(1, 1));
    EXPECT_EQ(deadlines.size(), 3U);
    EXPECT_TRUE(all_alike(deadlines));
}

TEST(StartUpWaitDeathTest, StillEndsAtTheDeadline) {
    results = {ETIMEDOUT, EINVAL};
    EXPECT_EXIT(supervise_start_up({10, 0}), testing::ExitedWithCode(1), "");
}

}  // namespace
