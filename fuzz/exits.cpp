#include "fuzz/exits.h"

bool exit_is_caught = false;
std::jmp_buf exit_goes_to;
int exit_status = 0;

// The linker's names. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" [[noreturn]] void __real_exit(int status);

extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (!exit_is_caught)
        __real_exit(status);
    exit_status = status;
    exit_is_caught = false;
    std::longjmp(exit_goes_to, 1);  // NOLINT(cert-err52-cpp)
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
