// A module that is far away comes back, over as many calls as that takes.
#include "master/resync.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "master/requests.h"
#include "tests/master/outcomes.h"
#include "tests/support/bytes.h"
#include "tests/support/relay.h"
#include "tests/zondarctl/running_daemon.h"

namespace master {

namespace {

// Connections that the kernel had no place for in the queue of who listens.
int overflows() {
    std::ifstream table("/proc/net/netstat");
    std::string names;
    std::string values;
    std::getline(table, names);
    std::getline(table, values);
    std::istringstream name_words(names);
    std::istringstream value_words(values);
    for (std::string name, value; name_words >> name && value_words >> value;) {
        if (name == "ListenOverflows")
            return std::stoi(value);
    }
    throw std::runtime_error("the kernel does not tell");
}

struct Distance {
    std::chrono::milliseconds one_way;
    std::chrono::milliseconds timeout;
};

class FarModule : public testing::TestWithParam<Distance> {};

// The first call finds out that its request went astray.
TEST_P(FarModule, ComesBackAfterALostAnswer) {
    const RunningDaemon daemon;
    const Relay relay(8002, GetParam().one_way);
    send_request(hex("A5 03 00 00 00 50 02"));  // 79 more bytes are announced
    const Settings settings = {.target = {.port = 8002}, .timeout = GetParam().timeout};
    std::string last = outcome(status_request(), settings);
    int calls = 0;
    for (; last != "28 bytes" && calls < 200; ++calls) {
        EXPECT_THAT(last, testing::AnyOf("answer: the module gave no answer",
                                         testing::StartsWith("answer: no answer after"),
                                         testing::StartsWith("resync: ")));
        last = outcome(status_request(), settings);
    }
    EXPECT_EQ(last, "28 bytes");
    EXPECT_GT(calls, 1);
    EXPECT_LT(overflows(), 10);  // a busy machine may lose one of the 501
}

INSTANTIATE_TEST_SUITE_P(RoundTrips, FarModule,
                         testing::Values(Distance{std::chrono::milliseconds(10), 500ms},
                                         Distance{std::chrono::milliseconds(100), 5s}),
                         [](const auto& instance) {
                             return std::to_string(2 * instance.param.one_way.count()) + "ms";
                         });

}  // namespace

}  // namespace master
