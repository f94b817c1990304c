#include "tests/support/board_clock.h"

#include <cerrno>
#include <exception>
#include <utility>

namespace {

std::time_t shown = 0;
std::vector<std::time_t> settings;
int refusal = 0;

}  // namespace

// Both take the C library's place in the program they are linked into.
extern "C" std::time_t time(std::time_t* seconds) noexcept {
    if (seconds != nullptr)
        *seconds = shown;
    return shown;
}

extern "C" int clock_settime(clockid_t clock, const std::timespec* moment) noexcept {
    if (clock != CLOCK_REALTIME || moment->tv_nsec != 0)
        std::terminate();
    settings.push_back(moment->tv_sec);
    errno = refusal;
    return refusal == 0 ? 0 : -1;
}

void clock_shows(std::time_t now) {
    shown = now;
}

std::vector<std::time_t> take_clock_settings() {
    return std::exchange(settings, {});
}

void refuse_clock_settings(int error) {
    refusal = error;
}
