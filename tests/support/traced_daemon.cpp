#include "tests/support/traced_daemon.h"

#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/faults.h"
#include "tests/support/files.h"

namespace {

constexpr char kCalls[] = "/tmp/calls";

}  // namespace

TracedDaemon::TracedDaemon(std::vector<std::string> words, const std::vector<std::string>& options)
    : tracer_([&] {
          words.insert(words.begin(), {"strace", "-o", kCalls});
          return Daemon::Setup{
              .options = options, .launcher = words, .prepare = leave_faults_to_the_program};
      }()) {}

// strace takes no signal; it ends with the daemon and hands over its status.
void TracedDaemon::stop() {
    if (stopped_)
        return;
    stopped_ = true;
    const std::string pid = read_file("/tmp/zondar_net_receiver.pid");
    if (!pid.empty())
        Daemon::deliver(std::stoi(pid), SIGTERM);
    EXPECT_EQ(tracer_.wait(), 1);
}

std::string TracedDaemon::calls() {
    return read_file(kCalls);
}

std::vector<std::string> without_pauses() {
    return {"-e", "trace=clock_nanosleep,nanosleep", "-e",
            "inject=clock_nanosleep,nanosleep:retval=0"};
}
