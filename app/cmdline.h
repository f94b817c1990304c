// Cmdline takes the options and finds the first database path.
#pragma once

#include <cstdint>
#include <string>

class Cmdline {
  public:
    // Parses everything. -h and a wrong option end the process; a level or mask out of range
    // throws its message as a plain std::string that nobody catches.
    Cmdline(int argc, char* argv[]);

    // Prints the help text on standard output for status 0, else a hint on standard error. Ends
    // the process with `status`.
    [[noreturn]] void usage(std::int32_t status) const;

    // Each accessor bears the letter of its option.
    [[nodiscard]] std::int32_t s() const { return syslog_level_; }  // 0..5
    [[nodiscard]] bool t() const { return log_to_stderr_; }
    [[nodiscard]] std::int32_t l() const { return stdout_log_level_; }  // bit mask, 0..127
    [[nodiscard]] std::string p() const { return pidfile_; }            // empty: no guard
    [[nodiscard]] bool d() const { return daemon_mode_; }
    [[nodiscard]] bool v() const { return show_version_; }
    [[nodiscard]] bool h() const { return show_help_; }

    [[nodiscard]] std::int32_t first_positional() const { return first_positional_; }

  private:
    void parse(int argc, char* argv[]);
    void take_option(int option, const char* argument);

    std::int32_t syslog_level_ = 4;
    bool log_to_stderr_ = false;
    std::int32_t stdout_log_level_ = 0;
    std::string pidfile_ = "/tmp/zondar_net_receiver.pid";
    bool daemon_mode_ = false;
    bool show_version_ = false;
    bool show_help_ = false;
    std::string program_name_;
    std::int32_t first_positional_ = 0;
};
