#include "zondarctl/parameter_report.h"

#include <fmt/format.h>

#include <utility>

#include "master/names.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

[[noreturn]] void refuse(const std::string& name) {
    const std::vector<std::string> near = nearest_parameters(name);
    throw UsageError(
        fmt::format("no parameter {}{}", name,
                    near.empty() ? "; `zondarctl list` has them all" : did_you_mean(near)));
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

// By the parameter that is written besides, when it is; it has the row of the sub-command's own.
Json also_written(const protocol::Subcommand& row) {
    constexpr const char* kWhen[] = {"always", "from or to the plan Australia", "by input mode"};
    Json all = Json::object();
    protocol::for_each_also_written(
        row, [&](protocol::Selector selector, std::uint8_t index, protocol::When when) {
            all[name_of(selector, index)] = kWhen[static_cast<std::size_t>(when)];
        });
    return all;
}

}  // namespace

const Parameter& known_parameter(const std::string& name) {
    const Parameter* const found = find_parameter(name);
    if (found == nullptr)
        refuse(name);
    return *found;
}

std::vector<const Parameter*> known_parameters(const std::string& name) {
    std::vector<const Parameter*> found = find_parameters(name);
    if (found.empty())
        refuse(name);
    return found;
}

Value parsed_value(const Parameter& parameter, const std::string& text) {
    try {
        return parse_value(parameter, text);
    } catch (const std::invalid_argument& problem) {
        throw UsageError(problem.what());
    }
}

Item item_of(const std::string& name, const Value& value) {
    if (const auto* const text = std::get_if<std::string>(&value))
        return {name, *text};
    return {name, std::int64_t{std::get<std::uint32_t>(value)}};
}

Item item_of(const Parameter& parameter, const Value& value) {
    return item_of(parameter.name, value);
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

std::string effect_of(const Parameter& parameter) {
    if (const Parameter* const also = parameter.also())
        return fmt::format("{} takes the same value", also->name);
    return protocol::kEffects[static_cast<std::size_t>(parameter.write->effect)].meaning;
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
    if (Json also = also_written(*parameter.write); !also.empty())
        object["also_writes"] = std::move(also);
    return object;
}

}  // namespace zondarctl
