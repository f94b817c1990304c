// Command dispatch: one request record to at most one answer record.
#pragma once

#include <memory>

struct mensaje;

// The answer to `request`, which bears the request's command and sequence 0; null when none is
// to be sent. Only `comando`, `longitud` and `info` of the request are read.
std::unique_ptr<mensaje> procesar_comando(const mensaje& request);
