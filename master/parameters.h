// The parameters of a module for those who name them: the sub-commands that store one and the
// places that show it, by name.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "master/request.h"
#include "protocol/description.h"

namespace master {

// A number, or a text: its bytes, in whatever encoding the module has them.
using Value = std::variant<std::uint32_t, std::string>;

struct Parameter {
    std::string name;                   // "EntradaAV.0.Brillo"
    const protocol::Subcommand* write;  // the sub-command that stores it
    std::uint8_t block;                 // the configuration block that shows it, 1 or 2; 0 for none
    const protocol::Field* field;       // where it does; null for none

    // Its kind, unit and meaning.
    [[nodiscard]] const protocol::Parameter& description() const;
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

// Whether a request can carry the value: a number of the width, a text of the length without a NUL.
bool can_hold(const Parameter& parameter, const Value& value);

// A value from its writing: decimal, hexadecimal behind 0x, or a text. Throws std::invalid_argument
// with the parameter and its range when it cannot hold it.
Value parse_value(const Parameter& parameter, std::string_view text);

// The request that stores a value which the parameter can hold.
Request write_request(const Parameter& parameter, const Value& value);

// What is read back of a value that the module took as it was meant.
Value value_after(const Parameter& parameter, const Value& value);

// What the parameter reads back as once the value was sent, whatever was meant. The value is one
// that it can hold.
Value read_back_of(const Parameter& parameter, const Value& sent);

// The value to send so that the parameter reads back as `wanted`; nothing when none does that.
std::optional<Value> value_to_send(const Parameter& parameter, const Value& wanted);

// Of the info of a configuration block as long as it has to be; the parameter is one of it.
Value value_in(const Parameter& parameter, std::span<const std::uint8_t> info);

}  // namespace master
