// The daemon's log, cycle by cycle of its processor. Everything has to be logged: -l 64 -s 5.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/syslog_reader.h"

inline const std::string kWaiting = "<30>Waiting for zondar message:\n";

class CycleLog : public SyslogReader {
  public:
    // The lines of the processor since the last call, up to the next waiting line.
    std::vector<std::string> next_cycle() {
        EXPECT_TRUE(wait_for("Waiting for zondar message:", ++cycles_));
        std::vector<std::string> cycle;
        const std::vector<LogLine> all = lines();
        while (seen_ < all.size() && (cycle.empty() || cycle.back() != kWaiting)) {
            const LogLine& line = all[seen_++];
            // The program's own lines, of which the watchdog's comes at any time, name it again.
            if (!line.text.starts_with("ZONDAR_NET_RECEIVER: "))
                cycle.push_back(with_priority(line));
        }
        return cycle;
    }

  private:
    int cycles_ = 0;
    std::size_t seen_ = 0;
};
