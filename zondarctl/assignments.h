// Values that are given to parameters, as a command line or a list of lines has them.
#pragma once

#include <istream>
#include <vector>

#include "master/plan.h"
#include "zondarctl/commands.h"

namespace zondarctl {

// "NAME", "VALUE"; or any number of "NAME=VALUE"; or "-" for the lines of `input`, each
// "NAME=VALUE" or "NAME VALUE", empty ones and those behind "#" left out. A NAME may be a pattern.
// Throws a UsageError for what no parameter can hold, and for a parameter that is given twice.
std::vector<Write> assignments_in(const Words& words, std::istream& input);

}  // namespace zondarctl
