// What a piece of code prints on its two streams.
#pragma once

#include <gtest/gtest.h>

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
