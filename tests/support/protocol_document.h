// docs/protocol.md, for comparing its tables with what the programs have.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace document {

std::vector<std::string> lines();

using Row = std::vector<std::string>;  // the cells of a line

// The rows of every table with this head that stands below the heading, up to the next heading of
// that kind; below any without.
std::vector<Row> table(const std::string& head, const std::string& heading = "");

// What stands in backquotes in a cell.
std::vector<std::string> quoted(const std::string& cell);

// A line of a layout, for one of its channels or services.
struct Place {
    std::size_t position;
    std::size_t width;
    std::string content;
};

// "2 + 10c" stands for positions 2 and 12, and its columns have the same letter for 0 and 1. Of one
// channel the letter stands for 1.
std::vector<Place> layout(const std::string& heading, bool of_one_channel = false);

}  // namespace document
