// A buffer filled with a mark, so that it shows which bytes a function wrote.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tests/support/bytes.h"

constexpr std::uint8_t kMark = 0xEE;
constexpr std::size_t kMarkedRoom = 24;

// `written` at the beginning of a marked buffer; the marks alone without it.
inline Bytes marked(Bytes written = {}) {
    written.resize(kMarkedRoom, kMark);
    return written;
}
