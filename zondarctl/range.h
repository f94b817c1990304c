// The ranges of monitoring plugins, outside of which, or behind an @ inside of which, a figure is
// ill: "10" from 0 on, "10:", "~:10" without a least one, "10:20", "@10:20". Their ends belong to
// them.
#pragma once

#include <string>

namespace zondarctl {

struct PluginRange {
    std::string text;  // as it was written
    double start;
    double end;
    bool ill_inside;

    [[nodiscard]] bool is_ill(double figure) const {
        return (figure >= start && figure <= end) == ill_inside;
    }
    // Where an ill figure is: "outside 0:10".
    [[nodiscard]] std::string where() const;
};

// Throws a UsageError.
PluginRange parse_range(const std::string& text);

}  // namespace zondarctl
