#include "tests/support/protocol_document.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include "tests/support/files.h"

namespace document {

namespace {

Row cells_of(const std::string& line) {
    Row row;
    const std::regex cell(R"(\| ?(.*?) ?(?=\|))");
    for (std::sregex_iterator at(line.begin(), line.end(), cell), end; at != end; ++at)
        row.push_back((*at)[1]);
    return row;
}

}  // namespace

std::vector<std::string> lines() {
    std::istringstream document(read_file(ZONDAR_SOURCE_DIR "/docs/protocol.md"));
    std::vector<std::string> all;
    for (std::string line; std::getline(document, line);)
        all.push_back(line);
    return all;
}

std::vector<Row> table(const std::string& head, const std::string& heading) {
    std::vector<Row> rows;
    bool below = heading.empty();
    bool inside = false;
    for (const std::string& line : lines()) {
        if (line.starts_with("#") && !heading.empty())
            below = line.ends_with("# " + heading);
        if (line.starts_with(head)) {
            inside = below;
        } else if (!line.starts_with("|")) {
            inside = false;
        } else if (inside && !line.starts_with("|---")) {
            rows.push_back(cells_of(line));
        }
    }
    return rows;
}

std::vector<std::string> quoted(const std::string& cell) {
    std::vector<std::string> texts;
    const std::regex code("`(.*?)`");
    for (std::sregex_iterator at(cell.begin(), cell.end(), code), end; at != end; ++at)
        texts.push_back((*at)[1]);
    return texts;
}

std::vector<Place> layout(const std::string& heading, bool of_one_channel) {
    std::vector<Place> places;
    for (const Row& row : table("| Position | Width | Content |", heading)) {
        const std::size_t plus = row[0].find(" + ");
        const std::size_t first = std::stoul(row[0]);
        const std::size_t width = std::stoul(row[1]);
        if (plus == std::string::npos) {
            places.push_back({first, width, row[2]});
            continue;
        }
        const std::size_t step = std::stoul(row[0].substr(plus + 3));
        const std::string letter = std::string(".") + row[0].back() + ".";
        for (const std::size_t index : {0U, 1U}) {
            std::string content = row[2];
            const std::size_t at = content.find(letter);
            if (at != std::string::npos)
                content.replace(at + 1, 1, std::to_string(index));
            places.push_back({first + step * index, width, content});
        }
    }
    if (of_one_channel) {
        for (Place& place : places) {
            const std::size_t at = place.content.find(".c.");
            if (at != std::string::npos)
                place.content.replace(at + 1, 1, "1");
        }
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.position < b.position; });
    return places;
}

}  // namespace document
