// The daemon's times, as its system calls ask for them: exact, however busy the machine is.
#include <gmock/gmock.h>

#include <regex>
#include <sstream>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/standing_clock.h"
#include "tests/support/traced_daemon.h"
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

// The connections that the main thread accepts, each an "a", and its pauses, each its nanoseconds;
// not those of 10 us between two attempts to read.
std::string accepts_and_pauses() {
    const std::regex call_of_it("^(?:accept4\\(|clock_nanosleep\\(.*tv_nsec=([0-9]+)\\}, )");
    std::string made;
    std::istringstream calls(TracedDaemon::calls());
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

// One with an answer, one without, and one whose request is dropped.
TEST_F(Times, EachCycleIsFollowedByAPauseOf10Milliseconds) {
    const TracedDaemon daemon({"-e", "trace=accept4,clock_nanosleep"});
    exchange(frame(4));
    exchange(frame(0));
    send_request(frame(5));
    send_request(hex("A5 04 00 00 00 00 FD"));
    exchange(frame(4));
    const std::string expected = "aa 10000000 aa 10000000 a 10000000 a 10000000 aa 10000000 a";
    eventually([&] { return accepts_and_pauses() == expected; });
    EXPECT_EQ(accepts_and_pauses(), expected);
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
