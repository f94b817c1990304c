// The connection to syslog: which priorities pass at each level, and how it is opened.
#include "app/log_system.h"

#include <gmock/gmock.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/app/in_child.h"
#include "tests/support/files.h"

namespace {

using testing::ElementsAre;

struct Level {
    unsigned level;
    int mask;
    // The priorities 0 (emergency) to 7 (debug) of the daemon's facility that arrive.
    std::vector<int> arriving;
};

const Level kLevels[] = {
    {0, 0x01, {24}},
    {1, 0x0F, {24, 25, 26, 27}},
    {2, 0x1F, {24, 25, 26, 27, 28}},
    {3, 0x3F, {24, 25, 26, 27, 28, 29}},
    {4, 0x7F, {24, 25, 26, 27, 28, 29, 30}},
    {5, 0xFF, {24, 25, 26, 27, 28, 29, 30, 31}},
    {6, 0xFF, {24, 25, 26, 27, 28, 29, 30, 31}},
    {0xFFFFFFFF, 0xFF, {24, 25, 26, 27, 28, 29, 30, 31}},
};

TEST(LogSystem, LetsThroughWhatTheLevelSays) {
    for (const Level& level : kLevels) {
        SCOPED_TRACE(level.level);
        const ChildEnd end = in_child([&] {
            AbrirLogSistema("T", level.level, false);
            for (int priority = LOG_EMERG; priority <= LOG_DEBUG; ++priority)
                syslog(priority, "text");
        });
        std::vector<int> arrived;
        for (const LogLine& line : end.log)
            arrived.push_back(line.priority);
        EXPECT_EQ(arrived, level.arriving);
        EXPECT_EQ(end.err, "");
    }
}

TEST(LogSystem, ReturnsThePreviousMask) {
    constexpr int kEverything = 0xFF;  // what a process begins with
    setlogmask(kEverything);
    int previous = kEverything;
    for (const Level& level : kLevels) {
        SCOPED_TRACE(level.level);
        if (level.level >= 5) {
            EXPECT_EQ(AbrirLogSistema("T", level.level, false), 0);
            EXPECT_EQ(setlogmask(0), previous) << "the mask must be left alone";
        } else {
            EXPECT_EQ(AbrirLogSistema("T", level.level, false), previous);
            EXPECT_EQ(setlogmask(0), level.mask);
            previous = level.mask;
        }
    }
}

TEST(LogSystem, CopiesToStandardErrorOnlyWhenAsked) {
    const ChildEnd end = in_child([] {
        AbrirLogSistema("NAME", 4, true);
        syslog(LOG_INFO, "seen");
        syslog(LOG_DEBUG, "not seen");
        std::printf("%d", getpid());
    });
    EXPECT_THAT(end.log, ElementsAre(LogLine{30, "NAME", "seen"}));
    EXPECT_EQ(end.err, "NAME[" + end.out + "]: seen\n");
}

// Connected at once: a log that goes away later is still reached.
TEST(LogSystem, ConnectsAtOnce) {
    const ChildEnd end = in_child([] {
        AbrirLogSistema("T", 4, false);
        unlink("/dev/log");
        syslog(LOG_INFO, "seen");
    });
    EXPECT_THAT(end.log, ElementsAre(LogLine{30, "T", "seen"}));
}

TEST(LogSystem, FallsBackToTheConsole) {
    if (access("/dev/console", F_OK) == 0)
        GTEST_SKIP() << "run from a terminal, the sandbox has a console of its own";
    write_file("/dev/console", "");
    in_child([] {
        unlink("/dev/log");
        AbrirLogSistema("T", 4, false);
        syslog(LOG_INFO, "seen");
    });
    EXPECT_THAT(read_file("/dev/console"), testing::HasSubstr("seen"));
}

}  // namespace
