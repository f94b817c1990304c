// What is ill among the values of the status.
#pragma once

#include <string>
#include <vector>

#include "zondarctl/report.h"

namespace zondarctl {

bool is_alarm(std::string_view name);
// An alarm, or a flag that is ill when it is not set.
bool is_judged(std::string_view name);

bool is_alarm(const Item& item);
// True for a flag that is set.
bool is_on(const Item& item);
// What is ill in words: "alarma_in", "output not synchronised"; empty for what is not.
std::string illness_of(const Item& item);

// The names of those that are on.
std::vector<std::string> active_alarms(const Items& status);

// All of the status, and the names of the active alarms.
Json status_json(const Items& status);

}  // namespace zondarctl
