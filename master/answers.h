// What the answers of a module say, by name.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "link/mensaje.h"
#include "master/layout.h"

namespace master {

Items identification(std::span<const std::uint8_t> info);
Items status(std::span<const std::uint8_t> info);
// Of either block, the parameters by name and "time" and "date".
Items configuration(std::span<const std::uint8_t> info);
// Of the actions that are answered with data.
Items action_answer(std::span<const std::uint8_t> info);

// Whether an answer to a write is a refusal: zeros, as many as there can be.
bool is_refusal_of_write(std::span<const std::uint8_t> info);

struct Meaning {
    std::string text;  // "answer: identification"
    Items items;
};

// Which half of an exchange a frame is.
enum class Half : std::uint8_t { unknown, request, answer };

// Of a frame without the other half. Which one it is, where that is not known, is told by its
// length and its content.
Meaning meaning_of(const mensaje& frame, Half half = Half::unknown);

}  // namespace master
