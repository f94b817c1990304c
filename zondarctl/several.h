// One command for several modules, side by side.
#pragma once

#include <cstddef>
#include <vector>

#include "zondarctl/commands.h"

namespace zondarctl {

// The options for one of the modules; the bytes that go to it and come from it are told behind
// `prefix`.
Options options_for(Options options, const Target& target, const std::string& prefix);

// Of a command that changes something, whose failures tell what became of that; those of all others
// do not.
Run changing(Run run);

// What `run` reports of one module. Failures and UsageErrors become the report's.
Report report_of(const Run& run, const Options& options);

// What report_of() gives for each target, at most `at_once` at a time, in the order of the targets:
// one that is slow keeps no other waiting but for its place. Behind Ctrl-C no more are asked. On a
// terminal a line tells how far it is.
std::vector<ModuleReport> reports_of(const Run& run, const Options& options,
                                     const std::vector<Target>& targets, std::size_t at_once);

}  // namespace zondarctl
