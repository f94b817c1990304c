// The reception watchdog ends a daemon that nobody talks to after its start; the supervision
// outside starts it again.
#pragma once

#include <ctime>

// Is set on the first valid request, never cleared.
extern bool message_received;

// Starts the thread that checks once, `*limit` seconds (whole ones) after its start, whether a
// request has come, and ends the process with status 1 if not. `limit` must outlive the thread.
void start_reception_watchdog(const std::timespec* limit);
