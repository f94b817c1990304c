// The parameter write: one parameter of the module, named by the sub-command that the info begins
// with.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

#include "processor/parameters.h"

struct mensaje;

// A number and a text that take more than this one column, which is where they are read back.
// Negative when the number could not be stored.
struct NumberSetter {
    Number number;
    int (*set)(int value);
};
struct TextSetter {
    Text text;
    void (*set)(std::string_view value);
};
// Does all itself, the answer included.
using Handler = void (*)(const mensaje& request, mensaje& answer);

// What follows when a sub-command is done.
enum class Then : std::uint8_t { answer, reset_network, next_row };

struct Subcommand {
    std::uint8_t code;
    const char* name;    // as it is logged; null when it is not
    std::uint8_t width;  // of the value in bytes; of a text the most that are stored, its NUL
                         // included; 0 for a handler
    std::variant<Number, Text, NumberSetter, TextSetter, Handler> target;
    Then then = Then::answer;
};

// All of them, by ascending code.
std::span<const Subcommand> subcommands();

// Carries out a write. The answer stays empty whether it succeeded or not; only a request without
// value or of an unknown sub-command is refused, by a length of 255 over zeros.
void write_parameter(const mensaje& request, mensaje& answer);
