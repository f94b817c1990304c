// Sanitizers and the fault signals.
#pragma once

#include <cstdlib>

// The sanitizers take the fault signals so that a fault of our own is not mistaken for the
// daemon's ordinary end. Where a test causes one on purpose, the programs started from here on
// handle them themselves. Leaks are not looked for: that needs ptrace, which such a test may use.
inline void leave_faults_to_the_program() {
    const char* const options =
        "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0:"
        "detect_leaks=0:exitcode=99:report_signal_unsafe=0:report_thread_leaks=0";
    for (const char* const name : {"ASAN_OPTIONS", "TSAN_OPTIONS"})
        setenv(name, options, 1);
}
