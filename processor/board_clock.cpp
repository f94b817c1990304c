#include "processor/board_clock.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>

#include "link/mensaje.h"
#include "processor/end_put_off.h"
#include "processor/protocol_log.h"
#include "processor/request.h"

namespace {

static_assert(sizeof(std::time_t) == 8);  // the clock goes on after 2038

constexpr std::size_t kTimeWidth = 5;
constexpr std::size_t kDateWidth = 10;

constexpr int kTmYears = 1900;  // what tm_year counts from
constexpr int kTmMonths = 1;    // what tm_mon leaves out

// In the zone that the system has now: localtime() reads it anew each time, localtime_r() once.
std::tm local_now() {
    const EndPutOff end_put_off;
    const std::time_t now = std::time(nullptr);
    const std::tm* const local = std::localtime(&now);
    return local != nullptr ? *local : std::tm{};
}

std::time_t moment_of(std::tm local) {
    // Whether it is summer is that day's own: otherwise the time of day moved by an hour.
    local.tm_isdst = -1;
    const EndPutOff end_put_off;
    return std::mktime(&local);
}

// False for lack of rights, or when the moment is none that a clock can show.
bool set_clock(const std::tm& local) {
    const std::timespec moment{.tv_sec = moment_of(local), .tv_nsec = 0};
    return clock_settime(CLOCK_REALTIME, &moment) == 0;
}

template <std::size_t Width>
std::array<char, Width + 1> value_of(const mensaje& request) {
    std::array<char, Width + 1> value{};
    std::copy_n(&request.info[kValue], Width, value.begin());
    return value;
}

}  // namespace

// One reading for both: around midnight two could belong to two days.
int get_clock(std::uint8_t* buffer) {
    const std::tm now = local_now();
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.2d.%.2d%.2d.%.2d.%.4d", now.tm_hour, now.tm_min,
                  now.tm_mday, now.tm_mon + kTmMonths, now.tm_year + kTmYears);
    std::copy_n(text.begin(), kTimeWidth + kDateWidth, buffer);
    return 0;
}

void set_clock_time(const mensaje& request, mensaje& /*answer*/) {
    std::tm local = local_now();
    std::sscanf(value_of<kTimeWidth>(request).data(), "%d.%d", &local.tm_hour, &local.tm_min);
    local.tm_sec = 0;
    if (!set_clock(local))
        log_problem("ERROR: Al escribir la nueva hora. root?\n");
}

void set_clock_date(const mensaje& request, mensaje& /*answer*/) {
    std::tm local = local_now();
    int month = local.tm_mon + kTmMonths;
    int year = local.tm_year + kTmYears;
    std::sscanf(value_of<kDateWidth>(request).data(), "%d.%d.%d", &local.tm_mday, &month, &year);
    local.tm_mon = month - kTmMonths;
    local.tm_year = year - kTmYears;
    if (!set_clock(local))
        log_problem("ERROR: Al escribir la nueva fecha. root? trn");
}
