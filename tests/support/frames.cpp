#include "tests/support/frames.h"

#include <numeric>
#include <stdexcept>

#include "tests/support/master.h"

namespace {

constexpr std::uint8_t kStart = 0xA5;
constexpr std::size_t kHead = 6;  // start, control, three header bytes, length

std::uint8_t checksum(const Bytes& unstuffed) {
    return static_cast<std::uint8_t>(-std::accumulate(unstuffed.begin() + 1, unstuffed.end(), 0));
}

}  // namespace

Bytes frame(std::uint8_t command, const Bytes& info) {
    Bytes plain = {kStart, command, 0, 0, 0, static_cast<std::uint8_t>(info.size())};
    plain.insert(plain.end(), info.begin(), info.end());
    if (checksum(plain) == kStart)
        plain[4] = 1;
    plain.push_back(checksum(plain));
    Bytes stuffed = {plain[0], plain[1]};
    for (std::size_t i = 2; i < plain.size(); ++i) {
        stuffed.push_back(plain[i]);
        if (plain[i] == kStart)
            stuffed.push_back(kStart);
    }
    return stuffed;
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
    if (plain.size() != kHead + plain[kHead - 1] || received != checksum(plain))
        throw wrong();
    return {plain.begin() + kHead, plain.end()};
}

Bytes ask(std::uint8_t command, const Bytes& info) {
    return info_of(exchange(frame(command, info)), command);
}
