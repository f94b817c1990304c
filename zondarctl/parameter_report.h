// Parameters as reports show them.
#pragma once

#include <string>

#include "master/parameters.h"
#include "zondarctl/report.h"

namespace zondarctl {

// The parameter of this name; throws a UsageError that offers a similar one.
const Parameter& known_parameter(const std::string& name);

// A value that the parameter can hold; throws a UsageError.
Value parsed_value(const Parameter& parameter, const std::string& text);

Item item_of(const Parameter& parameter, const Value& value);

// {"name": ..., "value": ...}.
Json parameter_json(const std::string& name, const Item& item);

// The unit and the meaning, as far as they are known.
void put_meaning(Json& object, const char* unit, const char* meaning);

// What the module's tables say about it: name, sub-command, kind, width, range, what is not stored
// as it is sent, where it is read.
Json describe(const Parameter& parameter);

}  // namespace zondarctl
