// The sandbox's /dev/log: collects the syslog packets of the daemon as they arrive.
#pragma once

#include <atomic>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

struct LogLine {
    int priority;      // facility and severity as sent, 30 = daemon, info
    std::string name;  // "ZONDAR_NET_RECEIVER"
    std::string text;  // to the last byte, a line end included

    bool operator==(const LogLine&) const = default;
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// "<30>text", the way a table of expected lines is written.
std::string with_priority(const LogLine& line);

class SyslogReader {
  public:
    SyslogReader();
    ~SyslogReader();
    SyslogReader(const SyslogReader&) = delete;
    SyslogReader& operator=(const SyslogReader&) = delete;

    // Every line that was sent before the call, so that a missing one really is missing.
    [[nodiscard]] std::vector<LogLine> lines() const;
    // Number of these lines that hold `text`.
    [[nodiscard]] int count(const std::string& text) const;
    // Waits until `times` lines hold `text`; false when they do not come.
    bool wait_for(const std::string& text, int times = 1) const;

    // Leaves off reading, so that the log fills up and whoever logs has to wait; and reads on.
    void pause();
    void go_on();
    // True when nothing more can be logged for the moment.
    [[nodiscard]] bool full() const;

  private:
    void collect();
    void settle() const;
    [[nodiscard]] int count_so_far(const std::string& text) const;

    int socket_;
    int marker_;  // sends to socket_, behind all that the daemon sent before
    mutable std::atomic<int> marks_sent_ = 0;
    std::atomic<int> marks_seen_ = 0;
    std::mutex reading_;  // held while paused
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
    std::thread collector_;
};
