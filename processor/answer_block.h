// Answers of fixed layout, told as tables: where a value stands in `info`, how wide it is, where it
// comes from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <variant>

#include "processor/parameters.h"

struct mensaje;

using Zeros = std::monostate;
// Worked out; its low bytes are sent, big-endian.
using Computed = std::uint32_t (*)();
// Writes the bytes of the field itself. One that fails leaves them zero; its result is not looked
// at.
using Filled = int (*)(std::uint8_t* at);

struct Field {
    std::uint8_t position;  // of its first byte in `info`
    std::uint8_t width;     // in bytes, 1 to 4 for a number
    // A number is sent by its low bytes, big-endian; a text by as many characters as there is room
    // for, zeros behind.
    std::variant<Zeros, Computed, Filled, Number, Text> source = {};
};

constexpr bool is_number(const Field& field) {
    return std::holds_alternative<Computed>(field.source) ||
           std::holds_alternative<Number>(field.source);
}

// True when the fields are in order, do not overlap and stay within [first, end).
constexpr bool ordered(std::span<const Field> fields, std::size_t first, std::size_t end) {
    for (const Field& field : fields) {
        if (field.position < first)
            return false;
        if (is_number(field) && (field.width < 1 || field.width > 4))
            return false;
        first = std::size_t{field.position} + field.width;
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

// Reads the values, in order, into the answer's `info`; those of the rows `further` behind the
// table's own where the numbers have rows for each channel, output or service.
void put_fields(std::span<const Field> fields, mensaje& answer, int further = 0);
