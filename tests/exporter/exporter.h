// The exporter as Prometheus and people meet it: a child process, asked over HTTP.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/program.h"

struct Reply {
    int status = 0;  // 0 when the exporter closed the connection without one
    std::string headers;
    std::string body;
};

// Sends bytes and reads up to the connection's end, for which the request asks.
Reply exchange(const std::string& request);
// Sends bytes and is gone.
void send_and_leave(const std::string& bytes);
// A request for a path with GET; `headers` are whole lines.
Reply get(const std::string& path, const std::string& headers = "");
// The body; fails the test when the status is not 200.
std::string page(const std::string& path, const std::string& headers = "");
// The header that tells how long Prometheus waits.
std::string patience(const std::string& seconds);

// The value of a sample, as it is written: "zondar_alarm{alarm=\"alarma_in\"}". Empty without one.
std::string sample(std::string_view exposition, std::string_view series);
// The stage that failed; empty when none did.
std::string failed_stage(std::string_view exposition);

class Exporter {
  public:
    // With a file of targets, which is written first, as FILE of --targets; answers on return.
    explicit Exporter(const std::string& targets, const std::vector<std::string>& words = {});
    // Ends it; fails the test when its exit status is not 0.
    ~Exporter();
    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    // What it wrote to standard error so far.
    [[nodiscard]] std::string err() const;
    // Waits for its end: its exit status.
    int wait();

    static constexpr char kTargets[] = "/tmp/targets.json";

  private:
    pid_t pid_;
    bool reaped_ = false;
};

// Run to its end, which comes at once.
ProgramRun run_exporter(const std::vector<std::string>& words);
