// What modules tell of their state: the real daemon on the sample board, and a made-up one.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"

inline void set_state(const std::string& name, const std::string& value) {
    run_elsewhere(kTempDb,
                  "UPDATE alarmasEstado SET valor = '" + value + "' WHERE nombre = '" + name + "'");
}

// The answer of a module with these alarms and this null packet level, and 0 for all else.
inline Bytes status_answer(std::uint8_t alarms, std::uint8_t level = 0) {
    Bytes info(28);
    info[1] = alarms;
    info[15] = level;
    return frame(0, info);
}
