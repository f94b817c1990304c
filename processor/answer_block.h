// Answers of fixed layout, told as tables: where a number stands in `info`, how wide it is, where
// it comes from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct mensaje;

struct Field {
    std::size_t position;      // of its first byte in `info`
    std::size_t width;         // in bytes, 1 to 4 for a value
    std::uint32_t (*value)();  // its low bytes are sent, big-endian; null leaves the field zero
};

// True when the fields are in order, do not overlap and stay within [first, end).
constexpr bool ordered(std::span<const Field> fields, std::size_t first, std::size_t end) {
    for (const Field& field : fields) {
        if (field.position < first)
            return false;
        if (field.value != nullptr && (field.width < 1 || field.width > 4))
            return false;
        first = field.position + field.width;
    }
    return first <= end;
}

// True when they also leave no byte out.
constexpr bool gapless(std::span<const Field> fields, std::size_t first, std::size_t end) {
    std::size_t width = 0;
    for (const Field& field : fields)
        width += field.width;
    return ordered(fields, first, end) && width == end - first;
}

// Reads the values, in order, into the answer's `info`.
void put_fields(std::span<const Field> fields, mensaje& answer);
