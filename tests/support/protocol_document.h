// docs/protocol.md, for comparing its tables with what the programs have.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/bytes.h"

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
    std::string name;  // empty for what says nothing
    std::string kind;  // and its unit
    std::string content;
};

// "2 + 10c" stands for positions 2 and 12, and the names have 0 and 1 for the letter. A letter of a
// layout for one channel becomes `channel`.
std::vector<Place> layout(const std::string& heading, const std::string& channel = "");

// The fields of a layout that has no section of its own.
std::vector<Place> fields(const std::string& layout);

// The one of this name, or of this content if it has none.
Place place(const std::string& heading, const std::string& name);

// Of the whole layout.
std::size_t length(const std::string& heading);

// Bytes from such a place on, at least for all of it.
struct Part {
    std::string name;
    Bytes bytes;
};

// Puts them into the info of an answer.
void put(const std::vector<Part>& parts, const std::string& heading, Bytes& info);

// A column as the page names it, with its row, as contents() names the cell; a row alone gives the
// beginning of the names of its cells.
std::string cell(const std::string& column);

// A sub-command that stores one value, and has no section of its own.
struct Plain {
    std::uint8_t code;
    std::string name;    // as it is logged
    unsigned bytes;      // of a number; 0 for a text
    unsigned room;       // of a text: one less is stored; 0 for a number
    std::string column;  // the first that it writes; empty when there is none
    std::string cell;
};
std::vector<Plain> plain_subcommands();

// How many statements a request makes at most.
std::size_t statements(const std::string& request);

// A frame that is sent, and what comes back: bytes, ?? for any byte, or "nothing".
struct Exchange {
    std::string request;
    std::string answer;
};
std::vector<Exchange> exchanges();

// The answer that is shown to the first request which begins with these bytes.
std::string answer(const std::string& request);
inline std::string answer(const Bytes& request) {
    return answer(to_hex(request));
}

// The bytes of an answer, ?? where the page has it.
std::string as_shown(const Bytes& answer, const std::string& shown);

}  // namespace document
