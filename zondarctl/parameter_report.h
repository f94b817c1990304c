// Parameters as reports show them.
#pragma once

#include <string>

#include "master/parameters.h"
#include "zondarctl/report.h"

namespace zondarctl {

// The parameter of exactly this name; throws a UsageError that offers a similar one.
const Parameter& known_parameter(const std::string& name);

// Those that a name, a pattern, or a part of names finds; throws a UsageError that offers similar
// ones when there are none.
std::vector<const Parameter*> known_parameters(const std::string& name);

// A value that the parameter can hold; throws a UsageError.
Value parsed_value(const Parameter& parameter, const std::string& text);

Item item_of(const std::string& name, const Value& value);
Item item_of(const Parameter& parameter, const Value& value);

// {"name": ..., "value": ...}.
Json parameter_json(const std::string& name, const Item& item);

// The unit and the meaning, as far as they are known.
void put_meaning(Json& object, const char* unit, const char* meaning);

// What setting it does besides, for people; empty for nothing.
std::string effect_of(const Parameter& parameter);

// What the module's tables say about it: name, sub-command, kind, width, range, what is not stored
// as it is sent, where it is read, what is written besides.
Json describe(const Parameter& parameter);

}  // namespace zondarctl
