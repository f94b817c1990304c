// A program whose clock stands, but for its sleeps: tests/support/clock_that_stands.cpp. A test
// that uses it links `standing_clock`.
#pragma once

#include <string>
#include <vector>

// The words before the program's own. Its date is 2'000'000'000.75 seconds since 1970, its uptime
// 1000.75. The calls named in `traced` go to `path`.
inline std::vector<std::string> with_standing_clock(const std::string& traced,
                                                    const std::string& path) {
    return {"/usr/bin/strace",
            "-f",
            "-o",
            path,
            "-e",
            "trace=" + traced,
            "-E",
            std::string("LD_PRELOAD=") + ZONDAR_STANDING_CLOCK,
            "-E",
            "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0:exitcode=99"};
}
