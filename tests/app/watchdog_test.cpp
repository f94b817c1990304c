// The reception watchdog, with a limit short enough to wait for.
#include "app/watchdog.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "app/log_system.h"
#include "tests/app/in_child.h"
#include "tests/support/files.h"
#include "tests/support/wait.h"

namespace {

using testing::ElementsAre;

constexpr std::timespec kLimit{1, 0};

const LogLine kLooking{30, "T", "ZONDAR_NET_RECEIVER: comprobando recepcion de mensajes..."};
const LogLine kNothingCame{
    30, "T", "ZONDAR_NET_RECEIVER: No message received from client, restarting server"};

std::ptrdiff_t threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// Starts the watchdog, runs `meanwhile` and waits for the end of its thread.
template <typename Action>
ChildEnd watch(Action meanwhile) {
    return in_child([&] {
        AbrirLogSistema("T", 5, true);
        start_reception_watchdog(&kLimit);
        const std::ptrdiff_t started = threads();
        meanwhile();
        eventually([&] { return threads() < started; });
    });
}

TEST(Watchdog, EndsTheProcessWhenNothingCame) {
    const ChildEnd end = watch([] {});
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(end.log, ElementsAre(kLooking, kNothingCame));
    EXPECT_GT(end.lived.count(), 1.0);
    EXPECT_EQ(end.out, "");
}

// Only the check at the end counts, not what was there at the beginning.
TEST(Watchdog, IsContentWithAMessageThatCameMeanwhile) {
    const ChildEnd end = watch([] {
        eventually([] { return read_file("/tmp/child.err").ends_with("mensajes...\n"); });
        std::atomic_ref(message_received).store(true);
    });
    EXPECT_EQ(end.status, kCameBack);
    EXPECT_THAT(end.log, ElementsAre(kLooking));
    EXPECT_GT(end.lived.count(), 1.0);
}

std::timespec monotonic_now() {
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// The second that is running when it starts does not count: from the first half of one, the limit
// of one second ends with the next second but one.
TEST(Watchdog, CountsWholeSeconds) {
    static std::timespec start{};
    const ChildEnd end = in_child([] {
        eventually([] { return (start = monotonic_now()).tv_nsec < 500'000'000; });
        std::atexit(
            [] { std::printf("%d", static_cast<int>(monotonic_now().tv_sec - start.tv_sec)); });
        start_reception_watchdog(&kLimit);
        eventually([] { return false; });
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_GE(std::stoi(end.out), 2);
}

TEST(Watchdog, ChecksOnlyOnce) {
    message_received = true;
    const ChildEnd end = watch([] {});
    EXPECT_EQ(end.status, kCameBack);
    EXPECT_THAT(end.log, ElementsAre(kLooking));
}

}  // namespace
