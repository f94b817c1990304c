// Garbage of many kinds against the real daemon, the same in each run: it stays alive, and a
// master that re-synchronises gets a proper answer.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/syslog_reader.h"

namespace {

using Random = std::mt19937;

std::size_t below(Random& random, std::size_t limit) {
    return random() % limit;
}

std::uint8_t any_byte(Random& random) {
    return static_cast<std::uint8_t>(random());
}

Bytes any_bytes(Random& random, std::size_t count) {
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes)
        byte = any_byte(random);
    return bytes;
}

void append(Bytes& stream, const Bytes& bytes) {
    stream.insert(stream.end(), bytes.begin(), bytes.end());
}

Bytes noise(Random& random) {
    return any_bytes(random, below(random, 3000));
}

// Every second byte or so is a start byte.
Bytes start_bytes(Random& random) {
    Bytes stream(below(random, 3000), 0xA5);
    for (std::uint8_t& byte : stream) {
        if (below(random, 2) == 0)
            byte = any_byte(random);
    }
    return stream;
}

// The longest frames, in both modes, cut off at any place.
Bytes longest_frames(Random& random) {
    Bytes stream;
    for (int i = 0; i < 8; ++i) {
        append(stream, {0xA5, any_byte(random), 0, 0, 0, 0xFF});
        append(stream, any_bytes(random, below(random, 260)));
    }
    return stream;
}

// Frames that nobody answers: commands 5 to 15, and sequence numbers. Few, since the daemon pauses
// for 10 ms behind each.
Bytes unanswered_frames(Random& random) {
    Bytes stream;
    for (int i = 0; i < 6; ++i) {
        const auto control =
            static_cast<std::uint8_t>(below(random, 8) << 4U | (5 + below(random, 11)));
        append(stream, frame(control, any_bytes(random, below(random, 20))));
    }
    return stream;
}

// Requests as they should be, whose answers go to whoever connects next. No known sub-command is
// among the writes: those change the board.
Bytes requests_without_collecting(Random& random) {
    Bytes stream;
    for (int i = 0; i < 4; ++i) {
        const auto command = static_cast<std::uint8_t>(below(random, 5));
        const Bytes info =
            command == 3 ? Bytes{0xFF, any_byte(random)} : any_bytes(random, below(random, 4));
        append(stream, frame(command, info));
    }
    return stream;
}

// A request with one bit flipped.
Bytes damaged_requests(Random& random) {
    Bytes stream;
    for (int i = 0; i < 6; ++i) {
        Bytes request = frame(static_cast<std::uint8_t>(below(random, 5)), {0xFF, 1, 2});
        request[below(random, request.size())] ^= static_cast<std::uint8_t>(1U << below(random, 8));
        append(stream, request);
    }
    return stream;
}

struct Garbage {
    const char* name;
    Bytes (*make)(Random& random);
    unsigned seed;
};

std::ostream& operator<<(std::ostream& out, const Garbage& garbage) {
    return out << garbage.name;
}

constexpr Garbage kGarbage[] = {
    {.name = "Noise", .make = noise, .seed = 1},
    {.name = "StartBytes", .make = start_bytes, .seed = 2},
    {.name = "LongestFrames", .make = longest_frames, .seed = 3},
    {.name = "UnansweredFrames", .make = unanswered_frames, .seed = 4},
    {.name = "UncollectedAnswers", .make = requests_without_collecting, .seed = 5},
    {.name = "DamagedRequests", .make = damaged_requests, .seed = 6},
};

constexpr int kRounds = 15;
constexpr int kConnections = 4;  // as many as wait in the queue without a new attempt

const Bytes kRequest = frame(4);
const std::string kAnswer = document::answer(kRequest);

// A daemon that owes answers closes connections which it should have read: no concern of ours.
void throw_at_the_daemon(const Bytes& stream) {
    const Connection connection;
    try {
        connection.send(stream);
    } catch (const std::runtime_error&) {
    }
}

class HostileInput : public testing::TestWithParam<Garbage> {
  protected:
    HostileInput() { make_board(); }

    SyslogReader log_;
};

TEST_P(HostileInput, LeavesADaemonThatAnswers) {
    Daemon daemon({.options = {"-l", "127", "-s", "5"}});
    EXPECT_EQ(to_hex(exchange(kRequest)), kAnswer);
    Random random(GetParam().seed);
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < kConnections; ++i)
            throw_at_the_daemon(GetParam().make(random));
        resynchronise();
        EXPECT_EQ(to_hex(exchange(kRequest)), kAnswer);
    }
    EXPECT_TRUE(daemon.running());
}

INSTANTIATE_TEST_SUITE_P(, HostileInput, testing::ValuesIn(kGarbage),
                         [](const auto& test) { return test.param.name; });

// Each byte cut off at each place of a request, and then the end of the connection.
TEST(HostileRequest, CutOffAnywhereIsForgottenAfterResynchronising) {
    make_board();
    const SyslogReader log;
    const Daemon daemon;
    for (std::size_t length = 0; length <= kRequest.size(); ++length) {
        SCOPED_TRACE(length);
        send_request(std::span(kRequest).first(length));
        resynchronise();
        EXPECT_EQ(to_hex(exchange(kRequest)), kAnswer);
    }
}

}  // namespace
