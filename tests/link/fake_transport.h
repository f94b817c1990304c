// Stands in for the transport: bytes to be read come from a literal, every call is recorded.
#pragma once

#include <string>
#include <vector>

#include "tests/support/bytes.h"

struct FakeTransport {
    Bytes incoming;        // still to be read; with none left a read fails
    int read_failure = 0;  // what a failing read returns
    Bytes sent;            // the buffers sent, one behind the other
    // In order: "reset PORT", "modo PORT MODE", "enviar PORT LENGTH", "leer PORT TIMEOUT",
    // "cerrar".
    std::vector<std::string> calls;

    // Number of receptions ended.
    [[nodiscard]] int closings() const;
};

extern FakeTransport wire;
