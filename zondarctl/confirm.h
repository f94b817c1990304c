// Questions before what reaches further than the words of a command say.
#pragma once

#include <string>
#include <vector>

namespace zondarctl {

struct Options;

// Asks on the terminal whether to go on, telling what happens besides ("resets the network of the
// module") below `plan`. Asks nothing for no consequence, or when --yes was given. True when it has
// asked. Throws a UsageError without a terminal to ask on, and when the answer is no.
bool confirm(const Options& options, const std::vector<std::string>& consequences,
             const std::string& plan = "");

}  // namespace zondarctl
