// The input of a fuzz target, taken from its front. What it lacks at its end is zeros.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    [[nodiscard]] bool at_end() const { return rest_.empty(); }
    [[nodiscard]] std::size_t size() const { return rest_.size(); }

    std::uint8_t byte() {
        std::uint8_t value = 0;
        copy(&value, 1);
        return value;
    }
    unsigned two_bytes() {
        const unsigned high = byte();
        return high << 8U | byte();
    }
    // As many of `count` bytes as there are.
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    void copy(std::uint8_t* to, std::size_t count) { std::ranges::copy(bytes(count), to); }

  private:
    std::span<const std::uint8_t> rest_;
};
