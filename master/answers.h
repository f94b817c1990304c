// What the answers of a module say, by name. Whatever a device sends is taken: what is not there
// has no item.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "link/mensaje.h"
#include "master/bytes.h"
#include "processor/answer_block.h"

namespace master {

struct Item {
    std::string name;  // "software", or a parameter's name
    // Texts are bytes as the module has them, in whatever encoding.
    std::variant<bool, std::int64_t, std::string> value;
};
using Items = std::vector<Item>;

// A named place in an answer.
struct Place {
    enum class Kind : std::uint8_t {
        text,     // up to its NUL
        line,     // up to its NUL or line end
        number,   // big-endian
        level,    // sign and magnitude in one byte
        version,  // a byte per part: "2.4"
        bit,      // of one byte
        zero,     // true for a byte that is 0
    };
    const char* name;
    std::uint8_t position;
    std::uint8_t width;
    Kind kind;
    std::uint8_t bit = 0;
};

// What stands in the daemon's field of the clock, from its first byte on.
std::span<const Place> clock_places();
std::span<const Place> identification_places();
std::span<const Place> status_places();
// Behind the sub-command in the answers to slave modules; of 106 it has the channel only, the
// settings behind it being encoder_settings(). None for sub-commands that are answered without
// info.
std::span<const Place> slave_answer_places(std::uint8_t code);

Items identification(std::span<const std::uint8_t> info);
Items status(std::span<const std::uint8_t> info);
// Of either block, the parameters by name and "time" and "date".
Items configuration(std::span<const std::uint8_t> info);
// Of the sub-commands 105, 106 and 109 to 111.
Items slave_answer(std::span<const std::uint8_t> info);

// A frame read without knowing what it belongs to. In which direction it went is told by its length
// and its content.
struct Meaning {
    std::string text;  // "answer: identification"
    Items items;
};
Meaning meaning_of(const mensaje& frame);

}  // namespace master
