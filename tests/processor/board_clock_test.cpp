// The clock of the board: what the configuration answer shows of it, and what the two sub-commands
// set it to. The clock is the test's own.
#include "processor/board_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "processor/conf_log.h"
#include "processor/end_put_off.h"
#include "tests/processor/marked_buffer.h"
#include "tests/processor/own_log.h"
#include "tests/processor/requests.h"
#include "tests/support/board_clock.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/open_board.h"
#include "tests/support/trace.h"

namespace {

bool a_signal_comes = false;
volatile std::sig_atomic_t in_the_time_zone = 0;
volatile std::sig_atomic_t taken = 0;
volatile std::sig_atomic_t taken_in_the_time_zone = 0;

// As the handler of a fatal signal does.
void take(int /*signal*/) {
    EndPutOff::run([] {
        taken = taken + 1;
        taken_in_the_time_zone = taken_in_the_time_zone + in_the_time_zone;
    });
}

void enter_the_time_zone() {
    if (!a_signal_comes)
        return;
    in_the_time_zone = 1;
    std::raise(SIGTERM);
    in_the_time_zone = 0;
}

}  // namespace

// The linker's names for the C library's, which has others where time_t had 4 bytes once.
#ifdef __USE_TIME_BITS64
#define LOCALTIME "__localtime64"
#define MKTIME "__mktime64"
#else
#define LOCALTIME "localtime"
#define MKTIME "mktime"
#endif

// The linker puts these in between. The C library holds the time zone's lock in both.
std::tm* library_localtime(const std::time_t* moment) asm("__real_" LOCALTIME);
std::tm* localtime_and_signal(const std::time_t* moment) asm("__wrap_" LOCALTIME);
std::tm* localtime_and_signal(const std::time_t* moment) {
    enter_the_time_zone();
    return library_localtime(moment);
}

std::time_t library_mktime(std::tm* local) asm("__real_" MKTIME);
std::time_t mktime_and_signal(std::tm* local) asm("__wrap_" MKTIME);
std::time_t mktime_and_signal(std::tm* local) {
    enter_the_time_zone();
    return library_mktime(local);
}

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using namespace std::string_literals;

constexpr std::time_t kMinute = 60;
constexpr std::time_t kHour = 60 * kMinute;
constexpr std::time_t kDay = 24 * kHour;

// The seconds since the epoch of a moment in UTC.
constexpr std::time_t utc(int year, unsigned month, unsigned day, int hour = 0, int minute = 0,
                          int second = 0) {
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                           std::chrono::day(day)};
    const std::time_t days = std::chrono::sys_days(date).time_since_epoch().count();
    return days * kDay + hour * kHour + minute * kMinute + second;
}
// date -u -d '2024-02-03 09:05:07' +%s, and of '1969-12-31 23:59:59'
static_assert(utc(2024, 2, 3, 9, 5, 7) == 1706951107);
static_assert(utc(1969, 12, 31, 23, 59, 59) == -1);

constexpr char kUtc[] = "UTC0";
constexpr char kMadrid[] = "CET-1CEST,M3.5.0,M10.5.0/3";  // an hour ahead, in summer two
constexpr char kDelhi[] = "IST-5:30";                     // ahead
constexpr char kKathmandu[] = "<+0545>-5:45";             // ahead
constexpr char kStJohns[] = "NST3:30NDT,M3.2.0,M11.1.0";  // behind, in summer an hour less
constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";     // behind, in summer an hour less
constexpr char kKiritimati[] = "<+14>-14";
constexpr char kSydney[] = "AEST-10AEDT,M10.1.0,M4.1.0/3";  // summer over the turn of the year

// Shown

struct Shown {
    const char* zone;
    std::time_t now;
    const char* text;
};

const Shown kShown[] = {
    {kUtc, utc(2024, 2, 3, 9, 5), "09.0503.02.2024"},
    {kUtc, utc(2024, 2, 3, 9, 5, 59), "09.0503.02.2024"},
    {kUtc, utc(2024, 10, 20, 10, 30), "10.3020.10.2024"},
    {kUtc, utc(2024, 2, 29, 0, 0), "00.0029.02.2024"},
    {kUtc, utc(2023, 12, 31, 23, 59, 59), "23.5931.12.2023"},
    {kUtc, utc(2024, 1, 1), "00.0001.01.2024"},
    {kUtc, utc(2038, 1, 19, 3, 14, 8), "03.1419.01.2038"},
    {kUtc, 0, "00.0001.01.1970"},
    {kUtc, -1, "23.5931.12.1969"},
    {kUtc, utc(1899, 12, 31, 12, 34), "12.3431.12.1899"},
    {kUtc, utc(999, 1, 1), "00.0001.01.0999"},
    {kUtc, utc(9999, 12, 31, 23, 59), "23.5931.12.9999"},
    // one character too long
    {kUtc, utc(10000, 1, 1), "00.0001.01.1000"},
    {kUtc, utc(-1, 6, 7), "00.0007.06.-000"},
    // no calendar has it
    {kUtc, std::numeric_limits<std::time_t>::max(), "00.0000.01.1900"},
    {kMadrid, utc(2024, 2, 3, 9, 5), "10.0503.02.2024"},
    {kMadrid, utc(2023, 12, 31, 22, 59), "23.5931.12.2023"},
    {kMadrid, utc(2023, 12, 31, 23, 0), "00.0001.01.2024"},
    // the hour that is left out, and the one that comes twice
    {kMadrid, utc(2024, 3, 31, 0, 59), "01.5931.03.2024"},
    {kMadrid, utc(2024, 3, 31, 1, 0), "03.0031.03.2024"},
    {kMadrid, utc(2024, 10, 27, 0, 30), "02.3027.10.2024"},
    {kMadrid, utc(2024, 10, 27, 1, 30), "02.3027.10.2024"},
    {kMadrid, utc(2024, 7, 3, 9, 5), "11.0503.07.2024"},
    {kDelhi, utc(2024, 2, 3, 9, 5), "14.3503.02.2024"},
    {kDelhi, utc(2024, 2, 3, 18, 30), "00.0004.02.2024"},
    {kKathmandu, utc(2024, 2, 3, 9, 5), "14.5003.02.2024"},
    {kStJohns, utc(2024, 2, 3, 9, 5), "05.3503.02.2024"},
    {kStJohns, utc(2024, 7, 3, 9, 5), "06.3503.07.2024"},
    {kNewYork, utc(2024, 1, 1, 4, 59), "23.5931.12.2023"},
    {kKiritimati, utc(2023, 12, 31, 10, 0), "00.0001.01.2024"},
    {kSydney, utc(2024, 1, 1, 0, 0), "11.0001.01.2024"},
    {kSydney, utc(2024, 7, 1, 0, 0), "10.0001.07.2024"},
};

class BoardClock : public testing::Test {
  protected:
    BoardClock() {
        refuse_clock_settings(0);
        take_clock_settings();
    }

    static void show(const char* zone, std::time_t now) {
        setenv("TZ", zone, 1);
        clock_shows(now);
    }

  private:
    OpenBoard board_;
};

// The zone of the moment counts, so one that is changed meanwhile does, too.
TEST_F(BoardClock, IsShownInLocalTime) {
    for (const Shown& shown : kShown) {
        SCOPED_TRACE(std::string(shown.zone) + ", " + shown.text);
        show(shown.zone, shown.now);
        const Bytes info = answer_to(1, {2});
        ASSERT_EQ(info.size(), 185U);
        EXPECT_EQ(std::string(info.begin() + 168, info.begin() + 183), shown.text);
    }
    EXPECT_THAT(take_clock_settings(), IsEmpty());
}

TEST_F(BoardClock, IsWrittenWithoutANulIntoItsBytesAlone) {
    for (const Shown& shown : kShown) {
        SCOPED_TRACE(std::string(shown.zone) + ", " + shown.text);
        show(shown.zone, shown.now);
        const Bytes text = text_bytes(shown.text);
        Bytes clock = marked();
        EXPECT_EQ(get_clock_time(clock.data()), 0);
        EXPECT_EQ(get_clock_date(clock.data() + 5), 0);
        EXPECT_EQ(to_hex(clock), to_hex(marked({text.begin(), text.end()})));
    }
}

// Read a second before midnight, and nothing of it after.
TEST_F(BoardClock, IsOneMoment) {
    setenv("TZ", kUtc, 1);
    clock_shows(utc(2023, 12, 31, 23, 59, 59), 1);
    const Bytes info = answer_to(1, {2});
    clock_shows(0);
    ASSERT_EQ(info.size(), 185U);
    EXPECT_EQ(std::string(info.begin() + 168, info.begin() + 183), "23.5931.12.2023");
}

// Set

constexpr std::uint8_t kWrite = 3;
constexpr std::uint8_t kTime = 72;
constexpr std::uint8_t kDate = 73;

// 37 seconds past 09:05 on 3 February 2024, in UTC.
constexpr std::time_t kNow = utc(2024, 2, 3, 9, 5, 37);

struct Setting {
    std::string text;
    std::time_t moment;
    const char* zone = kUtc;
    std::time_t now = kNow;
};

Bytes setting(std::uint8_t subcommand, const std::string& text) {
    return joined({{subcommand}, text_bytes(text)});
}

class BoardClockSet : public BoardClock {
  protected:
    static void expect_settings(std::uint8_t subcommand, std::span<const Setting> settings) {
        for (const Setting& s : settings) {
            SCOPED_TRACE(testing::PrintToString(s.text) + ", " + s.zone + ", " +
                         std::to_string(s.now));
            show(s.zone, s.now);
            EXPECT_THAT(answer_to(kWrite, setting(subcommand, s.text)), IsEmpty());
            EXPECT_THAT(take_clock_settings(), ElementsAre(s.moment));
        }
    }
};

const Setting kTimes[] = {
    {"10.30", utc(2024, 2, 3, 10, 30)},
    {"09.05", utc(2024, 2, 3, 9, 5)},
    {"00.00", utc(2024, 2, 3, 0, 0)},
    {"23.59", utc(2024, 2, 3, 23, 59)},
    {"08.09", utc(2024, 2, 3, 8, 9)},  // decimal, not octal
    {"10.30", utc(2024, 2, 3, 10, 30), kUtc, utc(2024, 2, 3, 0, 0, 0)},
    {"10.30", utc(2024, 2, 3, 10, 30), kUtc, utc(2024, 2, 3, 23, 59, 59)},
    {"12.00", utc(2024, 2, 29, 12, 0), kUtc, utc(2024, 2, 29, 1, 2, 3)},
    {"12.00", utc(2023, 12, 31, 12, 0), kUtc, utc(2023, 12, 31, 23, 59, 59)},
    {"12.00", utc(1970, 1, 1, 12, 0), kUtc, 0},
    {"12.00", utc(1969, 12, 31, 12, 0), kUtc, -1},
    {"10.30", utc(1900, 1, 1, 10, 30), kUtc, utc(1900, 1, 1)},
};

TEST_F(BoardClockSet, ToATimeOfDayGetsItsFullMinuteToday) {
    expect_settings(kTime, kTimes);
}

const Setting kTimesInZones[] = {
    {"10.30", utc(2024, 2, 3, 9, 30), kMadrid, utc(2024, 2, 3, 9, 5)},
    {"10.30", utc(2024, 7, 3, 8, 30), kMadrid, utc(2024, 7, 3, 9, 5)},
    // it is tomorrow there already, and still yesterday
    {"00.15", utc(2024, 2, 3, 23, 15), kMadrid, utc(2024, 2, 3, 23, 5)},
    {"10.30", utc(2024, 2, 4, 5, 0), kDelhi, utc(2024, 2, 3, 20, 0)},
    {"10.30", utc(2024, 2, 4, 4, 45), kKathmandu, utc(2024, 2, 3, 20, 0)},
    {"10.30", utc(2024, 2, 2, 15, 30), kNewYork, utc(2024, 2, 3, 4, 59)},
    {"10.30", utc(2024, 2, 2, 14, 0), kStJohns, utc(2024, 2, 3, 3, 29)},
    {"00.01", utc(2023, 12, 31, 10, 1), kKiritimati, utc(2023, 12, 31, 10, 0)},
    // to the other side of that day's change between winter and summer
    {"01.30", utc(2024, 3, 31, 0, 30), kMadrid, utc(2024, 3, 31, 10, 0)},
    {"12.00", utc(2024, 3, 31, 10, 0), kMadrid, utc(2024, 3, 31, 0, 30)},
    {"01.30", utc(2024, 10, 26, 23, 30), kMadrid, utc(2024, 10, 27, 11, 0)},
    {"12.00", utc(2024, 10, 27, 11, 0), kMadrid, utc(2024, 10, 26, 23, 30)},
    {"12.00", utc(2024, 4, 7, 2, 0), kSydney, utc(2024, 4, 6, 14, 30)},
};

TEST_F(BoardClockSet, ToATimeOfDayTakesTheZonesTodayAndHour) {
    expect_settings(kTime, kTimesInZones);
}

const Setting kTimesBeyond[] = {
    {"24.00", utc(2024, 2, 4, 0, 0)},
    {"25.99", utc(2024, 2, 4, 2, 39)},
    {"99.99", utc(2024, 2, 7, 4, 39)},
    {"09.60", utc(2024, 2, 3, 10, 0)},
    {"23.60", utc(2024, 3, 1, 0, 0), kUtc, utc(2024, 2, 29, 1, 2, 3)},
    {"24.00", utc(2024, 1, 1, 0, 0), kUtc, utc(2023, 12, 31, 1, 2, 3)},
    {"-1.30", utc(2024, 2, 2, 23, 30)},
    {"0.-30", utc(2024, 2, 2, 23, 30)},
    {"-1.-1", utc(2024, 2, 2, 22, 59)},
    {"100.1", utc(2024, 2, 7, 4, 1)},
    {"1.999", utc(2024, 2, 3, 17, 39)},
    {"99999", utc(2024, 2, 3, 0, 5) + 99999 * kHour},
    {"-9999", utc(2024, 2, 3, 0, 5) - 9999 * kHour},
    {"-1.00", utc(1969, 12, 31, 23, 0), kUtc, 0},
};

TEST_F(BoardClockSet, ToATimeOfDayCountsOnIntoOtherHoursAndDays) {
    expect_settings(kTime, kTimesBeyond);
}

const Setting kTimesUnread[] = {
    {"1.2", utc(2024, 2, 3, 1, 2)},
    {" 7. 8", utc(2024, 2, 3, 7, 8)},
    {"+7.+8", utc(2024, 2, 3, 7, 8)},
    {"\n7.\t8", utc(2024, 2, 3, 7, 8)},
    {"7.8xx", utc(2024, 2, 3, 7, 8)},
    {"7.8.9", utc(2024, 2, 3, 7, 8)},
    {"10.", utc(2024, 2, 3, 10, 5)},
    {"10", utc(2024, 2, 3, 10, 5)},
    {"10:30", utc(2024, 2, 3, 10, 5)},
    {"10 30", utc(2024, 2, 3, 10, 5)},
    {"10,30", utc(2024, 2, 3, 10, 5)},
    {"7 .30", utc(2024, 2, 3, 7, 5)},
    {"10.xx", utc(2024, 2, 3, 10, 5)},
    {"10.-", utc(2024, 2, 3, 10, 5)},
    {"10\0.3"s, utc(2024, 2, 3, 10, 5)},
    {".30", utc(2024, 2, 3, 9, 5)},
    {"xx.30", utc(2024, 2, 3, 9, 5)},
    {"-.30", utc(2024, 2, 3, 9, 5)},
    {"hello", utc(2024, 2, 3, 9, 5)},
    {"     ", utc(2024, 2, 3, 9, 5)},
    {"\0\0\0\0\0"s, utc(2024, 2, 3, 9, 5)},
    {"\xFF\xFF\xFF\xFF\xFF", utc(2024, 2, 3, 9, 5)},
    {"%d.%d", utc(2024, 2, 3, 9, 5)},
    // five characters are read, whatever follows
    {"10.305", utc(2024, 2, 3, 10, 30)},
    {"10.30" + std::string(249, '9'), utc(2024, 2, 3, 10, 30)},
    {"    10.30", utc(2024, 2, 3, 1, 5)},
};

// What cannot be read keeps the clock's own, and the clock is set all the same.
TEST_F(BoardClockSet, ToATimeOfDayTakesAsMuchOfTheTextAsItCan) {
    expect_settings(kTime, kTimesUnread);
}

const Setting kDays[] = {
    {"04.03.2025", utc(2025, 3, 4, 9, 5, 37)},
    {"03.02.2024", utc(2024, 2, 3, 9, 5, 37)},
    {"08.09.2024", utc(2024, 9, 8, 9, 5, 37)},  // decimal, not octal
    {"01.01.2024", utc(2024, 1, 1, 9, 5, 37)},
    {"31.12.2024", utc(2024, 12, 31, 9, 5, 37)},
    {"29.02.2024", utc(2024, 2, 29, 9, 5, 37)},
    {"04.03.2025", utc(2025, 3, 4, 23, 59, 59), kUtc, utc(2023, 12, 31, 23, 59, 59)},
    {"04.03.2025", utc(2025, 3, 4), kUtc, utc(2024, 1, 1)},
    {"19.01.2038", utc(2038, 1, 19, 9, 5, 37)},
    {"20.01.2038", utc(2038, 1, 20, 9, 5, 37)},
    // before the epoch, up to its last second
    {"31.12.1969", utc(1969, 12, 31, 9, 5, 37)},
    {"31.12.1969", -1, kUtc, utc(2024, 2, 3, 23, 59, 59)},
    {"01.01.1970", 0, kUtc, utc(2024, 2, 3)},
    {"01.01.1900", utc(1900, 1, 1, 9, 5, 37)},
    {"31.12.1899", utc(1899, 12, 31, 9, 5, 37)},
    {"31.12.9999", utc(9999, 12, 31, 9, 5, 37)},
    {"01.01.0001", utc(1, 1, 1, 9, 5, 37)},
};

TEST_F(BoardClockSet, ToADayKeepsTheTimeOfDayToTheSecond) {
    expect_settings(kDate, kDays);
}

const Setting kDaysInZones[] = {
    // 12:34:56 in winter and in summer
    {"15.07.2024", utc(2024, 7, 15, 10, 34, 56), kMadrid, utc(2024, 1, 15, 11, 34, 56)},
    {"15.01.2024", utc(2024, 1, 15, 11, 34, 56), kMadrid, utc(2024, 7, 15, 10, 34, 56)},
    {"16.01.2024", utc(2024, 1, 16, 11, 34, 56), kMadrid, utc(2024, 1, 15, 11, 34, 56)},
    {"15.07.2024", utc(2024, 7, 15, 2, 34, 56), kSydney, utc(2024, 1, 15, 1, 34, 56)},
    {"15.01.2024", utc(2024, 1, 15, 15, 4, 56), kStJohns, utc(2024, 7, 15, 14, 4, 56)},
    // 01:30:45 there, on the day before and behind
    {"24.12.2025", utc(2025, 12, 23, 20, 0, 45), kDelhi, utc(2024, 2, 3, 20, 0, 45)},
    {"24.12.2025", utc(2025, 12, 23, 19, 45, 45), kKathmandu, utc(2024, 2, 3, 19, 45, 45)},
    {"24.12.2025", utc(2025, 12, 25, 4, 59, 1), kNewYork, utc(2024, 2, 3, 4, 59, 1)},
    {"01.01.2025", utc(2024, 12, 31, 10, 0), kKiritimati, utc(2024, 2, 3, 10, 0)},
    {"01.01.1970", -kHour, kMadrid, utc(2024, 2, 2, 23, 0)},
};

TEST_F(BoardClockSet, ToADayKeepsTheTimeOfDayThatTheZoneHas) {
    expect_settings(kDate, kDaysInZones);
}

const Setting kDaysBeyond[] = {
    {"31.02.2024", utc(2024, 3, 2, 9, 5, 37)},
    {"29.02.2023", utc(2023, 3, 1, 9, 5, 37)},
    {"31.04.2024", utc(2024, 5, 1, 9, 5, 37)},
    {"32.12.2024", utc(2025, 1, 1, 9, 5, 37)},
    {"00.01.2024", utc(2023, 12, 31, 9, 5, 37)},
    {"00.00.0000", utc(-1, 11, 30, 9, 5, 37)},
    {"01.00.2024", utc(2023, 12, 1, 9, 5, 37)},
    {"01.13.2024", utc(2025, 1, 1, 9, 5, 37)},
    {"00.13.2024", utc(2024, 12, 31, 9, 5, 37)},
    {"01.25.2024", utc(2026, 1, 1, 9, 5, 37)},
    // 98 months behind January, 98 days behind the first
    {"99.99.9999", utc(10007, 6, 7, 9, 5, 37)},
    {"-1.02.2024", utc(2024, 1, 30, 9, 5, 37)},
    {"01.-1.2024", utc(2023, 11, 1, 9, 5, 37)},
    {"1.1.-1", utc(-1, 1, 1, 9, 5, 37)},
    {"366.1.2024", utc(2024, 12, 31, 9, 5, 37)},
    {"1.121.2024", utc(2034, 1, 1, 9, 5, 37)},
    {"1.1.032767", utc(32767, 1, 1, 9, 5, 37)},
    {"999999.1.1", utc(1, 1, 1, 9, 5, 37) + 999998 * kDay},
};

TEST_F(BoardClockSet, ToADayCountsOnIntoOtherMonthsAndYears) {
    expect_settings(kDate, kDaysBeyond);
}

const Setting kDaysUnread[] = {
    {"4.3.2025", utc(2025, 3, 4, 9, 5, 37)},
    {" 4. 3.2025", utc(2025, 3, 4, 9, 5, 37)},
    {"+4.+3.2025", utc(2025, 3, 4, 9, 5, 37)},
    {"4.3.2025.6", utc(2025, 3, 4, 9, 5, 37)},
    {"4.3.2025xx", utc(2025, 3, 4, 9, 5, 37)},
    // the year as it stands
    {"04.03.25", utc(25, 3, 4, 9, 5, 37)},
    {"04.05.", utc(2024, 5, 4, 9, 5, 37)},
    {"04.05", utc(2024, 5, 4, 9, 5, 37)},
    {"04.05.xxxx", utc(2024, 5, 4, 9, 5, 37)},
    {"04.05-2025", utc(2024, 5, 4, 9, 5, 37)},
    {"04 .5.2025", utc(2024, 2, 4, 9, 5, 37)},
    {"04.", utc(2024, 2, 4, 9, 5, 37)},
    {"04", utc(2024, 2, 4, 9, 5, 37)},
    {"04/05/2025", utc(2024, 2, 4, 9, 5, 37)},
    {"04.xx.2025", utc(2024, 2, 4, 9, 5, 37)},
    {"04\0.05.202"s, utc(2024, 2, 4, 9, 5, 37)},
    {"2025-05-04", utc(2024, 2, 1, 9, 5, 37) + 2024 * kDay},
    {".05.2025", kNow},
    {"xx.05.2025", kNow},
    {"tomorrow", kNow},
    {"          ", kNow},
    {"\0\0\0\0\0\0\0\0\0\0"s, kNow},
    {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", kNow},
    {"%d.%d.%d", kNow},
    // ten characters are read, whatever follows
    {"04.03.20256", utc(2025, 3, 4, 9, 5, 37)},
    {"04.03.2025" + std::string(244, '9'), utc(2025, 3, 4, 9, 5, 37)},
    {"          04.03.2025", kNow},
};

TEST_F(BoardClockSet, ToADayTakesAsMuchOfTheTextAsItCan) {
    expect_settings(kDate, kDaysUnread);
}

// Also numbers that no int holds. Which moment they stand for is up to the C library.
TEST_F(BoardClockSet, ToAnythingIsTriedOnce) {
    show(kUtc, kNow);
    for (const char* const text : {"9999999999", "-999999999", "2147483647", "2147483648",
                                   "1.99999999", "1.-9999999", "1.1.999999", "1.1.-99999"}) {
        SCOPED_TRACE(text);
        for (const std::uint8_t subcommand : {kTime, kDate}) {
            EXPECT_THAT(answer_to(kWrite, setting(subcommand, text)), IsEmpty());
            EXPECT_EQ(take_clock_settings().size(), 1U);
        }
    }
}

// A request that is too short for its text has it run on into the bytes that follow: the checksum,
// and whatever else the record holds.
struct Short {
    const char* name;
    std::uint8_t subcommand;
    std::string text;
    std::string behind;
    std::time_t moment;
};

const Short kShort[] = {
    {"time, one character", kTime, "1", "2.34", utc(2024, 2, 3, 12, 34)},
    {"time, two", kTime, "12", ".34", utc(2024, 2, 3, 12, 34)},
    {"time, four", kTime, "12.3", "4567", utc(2024, 2, 3, 12, 34)},
    {"time, five", kTime, "12.34", "5678", utc(2024, 2, 3, 12, 34)},
    {"date, one character", kDate, "0", "4.03.2025", utc(2025, 3, 4, 9, 5, 37)},
    {"date, six", kDate, "04.03.", "2025678", utc(2025, 3, 4, 9, 5, 37)},
    {"date, nine", kDate, "04.03.202", "5678", utc(2025, 3, 4, 9, 5, 37)},
    {"date, ten", kDate, "04.03.2025", "678", utc(2025, 3, 4, 9, 5, 37)},
};

TEST_F(BoardClockSet, ToATextThatIsCutShortTakesTheBytesBehindIt) {
    for (const Short& cut : kShort) {
        SCOPED_TRACE(cut.name);
        show(kUtc, kNow);
        mensaje request = request_of(kWrite, setting(cut.subcommand, cut.text));
        std::copy(cut.behind.begin(), cut.behind.end(), &request.info[request.longitud]);
        EXPECT_THAT(answer_to(request), IsEmpty());
        EXPECT_THAT(take_clock_settings(), ElementsAre(cut.moment));
    }
}

TEST_F(BoardClockSet, WithoutAnyTextIsRefused) {
    show(kUtc, kNow);
    for (const std::uint8_t subcommand : {kTime, kDate}) {
        EXPECT_EQ(answer_to(kWrite, {subcommand}), Bytes(255));
        EXPECT_THAT(take_clock_settings(), IsEmpty());
    }
}

// Logged

const std::string kWriteLine = "<31>CMD: Comando escritura parametros.\n";
const std::string kTimeLine = "<31>Subcomando SUBCOMMAND_TIME\n";
const std::string kDateLine = "<31>Subcomando SUBCOMMAND_DATE\n";
const std::string kTimeRefused = "<28>ERROR: Al escribir la nueva hora. root?\n";
// without a line end, unlike its twin
const std::string kDateRefused = "<28>ERROR: Al escribir la nueva fecha. root? trn";

struct Logged {
    std::uint8_t subcommand;
    const char* text;
    std::time_t moment;
    int refusal;  // of the clock
    std::vector<std::string> lines;
};

const Logged kLogged[] = {
    {kTime, "10.30", utc(2024, 2, 3, 10, 30), 0, {kWriteLine, kTimeLine}},
    {kTime, "10.30", utc(2024, 2, 3, 10, 30), EPERM, {kWriteLine, kTimeLine, kTimeRefused}},
    {kTime, "10.30", utc(2024, 2, 3, 10, 30), EINVAL, {kWriteLine, kTimeLine, kTimeRefused}},
    {kTime, "99.99", utc(2024, 2, 7, 4, 39), 0, {kWriteLine, kTimeLine}},
    {kTime, "hello", utc(2024, 2, 3, 9, 5), 0, {kWriteLine, kTimeLine}},
    {kTime, "hello", utc(2024, 2, 3, 9, 5), EPERM, {kWriteLine, kTimeLine, kTimeRefused}},
    {kDate, "04.03.2025", utc(2025, 3, 4, 9, 5, 37), 0, {kWriteLine, kDateLine}},
    {kDate, "04.03.2025", utc(2025, 3, 4, 9, 5, 37), EPERM, {kWriteLine, kDateLine, kDateRefused}},
    {kDate,
     "31.12.1969",
     utc(1969, 12, 31, 9, 5, 37),
     EINVAL,
     {kWriteLine, kDateLine, kDateRefused}},
    {kDate, "00.00.0000", utc(-1, 11, 30, 9, 5, 37), 0, {kWriteLine, kDateLine}},
    {kDate, "tomorrow", kNow, 0, {kWriteLine, kDateLine}},
    {kDate, "tomorrow", kNow, EPERM, {kWriteLine, kDateLine, kDateRefused}},
};

// The master gets the same answer either way.
TEST_F(BoardClockSet, IsLoggedWhenItIsRefused) {
    OwnLog log;
    show(kUtc, kNow);
    for (const Logged& logged : kLogged) {
        SCOPED_TRACE(std::string(logged.text) + ", error " + std::to_string(logged.refusal));
        refuse_clock_settings(logged.refusal);
        for (const std::uint32_t mask : {0x40U, 0U, 0xFFFFFFBFU}) {
            conf_log = mask;
            EXPECT_THAT(answer_to(kWrite, setting(logged.subcommand, logged.text)), IsEmpty());
            EXPECT_THAT(take_clock_settings(), ElementsAre(logged.moment));
            const std::vector<std::string> none;
            EXPECT_THAT(log.take(), ElementsAreArray(mask == 0x40 ? logged.lines : none));
        }
    }
}

// The handler of a signal logs, for which it needs the time zone, too: it would wait for ever.
TEST_F(BoardClockSet, LeavesNoMomentInWhichASignalHangsTheDaemon) {
    show(kUtc, kNow);
    auto* const before = std::signal(SIGTERM, take);
    a_signal_comes = true;
    answer_to(1, {2});
    EXPECT_EQ(taken, 1);
    answer_to(kWrite, setting(kTime, "10.30"));
    EXPECT_EQ(taken, 3);
    answer_to(kWrite, setting(kDate, "04.03.2025"));
    EXPECT_EQ(taken, 5);
    EXPECT_EQ(taken_in_the_time_zone, 0);
    a_signal_comes = false;
    std::signal(SIGTERM, before);
}

TEST_F(BoardClockSet, LeavesTheDatabasesAlone) {
    Trace trace;
    const Contents before = contents();
    show(kUtc, kNow);
    for (const int refusal : {0, EPERM}) {
        refuse_clock_settings(refusal);
        answer_to(kWrite, setting(kTime, "10.30"));
        answer_to(kWrite, setting(kDate, "04.03.2025"));
    }
    EXPECT_THAT(trace.take(), IsEmpty());
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

}  // namespace
