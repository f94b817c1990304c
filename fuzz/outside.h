// What the processor finds outside of this process, for the targets that run it: the clock, the
// shell, the scripts, the pauses and the log are stand-ins.
#pragma once

#include <string>

struct Outside {
    bool scripts_start = true;
    std::string printed = {};  // by each script; empty for what the sample board's print
    int shells = 0;            // commands run
    int clocks = 0;            // attempts to set the clock
    int pauses = 0;
};
extern Outside outside;

// True on the thread that runs the processor, while it does. The fuzzer has one of its own.
extern thread_local bool in_the_processor;
