// The daemon's times, as its system calls ask for them: exact, however busy the machine is.
#include <gmock/gmock.h>

#include <csignal>
#include <regex>
#include <sstream>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/master.h"
#include "tests/support/standing_clock.h"
#include "tests/support/wait.h"
#include "tests/system/program_end.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

const std::string kCalls = "/tmp/calls";
const LogLine kNothingCame =
    logged(kInfo, "ZONDAR_NET_RECEIVER: No message received from client, restarting server");

class Times : public testing::Test {
  protected:
    Times() { make_board(); }
};

// The connections that a thread accepts, each an "a", and its pauses, each its nanoseconds; not
// those of 10 us between two attempts to read.
std::string accepts_and_pauses(pid_t thread) {
    const std::regex call_of_it("^" + std::to_string(thread) +
                                " +(?:accept4\\(|clock_nanosleep\\(.*tv_nsec=([0-9]+)\\}, )");
    std::string made;
    std::istringstream calls(read_file(kCalls));
    for (std::string line; std::getline(calls, line);) {
        std::smatch call;
        if (!std::regex_search(line, call, call_of_it))
            continue;
        if (!call[1].matched)
            made += "a";
        else if (call[1] != "10000")
            made += " " + call[1].str() + " ";
    }
    return made;
}

// Of an answer, of none, and of a request that is dropped.
TEST_F(Times, EachCycleIsFollowedByAPauseOf10Milliseconds) {
    Daemon tracer(
        {.launcher = {"strace", "-f", "-o", kCalls, "-e", "trace=accept4,clock_nanosleep"},
         .prepare = leave_faults_to_the_program});
    exchange(hex("A5 04 00 00 00 00 FC"));
    exchange(hex("A5 00 00 00 00 00 00"));
    send_request(hex("A5 05 00 00 00 00 FB"));
    send_request(hex("A5 04 00 00 00 00 FD"));
    exchange(hex("A5 04 00 00 00 00 FC"));
    const pid_t daemon = std::stoi(read_file("/tmp/zondar_net_receiver.pid"));
    const std::string expected = "aa 10000000 aa 10000000 a 10000000 a 10000000 aa 10000000 a";
    eventually([&] { return accepts_and_pauses(daemon) == expected; });
    EXPECT_EQ(accepts_and_pauses(daemon), expected);
    // strace takes no signal; it ends with the daemon and hands over its status.
    Daemon::deliver(daemon, SIGTERM);
    EXPECT_EQ(tracer.wait(), 1);
}

// On a clock that stands, at 2'000'000'000.75, and is at the watchdog's limit at once.
TEST_F(Times, TheProcessorHas10SecondsToComeUp) {
    const ProgramEnd end = run_to_end({.launcher = with_standing_clock("futex", kCalls)});
    EXPECT_THAT(end.log, Contains(kNothingCame));
    EXPECT_THAT(read_file(kCalls),
                HasSubstr("FUTEX_CLOCK_REALTIME, 0, {tv_sec=2000000010, tv_nsec=750000000}, "));
}

// The second in which it starts does not count: it sleeps from 1000.75 to 1031.75.
TEST_F(Times, TheFirstRequestHas30Seconds) {
    const ProgramEnd end = run_to_end({.launcher = with_standing_clock("none", kCalls)});
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(end.log, Contains(kNothingCame));
    EXPECT_EQ(read_file("/tmp/sleeps"), std::string(31, '.'));
}

}  // namespace
