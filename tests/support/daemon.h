// The real daemon as a child process, on the board at /quelt. One at a time: they share port 8001.
// Many at a time are a Fleet.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

// Of the daemon's program.
std::string daemon_path();

class Daemon {
  public:
    struct Setup {
        // Options before the two database paths.
        std::vector<std::string> options = {};
        // The positional arguments.
        std::vector<std::string> paths = {"/quelt/db/config_local.sqlite",
                                          "/quelt/db/temp_local.sqlite"};
        // Words before the daemon's own, such as an strace command. Without any, the words of
        // ZONDAR_DAEMON_LAUNCHER if it is set.
        std::vector<std::string> launcher = {};
        // Run in the child right before the daemon, for limits and signal dispositions.
        std::function<void()> prepare = [] {};
        // What it prints goes to the files of this name, .out and .err.
        std::string output = "/tmp/daemon";
    };

    // Starts it. A supervisor ignores SIGPIPE for its daemon, so that is done here too, before
    // `prepare`.
    explicit Daemon(const Setup& setup);
    Daemon() : Daemon(Setup()) {}
    // Ends it if it still runs; fails the test when a sanitizer or valgrind had something to say.
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool running();
    void send(int signal) const;
    // Waits for its end. The exit status; 1000 + the signal's number when one killed it; -1 when
    // it does not end.
    int wait();
    // The same after a signal, delivered.
    int stop(int signal);
    // Sends a signal to the daemon `pid` and sees to it that it arrives.
    static void deliver(pid_t pid, int signal);

    // What it printed so far.
    [[nodiscard]] std::string out() const;
    [[nodiscard]] std::string err() const;

  private:
    bool reap(int options);

    std::string output_;
    pid_t pid_;
    int status_ = -1;
    bool reaped_ = false;
};
