// The ranges of monitoring plugins.
#include "zondarctl/range.h"

#include <gtest/gtest.h>

#include "zondarctl/report.h"

namespace {

using zondarctl::parse_range;

// A range, and figures that are well and ill by it.
TEST(PluginRange, TellsWhatIsIll) {
    const struct {
        const char* text;
        std::vector<double> well;
        std::vector<double> ill;
        const char* where;
    } cases[] = {
        {"10", {0, 0.5, 10}, {-0.1, -1, 10.1, 11}, "outside 0:10"},
        {"0", {0}, {-1, 1}, "outside 0:0"},
        {":10", {0, 10}, {-1, 11}, "outside :10"},
        {"10:", {10, 1e9}, {9.9, 0, -10}, "outside 10:"},
        {"~:10", {10, 0, -1e9}, {10.1}, "outside ~:10"},
        {"10:20", {10, 15, 20}, {9.9, 20.1}, "outside 10:20"},
        {"@10:20", {9.9, 20.1}, {10, 15, 20}, "inside 10:20"},
        {"@10", {-1, 11}, {0, 10}, "inside 0:10"},
        {"@~:-5", {-4.9, 0}, {-5, -6}, "inside ~:-5"},
        {"-20:-10", {-20, -10}, {-21, -9, 15}, "outside -20:-10"},
        {"0.25:1.75", {0.25, 1.75}, {0.2, 1.8}, "outside 0.25:1.75"},
        {"~:", {-1e9, 0, 1e9}, {}, "outside ~:"},
        {"5:5", {5}, {4, 6}, "outside 5:5"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const zondarctl::PluginRange range = parse_range(each.text);
        for (const double figure : each.well)
            EXPECT_FALSE(range.is_ill(figure)) << figure;
        for (const double figure : each.ill)
            EXPECT_TRUE(range.is_ill(figure)) << figure;
        EXPECT_EQ(range.where(), each.where);
        EXPECT_EQ(range.text, each.text);
    }
}

TEST(PluginRange, TakesNothingElse) {
    for (const char* const text :
         {"",     ":",     "@",   "@:",   "x",     "10x",    "x:10", "10:x", "1:2:3", "~",
          "10:~", "10:5",  "-1",  "@5:1", " 10",   "10 ",    "+10",  "1e3",  "0x10",  "inf",
          "nan",  "~:nan", "1,5", "--1",  "1.2.3", "10:@20", "~~:1", "."}) {
        EXPECT_THROW(parse_range(text), zondarctl::UsageError) << text;
    }
}

}  // namespace
