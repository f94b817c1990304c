// The end of the time that a call may take.
#pragma once

#include <algorithm>
#include <chrono>

namespace master {

class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds from_now)
        : end_(std::chrono::steady_clock::now() + from_now) {}

    // 0 once it has passed.
    [[nodiscard]] std::chrono::milliseconds left() const {
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
        return std::max(rest, std::chrono::milliseconds(0));
    }
    [[nodiscard]] bool passed() const { return left().count() == 0; }
    [[nodiscard]] Deadline sooner(std::chrono::milliseconds from_now) const {
        return Deadline(std::min(left(), from_now));
    }

  private:
    std::chrono::steady_clock::time_point end_;
};

}  // namespace master
