// The parsers of what the board's scripts print. The first byte of the input chooses: 0 the MAC
// address, anything else the versions with that byte less 128 as the selector; the rest is the
// script's output.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz/require.h"
#include "processor/device_text.h"

namespace {

constexpr std::uint8_t kMark = 0xC3;
constexpr std::size_t kMacDigits = 12;
constexpr std::size_t kVersionParts = 3;

using Buffer = std::array<std::uint8_t, 32>;

Buffer marked() {
    Buffer buffer;
    buffer.fill(kMark);
    return buffer;
}

bool untouched_from(const Buffer& buffer, std::size_t from) {
    return std::all_of(buffer.begin() + from, buffer.end(),
                       [](std::uint8_t byte) { return byte == kMark; });
}

void check_mac(const std::string& line) {
    Buffer buffer = marked();
    const int result = parse_mac(line.c_str(), buffer.data());
    const std::string text = line.substr(0, line.find('\0'));
    const bool good = text.size() == 17 && text[0] != ':' && text[1] != ':' && text[2] == ':';
    REQUIRE(result == (good ? 0 : -1));
    REQUIRE(untouched_from(buffer, good ? kMacDigits : 0));
    if (!good)
        return;
    constexpr std::array<std::size_t, kMacDigits> kPlaces = {0, 1,  3,  4,  6,  7,
                                                             9, 10, 12, 13, 15, 16};
    for (std::size_t i = 0; i < kMacDigits; ++i)
        REQUIRE(buffer[i] == static_cast<std::uint8_t>(text[kPlaces[i]]));
}

void check_versions(std::string output, int selector) {
    Buffer buffer = marked();
    std::FILE* const file = fmemopen(output.data(), output.size(), "r");
    if (file == nullptr)
        return;  // an empty output
    const int result = scan_versions(file, selector, buffer.data());
    const bool read_to_the_end = std::getc(file) == EOF;
    std::fclose(file);
    REQUIRE(result == 0 || result == -1);
    REQUIRE(untouched_from(buffer, result == 0 ? kVersionParts : 0));
    REQUIRE(result != 0 || read_to_the_end);
    if (selector < 1 || selector > 3)
        REQUIRE(result == 0 && untouched_from(buffer, 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string rest(data + 1, data + size);
    if (data[0] == 0)
        check_mac(rest);
    else
        check_versions(rest, data[0] - 128);
    return 0;
}
