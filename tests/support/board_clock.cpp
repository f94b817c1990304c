#include "tests/support/board_clock.h"

#include <cerrno>
#include <exception>
#include <utility>

namespace {

std::time_t shown = 0;
std::time_t step_of_reading = 0;
std::vector<std::time_t> settings;
int refusal = 0;

}  // namespace

// Both take the C library's place in the program they are linked into.
extern "C" std::time_t time(std::time_t* seconds) noexcept {
    const std::time_t now = std::exchange(shown, shown + step_of_reading);
    if (seconds != nullptr)
        *seconds = now;
    return now;
}

extern "C" int clock_settime(clockid_t clock, const std::timespec* moment) noexcept {
    if (clock != CLOCK_REALTIME || moment->tv_nsec != 0)
        std::terminate();
    settings.push_back(moment->tv_sec);
    errno = refusal;
    return refusal == 0 ? 0 : -1;
}

void clock_shows(std::time_t now, std::time_t step) {
    shown = now;
    step_of_reading = step;
}

std::vector<std::time_t> take_clock_settings() {
    return std::exchange(settings, {});
}

void refuse_clock_settings(int error) {
    refusal = error;
}
