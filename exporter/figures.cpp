#include "exporter/figures.h"

#include <algorithm>
#include <utility>

#include "exporter/target_list.h"

namespace exporter {

void Figures::count(Result result, bool joined) {
    const std::lock_guard lock(mutex_);
    ++probes_[static_cast<std::size_t>(result)];
    joined_ += joined ? 1 : 0;
}

void Figures::record(const Question& question, const Answer& answer) {
    const Event event{std::chrono::system_clock::now(), answer.took, answer.failed, answer.message};
    const std::lock_guard lock(mutex_);
    Past& past = past_[address_of(question.target)];
    past.last = event;
    if (answer.failed) {
        past.failure = event;
        ++failures_[static_cast<std::size_t>(*answer.failed)];
    }
    resynchronisations_ += answer.resynchronised ? 1 : 0;
    for (std::size_t i = 0; i < std::size(kBounds); ++i)
        histogram_[i] += answer.took.count() <= kBounds[i] ? 1 : 0;
    ++questions_;
    seconds_ += answer.took.count();
}

std::map<std::string, Past> Figures::past() const {
    const std::lock_guard lock(mutex_);
    return past_;
}

void Figures::keep_only(const std::map<std::string, std::size_t>& addresses) {
    const std::lock_guard lock(mutex_);
    std::erase_if(past_, [&](const auto& past) { return !addresses.contains(past.first); });
}

void Figures::put(Exposition& out) const {
    const std::lock_guard lock(mutex_);
    out.family("zondar_exporter_probes_total", "counter",
               "requests for a probe that were answered, by what they came to");
    for (std::size_t i = 0; i < std::size(probes_); ++i)
        out.sample({{"result", kResultNames[i]}}, static_cast<double>(probes_[i]));
    out.counter("zondar_exporter_joined_probes_total",
                "those of them that had the answer to a question which was on its way already",
                static_cast<double>(joined_));
    out.family("zondar_exporter_failures_total", "counter",
               "questions to modules that failed, by the stage");
    for (std::size_t i = 0; i < std::size(failures_); ++i)
        out.sample({{"stage", master::kStageNames[i]}}, static_cast<double>(failures_[i]));
    out.counter("zondar_exporter_resynchronisations_total",
                "questions before which a module had to be brought back to between two frames",
                static_cast<double>(resynchronisations_));
    out.family("zondar_exporter_session_duration_seconds", "histogram",
               "how long questions to modules took");
    for (std::size_t i = 0; i < std::size(kBounds); ++i)
        out.sample("_bucket", {{"le", number_text(kBounds[i])}},
                   static_cast<double>(histogram_[i]));
    out.sample("_bucket", {{"le", "+Inf"}}, static_cast<double>(questions_));
    out.sample("_sum", {}, seconds_);
    out.sample("_count", {}, static_cast<double>(questions_));
}

}  // namespace exporter
