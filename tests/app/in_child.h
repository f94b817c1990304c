// Runs a piece of the daemon that ends its process, in a child of its own with its own log.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/syslog_reader.h"

struct ChildEnd {
    int status;  // the exit status; 1000 + the signal's number when one killed it
    std::vector<LogLine> log;
    std::string out;
    std::string err;
    std::chrono::duration<double> lived;
};

// The status when `body` came back.
constexpr int kCameBack = 42;

// A child that hangs is killed by SIGALRM after a minute.
ChildEnd in_child(const std::function<void()>& body);
