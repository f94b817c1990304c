// Two values of a parameter, as reports show them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "master/configuration.h"
#include "zondarctl/report.h"

namespace zondarctl {

// The value as it is shown; "-" for none.
std::string shown(const std::string& name, const std::optional<Value>& value);

// {"name": ...} with the unit and the meaning of a parameter that is known.
Json named_json(const std::string& name);
// The value of that name, null for none.
void put_value(Json& object, const char* key, const std::string& name,
               const std::optional<Value>& value);

// A named_json() with both values.
Json difference_json(const Difference& difference, std::array<const char*, 2> keys);

// Under data["differences"], and a line for each with its unit and meaning.
void put_differences(Report& report, const std::vector<Difference>& differences);

// Under data["changed"], and a line for each but those of `told` already: `how` it has changed.
void put_changes(Report& report, const Configuration& before, const Configuration& after,
                 std::string_view how, const std::vector<std::string>& told = {});

}  // namespace zondarctl
