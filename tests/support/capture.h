// What a piece of code prints on its two streams.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <ostream>
#include <string>

struct Printed {
    std::string out;
    std::string err;

    bool operator==(const Printed&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Printed& printed) {
    return stream << "\n[out]\n" << printed.out << "[err]\n" << printed.err;
}

// Runs `code` and returns what it printed.
template <typename Code>
Printed printed_by(Code code) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    code();
    Printed printed;
    printed.out = testing::internal::GetCapturedStdout();
    printed.err = testing::internal::GetCapturedStderr();
    return printed;
}

// Replaces the seconds since the epoch behind `prefix` by NOW, and checks that they are not older
// than `before` nor in the future.
inline std::string without_time(std::string text, const std::string& prefix, std::time_t before) {
    const std::size_t found = text.find(prefix);
    if (found == std::string::npos)
        return text;
    const std::size_t digits = found + prefix.size();
    const std::size_t length = text.find_first_not_of("0123456789", digits) - digits;
    const std::time_t seconds = std::stol(text.substr(digits, length));
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, std::time(nullptr));
    return text.replace(digits, length, "NOW");
}
