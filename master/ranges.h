// The values that a parameter takes, and those that are meant: the module stores whatever fits.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "master/parameters.h"

namespace master {

// "0 to 255", "0 or 1", "an IPv4 address", "a text of at most 14 bytes", with the unit if there is
// one.
std::string range_of(const Parameter& parameter);

// Why no write makes the parameter read back as `wanted`, which it can hold, when none does.
std::string why_never(const Parameter& parameter, const Value& wanted);

// What is wrong with a value that the parameter can hold, of a module with that country stored: the
// parameter, what is meant instead, and the value. Nothing when it is one that is meant. Channels
// and frequencies of a country without a plan cannot be judged, which is said, too.
std::optional<std::string> objection(const Parameter& parameter, const Value& value,
                                     std::string_view country);

}  // namespace master
