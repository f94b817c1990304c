// The exporter's own figures, and what came of the last questions to each module.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "exporter/exposition.h"
#include "exporter/probe.h"

namespace exporter {

// What a request for a probe came to.
enum class Result : std::uint8_t { ok, failed, busy, unknown_target, bad_request };
inline constexpr const char* kResultNames[] = {"ok", "failed", "busy", "unknown_target",
                                               "bad_request"};
static_assert(std::size(kResultNames) == static_cast<std::size_t>(Result::bad_request) + 1);

// What came of a question.
struct Event {
    std::chrono::system_clock::time_point time;
    std::chrono::duration<double> took{};
    std::optional<master::Stage> failed = {};
    std::string message = {};
};

// The last of a module.
struct Past {
    Event last;
    std::optional<Event> failure = {};
};

// For any number of threads.
class Figures {
  public:
    // A request for a probe was answered; `joined` by the answer to somebody else's question.
    void count(Result result, bool joined = false);
    // A question was answered.
    void record(const Question& question, const Answer& answer);

    [[nodiscard]] std::map<std::string, Past> past() const;
    // Forgets modules that are not among these, by address_of().
    void keep_only(const std::map<std::string, std::size_t>& addresses);

    void put(Exposition& out) const;

  private:
    // Upper bounds of the histogram in seconds.
    static constexpr double kBounds[] = {0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30};

    mutable std::mutex mutex_;
    std::array<std::uint64_t, std::size(kResultNames)> probes_{};
    std::uint64_t joined_ = 0;
    std::array<std::uint64_t, std::size(master::kStageNames)> failures_{};
    std::uint64_t resynchronisations_ = 0;
    std::array<std::uint64_t, std::size(kBounds)> histogram_{};
    std::uint64_t questions_ = 0;
    double seconds_ = 0;
    std::map<std::string, Past> past_;
};

}  // namespace exporter
