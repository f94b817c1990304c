#include "tests/system/program_end.h"

ProgramEnd run_to_end(const Daemon::Setup& setup) {
    const SyslogReader log;
    const auto start = std::chrono::steady_clock::now();
    Daemon daemon(setup);
    const int status = daemon.wait();
    const auto end = std::chrono::steady_clock::now();
    return {status, daemon.out(), daemon.err(), log.lines(), end - start};
}

LogLine logged(int priority, const std::string& text) {
    return {priority, "ZONDAR_NET_RECEIVER", text};
}

LogLine running_with(pid_t pid) {
    return logged(kPidInfo, "Program running with pid: " + std::to_string(pid));
}

bool up(const SyslogReader& log) {
    return log.wait_for(kReady.text) && log.wait_for(kWatching.text);
}
