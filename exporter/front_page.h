// The page for people: what came of the last questions to each module, and a form to ask one.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "exporter/figures.h"
#include "exporter/target_list.h"

namespace exporter {

// In HTML, whole; links in it are relative, so that it may stand behind any path.
std::string front_page(const TargetList& targets, const std::map<std::string, Past>& past,
                       std::chrono::system_clock::time_point now);

}  // namespace exporter
