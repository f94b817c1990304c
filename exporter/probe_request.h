// What the request line of a probe asks for.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "exporter/probe.h"

namespace exporter {

// A parameter of the request line, decoded.
struct Argument {
    std::string name;
    std::string value;
};

struct ProbeRequest {
    std::string target;
    Collect collect = Collect::status;
    bool debug = false;
};

// Throws std::invalid_argument with one line when there is no target, or something that is no
// parameter or no value of one.
ProbeRequest parse_probe(std::span<const Argument> arguments);

// How long a probe may take: what Prometheus tells in X-Prometheus-Scrape-Timeout-Seconds less half
// a second for the way, that of 10 s without one that makes sense, never more than a minute.
std::chrono::milliseconds time_for_probe(std::optional<std::string_view> header);

}  // namespace exporter
