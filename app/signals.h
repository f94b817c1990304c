// Fatal signals are the one way in which the daemon ends, apart from its guards.
#pragma once

#include <csignal>

// Holds the number of the first fatal signal, 0 until there is one. A later signal is ignored.
extern volatile std::sig_atomic_t signal_in_progress;

// Installs the handler for the fault signals and for SIGABRT, SIGHUP, SIGTERM and SIGINT. It logs
// why the process ends, closes both databases and exits with status 1, at the latest after a few
// seconds, whatever keeps it waiting. SIGUSR1 and SIGUSR2 are ignored; no other signal is touched
// before a fatal one.
void install_signal_handlers();
