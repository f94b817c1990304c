#include "tests/support/frames.h"

#include <numeric>
#include <span>
#include <stdexcept>

#include "tests/support/master.h"

namespace {

constexpr std::uint8_t kStart = 0xA5;
constexpr std::uint8_t kCrc8Mode = 0x80;
constexpr std::size_t kHead = 6;  // start, control, three header bytes, length

std::uint8_t checksum(std::span<const std::uint8_t> plain) {
    return static_cast<std::uint8_t>(-std::accumulate(plain.begin() + 1, plain.end(), 0));
}

std::uint8_t crc8(std::span<const std::uint8_t> plain) {
    unsigned crc = 0;
    for (const std::uint8_t byte : plain.subspan(1)) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0x8CU : 0U);
    }
    return static_cast<std::uint8_t>(crc);
}

// As frame() makes it, before any byte is doubled.
Bytes plain_frame(std::uint8_t control, const Bytes& info, std::uint8_t header_byte_4 = 0) {
    const bool crc8_mode = (control & kCrc8Mode) != 0;
    Bytes plain = {kStart, control, 0, 0, header_byte_4, static_cast<std::uint8_t>(info.size())};
    for (const std::uint8_t byte : info)
        plain.push_back(static_cast<std::uint8_t>(crc8_mode ? byte ^ 0x55U : byte));
    const std::uint8_t crc = crc8(plain);
    plain.push_back(checksum(plain));
    if (crc8_mode)
        plain.push_back(crc);
    return plain;
}

Bytes stuffed(const Bytes& plain) {
    Bytes wire = {plain[0], plain[1]};
    for (const std::uint8_t byte : std::span(plain).subspan(2))
        wire.insert(wire.end(), byte == kStart ? 2 : 1, byte);
    return wire;
}

}  // namespace

Bytes frame(std::uint8_t control, const Bytes& info) {
    return stuffed(plain_frame(control, info));
}

Bytes info_of(const Bytes& answer, std::uint8_t command) {
    const auto wrong = [&answer] {
        return std::runtime_error("not the answer: " + to_hex(answer));
    };
    if (answer.size() < kHead + 1 || answer[0] != kStart || answer[1] != command)
        throw wrong();
    Bytes plain = {answer[0], answer[1]};
    for (std::size_t i = 2; i < answer.size(); ++i) {
        plain.push_back(answer[i]);
        if (answer[i] != kStart)
            continue;
        if (++i == answer.size() || answer[i] != kStart)
            throw wrong();
    }
    const std::uint8_t received = plain.back();
    plain.pop_back();
    if (plain.size() < kHead || plain[2] != 0 || plain[3] != 0 || plain[4] != 0)
        throw wrong();
    if (plain.size() != kHead + plain[kHead - 1] || received != checksum(plain))
        throw wrong();
    return {plain.begin() + kHead, plain.end()};
}

Bytes ask(std::uint8_t command, const Bytes& info) {
    Bytes plain = plain_frame(command, info);
    if (plain.back() == kStart)
        plain = plain_frame(command, info, 1);
    return info_of(exchange(stuffed(plain)), command);
}
