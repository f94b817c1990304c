// `watch`: the status again and again.
#include <fmt/format.h>

#include <atomic>
#include <csignal>
#include <ctime>

#include "zondarctl/commands.h"

namespace zondarctl {

namespace {

std::atomic<bool> ended = false;
static_assert(std::atomic<bool>::is_always_lock_free);

// A second Ctrl-C ends the program at once, whatever it waits for.
void end_on_signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { ended = true; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// Cut short by a signal.
void wait_for(double seconds) {
    constexpr double kNanoseconds = 1e9;
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(seconds);
    time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * kNanoseconds);
    nanosleep(&time, nullptr);
}

// What is not as it was before stands out.
void mark_changes(Report& now, const Report& before) {
    now.data["changed"] = Json::array();
    if (before.lines.size() != now.lines.size())
        return;
    for (std::size_t i = 0; i < now.lines.size(); ++i) {
        TextLine& line = now.lines[i];
        const bool changed = line.cells[1] != before.lines[i].cells[1];
        line.cells.emplace_back(changed ? fmt::format("was {}", before.lines[i].cells[1]) : "");
        if (changed) {
            line.look = line.look == TextLine::Look::alert ? line.look : TextLine::Look::heading;
            now.data["changed"].push_back(line.cells[0]);
        }
    }
}

}  // namespace

// A loss ends nothing: the module may come back. But from one that replays nothing more is asked.
Report watch(const Options& options, const WatchOptions& how,
             const std::function<void(const Report&, std::chrono::steady_clock::duration)>& show) {
    end_on_signals();
    unsigned exchanges = 0;
    unsigned answers = 0;
    Report before;
    while (!ended && exchanges < how.count.value_or(UINT32_MAX)) {
        if (exchanges != 0)
            wait_for(how.interval);
        if (ended)
            break;
        ++exchanges;
        const auto start = std::chrono::steady_clock::now();
        Report now;
        try {
            now = show_status(options);
            ++answers;
            const Report unmarked = now;
            mark_changes(now, before);
            before = unmarked;
        } catch (const Replay&) {
            throw;
        } catch (const Failure& failure) {
            now.fail(failure);
        }
        if (!ended || !now.error)
            show(now, std::chrono::steady_clock::now() - start);
    }
    Report summary;
    summary.data = {
        {"exchanges", exchanges}, {"answers", answers}, {"losses", exchanges - answers}};
    summary.line({fmt::format("{} exchanges, {} answers, {} losses", exchanges, answers,
                              exchanges - answers)});
    return summary;
}

}  // namespace zondarctl
