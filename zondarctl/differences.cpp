#include "zondarctl/differences.h"

#include <fmt/format.h>

#include <algorithm>

#include "zondarctl/parameter_report.h"

namespace zondarctl {

std::string shown(const std::string& name, const std::optional<Value>& value) {
    return value ? shown(item_of(name, *value)) : "-";
}

Json named_json(const std::string& name) {
    Json entry = {{"name", name}};
    if (const Parameter* const parameter = find_parameter(name); parameter != nullptr)
        put_meaning(entry, parameter->description().unit, parameter->description().meaning);
    return entry;
}

void put_value(Json& object, const char* key, const std::string& name,
               const std::optional<Value>& value) {
    if (value)
        put_item(object, key, item_of(name, *value));
    else
        object[key] = nullptr;
}

Json difference_json(const Difference& difference, std::array<const char*, 2> keys) {
    Json entry = named_json(difference.name);
    put_value(entry, keys[0], difference.name, difference.one);
    put_value(entry, keys[1], difference.name, difference.other);
    return entry;
}

void put_differences(Report& report, const std::vector<Difference>& differences) {
    report.data["differences"] = Json::array();
    for (const Difference& each : differences) {
        report.data["differences"].push_back(difference_json(each, {"a", "b"}));
        std::string meaning;
        if (const Parameter* const parameter = find_parameter(each.name); parameter != nullptr) {
            const protocol::Parameter& known = parameter->description();
            meaning = known.meaning;
            if (*known.unit != '\0')
                meaning += std::string(", ") + known.unit;
        }
        report.line({each.name, shown(each.name, each.one), shown(each.name, each.other), meaning});
    }
}

void put_changes(Report& report, const Configuration& before, const Configuration& after,
                 std::string_view how, const std::vector<std::string>& told) {
    report.data["changed"] = Json::array();
    std::string besides;
    for (const Difference& each : differences(before.settings(), after.settings())) {
        report.data["changed"].push_back(difference_json(each, {"old", "new"}));
        if (std::ranges::find(told, each.name) != told.end())
            continue;
        const std::string was = shown(each.name, each.one);
        const std::string now = shown(each.name, each.other);
        report.line({each.name, now, fmt::format("{}, was {}", how, was)});
        besides += fmt::format("{}{} {} -> {}", besides.empty() ? "" : ", ", each.name, was, now);
    }
    if (!besides.empty())
        report.row.emplace_back("besides", besides);
}

}  // namespace zondarctl
