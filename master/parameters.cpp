#include "master/parameters.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>

#include "master/requests.h"
#include "processor/configuration.h"
#include "processor/parameter_names.h"
#include "processor/wire_integers.h"

namespace master {

namespace {

constexpr std::uint8_t kBlocks[] = {1, 2};

template <typename... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

// The parameter that a sub-command stores, a Number or a Text, handed to `use`; nothing for one
// that does something else.
template <typename Use>
void with_target(const Subcommand& row, Use use) {
    std::visit(
        Overloaded{[&](const Number& number) { use(number); }, [&](const Text& text) { use(text); },
                   [&](const NumberSetter& setter) { use(setter.number); },
                   [&](const TextSetter& setter) { use(setter.text); }, [](Handler) {}},
        row.target);
}

std::string name_of(const Subcommand& row) {
    std::string name;
    with_target(row, [&](const auto& target) { name = ::name_of(target); });
    return name;
}

std::string name_of(const Field& field) {
    if (const auto* const number = std::get_if<Number>(&field.source))
        return ::name_of(*number);
    if (const auto* const text = std::get_if<Text>(&field.source))
        return ::name_of(*text);
    return "";
}

std::vector<Parameter> all_parameters() {
    std::vector<Parameter> all;
    for (const Subcommand& row : subcommands()) {
        if (const std::string name = name_of(row); !name.empty())
            all.push_back({name, &row, 0, nullptr});
    }
    for (const std::uint8_t block : kBlocks) {
        for (const Field& field : configuration_block(block)) {
            const auto shown = std::ranges::find(all, name_of(field), &Parameter::name);
            if (shown != all.end()) {
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

bool shows_block(const Request& request, std::span<const std::uint8_t> info) {
    const std::span<const Field> block = configuration_block(request.info[0]);
    const Field& last = block.back();
    return info.size() == std::size_t{last.position} + last.width && info[0] == request.info[0];
}

}  // namespace

bool Parameter::is_text() const {
    bool text = false;
    with_target(*write, Overloaded{[&](const Number&) {}, [&](const Text&) { text = true; }});
    return text;
}

std::uint32_t Parameter::limit() const {
    return is_text() ? write->width - 1U : (1U << 8U * write->width) - 1U;
}

// The next row takes the same value, and is the next parameter.
const Parameter* Parameter::also() const {
    return write->then == Then::next_row ? this + 1 : nullptr;
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

Value parse_value(const Parameter& parameter, std::string_view text) {
    const std::uint32_t limit = parameter.limit();
    if (parameter.is_text()) {
        if (text.size() > limit)
            throw std::invalid_argument(
                fmt::format("'{}' is longer than the {} bytes of {}", text, limit, parameter.name));
        return std::string(text);
    }
    const std::optional<std::uint32_t> number = to_number(text);
    if (!number)
        throw std::invalid_argument(fmt::format("'{}' is no number", text));
    if (*number > limit)
        throw std::invalid_argument(
            fmt::format("{} is beyond the {} that {} can hold", text, limit, parameter.name));
    return *number;
}

// The NUL ends the text: without it the module would take the frame's code bytes for its tail.
Request write_request(const Parameter& parameter, const Value& value) {
    Request request = {.command = kWriteCommand, .info = {parameter.write->code}};
    request.answered_by = [](const Request&, std::span<const std::uint8_t> info) {
        return info.empty();
    };
    if (const auto* const text = std::get_if<std::string>(&value)) {
        request.info.insert(request.info.end(), text->begin(), text->end());
        request.info.push_back(0);
    } else {
        const std::uint8_t width = parameter.write->width;
        request.info.resize(1U + width);
        int322buff(static_cast<int>(std::get<std::uint32_t>(value)), &request.info[1],
                   static_cast<e_int32_len>(width - 1));
    }
    return request;
}

Value value_after(const Parameter& parameter, const Value& value) {
    Value after = value;
    if (const auto* const number = std::get_if<Number>(&parameter.write->target))
        after = static_cast<std::uint32_t>(
            number->kept(static_cast<int>(std::get<std::uint32_t>(value))));
    return after;
}

Request block_request(std::uint8_t block) {
    return {.command = kConfigurationCommand,
            .info = {block},
            .reads = true,
            .answered_by = shows_block};
}

Value value_in(const Parameter& parameter, std::span<const std::uint8_t> info) {
    const auto field = info.subspan(parameter.field->position, parameter.field->width);
    if (parameter.is_text())
        return text_in(field);
    return number_in(field);
}

std::string text_in(std::span<const std::uint8_t> field) {
    return {field.begin(), std::ranges::find(field, 0)};
}

std::uint32_t number_in(std::span<const std::uint8_t> field) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : field)
        number = number << 8U | byte;
    return number;
}

std::string_view consequence_of(const Request& request) {
    // Shorter ones are refused.
    if (request.command != kWriteCommand || request.info.size() < 2)
        return "";
    const std::uint8_t code = request.info[0];
    if (code == kTimeCode || code == kDateCode)
        return "sets the clock of the module";
    if (code == kFactoryResetCode)
        return "resets the module to its factory configuration";
    const auto all = subcommands();
    const auto row = std::ranges::find(all, code, &Subcommand::code);
    if (row != all.end() && row->then == Then::reset_network)
        return "resets the network of the module, which may then have another address";
    return "";
}

}  // namespace master
