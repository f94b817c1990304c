#include "processor/subcommands.h"

#include <syslog.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <variant>

#include "processor/board_clock.h"
#include "processor/conf_log.h"
#include "processor/device_info.h"
#include "processor/parameters.h"
#include "processor/protocol_log.h"
#include "processor/region.h"
#include "processor/request.h"
#include "processor/slaves.h"
#include "protocol/description.h"

namespace {

using protocol::Effect;

constexpr std::uint8_t kRefused = protocol::length(protocol::Layout::refusal);

// Stores a number or a text, and what depends on it. Negative when it could not be stored.
using SetNumber = int (*)(int value);
using SetText = void (*)(std::string_view value);
// Does all itself, the answer included.
using Handler = void (*)(const mensaje& request, mensaje& answer);

struct Subcommand {
    std::uint8_t code;
    std::uint8_t width;  // of the value in bytes; of a text the most that are stored, its NUL
                         // included; 0 for a handler
    Effect effect;
    const char* name;  // as it is logged; empty when it is not
    std::variant<Number, Text, SetNumber, SetText, Handler> target;
};

// The last column of a sub-command's line: the parameter itself is stored, or by a function.
struct Direct {};
constexpr Direct direct;

template <typename Parameter>
constexpr Parameter target(const Parameter& parameter, Direct /*store*/) {
    return parameter;
}
constexpr SetNumber target(const Number& /*parameter*/, SetNumber store) {
    return store;
}
constexpr SetText target(const Text& /*parameter*/, SetText store) {
    return store;
}

void reset_factory(const mensaje& /*request*/, mensaje& /*answer*/) {
    send_reset_factory();
}

constexpr Subcommand kSubcommands[] = {
#define SUBCOMMAND(code, log_name, width, selector, row, effect, store) \
    {code, width, Effect::effect, log_name, target(parameter(selector, row), store)},
#define ACT(code, log_name, name, request, answer, other_answer, effect, meaning, handler) \
    {code, 0, Effect::effect, log_name, handler},
#define LINES "protocol/parameters.def"
#include "protocol/lines.inc"
};

constexpr bool in_order() {
    for (std::size_t i = 1; i < std::size(kSubcommands); ++i) {
        if (kSubcommands[i].code <= kSubcommands[i - 1].code)
            return false;
    }
    return true;
}
static_assert(in_order());

constexpr bool widths_fit() {
    return std::all_of(std::begin(kSubcommands), std::end(kSubcommands), [](const auto& row) {
        if (std::holds_alternative<Handler>(row.target))
            return row.width == 0;
        if (std::holds_alternative<Text>(row.target) || std::holds_alternative<SetText>(row.target))
            return row.width > 0;
        return row.width >= 1 && row.width <= 3;
    });
}
static_assert(widths_fit());
static_assert(std::rbegin(kSubcommands)->effect != Effect::next_too);

const Subcommand* find(std::uint8_t code) {
    const auto* const row = std::ranges::lower_bound(kSubcommands, code, {}, &Subcommand::code);
    return row != std::end(kSubcommands) && row->code == code ? row : nullptr;
}

void run(const Subcommand& row, const mensaje& request, mensaje& answer) {
    if (*row.name != '\0' && (conf_log & kLogZondar) != 0)
        log_line(LOG_DEBUG, "Subcomando %s\n", row.name);
    if (const auto* const number = std::get_if<Number>(&row.target))
        log_if_failed(number->set(number_at(request, kValue, row.width)));
    else if (const auto* const text = std::get_if<Text>(&row.target))
        log_if_failed(text->set(text_at(request, kValue).data(), row.width));
    else if (const auto* const set_number = std::get_if<SetNumber>(&row.target))
        log_if_failed((*set_number)(number_at(request, kValue, row.width)));
    else if (const auto* const set_text = std::get_if<SetText>(&row.target))
        (*set_text)(text_at(request, kValue));
    else if (const auto* const handle = std::get_if<Handler>(&row.target))
        (*handle)(request, answer);
}

void refuse(const char* why, mensaje& answer) {
    log_problem(why);
    answer.longitud = kRefused;
}

}  // namespace

void (*before_write)() = nullptr;

void write_parameter(const mensaje& request, mensaje& answer) {
    log_request("CMD: Comando escritura parametros.\n");
    if (request.longitud <= kValue)
        return refuse("Comando con longitud no esperada.\n", answer);
    const Subcommand* row = find(request.info[0]);
    if (row == nullptr)
        return refuse("Comando - Subcomando no reconocido.\n", answer);
    if (before_write != nullptr)
        before_write();
    run(*row, request, answer);
    while (row->effect == Effect::next_too)
        run(*++row, request, answer);
    if (row->effect == Effect::resets_network)
        send_reset_network();
}
