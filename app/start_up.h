// The start-up supervisor sees to it that the command processor is up in time.
#pragma once

#include <ctime>

// Runs the network reload script once and brings the command processor up on a thread of its own,
// trying once a second. Returns 0 when it is up; ends the process with status 1, silently, when
// `limit` runs out first.
int supervise_start_up(const std::timespec& limit);
