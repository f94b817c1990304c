// `watch`: the status again and again.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "zondarctl/commands.h"
#include "zondarctl/interrupt.h"

namespace zondarctl {

namespace {

// Cut short by a signal.
void wait_for(double seconds) {
    constexpr double kNanoseconds = 1e9;
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(seconds);
    time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * kNanoseconds);
    nanosleep(&time, nullptr);
}

// 2026-11-22T10:00:00+01:00, in the zone of this machine.
std::string time_now() {
    std::string text = fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(std::time(nullptr)));
    return text.insert(text.size() - 2, ":");
}

using Show = std::function<void(const Report&, Elapsed)>;

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

// Whole pictures, one after the other.
class Pictures {
  public:
    Pictures(std::string whom, const Show& show) : whom_(std::move(whom)), show_(show) {}

    void take(const Report& status, Elapsed elapsed) {
        Report picture = status;
        mark_changes(picture, before_);
        before_ = status;
        put(std::move(picture), elapsed);
    }
    void lose(const Failure& failure, Elapsed elapsed) {
        Report picture;
        picture.fail(failure);
        put(std::move(picture), elapsed);
    }

  private:
    void put(Report picture, Elapsed elapsed) {
        const std::string time = time_now();
        picture.data["time"] = time;
        picture.lines.insert(picture.lines.begin(), {{fmt::format("# {} at {}", whom_, time)}});
        show_(picture, elapsed);
    }

    std::string whom_;
    const Show& show_;
    Report before_;
};

// A line for each change: of a value, from none to the first one, and of whether there are answers.
class Changes {
  public:
    Changes(const std::string& whom, const Show& show) : show_(show) {
        const std::string time = time_now();
        put({{"time", time}}, fmt::format("# {} since {}", whom, time), Elapsed());
    }

    void take(const Report& status, Elapsed elapsed) {
        const std::string time = time_now();
        if (losses_ != 0)
            put({{"time", time}, {"lost", false}, {"losses", losses_}},
                fmt::format("{}  answers again, losses: {}", time, losses_), elapsed);
        losses_ = 0;
        const auto width_of = [](const TextLine& line) { return line.cells[0].size(); };
        const std::size_t width = width_of(*std::ranges::max_element(status.lines, {}, width_of));
        for (std::size_t i = 0; i < status.lines.size(); ++i) {
            const TextLine& line = status.lines[i];
            const std::string& name = line.cells[0];
            const Json old = before_.data.value(name, Json());
            if (old == status.data[name])
                continue;
            put({{"time", time}, {"name", name}, {"old", old}, {"new", status.data[name]}},
                fmt::format("{}  {:{}}  {}{}", time, name, width,
                            old.is_null() ? "" : before_.lines[i].cells[1] + " -> ", line.cells[1]),
                elapsed, line.look);
        }
        before_ = status;
    }
    // Only the first of several is a change.
    void lose(const Failure& failure, Elapsed elapsed) {
        if (++losses_ != 1)
            return;
        const std::string time = time_now();
        Report lost;
        lost.fail(failure);
        put({{"time", time},
             {"lost", true},
             {"stage", lost.error->stage},
             {"message", lost.error->message}},
            fmt::format("{}  lost: {}", time, printable(lost.error->message)), elapsed,
            TextLine::Look::alert);
    }

  private:
    void put(const Json& data, const std::string& text, Elapsed elapsed,
             TextLine::Look look = TextLine::Look::plain) {
        Report change{.data = data};
        change.line({text}, look);
        show_(change, elapsed);
    }

    const Show& show_;
    Report before_;
    unsigned losses_ = 0;  // since the last answer
};

// A loss ends nothing: the module may come back. But from one that replays nothing more is asked.
template <typename Teller>
Report watched(const Options& options, const WatchOptions& how, Teller teller) {
    unsigned exchanges = 0;
    unsigned answers = 0;
    while (!interrupted() && exchanges < how.count.value_or(UINT32_MAX)) {
        if (exchanges != 0)
            wait_for(how.interval);
        if (interrupted())
            break;
        ++exchanges;
        const auto start = std::chrono::steady_clock::now();
        const auto elapsed = [&] { return std::chrono::steady_clock::now() - start; };
        try {
            const Report status = show_status(options);
            ++answers;
            teller.take(status, elapsed());
        } catch (const Replay&) {
            throw;
        } catch (const Failure& failure) {
            if (!interrupted())
                teller.lose(failure, elapsed());
        }
    }
    const std::string sum =
        fmt::format("{} exchanges, {} answers, {} losses", exchanges, answers, exchanges - answers);
    Report summary;
    summary.data = {{"time", time_now()},
                    {"exchanges", exchanges},
                    {"answers", answers},
                    {"losses", exchanges - answers}};
    summary.line({how.changes ? fmt::format("# {}", sum) : sum});
    if (exchanges != 0 && answers == 0)
        summary.fail(kNoAnswer, "answer", "every exchange was lost");
    return summary;
}

}  // namespace

Report watch(const Options& options, const WatchOptions& how, const Show& show) {
    heed_interrupts();
    if (how.changes)
        return watched(options, how, Changes(options.whom, show));
    return watched(options, how, Pictures(options.whom, show));
}

}  // namespace zondarctl
