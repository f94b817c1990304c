#include "zondarctl/waiting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "zondarctl/report.h"

namespace zondarctl {

namespace {

// Guards the last line of the terminal.
std::mutex line;
bool on_the_line = false;
unsigned pauses = 0;

void clear_line() {
    if (std::exchange(on_the_line, false))
        write_text(stderr, "\r\033[K");
}

}  // namespace

Waiting::Waiting(std::function<std::string()> what) : what_(std::move(what)) {
    if (isatty(STDERR_FILENO) != 0)
        thread_ = std::jthread([this](const std::stop_token& ended) { show(ended); });
}

Waiting::~Waiting() {
    if (!thread_.joinable())
        return;
    thread_.request_stop();
    thread_.join();
    const std::lock_guard guard(line);
    clear_line();
}

void Waiting::show(const std::stop_token& ended) {
    constexpr std::chrono::seconds kPatience(1);
    constexpr std::chrono::milliseconds kPeriod(200);
    std::unique_lock lock(mutex_);
    const auto ends_within = [&](std::chrono::milliseconds time) {
        ending_.wait_for(lock, ended, time, [] { return false; });
        return ended.stop_requested();
    };
    for (auto pause = std::chrono::milliseconds(kPatience); !ends_within(pause); pause = kPeriod) {
        const std::string what = printable(what_());
        const std::lock_guard guard(line);
        if (pauses != 0)
            continue;
        write_text(stderr, fmt::format("\r\033[Kwaiting for {} ...", what));
        on_the_line = true;
    }
}

Waiting::Pause::Pause() {
    const std::lock_guard guard(line);
    ++pauses;
    clear_line();
}

Waiting::Pause::~Pause() {
    const std::lock_guard guard(line);
    --pauses;
}

}  // namespace zondarctl
