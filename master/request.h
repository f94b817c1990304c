// A request to a module, as its command and info.
#pragma once

#include <cstdint>
#include <span>

#include "master/bytes.h"

namespace master {

// Command codes.
constexpr std::uint8_t kStatusCommand = 0;
constexpr std::uint8_t kConfigurationCommand = 1;
constexpr std::uint8_t kStatusCommand2 = 2;  // the same request as 0
constexpr std::uint8_t kWriteCommand = 3;
constexpr std::uint8_t kIdentificationCommand = 4;

constexpr std::uint8_t kRefusedLength = 255;  // of the answer to a write that is refused

struct Request {
    std::uint8_t command = 0;
    Bytes info = {};
    // It changes nothing, so it may be repeated.
    bool reads = false;
    // Whether an answer's info is one to this request; null takes any.
    bool (*answered_by)(const Request& request, std::span<const std::uint8_t> info) = nullptr;
};

}  // namespace master
