#include "tests/support/protocol_document.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

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

namespace {

// Of a row that begins with the position; `letter` is the channel or service that stands in it.
Place place_of(const Row& row, std::size_t position, const std::string& letter = "",
               const std::string& index = "") {
    std::string name = row[2].empty() ? "" : quoted(row[2]).at(0);
    if (const std::size_t at = name.find("." + letter + ".");
        !letter.empty() && at != std::string::npos)
        name.replace(at + 1, 1, index);
    const std::size_t width = row[1] == "rest" ? 0 : std::stoul(row[1]);
    return {position, width, name, row[3], row[4]};
}

}  // namespace

std::vector<Place> layout(const std::string& heading, const std::string& channel) {
    std::vector<Place> places;
    for (const Row& row : table("| Position | Width | Name |", heading)) {
        const std::size_t plus = row[0].find(" + ");
        const std::size_t first = std::stoul(row[0]);
        if (plus == std::string::npos) {
            places.push_back(place_of(row, first, channel.empty() ? "" : "c", channel));
            continue;
        }
        const std::size_t step = std::stoul(row[0].substr(plus + 3));
        const std::string letter(1, row[0].back());
        for (const std::size_t index : {0U, 1U})
            places.push_back(place_of(row, first + step * index, letter, std::to_string(index)));
    }
    std::ranges::stable_sort(places, {}, &Place::position);
    return places;
}

std::vector<Place> fields(const std::string& layout) {
    std::vector<Place> places;
    for (const Row& row : table("| Layout | Position |")) {
        if (quoted(row[0]).at(0) == layout)
            places.push_back(place_of({row.begin() + 1, row.end()}, std::stoul(row[1])));
    }
    return places;
}

Place place(const std::string& heading, const std::string& name) {
    const std::vector<Place> all = layout(heading);
    const auto is_it = [&name](const Place& each) {
        return each.name == name || each.content == name;
    };
    if (std::ranges::count_if(all, is_it) != 1)
        throw std::invalid_argument(heading + " has not one place of " + name);
    return *std::ranges::find_if(all, is_it);
}

std::size_t length(const std::string& heading) {
    const Place last = layout(heading).back();
    return last.position + last.width;
}

void put(const std::vector<Part>& parts, const std::string& heading, Bytes& info) {
    for (const Part& part : parts) {
        const Place to = place(heading, part.name);
        if (part.bytes.size() < to.width)
            throw std::invalid_argument(to_hex(part.bytes) + " is narrower than " + part.name);
        std::copy(part.bytes.begin(), part.bytes.end(), &info.at(to.position));
    }
}

std::string cell(const std::string& name) {
    std::vector<std::string> parts;
    std::istringstream stream(name);
    for (std::string part; std::getline(stream, part, '.');)
        parts.push_back(part == "c" || part == "s" ? "1" : part);  // as in the examples
    const std::string table = parts[0];
    if (table == "PIDsSalida")
        return table + " " + parts.at(1) + "." + parts.at(2) + " " + parts.at(3);
    if (table == "alarmasEstado" || table == "EntradaAV" || table == "ServiciosSalida" ||
        table == "EsclavosModulo")
        return table + " " + parts.at(1) + " " + (parts.size() > 2 ? parts[2] : "");
    return table + " 1 " + parts.at(1);
}

std::vector<Plain> plain_subcommands() {
    std::vector<Plain> plain;
    for (const Row& row : table("| Code | Name in the log")) {
        std::smatch width;
        const bool number = std::regex_match(row[2], width, std::regex("(.) bytes?"));
        const bool has_a_section = (row[3] + row[4]).find("](#") != std::string::npos;
        if (has_a_section || (!number && !std::regex_match(row[2], width, std::regex("text (.+)"))))
            continue;
        const std::vector<std::string> columns = quoted(row[3]);
        const auto size = static_cast<unsigned>(std::stoul(width[1]));
        plain.push_back({.code = static_cast<std::uint8_t>(std::stoul(row[0])),
                         .name = quoted(row[1]).at(0),
                         .bytes = number ? size : 0,
                         .room = number ? 0 : size + 1,
                         .column = columns.empty() ? "" : columns[0],
                         .cell = columns.empty() ? "" : cell(columns[0])});
    }
    return plain;
}

std::size_t statements(const std::string& request) {
    for (const Row& row : table("| Request | Statements")) {
        if (row[0] == request)
            return std::stoul(row[1]);
    }
    throw std::invalid_argument("no statements of " + request);
}

std::vector<Exchange> exchanges() {
    std::vector<Exchange> found;
    std::string* last = nullptr;
    for (const std::string& line : lines()) {
        if (line.starts_with("    > ")) {
            found.push_back({line.substr(6), ""});
            last = &found.back().request;
        } else if (line.starts_with("    < ")) {
            last = &found.back().answer;
            *last = line.substr(6);
        } else if (line.starts_with("      ") && last != nullptr) {
            *last += " " + line.substr(6);
        } else {
            last = nullptr;
        }
    }
    for (Exchange& each : found) {
        const std::string shortened = "(255 times 00)";
        if (const std::size_t at = each.answer.find(shortened); at != std::string::npos)
            each.answer.replace(at, shortened.size(), to_hex(Bytes(255)));
    }
    return found;
}

std::string answer(const std::string& request) {
    for (const Exchange& each : exchanges()) {
        if (each.request.starts_with(request))
            return each.answer;
    }
    throw std::invalid_argument("no answer to " + request);
}

std::string as_shown(const Bytes& answer, const std::string& shown) {
    std::string bytes = to_hex(answer);
    for (std::size_t i = 0; i < std::min(bytes.size(), shown.size()); ++i) {
        if (shown[i] == '?')
            bytes[i] = '?';
    }
    return bytes;
}

}  // namespace document
