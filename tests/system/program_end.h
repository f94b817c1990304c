// The daemon from its start to its end, for the cases in which it ends by itself.
#pragma once

#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/daemon.h"
#include "tests/support/syslog_reader.h"

struct ProgramEnd {
    int status;  // as Daemon::wait() gives it
    std::string out;
    std::string err;
    std::vector<LogLine> log;
    std::chrono::duration<double> lived;
};

ProgramEnd run_to_end(const Daemon::Setup& setup);

// A line of the daemon under its own identity.
LogLine logged(int priority, const std::string& text);

// The priorities as they arrive.
constexpr int kNotice = 29;     // daemon
constexpr int kInfo = 30;       // daemon
constexpr int kFatal = 130;     // local0, critical
constexpr int kPidError = 131;  // local0, error
constexpr int kPidInfo = 134;   // local0, info

// Whoever runs the tests starts it.
const LogLine kStarted = logged(kNotice, "Program started by User " + std::to_string(getuid()));
const LogLine kReady = logged(kInfo, "ZONDAR_NET_RECEIVER: ready...");
const LogLine kWatching =
    logged(kInfo, "ZONDAR_NET_RECEIVER: comprobando recepcion de mensajes...");

LogLine running_with(pid_t pid);

// True as soon as both lines of a successful start are there, which come from two threads.
bool up(const SyslogReader& log);
