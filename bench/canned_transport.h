// A transport in memory: it keeps what was sent last, and reads it again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

struct Canned {
    std::array<std::uint8_t, 600> bytes{};
    std::size_t sent = 0;
    std::size_t read = 0;
};
extern Canned canned;
