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

// A frame read without knowing what it belongs to. In which direction it went is told by its length
// and its content.
struct Meaning {
    std::string text;  // "answer: identification"
    Items items;
};
Meaning meaning_of(const mensaje& frame);

}  // namespace master
