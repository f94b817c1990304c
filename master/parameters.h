// The parameters of a module for those who name them: the daemon's own tables, by name.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "master/bytes.h"
#include "master/request.h"
#include "processor/answer_block.h"
#include "processor/subcommands.h"

namespace master {

// A number, or a text: its bytes, in whatever encoding the module has them.
using Value = std::variant<std::uint32_t, std::string>;

struct Parameter {
    std::string name;         // "EntradaAV.0.Brillo"
    const Subcommand* write;  // the sub-command that stores it
    std::uint8_t block;       // the configuration block that shows it, 1 or 2; 0 for none
    const Field* field;       // where it does; null for none

    [[nodiscard]] bool is_text() const;
    // The largest number, the longest text in bytes.
    [[nodiscard]] std::uint32_t limit() const;
    // The parameter that the module writes the same value to besides; null for none.
    [[nodiscard]] const Parameter* also() const;
};

// All of them, in the order of their sub-commands.
std::span<const Parameter> parameters();

// By its name, upper and lower case being the same; null when there is none.
const Parameter* find_parameter(std::string_view name);

// A value from its writing: decimal, hexadecimal behind 0x, or a text. Throws std::invalid_argument
// when the parameter cannot hold it.
Value parse_value(const Parameter& parameter, std::string_view text);

// The request that stores a value which the parameter can hold.
Request write_request(const Parameter& parameter, const Value& value);

// What is read back of a value that the module took as it was meant.
Value value_after(const Parameter& parameter, const Value& value);

// The request for a configuration block.
Request block_request(std::uint8_t block);

// Of the info of a configuration block as long as it has to be; the parameter is one of it.
Value value_in(const Parameter& parameter, std::span<const std::uint8_t> info);

// A text field up to its NUL; a number, big-endian, from 1 to 4 bytes.
std::string text_in(std::span<const std::uint8_t> field);
std::uint32_t number_in(std::span<const std::uint8_t> field);

// What a request does besides changing a value, when that takes a confirmation: "resets the module
// to its factory configuration". Empty for all others.
std::string_view consequence_of(const Request& request);

}  // namespace master
