#include "zondarctl/several.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

#include "master/bytes.h"
#include "zondarctl/interrupt.h"
#include "zondarctl/waiting.h"

namespace zondarctl {

namespace {

// Which modules are being asked, and how many have been.
class Progress {
  public:
    explicit Progress(const std::vector<Target>& targets) : targets_(targets) {}

    void begin(std::size_t module) {
        const std::lock_guard guard(mutex_);
        asked_.insert(module);
    }
    void end(std::size_t module) {
        const std::lock_guard guard(mutex_);
        asked_.erase(module);
        ++done_;
    }
    // "sur-3 and 4 others, 15 of 20 done".
    [[nodiscard]] std::string text() const {
        const std::lock_guard guard(mutex_);
        if (asked_.empty())
            return "the first answer";
        const std::string first = name_of(targets_[*asked_.begin()]);
        const std::string others =
            asked_.size() == 1 ? "" : fmt::format(" and {} more", asked_.size() - 1);
        return fmt::format("{}{}, {} of {} done", first, others, done_, targets_.size());
    }

  private:
    const std::vector<Target>& targets_;
    mutable std::mutex mutex_;
    std::set<std::size_t> asked_;
    std::size_t done_ = 0;
};

// As the bytes of several modules are told apart.
std::function<void(const Bytes&, const Bytes&)> teller(const std::string& whom) {
    return [whom](const Bytes& sent, const Bytes& received) {
        write_text(stderr, fmt::format("{}Tx:{}{}\n{}Rx:{}{}\n", whom, sent.empty() ? "" : " ",
                                       hex_digits(sent), whom, received.empty() ? "" : " ",
                                       hex_digits(received)));
    };
}

Report not_asked() {
    Report report;
    report.fail(kRefusedOrDifferent, "interrupted", "interrupted");
    report.error->outcome = Outcome::not_sent;
    return report;
}

// Words that cannot be done are about the words.
bool is_about_module(const Report& report) {
    return report.error && report.error->stage != "usage";
}

}  // namespace

Options options_for(Options options, const Target& target, const std::string& prefix) {
    options.settings.target = target;
    options.whom = name_of(target);
    if (options.verbose)
        options.settings.on_exchange = teller(prefix);
    return options;
}

Report report_of(const Run& run, const Options& options) {
    Report report;
    try {
        report = run(options);
    } catch (const Failure& failure) {
        report.fail(failure);
        report.error->outcome = Outcome::none;
    } catch (const UsageError& error) {
        report.fail(kUsage, "usage", error.what());
    }
    if (is_about_module(report))
        report.error->of_module = true;
    return report;
}

Run changing(Run run) {
    return [run = std::move(run)](const Options& options) {
        Report report;
        try {
            report = run(options);
        } catch (const Failure& failure) {
            report.fail(failure);
            if (failure.outcome() == Outcome::none)  // of a question before it
                report.error->outcome = Outcome::not_sent;
        }
        return report;
    };
}

std::vector<ModuleReport> reports_of(const Run& run, const Options& options,
                                     const std::vector<Target>& targets, std::size_t at_once) {
    std::vector<ModuleReport> modules(targets.size());
    Progress progress(targets);
    const Waiting waiting([&] { return progress.text(); });
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < targets.size(); i = next++) {
            const Options its =
                options_for(options, targets[i], fmt::format("{} ", name_of(targets[i])));
            progress.begin(i);
            const auto start = std::chrono::steady_clock::now();
            Report report = interrupted() ? not_asked() : report_of(run, its);
            modules[i] = {targets[i], std::move(report), std::chrono::steady_clock::now() - start};
            progress.end(i);
        }
    };
    std::vector<std::jthread> threads;
    try {
        for (std::size_t i = 0; i < std::min(at_once, targets.size()); ++i)
            threads.emplace_back(work);
    } catch (const std::system_error&) {
        work();  // those that there are have more to do
    }
    threads.clear();
    return modules;
}

}  // namespace zondarctl
