// Answers of fixed layout, told as tables: where a value stands in `info`, how wide it is, where it
// comes from. Their lines stand in protocol/.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <variant>

#include "processor/parameters.h"
#include "protocol/description.h"

struct mensaje;

using Zeros = std::monostate;
// Worked out; its low bytes are sent, big-endian.
using Computed = std::uint32_t (*)();
// Writes the bytes of the field itself. One that fails leaves them zero; its result is not looked
// at.
using Filled = int (*)(std::uint8_t* at);

struct Field {
    protocol::Layout layout;
    std::uint8_t position;  // of its first byte in `info`
    std::uint8_t width;     // in bytes, 1 to 4 for a number
    std::uint8_t digit;     // of a single bit, from 0: the other bits of its byte are other fields
    // A number is sent by its low bytes, big-endian; a text by as many characters as there is room
    // for, zeros behind.
    std::variant<Zeros, Computed, Filled, Number, Text> source = {};
};

template <std::uint32_t value>
std::uint32_t fixed() {
    return value;
}

// Those of a layout; the table has the layouts in their order.
constexpr std::span<const Field> fields_of(std::span<const Field> table, protocol::Layout layout) {
    return {std::ranges::lower_bound(table, layout, {}, &Field::layout),
            std::ranges::upper_bound(table, layout, {}, &Field::layout)};
}

// Reads the values, in order, into a zero-filled answer, and gives it its length. Numbers of a
// channel, output or service are those of the row that stands `row_offset` behind the table's own.
void put_fields(std::span<const Field> fields, mensaje& answer, int row_offset = 0);
