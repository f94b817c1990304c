// Ends of the process that are ends of a call instead. The program is linked with --wrap=exit.
#pragma once

#include <csetjmp>
#include <optional>

// While true, an exit goes there; else the process ends.
extern bool exit_is_caught;
extern std::jmp_buf exit_goes_to;
// The status of the last exit that went there.
extern int exit_status;

// The status with which `code` ended the process, nothing when it returned. An exit is declared not
// to throw, so it jumps: what `code` had on its stack then is not destroyed.
template <typename Code>
std::optional<int> exit_status_of(const Code& code) {
    exit_is_caught = true;
    if (setjmp(exit_goes_to) != 0)  // NOLINT(cert-err52-cpp)
        return exit_status;
    try {
        code();
    } catch (...) {
        exit_is_caught = false;
        throw;
    }
    exit_is_caught = false;
    return std::nullopt;
}
