#include "zondarctl/parameter_report.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>

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
    return protocol::kEffects[static_cast<std::size_t>(parameter.write->effect)].meaning;
}

// What becomes of the numbers that are sent, where it is not what is read back.
void put_storage(Json& object, const Parameter& parameter) {
    if (!protocol::is_stored(parameter.write->selector))
        object["stored"] = false;
    for (const protocol::WireBias& each : protocol::kWireBiases) {
        if (each.selector == parameter.write->selector)
            object["database_offset"] = each.bias;
    }
    for (const protocol::StoredAs& each : protocol::kStoredAs) {
        if (each.selector == parameter.write->selector)
            object["stored_as"][std::to_string(each.value)] = each.stored;
    }
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

void put_meaning(Json& object, const char* unit, const char* meaning) {
    if (*unit != '\0')
        object["unit"] = unit;
    if (*meaning != '\0')
        object["meaning"] = meaning;
}

Json describe(const Parameter& parameter) {
    const protocol::Parameter& known = parameter.description();
    Json object = {{"name", parameter.name},
                   {"sub_command", parameter.write->code},
                   {"kind", protocol::name_of(known.kind)}};
    if (parameter.is_text()) {
        object["length"] = parameter.limit();
        object["ends_in_nul"] = true;
    } else {
        object["width"] = parameter.write->width;
        object["maximum"] = parameter.limit();
    }
    put_meaning(object, known.unit, known.meaning);
    put_storage(object, parameter);
    object["block"] = parameter.block == 0 ? Json() : Json(parameter.block);
    object["position"] = parameter.field == nullptr ? Json() : Json(parameter.field->position);
    if (const std::string remark = remark_on(parameter); !remark.empty())
        object["remark"] = remark;
    return object;
}

}  // namespace zondarctl
