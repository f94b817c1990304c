// The code is CRC-8/MAXIM: it has the polynomial x^8 + x^5 + x^4 + 1, bit-reflected (0x8C), the
// initial value 0 and no final XOR.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

constexpr std::array<std::uint8_t, 256> kCrc8Table = [] {
    constexpr std::uint8_t kReflectedPolynomial = 0x8C;
    std::array<std::uint8_t, 256> table{};
    for (unsigned value = 0; value < table.size(); ++value) {
        unsigned crc = value;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1U) != 0 ? (crc >> 1U) ^ kReflectedPolynomial : crc >> 1U;
        table[value] = static_cast<std::uint8_t>(crc);
    }
    return table;
}();

// Returns the CRC after `bytes`, going on from `crc`.
constexpr std::uint8_t crc8(std::uint8_t crc, std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes)
        crc = kCrc8Table[crc ^ byte];
    return crc;
}

static_assert(kCrc8Table[1] == 0x5E && kCrc8Table[7] == 0x83 && kCrc8Table[255] == 0x35);
static_assert(crc8(0, std::array<std::uint8_t, 9>{'1', '2', '3', '4', '5', '6', '7', '8', '9'}) ==
              0xA1);
