// A program run to its end.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct ProgramRun {
    int status = -1;  // exit status; 1000 + the signal's number when one killed it
    std::string out;
    std::string err;
};

// Runs it with these words, the first one the program's path, `input` as its standard input, and
// waits for its end.
ProgramRun run_program(const std::vector<std::string>& words, const std::string& input = "");

// The same while `meanwhile` runs in this process, which is given the pid.
ProgramRun run_program(const std::vector<std::string>& words, const std::string& input,
                       const std::function<void(int pid)>& meanwhile);

// The same on a terminal of its own, as which all three streams are: `out` has everything that it
// showed, `typed` is what a person types.
ProgramRun run_on_terminal(const std::vector<std::string>& words, const std::string& typed = "");
