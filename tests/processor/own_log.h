// What the test process itself logs, as the daemon would: same identity, same facility.
#pragma once

#include <syslog.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/syslog_reader.h"

class OwnLog {
  public:
    OwnLog() { openlog(kName, LOG_PID | LOG_NDELAY, LOG_DAEMON); }
    ~OwnLog() { closelog(); }
    OwnLog(const OwnLog&) = delete;
    OwnLog& operator=(const OwnLog&) = delete;

    // The lines since the last call, each as "<priority>text". A line of our own behind them tells
    // that none is on its way any more.
    std::vector<std::string> take() {
        const std::string mark = "mark " + std::to_string(++marks_);
        syslog(LOG_EMERG, "%s", mark.c_str());
        std::vector<std::string> taken;
        if (!reader_.wait_for(mark))
            taken.emplace_back("the log is stuck");
        const std::vector<LogLine> lines = reader_.lines();
        for (; seen_ < lines.size() && lines[seen_].text != mark; ++seen_)
            taken.push_back(with_priority(lines[seen_]));
        ++seen_;
        return taken;
    }

  private:
    static constexpr char kName[] = "ZONDAR_NET_RECEIVER";

    SyslogReader reader_;
    int marks_ = 0;
    std::size_t seen_ = 0;
};
