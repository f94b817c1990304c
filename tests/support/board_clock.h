// A clock of the test's own: a program that links `board_clock` has this time() and this
// clock_settime(), and never reaches the machine's.
#pragma once

#include <ctime>
#include <vector>

// What time() says from now on, and by how many seconds it goes on with each reading.
void clock_shows(std::time_t now, std::time_t step = 0);

// Each attempt to set the real-time clock since the last call, in whole seconds.
std::vector<std::time_t> take_clock_settings();

// The error that further attempts fail with; 0 for none.
void refuse_clock_settings(int error);
