// What goes over the wire between a master and a module, as data: names, places, kinds and
// meanings, made from the lines of the .def files. What of it a program does not use costs it
// nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

namespace protocol {

enum class Kind : std::uint8_t {
#define KIND(id, name, meaning) id,
#define LINES "protocol/kinds.def"
#include "protocol/lines.inc"
};

struct KindText {
    const char* name;
    const char* meaning;
};

inline constexpr KindText kKinds[] = {
#define KIND(id, name, meaning) {name, meaning},
#define LINES "protocol/kinds.def"
#include "protocol/lines.inc"
};

constexpr const char* name_of(Kind kind) {
    return kKinds[static_cast<std::size_t>(kind)].name;
}

// True for what is a text on the wire.
constexpr bool is_text(Kind kind) {
    return kind >= Kind::text && kind <= Kind::digits;
}

enum class Layout : std::uint8_t {
#define LAYOUT(id) id,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

inline constexpr const char* kLayoutNames[] = {
#define LAYOUT(id) #id,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// What a sub-command does besides storing its value.
enum class Effect : std::uint8_t {
#define EFFECT(id, meaning) id,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// The parameters, by the selectors of their accessors.
enum class Selector : std::uint8_t {
#define PARAMETER(selector, name, kind, unit, meaning) selector,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

struct Parameter {
    const char* name;  // with c or s for a channel or service
    Kind kind;
    const char* unit;
    const char* meaning;
};

inline constexpr Parameter kParameters[] = {
#define PARAMETER(selector, name, kind, unit, meaning) {name, Kind::kind, unit, meaning},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

constexpr const Parameter& parameter(Selector selector) {
    return kParameters[static_cast<std::size_t>(selector)];
}

struct Field {
    Layout layout;
    std::uint8_t position;  // of its first byte in the info
    std::uint8_t width;     // in bytes; 0 for one that depends on the sub-command
    Kind kind;
    const char* name;  // of a parameter with c or s for its row
    const char* unit;
    const char* meaning;
    std::uint8_t extra = 0;  // number of the bit; value of a fixed byte; row of a parameter
    bool is_parameter = false;
    Selector selector = {};
};

constexpr Field shown(Layout layout, std::uint8_t position, std::uint8_t width, Selector selector,
                      std::uint8_t row) {
    const Parameter& it = parameter(selector);
    return {layout, position, width, it.kind, it.name, it.unit, it.meaning, row, true, selector};
}

// By layout, and by ascending position.
inline constexpr Field kFields[] = {
#define FIELD(layout, position, width, name, kind, unit, meaning, ...) \
    {Layout::layout, position, width, Kind::kind, name, unit, meaning},
#define BIT(layout, position, digit, name, meaning, ...) \
    {Layout::layout, position, 1, Kind::bit, name, "", meaning, digit},
#define SHOWN(layout, position, width, selector, row) \
    shown(Layout::layout, position, width, Selector::selector, row),
#define FIXED(layout, position, value, name) \
    {Layout::layout, position, 1, Kind::fixed, name, "", "", value},
#define ZEROS(layout, position, width) {Layout::layout, position, width, Kind::zeros, "", "", ""},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

constexpr std::span<const Field> fields(Layout layout) {
    return {std::ranges::lower_bound(kFields, layout, {}, &Field::layout),
            std::ranges::upper_bound(kFields, layout, {}, &Field::layout)};
}

// How many bytes the info has; 0 for `none`.
constexpr std::uint8_t length(Layout layout) {
    const std::span<const Field> all = fields(layout);
    return all.empty() ? 0 : static_cast<std::uint8_t>(all.back().position + all.back().width);
}

// The field of this name; a name that is none does not compile.
consteval const Field& field(Layout layout, std::string_view name) {
    for (const Field& each : fields(layout)) {
        if (each.name == name)
            return each;
    }
    throw "no field of that name";
}
consteval std::uint8_t position(Layout layout, std::string_view name) {
    return field(layout, name).position;
}
consteval std::uint8_t width(Layout layout, std::string_view name) {
    return field(layout, name).width;
}

// The layout of a configuration block: 2 is block 2, any other number block 1.
constexpr Layout block_layout(std::uint8_t number) {
    return number == fields(Layout::configuration_2).front().extra ? Layout::configuration_2
                                                                   : Layout::configuration_1;
}

// A number has a width that can be sent, a bit is one of a byte, and the field ends within an info.
constexpr bool fits(const Field& field) {
    constexpr int kLongestInfo = 255;
    const bool number =
        field.kind <= Kind::toggle || field.kind == Kind::level || field.kind == Kind::true_if_zero;
    return field.position + field.width <= kLongestInfo &&
           (!number || (field.width >= 1 && field.width <= 4)) &&
           (field.kind != Kind::bit || field.extra < 8);
}

// The layouts are in order, no field overlaps another one, and no byte is left out. Several bits
// may share one.
constexpr bool gapless(std::span<const Field> fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const Field& here = fields[i];
        if (!fits(here))
            return false;
        if (i == 0 || here.layout != fields[i - 1].layout) {
            if (here.position != 0 || (i > 0 && here.layout < fields[i - 1].layout))
                return false;
            continue;
        }
        const Field& before = fields[i - 1];
        const bool shares = here.kind == Kind::bit && before.kind == Kind::bit &&
                            here.position == before.position && here.extra > before.extra;
        if (!shares && here.position != before.position + before.width)
            return false;
    }
    return true;
}
static_assert(gapless(kFields));

struct Command {
    std::uint8_t code;
    const char* name;
    Layout request;
    Layout answer;
    Layout other_answer;
    const char* meaning;
};

inline constexpr Command kCommands[] = {
#define COMMAND(code, id, name, request, answer, other_answer, meaning, handler) \
    {code, name, Layout::request, Layout::answer, Layout::other_answer, meaning},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

constexpr bool codes_are_indexes() {
    for (std::size_t i = 0; i < std::size(kCommands); ++i) {
        if (kCommands[i].code != i)
            return false;
    }
    return true;
}
static_assert(codes_are_indexes());

// The codes by their names: command::status.
namespace command {
#define COMMAND(code, id, name, request, answer, other_answer, meaning, handler) \
    inline constexpr std::uint8_t id = code;
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
}  // namespace command

// Sub-command of a write.
struct Subcommand {
    std::uint8_t code;
    const char* log_name;  // empty when it is not logged
    Effect effect;
    // One that stores a parameter:
    std::uint8_t width = 0;  // of the value in bytes; of a text the most that are stored, its NUL
                             // included; 0 for an action
    Selector selector = {};
    std::uint8_t row = 0;
    // An action:
    const char* name = "";
    Layout request = {};
    Layout answer = {};
    Layout other_answer = {};
    const char* meaning = "";
};

// By ascending code.
inline constexpr Subcommand kSubcommands[] = {
// clang-format off
#define SUBCOMMAND(code, log_name, width, selector, row, effect, store) \
    {code, log_name, Effect::effect, width, Selector::selector, row},
#define ACT(code, log_name, name, request, answer, other_answer, effect, meaning, handler) \
    {code, log_name, Effect::effect, 0, {}, 0, name, Layout::request, Layout::answer, Layout::other_answer, meaning},
// clang-format on
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// Null when there is none.
constexpr const Subcommand* find_subcommand(std::uint8_t code) {
    const auto* const row = std::ranges::lower_bound(kSubcommands, code, {}, &Subcommand::code);
    return row != std::end(kSubcommands) && row->code == code ? row : nullptr;
}

struct StoredAs {
    Selector selector;
    std::uint32_t value;
    std::uint32_t stored;
};

inline constexpr StoredAs kStoredAs[] = {
#define STORED_AS(selector, value, stored) {Selector::selector, value, stored},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

inline constexpr Selector kNotStored[] = {
#define NOT_STORED(selector) Selector::selector,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

struct WireBias {
    Selector selector;
    std::uint8_t bias;
};

inline constexpr WireBias kWireBiases[] = {
#define WIRE_BIAS(selector, bias) {Selector::selector, bias},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// False for what is taken without effect.
constexpr bool is_stored(Selector selector) {
    return std::ranges::find(kNotStored, selector) == std::end(kNotStored);
}

struct EffectText {
    const char* name;
    const char* meaning;
};

inline constexpr EffectText kEffects[] = {
#define EFFECT(id, meaning) {#id, meaning},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

enum class When : std::uint8_t { always, other_plan, by_mode };

struct AlsoWrites {
    Effect effect;
    Selector selector;
    When when;
    std::uint8_t row_offset = 0;  // from the sub-command's own row
};

inline constexpr AlsoWrites kAlsoWrites[] = {
#define ALSO_WRITES(effect, selector) {Effect::effect, Selector::selector, When::always},
#define COUNTRY_NUMBER(selector, member) ALSO_WRITES(changes_country, selector)
#define COUNTRY_TEXT(selector, member, size) ALSO_WRITES(changes_country, selector)
#define PLAN_NUMBER(selector, member) \
    {Effect::changes_country, Selector::selector, When::other_plan},
#define VIDEO_BITRATE(selector, row) \
    {Effect::changes_country, Selector::selector, When::by_mode, row},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// Tells `take` of each parameter that a sub-command stores something in besides its own: selector,
// row, when.
template <typename Take>
void for_each_also_written(const Subcommand& row, Take take) {
    if (row.effect == Effect::next_too)
        take((&row + 1)->selector, (&row + 1)->row, When::always);
    for (const AlsoWrites& also : kAlsoWrites) {
        if (also.effect == row.effect && also.selector != row.selector && is_stored(also.selector))
            take(also.selector, static_cast<std::uint8_t>(row.row + also.row_offset), also.when);
    }
}

struct ValueText {
    const char* of;  // the name of a parameter or a field
    std::uint32_t value;
    const char* text;
};

inline constexpr ValueText kValues[] = {
#define VALUE(of, value, text) {of, value, text},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

enum class Severity : std::uint8_t { note, warn, error };
inline constexpr const char* kSeverityNames[] = {"note", "warn", "error"};

// What may be found in a capture of a conversation.
enum class Finding : std::uint8_t {
#define FINDING(id, severity, text) id,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

struct FindingText {
    const char* name;
    Severity severity;
    const char* text;
};

inline constexpr FindingText kFindings[] = {
#define FINDING(id, severity, text) {#id, Severity::severity, text},
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// The states of the board, by their names in the database.
inline constexpr const char* kStates[] = {
#define STATE(name, reading) #name,
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
};

// Their names: state::alarma_hw.
namespace state {
#define STATE(name, reading) inline constexpr const char* const name = #name;
#define LINES "protocol/messages.def"
#include "protocol/lines.inc"
}  // namespace state

}  // namespace protocol
