// The tool as its users run it.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "tests/support/program.h"

using Json = nlohmann::ordered_json;
using Words = std::vector<std::string>;

// Runs `zondarctl WORDS...`.
ProgramRun run_zondarctl(const Words& words, const std::string& input = "");
ProgramRun zondarctl_on_terminal(const Words& words, const std::string& typed = "");

// Keeps what it printed, if that is JSON, for the test behind all tests that validates it.
ProgramRun keep_json(ProgramRun run);

// Its path.
std::string zondarctl_path();

// With --json: the object that it printed. Fails the test when that is not exactly one, or when the
// exit status is another.
Json json_of(const Words& words, int status = 0);

// What was printed, line by line.
Words lines_of(const std::string& text);
