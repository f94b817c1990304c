// The real daemon after one accept that failed: it was asked once, and carries that out again for
// each connection.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "tests/support/faults.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/running_daemon.h"

class ReplayingDaemon {
  public:
    // Carried out for its master, and once more when this returns.
    explicit ReplayingDaemon(const Bytes& request)
        : tracer_({.launcher = {"strace", "-o", kCalls, "-e", "trace=accept4", "-e",
                                "inject=accept4:error=EMFILE:when=4"},
                   .prepare = leave_faults_to_the_program}) {
        exchange(request);
        EXPECT_TRUE(carried_out_again(1));
    }
    // strace ends with the daemon.
    ~ReplayingDaemon() {
        Daemon::deliver(std::stoi(read_file("/tmp/zondar_net_receiver.pid")), SIGTERM);
        EXPECT_EQ((*tracer_).wait(), 1);
    }
    ReplayingDaemon(const ReplayingDaemon&) = delete;
    ReplayingDaemon& operator=(const ReplayingDaemon&) = delete;

    // How many connections it has accepted since, each of which made it carry a request out.
    [[nodiscard]] int connections() const {
        const std::string calls = read_file(kCalls);
        return times(calls.substr(calls.find("(INJECTED)")), "SOCK_CLOEXEC)");
    }
    // The fault itself made it do so once.
    bool carried_out_again(int number) {
        return eventually([&] { return times((*tracer_).out(), "WriteSocket\n") == 1 + number; });
    }

  private:
    static constexpr char kCalls[] = "/tmp/calls";

    static int times(const std::string& text, const std::string& part) {
        int count = 0;
        for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at)
            ++count;
        return count;
    }

    RunningDaemon tracer_;
};
