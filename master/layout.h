// The info of a request or an answer as items, both ways, by the description of its layout.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "master/bytes.h"
#include "protocol/description.h"

namespace master {

using protocol::Layout;

struct Item {
    std::string name;  // "software", or a parameter's name
    // Texts are bytes as the module has them, in whatever encoding.
    std::variant<bool, std::int64_t, std::string> value;
};
using Items = std::vector<Item>;

// "EntradaAV.0.Brillo" for the row 0 of EntradaAV.c.Brillo.
std::string name_of(protocol::Selector selector, std::uint8_t row);
// The name of a field that says something, as an item has it: that of a parameter; of the settings
// of an encoder, whose row is the channel, that of the column alone.
std::string name_of(const protocol::Field& field);

// The number of 1 to 4 bytes, most significant first; the text up to its NUL.
std::uint32_t number_in(std::span<const std::uint8_t> field);
std::string text_in(std::span<const std::uint8_t> field);
// Appends the `width` low bytes of a number, most significant first.
void put_number(Bytes& info, std::uint32_t number, std::size_t width);

// True when the field is one whose value an item has.
bool has_item(const protocol::Field& field);

// Whatever a device sends is taken: a field that is not there whole has no item.
Items items_of(Layout layout, std::span<const std::uint8_t> info);

// The info of a request to a sub-command. What has no item is empty or 0; a text is cut to its
// field, and one at the end is followed by no more than its NUL.
Bytes info_of(Layout layout, std::uint8_t sub_command, const Items& items);

}  // namespace master
