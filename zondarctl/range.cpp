#include "zondarctl/range.h"

#include <fmt/format.h>

#include <charconv>
#include <limits>
#include <optional>

#include "zondarctl/report.h"

namespace zondarctl {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Without an exponent, and without words for what is no number.
std::optional<double> number_in(std::string_view text) {
    double number = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    const bool plain = text.find_first_not_of("-.0123456789") == std::string_view::npos;
    if (!plain || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

}  // namespace

std::string PluginRange::where() const {
    const std::string limits = ill_inside ? text.substr(1) : text;
    return fmt::format("{} {}{}", ill_inside ? "inside" : "outside",
                       limits.find(':') == std::string::npos ? "0:" : "", limits);
}

PluginRange parse_range(const std::string& text) {
    const bool inside = text.starts_with('@');
    const std::string_view limits = std::string_view(text).substr(inside ? 1 : 0);
    const std::size_t colon = limits.find(':');
    const bool has_start = colon != std::string_view::npos;
    const std::string_view first = has_start ? limits.substr(0, colon) : "";
    const std::string_view last = has_start ? limits.substr(colon + 1) : limits;
    const auto start = first == "~" ? -kInfinity : number_in(first.empty() ? "0" : first);
    const auto end = has_start && last.empty() ? kInfinity : number_in(last);
    if (!start || !end || limits == ":")
        throw UsageError(
            fmt::format("'{}' is no range; 10, 10:, ~:10, 10:20 and @10:20 are some", text));
    if (*start > *end)
        throw UsageError(fmt::format("the range '{}' ends before it begins", text));
    return {text, *start, *end, inside};
}

}  // namespace zondarctl
