// Byte strings written as hex, as in a protocol analyser.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// "A5 04 00" to three bytes. Blanks between bytes are free.
Bytes hex(std::string_view text);

// Three bytes to "A5 04 00", so that a failed comparison can be read.
std::string to_hex(std::span<const std::uint8_t> bytes);

// All of `parts`, one behind the other.
Bytes joined(std::initializer_list<Bytes> parts);

// The bytes of a text, without terminator.
Bytes text_bytes(std::string_view text);
