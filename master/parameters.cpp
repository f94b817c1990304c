#include "master/parameters.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "master/layout.h"
#include "master/ranges.h"
#include "master/requests.h"

namespace master {

namespace {

using protocol::Field;
using protocol::Subcommand;

std::vector<Parameter> all_parameters() {
    std::vector<Parameter> all;
    for (const Subcommand& row : protocol::kSubcommands) {
        if (row.width != 0)
            all.push_back({name_of(row.selector, row.row), &row, 0, nullptr});
    }
    for (std::uint8_t block = 1; block <= 2; ++block) {
        for (const Field& field : protocol::fields(protocol::block_layout(block))) {
            const auto shown = std::ranges::find(all, name_of(field), &Parameter::name);
            if (field.is_parameter && shown != all.end()) {
                shown->block = block;
                shown->field = &field;
            }
        }
    }
    return all;
}

bool same_letters(std::string_view one, std::string_view other) {
    return std::ranges::equal(one, other, [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    });
}

}  // namespace

const protocol::Parameter& Parameter::description() const {
    return protocol::parameter(write->selector);
}

bool Parameter::is_text() const {
    return protocol::is_text(description().kind);
}

std::uint32_t Parameter::limit() const {
    return is_text() ? write->width - 1U : (1U << 8U * write->width) - 1U;
}

// The next row takes the same value, and is the next parameter.
const Parameter* Parameter::also() const {
    return write->effect == protocol::Effect::next_too ? this + 1 : nullptr;
}

std::span<const Parameter> parameters() {
    static const std::vector<Parameter> kParameters = all_parameters();
    return kParameters;
}

const Parameter* find_parameter(std::string_view name) {
    const auto all = parameters();
    const auto found = std::ranges::find_if(
        all, [&](const Parameter& parameter) { return same_letters(parameter.name, name); });
    return found == all.end() ? nullptr : &*found;
}

bool can_hold(const Parameter& parameter, const Value& value) {
    if (const auto* const text = std::get_if<std::string>(&value))
        return parameter.is_text() && text->size() <= parameter.limit() &&
               text->find('\0') == std::string::npos;
    return !parameter.is_text() && std::get<std::uint32_t>(value) <= parameter.limit();
}

Value parse_value(const Parameter& parameter, std::string_view text) {
    if (parameter.is_text()) {
        if (Value value = std::string(text); can_hold(parameter, value))
            return value;
    } else if (const auto number = to_number(text); number && can_hold(parameter, *number)) {
        return *number;
    }
    const bool too_long = parameter.description().kind == protocol::Kind::text;
    throw std::invalid_argument(fmt::format("{} takes {}, not '{}'{}", parameter.name,
                                            range_of(parameter), text,
                                            too_long ? fmt::format(" with {}", text.size()) : ""));
}

// The NUL ends the text: without it the module would take the frame's code bytes for its tail.
Request write_request(const Parameter& parameter, const Value& value) {
    Request request = {.command = protocol::command::write,
                       .info = {parameter.write->code},
                       .answers = Request::Answers{}};
    if (const auto* const text = std::get_if<std::string>(&value)) {
        request.info.insert(request.info.end(), text->begin(), text->end());
        request.info.push_back(0);
    } else {
        put_number(request.info, std::get<std::uint32_t>(value), parameter.write->width);
    }
    return request;
}

Value value_after(const Parameter& parameter, const Value& value) {
    for (const protocol::StoredAs& each : protocol::kStoredAs) {
        if (each.selector == parameter.write->selector && value == Value(each.value))
            return each.stored;
    }
    return value;
}

Value read_back_of(const Parameter& parameter, const Value& sent) {
    if (!protocol::is_stored(parameter.write->selector))
        return 0U;
    if (parameter.write->effect == protocol::Effect::masks_input)
        return sent == Value(1U) ? 1U : 0U;
    if (const auto* const text = std::get_if<std::string>(&sent)) {
        std::string stored = *text;
        if (const std::size_t first = stored.find('%'); first != std::string::npos)
            stored[first] = ' ';
        return stored;
    }
    return value_after(parameter, sent);
}

// A per cent sign can be stored behind a blank alone: that of another one, the first.
std::optional<Value> value_to_send(const Parameter& parameter, const Value& wanted) {
    if (!can_hold(parameter, wanted))
        return std::nullopt;
    Value other = wanted;
    if (auto* const text = std::get_if<std::string>(&other)) {
        if (const std::size_t blank = text->find(' '); blank != std::string::npos)
            (*text)[blank] = '%';
    }
    for (const Value& each : {wanted, other}) {
        if (read_back_of(parameter, each) == wanted)
            return each;
    }
    return std::nullopt;
}

Value value_in(const Parameter& parameter, std::span<const std::uint8_t> info) {
    const auto field = info.subspan(parameter.field->position, parameter.field->width);
    if (parameter.is_text())
        return text_in(field);
    return number_in(field);
}

}  // namespace master
