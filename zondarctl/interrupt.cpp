#include "zondarctl/interrupt.h"

#include <atomic>
#include <csignal>
#include <mutex>

namespace zondarctl {

namespace {

std::atomic<bool> noted = false;
std::atomic<int> undisturbed = 0;
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void note(int signal) {
    if (noted && undisturbed == 0) {
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    noted = true;
}

}  // namespace

void heed_interrupts() {
    static std::once_flag heeded;
    std::call_once(heeded, [] {
        struct sigaction action {};
        action.sa_handler = note;
        for (const int signal : {SIGINT, SIGTERM, SIGHUP})
            sigaction(signal, &action, nullptr);
    });
}

bool interrupted() {
    return noted;
}

Undisturbed::Undisturbed() {
    ++undisturbed;
}

Undisturbed::~Undisturbed() {
    --undisturbed;
}

}  // namespace zondarctl
