// The pauses of the main thread, in no time: between attempts, and SQLite's own before a lock. The
// watchdog's thread does pause, or it would spin.
#include <unistd.h>

#include <ctime>

namespace {

int pause_for(std::time_t seconds, long nanoseconds) {
    if (getpid() == gettid())
        return 0;
    std::timespec pause{.tv_sec = seconds, .tv_nsec = nanoseconds};
    return nanosleep(&pause, nullptr);
}

}  // namespace

// Take the C library's place in the program they are linked into, and in its libraries.

extern "C" unsigned sleep(unsigned seconds) {
    return pause_for(static_cast<std::time_t>(seconds), 0) == 0 ? 0 : seconds;
}

extern "C" int usleep(useconds_t useconds) {
    constexpr useconds_t kPerSecond = 1'000'000;
    return pause_for(useconds / kPerSecond, static_cast<long>(useconds % kPerSecond) * 1000);
}
