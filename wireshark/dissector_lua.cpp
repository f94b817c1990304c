// Prints wireshark/zondar.lua: the description of the messages as Lua tables, behind it the parts
// that are named, files of wireshark/dissector/.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "master/layout.h"
#include "protocol/description.h"

namespace {

using protocol::Kind;
using protocol::Layout;

// A text in Lua; those of the description have nothing in them to be escaped but these.
std::string quoted(std::string_view text) {
    std::string literal = "\"";
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            literal += '\\';
        literal += letter;
    }
    return literal + '"';
}

// A table on one line: its entries, without those that have nothing to say.
class Line {
  public:
    Line& text(const char* key, std::string_view value) {
        return value.empty() ? *this : raw(key, quoted(value));
    }
    Line& number(const char* key, unsigned value) { return raw(key, std::to_string(value)); }
    Line& flag(const char* key, bool value) { return value ? raw(key, "true") : *this; }
    Line& raw(const char* key, std::string_view value) {
        entries_ += fmt::format("{}{} = {}", entries_.empty() ? "" : ", ", key, value);
        return *this;
    }
    [[nodiscard]] std::string table() const { return "{" + entries_ + "}"; }

  private:
    std::string entries_;
};

const char* name_of(Layout layout) {
    return protocol::kLayoutNames[static_cast<std::size_t>(layout)];
}

std::string word_for(Layout layout) {
    return layout == Layout::none ? "" : name_of(layout);
}

void add(std::string& list, std::string_view entry) {
    list += list.empty() ? "" : ", ";
    list += entry;
}

// What the numbers of a parameter or field mean, by its name.
void put_values(Line& line, std::string_view name) {
    std::string values;
    for (const protocol::ValueText& each : protocol::kValues) {
        if (name == each.of)
            add(values, fmt::format("[{}] = {}", each.value, quoted(each.text)));
    }
    if (!values.empty())
        line.raw("values", "{" + values + "}");
}

// Of an encoder the row is the channel, which only the answer tells.
std::string parameter_name(const protocol::Field& field) {
    return field.layout == Layout::encoder ? protocol::parameter(field.selector).name
                                           : master::name_of(field.selector, field.extra);
}

std::string field_table(const protocol::Field& field) {
    Line line;
    line.number("at", field.position).number("width", field.width);
    if (field.is_parameter)
        return line.text("parameter", parameter_name(field)).table();
    line.text("name", field.name).text("kind", protocol::name_of(field.kind));
    if (field.kind == Kind::bit)
        line.number("bit", field.extra);
    if (is_text(field.kind))
        line.flag("text", true);
    put_values(line, field.name);
    return line.text("unit", field.unit).text("meaning", field.meaning).table();
}

void print_layouts() {
    fmt::print("local LAYOUTS = {{\n");
    for (std::size_t i = 0; i < std::size(protocol::kLayoutNames); ++i) {
        const auto layout = static_cast<Layout>(i);
        if (protocol::fields(layout).empty())
            continue;
        fmt::print("    {} = {{\n        length = {},\n", name_of(layout),
                   protocol::length(layout));
        for (const protocol::Field& field : protocol::fields(layout))
            fmt::print("        {},\n", field_table(field));
        fmt::print("    }},\n");
    }
    fmt::print("}}\n\n");
}

void print_commands() {
    fmt::print("local COMMANDS = {{\n");
    for (const protocol::Command& command : protocol::kCommands) {
        fmt::print("    [{}] = {},\n", command.code,
                   Line()
                       .text("name", command.name)
                       .text("answer", word_for(command.answer))
                       .text("meaning", command.meaning)
                       .table());
    }
    fmt::print("}}\n");
    fmt::print("local CONFIGURATION, WRITE = {}, {}\n\n", protocol::command::configuration,
               protocol::command::write);
}

std::string also_written(const protocol::Subcommand& row) {
    std::string names;
    protocol::for_each_also_written(
        row, [&](protocol::Selector selector, std::uint8_t index, protocol::When /*when*/) {
            add(names, quoted(master::name_of(selector, index)));
        });
    return names;
}

void print_sub_commands() {
    fmt::print("local SUB_COMMANDS = {{\n");
    for (const protocol::Subcommand& row : protocol::kSubcommands) {
        Line line;
        if (row.width != 0) {
            line.text("parameter", master::name_of(row.selector, row.row));
            line.number("width", row.width);
        } else {
            line.text("action", row.name)
                .text("request", word_for(row.request))
                .text("answer", word_for(row.answer))
                .text("other_answer", word_for(row.other_answer));
        }
        if (row.effect != protocol::Effect::alone)
            line.text("effect", protocol::kEffects[static_cast<std::size_t>(row.effect)].name);
        if (const std::string also = also_written(row); !also.empty())
            line.raw("also", "{" + also + "}");
        fmt::print("    [{}] = {},\n", row.code, line.text("meaning", row.meaning).table());
    }
    fmt::print("}}\n\n");
}

// What the fields and sub-commands of a parameter say of its width.
struct Widths {
    unsigned widest = 0;
    unsigned shown = 0;  // in a block of the configuration
};

// By the parameter's name, in the order in which they are met.
class Parameters {
  public:
    void take(const std::string& name, protocol::Selector selector, unsigned width, bool is_shown) {
        const auto [place, is_new] = widths_.try_emplace(name);
        place->second.widest = std::max(place->second.widest, width);
        if (is_shown)
            place->second.shown = width;
        if (is_new)
            names_.emplace_back(name, selector);
    }
    void print() const {
        fmt::print("local PARAMETERS = {{\n");
        for (const auto& [name, selector] : names_)
            fmt::print("    [{}] = {},\n", quoted(name), table_of(selector, widths_.at(name)));
        fmt::print("}}\n\n");
    }

  private:
    static std::string table_of(protocol::Selector selector, const Widths& widths) {
        const protocol::Parameter& it = protocol::parameter(selector);
        Line line;
        line.text("kind", protocol::name_of(it.kind)).flag("text", is_text(it.kind));
        line.number("width", widths.widest);
        if (widths.shown != 0)
            line.number("shown", widths.shown);
        line.flag("not_stored", !protocol::is_stored(selector));
        std::string stored;
        for (const protocol::StoredAs& each : protocol::kStoredAs) {
            if (each.selector == selector)
                add(stored, fmt::format("[{}] = {}", each.value, each.stored));
        }
        if (!stored.empty())
            line.raw("stored_as", "{" + stored + "}");
        put_values(line, it.name);
        return line.text("unit", it.unit).text("meaning", it.meaning).table();
    }

    std::vector<std::pair<std::string, protocol::Selector>> names_;
    std::map<std::string, Widths> widths_;
};

// A channel that is neither of the two has the parameter's name as it is written in general.
void take_encoder(Parameters& all, const protocol::Field& field) {
    all.take(protocol::parameter(field.selector).name, field.selector, field.width, false);
    for (const std::uint8_t channel : std::array<std::uint8_t, 2>{0, 1})
        all.take(master::name_of(field.selector, channel), field.selector, field.width, false);
}

void print_parameters() {
    Parameters all;
    for (const protocol::Subcommand& row : protocol::kSubcommands) {
        if (row.width != 0)
            all.take(master::name_of(row.selector, row.row), row.selector, row.width, false);
    }
    for (const protocol::Field& field : protocol::kFields) {
        if (!field.is_parameter)
            continue;
        if (field.layout == Layout::encoder)
            take_encoder(all, field);
        else
            all.take(parameter_name(field), field.selector, field.width, true);
    }
    all.print();
}

void print_findings() {
    fmt::print("local FINDINGS = {{\n");
    for (const protocol::FindingText& finding : protocol::kFindings)
        fmt::print("    {},\n",
                   Line()
                       .text("id", finding.name)
                       .text("severity",
                             protocol::kSeverityNames[static_cast<std::size_t>(finding.severity)])
                       .text("text", finding.text)
                       .table());
    fmt::print("}}\n");
}

// Each uses those before it.
constexpr const char* kParts[] = {"values",       "frames", "fields",
                                  "conversation", "tree",   "dissector"};

bool print_part(const std::string& path) {
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    fmt::print("\n{}", text);
    return !text.empty();
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 2) {
        fmt::print(stderr, "usage: dissector_lua FOLDER\n");
        return 2;
    }
    fmt::print(
        "-- Shows the zondar protocol in Wireshark and tshark, 4.0 to 4.4. Made from the description of\n"
        "-- the messages and the parts in wireshark/dissector/ by dissector_lua: change those.\n\n");
    print_commands();
    print_layouts();
    print_parameters();
    print_sub_commands();
    print_findings();
    for (const char* const part : kParts) {
        const std::string path = fmt::format("{}/{}.lua", argv[1], part);
        if (!print_part(path)) {
            fmt::print(stderr, "dissector_lua: {}: cannot be read\n", path);
            return 1;
        }
    }
}
