#include "zondarctl/parameter_report.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <utility>

#include "processor/parameter_names.h"

namespace zondarctl {

namespace {

std::string column_of(const std::string& name) {
    return name.substr(name.rfind('.') + 1);
}

// The first one with the same column.
std::string suggestion(const std::string& name) {
    const std::string column = column_of(name);
    const auto similar = std::ranges::find_if(parameters(), [&](const Parameter& parameter) {
        return strcasecmp(column_of(parameter.name).c_str(), column.c_str()) == 0;
    });
    if (similar == parameters().end())
        return "; `zondarctl list` has them all";
    return fmt::format("; there is {}", similar->name);
}

std::string remark_on(const Parameter& parameter) {
    if (const Parameter* const also = parameter.also())
        return fmt::format("also writes {}", also->name);
    if (std::holds_alternative<NumberSetter>(parameter.write->target))
        return "channel and frequency change together";
    if (std::holds_alternative<TextSetter>(parameter.write->target))
        return "changes what depends on the country";
    if (parameter.write->then == Then::reset_network)
        return "resets the network";
    return "";
}

// By the value that is sent, the one that is read back, where that is another.
Json changed_values(const Number& number, std::uint32_t limit) {
    Json changed = Json::object();
    for (std::uint32_t value = 0; value <= limit; ++value) {
        const int kept = number.kept(static_cast<int>(value));
        if (kept != static_cast<int>(value))
            changed[std::to_string(value)] = kept;
    }
    return changed;
}

// What becomes of the numbers that are sent, where it is not what is read back.
void put_storage(Json& object, const Parameter& parameter) {
    const auto* const number = std::get_if<Number>(&parameter.write->target);
    if (number == nullptr)
        return;
    if (!has_column(*number))
        object["stored"] = false;
    if (Json changed = changed_values(*number, parameter.limit()); !changed.empty())
        object["stored_as"] = std::move(changed);
}

}  // namespace

const Parameter& known_parameter(const std::string& name) {
    const Parameter* const found = find_parameter(name);
    if (found == nullptr)
        throw UsageError(fmt::format("no parameter {}{}", name, suggestion(name)));
    return *found;
}

Value parsed_value(const Parameter& parameter, const std::string& text) {
    try {
        return parse_value(parameter, text);
    } catch (const std::invalid_argument& problem) {
        throw UsageError(problem.what());
    }
}

Item item_of(const Parameter& parameter, const Value& value) {
    if (const auto* const text = std::get_if<std::string>(&value))
        return {parameter.name, *text};
    return {parameter.name, std::int64_t{std::get<std::uint32_t>(value)}};
}

Json parameter_json(const std::string& name, const Item& item) {
    Json object = {{"name", name}};
    put_item(object, "value", item);
    return object;
}

Json describe(const Parameter& parameter) {
    Json object = {{"name", parameter.name}, {"sub_command", parameter.write->code}};
    if (parameter.is_text()) {
        object["kind"] = "text";
        object["length"] = parameter.limit();
    } else {
        object["kind"] = "number";
        object["width"] = parameter.write->width;
        object["maximum"] = parameter.limit();
    }
    put_storage(object, parameter);
    object["block"] = parameter.block == 0 ? Json() : Json(parameter.block);
    object["position"] = parameter.field == nullptr ? Json() : Json(parameter.field->position);
    if (const std::string remark = remark_on(parameter); !remark.empty())
        object["remark"] = remark;
    return object;
}

}  // namespace zondarctl
