#include "exporter/probe_request.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <set>
#include <stdexcept>

#include "master/text.h"

namespace exporter {

namespace {

constexpr double kWithoutHeader = 10;  // seconds
constexpr double kForTheWay = 0.5;
constexpr double kLongest = 60;

template <typename... Arguments>
[[noreturn]] void refuse(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    throw std::invalid_argument(fmt::format(text, std::forward<Arguments>(arguments)...));
}

Collect parse_collect(const std::string& value) {
    if (value == "status")
        return Collect::status;
    if (value == "configuration")
        return Collect::configuration;
    refuse("collect is status or configuration, not '{}'", master::printable(value));
}

bool parse_debug(const std::string& value) {
    if (value != "true" && value != "false")
        refuse("debug is true or false, not '{}'", master::printable(value));
    return value == "true";
}

}  // namespace

ProbeRequest parse_probe(std::span<const Argument> arguments) {
    ProbeRequest request;
    std::set<std::string> seen;
    for (const auto& [name, value] : arguments) {
        if (!seen.insert(name).second)
            refuse("{} is given twice", master::printable(name));
        if (name == "target")
            request.target = value;
        else if (name == "collect")
            request.collect = parse_collect(value);
        else if (name == "debug")
            request.debug = parse_debug(value);
        else
            refuse("there is no parameter '{}'", master::printable(name));
    }
    if (request.target.empty())
        refuse("the target is missing: /probe?target=HOST");
    return request;
}

std::chrono::milliseconds time_for_probe(std::optional<std::string_view> header) {
    double seconds = kWithoutHeader;
    if (header) {
        double told = 0;
        const auto [end, error] =
            std::from_chars(header->data(), header->data() + header->size(), told);
        if (error == std::errc() && end == header->data() + header->size() && told > 0 &&
            std::isfinite(told))
            seconds = std::min(told, kLongest);
    }
    // A time-out below a second is halved instead: little or nothing would be left.
    const double left = std::max(seconds - kForTheWay, seconds / 2);
    return std::chrono::milliseconds(std::max<std::int64_t>(1, std::llround(left * 1000)));
}

}  // namespace exporter
