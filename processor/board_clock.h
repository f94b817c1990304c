// The clock of the board, in local time: read into the configuration answer, set by two
// sub-commands.
#pragma once

#include <cstdint>

struct mensaje;

// Hour and minute of this moment as "HH.MM", then the day of the same moment as "DD.MM.YYYY": 5 and
// 10 bytes without NUL. Always 0.
int get_clock_time(std::uint8_t* buffer);
int get_clock_date(std::uint8_t* buffer);

// Set hour and minute of today, the seconds to 0; set the day, at the same time of day. The value
// is "HH.MM" or "DD.MM.YYYY" behind the sub-command. Its numbers are not checked: one out of range
// counts on into the next days or months, one that cannot be read leaves the clock's own. A clock
// that cannot be set is logged.
void set_clock_time(const mensaje& request, mensaje& answer);
void set_clock_date(const mensaje& request, mensaje& answer);
