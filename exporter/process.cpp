#include "exporter/process.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>

namespace exporter {

namespace {

// The fields of /proc/self/stat behind the name, the first of which is its third: proc(5).
struct Stat {
    double cpu_seconds = 0;
    double threads = 0;
    double memory = 0;  // bytes
};

Stat read_stat() {
    constexpr int kUserTime = 14;
    constexpr int kSystemTime = 15;
    constexpr int kThreads = 20;
    constexpr int kPages = 24;
    std::ifstream file("/proc/self/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    text.erase(0, text.rfind(')') + 1);
    std::istringstream fields(text);
    std::string state;
    fields >> state;
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    Stat stat;
    double value = 0;
    for (int field = 4; field <= kPages && fields >> value; ++field) {
        if (field == kUserTime || field == kSystemTime)
            stat.cpu_seconds += value / ticks;
        else if (field == kThreads)
            stat.threads = value;
        else if (field == kPages)
            stat.memory = value * static_cast<double>(sysconf(_SC_PAGESIZE));
    }
    return stat;
}

double open_files() {
    std::error_code error;
    const std::filesystem::directory_iterator folder("/proc/self/fd", error);
    return error ? 0 : static_cast<double>(std::distance(begin(folder), end(folder)));
}

}  // namespace

std::size_t raise_open_files() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    // Where size_t has 4 bytes, no limit is more than it holds.
    return static_cast<std::size_t>(
        std::min<rlim_t>(limit.rlim_cur, std::numeric_limits<std::size_t>::max()));
}

void put_process(Exposition& out, std::chrono::system_clock::time_point start) {
    const std::chrono::duration<double> started = start.time_since_epoch();
    const Stat stat = read_stat();
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    out.counter("process_cpu_seconds_total", "time of the processors that was used",
                stat.cpu_seconds);
    out.gauge("process_resident_memory_bytes", "memory that is in use", stat.memory);
    out.gauge("process_open_fds", "open files and connections", open_files());
    out.gauge("process_max_fds", "how many of them there may be",
              static_cast<double>(files.rlim_cur));
    out.gauge("process_threads", "threads", stat.threads);
    out.gauge("process_start_time_seconds", "when the exporter was started", started.count());
}

}  // namespace exporter
