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
#include "protocol/description.h"

namespace {

using protocol::Layout;

static_assert(sizeof(std::time_t) == 8);  // the clock goes on after 2038

constexpr std::size_t kTimeWidth = protocol::width(Layout::time_of_day, "time");
constexpr std::size_t kDateWidth = protocol::width(Layout::day, "date");
static_assert(kTimeWidth == protocol::width(Layout::configuration_2, "time"));
static_assert(kDateWidth == protocol::width(Layout::configuration_2, "date"));

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

constinit std::tm shown{};  // what get_clock_time() has read

template <typename... Numbers>
int put_clock(std::uint8_t* buffer, std::size_t width, const char* format, Numbers... numbers) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, numbers...);
    std::copy_n(text.begin(), width, buffer);
    return 0;
}

}  // namespace

// The date is that of the same moment: around midnight two readings could belong to two days.
int get_clock_time(std::uint8_t* buffer) {
    shown = local_now();
    return put_clock(buffer, kTimeWidth, "%.2d.%.2d", shown.tm_hour, shown.tm_min);
}

int get_clock_date(std::uint8_t* buffer) {
    return put_clock(buffer, kDateWidth, "%.2d.%.2d.%.4d", shown.tm_mday, shown.tm_mon + kTmMonths,
                     shown.tm_year + kTmYears);
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
