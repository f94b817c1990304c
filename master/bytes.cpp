#include "master/bytes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cctype>
#include <charconv>
#include <utility>

namespace master {

std::string hex_digits(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02X}", fmt::join(bytes.begin(), bytes.end(), " "));
}

std::optional<Bytes> from_hex(std::string_view text) {
    const auto is_digit = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    const auto is_prefix = [](std::string_view x) { return x == "0x" || x == "0X"; };
    Bytes bytes;
    bool separated = true;
    while (!text.empty()) {
        if (std::isspace(static_cast<unsigned char>(text[0])) != 0 || text[0] == ',') {
            separated = true;
            text.remove_prefix(1);
            continue;
        }
        if (std::exchange(separated, false) && is_prefix(text.substr(0, 2)))
            text.remove_prefix(2);
        if (text.size() < 2 || !is_digit(text[0]) || !is_digit(text[1]))
            return std::nullopt;
        std::uint8_t byte = 0;
        std::from_chars(text.data(), text.data() + 2, byte, 16);
        bytes.push_back(byte);
        text.remove_prefix(2);
    }
    return bytes;
}

std::optional<std::uint32_t> to_number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    std::uint32_t number = 0;
    const auto read = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (read.ptr != end || read.ec == std::errc::invalid_argument)
        return std::nullopt;
    return read.ec == std::errc() ? number : UINT32_MAX;
}

}  // namespace master
