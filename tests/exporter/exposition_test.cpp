// The text format, byte by byte.
#include "exporter/exposition.h"

#include <gtest/gtest.h>

namespace exporter {

namespace {

TEST(Exposition, TellsHelpTypeAndSamplesOfEachMetric) {
    Exposition out;
    out.gauge("zondar_up", "whether it answered", 1);
    out.family("zondar_alarm", "gauge", "alarms");
    out.sample({{"alarm", "alarma_hw"}}, 0);
    out.sample({{"alarm", "alarma_in"}, {"site", "sur"}}, 1);
    out.counter("zondar_probes_total", "probes", 3);
    EXPECT_EQ(out.text(),
              "# HELP zondar_up whether it answered\n"
              "# TYPE zondar_up gauge\n"
              "zondar_up 1\n"
              "# HELP zondar_alarm alarms\n"
              "# TYPE zondar_alarm gauge\n"
              "zondar_alarm{alarm=\"alarma_hw\"} 0\n"
              "zondar_alarm{alarm=\"alarma_in\",site=\"sur\"} 1\n"
              "# HELP zondar_probes_total probes\n"
              "# TYPE zondar_probes_total counter\n"
              "zondar_probes_total 3\n");
}

TEST(Exposition, EscapesWhatEndsAText) {
    Exposition out;
    out.family("m", "gauge", "a \\ in it, and a \"");
    out.sample({{"name", R"(a "b" \c)"}}, 1);
    EXPECT_EQ(out.text(),
              "# HELP m a \\\\ in it, and a \"\n"
              "# TYPE m gauge\n"
              "m{name=\"a \\\"b\\\" \\\\c\"} 1\n");
}

// One label that is not UTF-8 makes Prometheus drop all that was scraped.
TEST(Exposition, IsUtf8WhateverTheTextsAre) {
    const struct {
        const char* text;
        const char* label;
    } cases[] = {
        {"Canal Ñ €", "Canal Ñ €"},
        {"Ca\xF1"
         "al",
         R"(Ca\\xF1al)"},
        {"\xC3", R"(\\xC3)"},
        {"\xED\xA0\x80", R"(\\xED\\xA0\\x80)"},
        {"\xF5\x80\x80\x80", R"(\\xF5\\x80\\x80\\x80)"},
        {"a\nb\tc\x7F", R"(a\\x0Ab\\x09c\\x7F)"},
    };
    for (const auto& [text, label] : cases) {
        Exposition out;
        out.family("m", "gauge", "");
        out.sample({{"name", text}}, 1);
        EXPECT_EQ(out.text(),
                  "# HELP m \n# TYPE m gauge\nm{name=\"" + std::string(label) + "\"} 1\n");
    }
}

TEST(Exposition, WritesNumbersWithoutLoss) {
    EXPECT_EQ(number_text(0), "0");
    EXPECT_EQ(number_text(-5), "-5");
    EXPECT_EQ(number_text(4294967295), "4294967295");
    EXPECT_EQ(number_text(0.0125), "0.0125");
    EXPECT_EQ(number_text(1e-7), "1e-07");
}

}  // namespace

}  // namespace exporter
