#include "fuzz/exits.h"

#include <utility>

std::jmp_buf* exit_goes_to = nullptr;
int exit_status = 0;

// The linker's names. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" [[noreturn]] void __real_exit(int status);

extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (exit_goes_to == nullptr)
        __real_exit(status);
    exit_status = status;
    std::longjmp(*std::exchange(exit_goes_to, nullptr), 1);  // NOLINT(cert-err52-cpp)
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
