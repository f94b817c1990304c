// Parameters, and words in general, by what somebody typed. Upper and lower case are the same.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "master/parameters.h"

namespace master {

// What is meant by a whole name, a pattern, the leading parts or the end of names ("EntradaAV.0",
// "Bitrate"): of these the first that finds something. In the order of parameters().
std::vector<const Parameter*> find_parameters(std::string_view pattern);

// By a whole name or a pattern alone, in which `*` stands for any characters:
// "EntradaAV.*.Bitrate".
std::vector<const Parameter*> matching(std::string_view pattern);

// The words that a mistyped one may be meant for, the nearest first, at most 4.
std::vector<std::string> nearest(std::string_view word, std::span<const std::string> of);

// The same of parameters' names; one with the right column is near whatever stands before it.
std::vector<std::string> nearest_parameters(std::string_view name);

}  // namespace master
