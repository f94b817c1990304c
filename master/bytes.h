// Bytes and numbers as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace master {

using Bytes = std::vector<std::uint8_t>;

// "A5 04 00".
std::string hex_digits(std::span<const std::uint8_t> bytes);

// Pairs of digits of either case, with or without blanks, line ends and commas between the pairs,
// and with or without 0x before those that follow none; nothing for any other text.
std::optional<Bytes> from_hex(std::string_view text);

// Decimal, or hexadecimal behind 0x; the largest number for any that is larger, nothing for what is
// none.
std::optional<std::uint32_t> to_number(std::string_view text);

}  // namespace master
