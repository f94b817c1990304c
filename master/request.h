// A request to a module, as its command and info, and what answers it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "master/bytes.h"
#include "protocol/description.h"

namespace master {

struct Request {
    // What its answer may be, besides a refusal.
    struct Answers {
        protocol::Layout one = protocol::Layout::none;
        protocol::Layout other = protocol::Layout::none;
    };

    std::uint8_t command = 0;
    Bytes info = {};
    // It changes nothing, so it may be repeated.
    bool reads = false;
    std::optional<Answers> answers = {};  // any without
};

// Whether an answer's info may be one to this request.
bool answers(const Request& request, std::span<const std::uint8_t> info);

// Whether it is the one that the module sends in place of an answer to a write.
bool is_refusal(std::uint8_t command, std::span<const std::uint8_t> info);

}  // namespace master
