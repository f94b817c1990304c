// docs/protocol.md, written by hand, against the description that all programs are made from: each
// row of either has its row in the other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "protocol/countries.h"
#include "protocol/description.h"
#include "tests/support/protocol_document.h"

namespace {

using testing::ElementsAreArray;
using testing::UnorderedElementsAreArray;

using document::quoted;
using document::Row;
using document::table;
using protocol::Kind;
using protocol::Layout;
using protocol::Subcommand;

using Lines = std::vector<std::string>;

// "EntradaAV.0.Brillo"; without a row as it stands, the letter standing for any.
std::string name_of(protocol::Selector selector, const std::string& row = "") {
    std::string name = protocol::parameter(selector).name;
    for (const char* const letter : {".c.", ".s."}) {
        const std::size_t at = name.find(letter);
        if (at != std::string::npos && !row.empty())
            name.replace(at + 1, 1, row);
    }
    return name;
}

std::string kind_of(const protocol::Field& field) {
    std::string kind = protocol::name_of(field.kind);
    if (field.kind == Kind::bit)
        kind += " " + std::to_string(field.extra);
    return *field.unit == '\0' ? kind : kind + ", " + field.unit;
}

Lines described(Layout layout) {
    Lines all;
    for (const protocol::Field& field : protocol::fields(layout)) {
        // The settings of an encoder are those of any channel.
        const std::string row = layout == Layout::encoder ? "" : std::to_string(field.extra);
        const std::string name = field.is_parameter ? name_of(field.selector, row) : field.name;
        all.push_back(std::to_string(field.position) + " " + std::to_string(field.width) + " " +
                      name + ": " + kind_of(field));
    }
    return all;
}

Lines documented(const std::vector<document::Place>& places) {
    Lines all;
    for (const document::Place& place : places)
        all.push_back(std::to_string(place.position) + " " + std::to_string(place.width) + " " +
                      place.name + ": " + place.kind);
    return all;
}

struct Section {
    const char* heading;
    Layout layout;
};

// The layouts that have a section; the others share a table.
// clang-format off
constexpr Section kSections[] = {
    {"Identification", Layout::identification},
    {"Status",         Layout::status},
    {"Block 1",        Layout::configuration_1},
    {"Block 2",        Layout::configuration_2},
    {"Slave modules",  Layout::encoder},
};
// clang-format on

TEST(ProtocolDocument, HasTheFieldsOfTheLayouts) {
    for (std::size_t i = 0; i < std::size(protocol::kLayoutNames); ++i) {
        const auto layout = static_cast<Layout>(i);
        SCOPED_TRACE(protocol::kLayoutNames[i]);
        const auto* const section = std::ranges::find(kSections, layout, &Section::layout);
        const bool shared = section == std::end(kSections);
        EXPECT_THAT(documented(shared ? document::fields(protocol::kLayoutNames[i])
                                      : document::layout(section->heading)),
                    ElementsAreArray(described(layout)));
    }
}

TEST(ProtocolDocument, HasNoOtherLayouts) {
    const std::set<std::string> known(std::begin(protocol::kLayoutNames),
                                      std::end(protocol::kLayoutNames));
    for (const Row& row : table("| Layout | Position |"))
        EXPECT_TRUE(known.contains(quoted(row[0]).at(0))) << row[0];
}

TEST(ProtocolDocument, HasTheKinds) {
    std::set<std::string> known;
    for (const protocol::KindText& kind : protocol::kKinds)
        known.insert(kind.name + std::string(kind.name == std::string("bit") ? " n" : ""));
    std::set<std::string> told;
    for (const Row& row : table("| Kind | Meaning |"))
        told.insert(row[0]);
    EXPECT_EQ(told, known);
}

std::string field_names(Layout layout) {
    std::string names;
    for (const protocol::Field& field : protocol::fields(layout))
        names += (names.empty() ? "`" : ", `") + std::string(field.name) + "`";
    return names.empty() ? "none" : names;
}

TEST(ProtocolDocument, HasTheCommands) {
    Lines known;
    for (const protocol::Command& command : protocol::kCommands) {
        std::string lengths;
        for (const Layout answer : {command.answer, command.other_answer}) {
            if (answer != Layout::none)
                lengths += " " + std::to_string(protocol::length(answer));
        }
        known.push_back(std::to_string(command.code) + " `" + command.name + "` " +
                        field_names(command.request) + lengths);
    }
    known.emplace_back("5 to 15 `none` none");
    Lines told;
    for (const Row& row : table("| Command | Name |")) {
        std::string line =
            row[0] + " `" + (quoted(row[1]).empty() ? "none" : quoted(row[1])[0]) + "` " + row[2];
        // "114 or 185 bytes"; that of a write may be empty.
        const std::string lengths = row[3].substr(std::min(row[3].find(','), row[3].size()));
        const std::regex number(R"(\b[1-9]\d*\b)");
        for (std::sregex_iterator at(lengths.begin(), lengths.end(), number), end; at != end; ++at)
            line += " " + at->str();
        told.push_back(line);
    }
    EXPECT_THAT(told, ElementsAreArray(known));
}

std::string value_of(const Subcommand& row) {
    if (row.width == 0)
        return "[`" + std::string(protocol::kLayoutNames[static_cast<std::size_t>(row.request)]) +
               "`](#fields-of-requests-and-answers)";
    if (protocol::is_text(protocol::parameter(row.selector).kind))
        return "text " + std::to_string(row.width - 1);  // and its NUL
    return std::to_string(row.width) + (row.width == 1 ? " byte" : " bytes");
}

// The columns that a sub-command stores something in.
Lines columns_of(const Subcommand& row) {
    Lines all;
    const auto add = [&](protocol::Selector selector, int index) {
        if (protocol::is_stored(selector))
            all.push_back(name_of(selector, std::to_string(index)));
    };
    add(row.selector, row.row);
    protocol::for_each_also_written(row, [&](protocol::Selector selector, int index,
                                             protocol::When /*when*/) { add(selector, index); });
    return all;
}

TEST(ProtocolDocument, HasTheSubcommands) {
    const std::vector<Row> rows = table("| Code | Name in the log");
    ASSERT_EQ(rows.size(), std::size(protocol::kSubcommands));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Subcommand& known = protocol::kSubcommands[i];
        SCOPED_TRACE(rows[i][0] + " " + rows[i][1]);
        EXPECT_EQ(rows[i][0], std::to_string(known.code));
        EXPECT_EQ(rows[i][1],
                  *known.log_name == '\0' ? "none" : "`" + std::string(known.log_name) + "`");
        EXPECT_EQ(rows[i][2], value_of(known));
        // Those of the country have a section of their own.
        if (known.width != 0 && known.effect != protocol::Effect::changes_country) {
            EXPECT_THAT(quoted(rows[i][3]), UnorderedElementsAreArray(columns_of(known)));
        }
    }
}

TEST(ProtocolDocument, HasTheStates) {
    std::set<std::string> told;
    const std::regex name("`((?:alarma|estado)_\\w+)`");
    for (const std::string& line : document::lines()) {
        for (std::sregex_iterator at(line.begin(), line.end(), name), end; at != end; ++at)
            told.insert((*at)[1]);
    }
    std::set<std::string> known;
    for (const char* const state : protocol::kStates)
        known.insert(state);
    EXPECT_EQ(told, known);
}

TEST(ProtocolDocument, HasTheCountries) {
    std::vector<Row> known;
    for (const protocol::Country& each : protocol::countries()) {
        Row& row =
            known.emplace_back(Row{each.name, each.locale, each.three_letters, each.two_letters});
        for (const int number :
             {each.subtimezone, each.nid, each.nit_patron, each.lcn_mode, each.modo_ofdm,
              each.intervalo_guarda, each.code_rate, each.canal_salida, each.frecuencia,
              each.ancho_banda, each.video_bitrate})
            row.push_back(std::to_string(number));
        row.emplace_back(each.plan->name);
    }
    EXPECT_THAT(table("| Name | Language"), ElementsAreArray(known));
}

// The list items of the section on the country tell when a column is stored, each its own way.
TEST(ProtocolDocument, TellsWhatAChangeOfCountryStores) {
    const std::pair<protocol::When, std::string> kItems[] = {
        {protocol::When::always, "- Stored always:"},
        {protocol::When::other_plan, "- Stored only when"},
        {protocol::When::by_mode, "- `EntradaAV.Bitrate`:"},
    };
    const Subcommand& change = *protocol::find_subcommand(71);
    std::string page;
    for (const std::string& line : document::lines())
        page += line + "\n";
    for (const auto& [when, head] : kItems) {
        SCOPED_TRACE(head);
        const std::size_t at = page.find(head);
        ASSERT_NE(at, std::string::npos);
        std::set<std::string> told;
        for (const std::string& name : quoted(page.substr(at, page.find("\n-", at) - at)))
            told.insert(name.substr(name.find('.') + 1));
        std::set<std::string> known;
        if (when == protocol::When::always)
            known.insert("Country");
        protocol::for_each_also_written(
            change, [&](protocol::Selector selector, int /*row*/, protocol::When also) {
                const std::string name = name_of(selector);
                if (also == when)
                    known.insert(name.substr(name.rfind('.') + 1));
            });
        for (const std::string& column : known)
            EXPECT_TRUE(told.erase(column) == 1) << column;
        // What else is quoted there names tables, and the mode of the inputs.
        for (const char* const other : {"ConfiguracionGen", "Red", "RFOut", "Modo_Entrada"})
            told.erase(other);
        if (when != protocol::When::by_mode) {
            EXPECT_TRUE(told.empty()) << *told.begin();
        }
    }
}

TEST(ProtocolDocument, HasTheChannelPlans) {
    std::vector<Row> bands;
    std::vector<Row> channels;
    std::set<std::string> seen;
    for (const protocol::Country& country : protocol::countries()) {
        const protocol::Plan& plan = *country.plan;
        if (!seen.insert(plan.name).second)
            continue;
        const auto add = [&](std::vector<Row>& rows, std::initializer_list<int> numbers) {
            Row& row = rows.emplace_back(Row{plan.name});
            for (const int number : numbers)
                row.push_back(std::to_string(number));
        };
        for (const protocol::Band& band : plan.bands)
            add(bands, {band.step, band.first_channel, band.last_channel, band.lowest, band.highest,
                        band.offset});
        for (const protocol::Range& range : plan.ranges)
            add(channels, {range.first, range.last, static_cast<int>(range.band) + 1});
    }
    EXPECT_THAT(table("| Plan | Step"), ElementsAreArray(bands));
    EXPECT_THAT(table("| Plan | From channel"), ElementsAreArray(channels));
}

}  // namespace
