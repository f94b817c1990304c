#include "tests/support/bytes.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>

Bytes hex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0)
            digits += c;
    }
    if (digits.size() % 2 != 0)
        throw std::invalid_argument("odd number of hex digits");
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::string to_hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += text.empty() ? "" : " ";
        text += digits;
    }
    return text;
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes text_bytes(std::string_view text) {
    return {text.begin(), text.end()};
}
