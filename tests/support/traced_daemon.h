// The daemon under strace, which writes down some system calls and replaces the results of others.
#pragma once

#include <string>
#include <vector>

#include "tests/support/daemon.h"

class TracedDaemon {
  public:
    // The words tell strace what to do. The daemon keeps its usual pid file.
    explicit TracedDaemon(std::vector<std::string> words,
                          const std::vector<std::string>& options = {});
    ~TracedDaemon() { stop(); }
    TracedDaemon(const TracedDaemon&) = delete;
    TracedDaemon& operator=(const TracedDaemon&) = delete;

    // The calls are all written down on return.
    void stop();

    [[nodiscard]] std::string err() const { return tracer_.err(); }
    // What strace wrote down so far.
    [[nodiscard]] static std::string calls();

  private:
    Daemon tracer_;
    bool stopped_ = false;
};

// strace's words for pauses of the main thread that take no time, SQLite's and those between
// attempts. The watchdog keeps its own.
std::vector<std::string> without_pauses();
