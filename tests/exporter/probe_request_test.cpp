// The request line of a probe, and the time that it has.
#include "exporter/probe_request.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace exporter {

namespace {

using std::chrono::milliseconds;

std::string problem_of(const std::vector<Argument>& arguments) {
    try {
        parse_probe(arguments);
        return "none";
    } catch (const std::invalid_argument& problem) {
        return problem.what();
    }
}

TEST(ProbeRequest, AsksForTheStatusUnlessToldOtherwise) {
    const std::vector<Argument> arguments = {{"target", "10.0.0.5:8001"}};
    const ProbeRequest request = parse_probe(arguments);
    EXPECT_EQ(request.target, "10.0.0.5:8001");
    EXPECT_EQ(request.collect, Collect::status);
    EXPECT_FALSE(request.debug);
}

TEST(ProbeRequest, TakesItsParametersInAnyOrder) {
    const std::vector<Argument> arguments = {
        {"debug", "true"}, {"collect", "configuration"}, {"target", "sur 1"}};
    const ProbeRequest request = parse_probe(arguments);
    EXPECT_EQ(request.target, "sur 1");
    EXPECT_EQ(request.collect, Collect::configuration);
    EXPECT_TRUE(request.debug);
}

TEST(ProbeRequest, IsRefusedInOneLine) {
    const struct {
        std::vector<Argument> arguments;
        const char* problem;
    } cases[] = {
        {{}, "the target is missing: /probe?target=HOST"},
        {{{"target", ""}}, "the target is missing: /probe?target=HOST"},
        {{{"target", "a"}, {"target", "a"}}, "target is given twice"},
        {{{"target", "a"}, {"collect", "all"}}, "collect is status or configuration, not 'all'"},
        {{{"target", "a"}, {"collect", ""}}, "collect is status or configuration, not ''"},
        {{{"target", "a"}, {"debug", "1"}}, "debug is true or false, not '1'"},
        {{{"target", "a"}, {"tarjet", "a"}}, "there is no parameter 'tarjet'"},
        {{{"a\n\xFF", ""}}, R"(there is no parameter 'a\x0A\xFF')"},
    };
    for (const auto& [arguments, problem] : cases)
        EXPECT_EQ(problem_of(arguments), problem);
}

TEST(ProbeRequest, HasHalfASecondLessThanPrometheusWaits) {
    EXPECT_EQ(time_for_probe("10"), milliseconds(9500));
    EXPECT_EQ(time_for_probe("3.25"), milliseconds(2750));
    EXPECT_EQ(time_for_probe({}), milliseconds(9500));
}

TEST(ProbeRequest, HasHalfOfATimeThatIsShort) {
    EXPECT_EQ(time_for_probe("1"), milliseconds(500));
    EXPECT_EQ(time_for_probe("0.2"), milliseconds(100));
    EXPECT_EQ(time_for_probe("0.0001"), milliseconds(1));
}

TEST(ProbeRequest, NeverHasMoreThanAMinute) {
    EXPECT_EQ(time_for_probe("61"), milliseconds(59500));
    EXPECT_EQ(time_for_probe("1e300"), milliseconds(59500));
}

TEST(ProbeRequest, TakesATimeThatMakesNoSenseForNone) {
    for (const char* const header : {"", "abc", "-1", "0", "nan", "inf", "10s", " 10", "1e999"})
        EXPECT_EQ(time_for_probe(header), milliseconds(9500)) << header;
}

}  // namespace

}  // namespace exporter
