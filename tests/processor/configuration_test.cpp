// The configuration answer, position by position, on real databases: which column each byte shows,
// what of it, and what is shown when there is nothing to read.
#include "processor/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <iterator>
#include <ostream>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "processor/board_clock.h"
#include "processor/conf_log.h"
#include "tests/processor/own_log.h"
#include "tests/processor/requests.h"
#include "tests/support/board_clock.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"
#include "tests/support/protocol_document.h"
#include "tests/support/trace.h"

namespace {

using testing::Each;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

constexpr std::uint8_t kCommand = 1;

// TZ=UTC0 date -d '2024-02-03 09:05:00' +%s
constexpr std::time_t kMorning = 1706951100;

Bytes block(std::uint8_t number) {
    return answer_to(kCommand, {number});
}

std::string at(std::size_t position) {
    return "position " + std::to_string(position);
}

// "position 31: 00, not FF", so that a failure names the field.
std::vector<std::string> differences(const Bytes& expected, const Bytes& answer) {
    std::vector<std::string> lines;
    if (expected.size() != answer.size())
        lines.push_back("length " + std::to_string(answer.size()) + ", not " +
                        std::to_string(expected.size()));
    for (std::size_t i = 0; i < std::min(expected.size(), answer.size()); ++i) {
        if (expected[i] != answer[i])
            lines.push_back(at(i) + ": " + to_hex(Bytes{answer[i]}) + ", not " +
                            to_hex(Bytes{expected[i]}));
    }
    return lines;
}

// Fixtures

// In UTC, at 09:05 on 3 February 2024.
class Configuration : public testing::Test {
  protected:
    Configuration() {
        setenv("TZ", "UTC0", 1);
        clock_shows(kMorning);
    }

  private:
    OpenBoard board_;
};

// The sample board

// As the page shows it, at the time of these tests.
Bytes sample_block(std::uint8_t number) {
    std::string shown = document::answer(frame(kCommand, {number}));
    std::replace(shown.begin(), shown.end(), '?', '0');
    const Bytes whole = hex(shown);
    Bytes info(whole.begin() + 6, whole.end() - 1);
    if (number == 2)
        document::put({{"time", text_bytes("09.05")}, {"date", text_bytes("03.02.2024")}},
                      "Block 2", info);
    return info;
}

const Bytes kSampleBlock1 = sample_block(1);
const Bytes kSampleBlock2 = sample_block(2);
const std::size_t kValues1 = document::statements("configuration, block 1");
const std::size_t kValues2 = document::statements("configuration, block 2");

TEST_F(Configuration, OfTheSampleBoardByteByByte) {
    EXPECT_EQ(to_hex(block(1)), to_hex(kSampleBlock1));
    EXPECT_EQ(to_hex(block(2)), to_hex(kSampleBlock2));
}

// Requests

const std::string kBlock1 = "<31>CMD: Peticion de configuracion ID_PARAMETROS 1.\n";
const std::string kBlock2 = "<31>CMD: Peticion de configuracion ID_PARAMETROS 2.\n";
const std::string kBadLength = "<28>CMD: Peticion de configuracion de longitud incorrecta.\n";

struct Asked {
    const char* name;
    Bytes info;
    Bytes answer;
    std::size_t selects;
    std::string log;
};

const Asked kAsked[] = {
    {.name = "1", .info = {1}, .answer = kSampleBlock1, .selects = kValues1, .log = kBlock1},
    {.name = "2", .info = {2}, .answer = kSampleBlock2, .selects = kValues2, .log = kBlock2},
    {.name = "0", .info = {0}, .answer = kSampleBlock1, .selects = kValues1, .log = kBlock1},
    {.name = "3", .info = {3}, .answer = kSampleBlock1, .selects = kValues1, .log = kBlock1},
    {.name = "7", .info = {7}, .answer = kSampleBlock1, .selects = kValues1, .log = kBlock1},
    {.name = "255", .info = {255}, .answer = kSampleBlock1, .selects = kValues1, .log = kBlock1},
    {.name = "nothing", .info = {}, .answer = {}, .selects = 0, .log = kBadLength},
    {.name = "1 and more", .info = {1, 0}, .answer = {}, .selects = 0, .log = kBadLength},
    {.name = "2 and more", .info = {2, 2}, .answer = {}, .selects = 0, .log = kBadLength},
    {.name = "all 2", .info = Bytes(255, 2), .answer = {}, .selects = 0, .log = kBadLength},
};

// One select for each value, and none of them writes.
TEST_F(Configuration, IsReadAfreshValueByValueAndNothingElseIsDone) {
    conf_log = 0x40;
    OwnLog log;
    Trace trace;
    const Contents before = contents();
    for (const Asked& asked : kAsked) {
        SCOPED_TRACE(asked.name);
        for (int i = 0; i < 2; ++i) {
            EXPECT_THAT(differences(asked.answer, answer_to(kCommand, asked.info)), IsEmpty());
            const std::vector<std::string> statements = trace.take();
            EXPECT_EQ(statements.size(), asked.selects);
            EXPECT_THAT(statements, Each(StartsWith("SELECT ")));
            EXPECT_THAT(log.take(), ElementsAreArray({asked.log}));
        }
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    EXPECT_THAT(take_pauses(), IsEmpty());
    EXPECT_THAT(take_clock_settings(), IsEmpty());
}

TEST_F(Configuration, IsBlock1ForAnyNumberBut2) {
    for (int number = 0; number <= 255; ++number) {
        SCOPED_TRACE(number);
        const Bytes& expected = number == 2 ? kSampleBlock2 : kSampleBlock1;
        EXPECT_THAT(differences(expected, block(static_cast<std::uint8_t>(number))), IsEmpty());
    }
}

// Where each column stands

enum class Shown : std::uint8_t {
    number,      // its low bytes
    one_below,   // those of the number less one
    stream,      // 1 for a stored 1, else 0
    terminated,  // a text in 15 bytes, the last of them always 0
    filled,      // a text in up to 15 bytes
};
using enum Shown;

struct Place {
    std::uint8_t block;
    std::size_t position;
    std::size_t width;
    Shown as;
    std::string cell;
};

// By the page. What is a text and an address fills its field.
std::vector<Place> places() {
    std::vector<Place> all;
    for (const std::uint8_t number : {std::uint8_t{1}, std::uint8_t{2}}) {
        for (const document::Place& place : document::layout("Block " + std::to_string(number))) {
            const std::string& column = place.name;
            if (column.find('.') == column.npos || place.content.ends_with("always 0"))
                continue;
            Place shown{number, place.position, place.width, Shown::number, document::cell(column)};
            if (place.kind == "text" || place.kind == "address")
                shown.as = place.kind == "text" ? terminated : filled;
            if (place.content.ends_with("one less than stored"))
                shown.as = one_below;
            if (column.starts_with("PIDsSalida")) {
                shown.as = stream;
                // The test's own row of that service and type.
                shown.cell = "PIDsSalida " +
                             std::to_string(11 + 2 * (column[11] - '0') + column[13] - '1') +
                             " Seleccionado";
            }
            all.push_back(shown);
        }
    }
    return all;
}
const std::vector<Place> kPlaces = places();

// The columns by which a stream is found: it is off when it is not there.
const std::vector<Place> kStreamKeys = [] {
    std::vector<Place> keys;
    for (const Place& place : kPlaces) {
        if (place.as != stream)
            continue;
        for (const std::string column : {"Tipo", "fk_idServicio"}) {
            keys.push_back(place);
            keys.back().cell = place.cell.substr(0, place.cell.rfind(' ') + 1) + column;
        }
    }
    return keys;
}();

bool is_text(Shown as) {
    return as == terminated || as == filled;
}

std::string path_of(const std::string& table) {
    return table == "alarmasEstado" || table == "Bitrate_Nulos" ? kTempDb : kConfDb;
}

// "EntradaAV 1 Brillo" in its parts.
struct Cell {
    explicit Cell(const std::string& name)
        : table(name.substr(0, name.find(' '))),
          row(name.substr(table.size() + 1, name.rfind(' ') - table.size() - 1)),
          column(name.substr(name.rfind(' ') + 1)) {}
    std::string table;
    std::string row;
    std::string column;
};

void set(const std::string& cell, const std::string& sql_value) {
    const Cell c(cell);
    const Database database(path_of(c.table));
    database.run("UPDATE " + c.table + " SET " + c.column + " = " + sql_value +
                 " WHERE rowid = " + c.row);
    ASSERT_EQ(database.value("SELECT changes()"), "1") << cell;
}

Bytes low_bytes(long long value, std::size_t width) {
    Bytes bytes;
    for (std::size_t i = width; i-- > 0;)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return bytes;
}

// What a place shows of a cell, given as an SQL literal.
Bytes shown(const Place& place, const std::string& cell) {
    if (is_text(place.as)) {
        Bytes text = text_bytes(cell.substr(1, cell.size() - 2));
        text.resize(std::min<std::size_t>(text.size(), place.as == filled ? 15 : 14));
        text.resize(15);
        return text;
    }
    const long long value = std::stoll(cell);
    if (place.as == stream)
        return {static_cast<std::uint8_t>(value == 1 ? 1 : 0)};
    return low_bytes(place.as == one_below ? value - 1 : value, place.width);
}

void put(const Bytes& bytes, std::size_t position, Bytes& info) {
    std::copy(bytes.begin(), bytes.end(), info.begin() + static_cast<std::ptrdiff_t>(position));
}

Bytes block_of(std::uint8_t number, const Contents& cells) {
    Bytes info(document::length("Block " + std::to_string(number)));
    info[0] = number;
    for (const Place& place : kPlaces) {
        if (place.block == number)
            put(shown(place, cells.at(place.cell)), place.position, info);
    }
    if (number == 2)
        put(text_bytes("09.0503.02.2024"), document::place("Block 2", "time").position, info);
    return info;
}

// Every cell of both databases holds another value, every text is longer than its field. The
// streams of both services are on.
class EachColumn : public Configuration {
  protected:
    EachColumn() {
        number_all_cells();
        const Database conf(kConfDb);
        conf.run(
            "INSERT INTO PIDsSalida VALUES (11, 900001, 900002, 1, 0, 900003, 900004, 1, 900005),"
            "(12, 900011, 900012, 2, 0, 900013, 900014, 1, 900015),"
            "(13, 900021, 900022, 1, 1, 900023, 900024, 1, 900025),"
            "(14, 900031, 900032, 2, 1, 900033, 900034, 1, 900035),"
            // of another type, and of another service
            "(15, 900041, 900042, 3, 0, 900043, 900044, 900045, 900046),"
            "(16, 900051, 900052, 1, 2, 900053, 900054, 900055, 900056)");
        for (const auto& [cell, value] : contents_by_id()) {
            if (value.front() == '\'')
                set(cell, value + "||'abcdefghijklmn'");
        }
        cells_ = contents_by_id();
    }

    Contents cells_;
};

TEST_F(EachColumn, IsShownAtItsPosition) {
    EXPECT_EQ(
        block_of(1, cells_)[document::place("Block 1", "PIDsSalida.0.1.Seleccionado").position], 1);
    EXPECT_THAT(differences(block_of(1, cells_), block(1)), IsEmpty());
    EXPECT_THAT(differences(block_of(2, cells_), block(2)), IsEmpty());
}

// The positions of a column that the answer has it at, as "block 2, position 31".
std::vector<std::string> positions_of(const std::string& cell) {
    std::vector<Place> places = kPlaces;
    places.insert(places.end(), std::begin(kStreamKeys), std::end(kStreamKeys));
    std::vector<std::string> positions;
    for (const Place& place : places) {
        if (place.cell != cell)
            continue;
        // the last byte of a terminated text is 0 before and after
        const std::size_t width = place.as == terminated ? 14 : place.width;
        for (std::size_t i = 0; i < width; ++i)
            positions.push_back("block " + std::to_string(place.block) + ", " +
                                at(place.position + i));
    }
    return positions;
}

std::vector<std::string> changed_positions(const std::array<Bytes, 2>& before,
                                           const std::array<Bytes, 2>& after) {
    std::vector<std::string> positions;
    for (std::size_t number = 1; number <= 2; ++number) {
        const Bytes& was = before.at(number - 1);
        const Bytes& is = after.at(number - 1);
        EXPECT_EQ(was.size(), is.size());
        for (std::size_t i = 0; i < std::min(was.size(), is.size()); ++i) {
            if (was[i] != is[i])
                positions.push_back("block " + std::to_string(number) + ", " + at(i));
        }
    }
    return positions;
}

// Another value that differs from it in every byte.
std::string opposite(const std::string& cell) {
    if (cell.front() == '\'')
        return "'zyxwvutsrqponmlkjihg'";
    return std::to_string(0x7FFFFFFFLL - std::stoll(cell));
}

class EachColumnOf : public EachColumn, public testing::WithParamInterface<std::string> {};

// Also those and the rows that no position shows. The rows' keys are changed further down.
TEST_P(EachColumnOf, ATableChangesItsPositionsAndNoOther) {
    const std::array<Bytes, 2> before = {block(1), block(2)};
    for (const auto& cell : cells_) {
        SCOPED_TRACE(cell.first);
        const Cell c(cell.first);
        if (c.table != GetParam() || cell.second == c.row)
            continue;
        set(cell.first, opposite(cell.second));
        const std::array<Bytes, 2> after = {block(1), block(2)};
        EXPECT_EQ(changed_positions(before, after), positions_of(cell.first));
        set(cell.first, cell.second);
    }
    EXPECT_THAT(changes(cells_, contents_by_id()), IsEmpty());
}

const std::string kAllTables[] = {"ConfiguracionGen", "EntradaAV",    "RFOut", "ServiciosSalida",
                                  "PIDsSalida",       "Red",          "IPOut", "EsclavosModulo",
                                  "alarmasEstado",    "Bitrate_Nulos"};

INSTANTIATE_TEST_SUITE_P(, EachColumnOf, testing::ValuesIn(kAllTables),
                         [](const auto& test) { return test.param; });

TEST_F(EachColumn, IsOfOneOfTheTables) {
    std::set<std::string> tables;
    for (const auto& cell : cells_)
        tables.insert(Cell(cell.first).table);
    EXPECT_THAT(tables, UnorderedElementsAreArray(kAllTables));
    for (const Place& place : kPlaces)
        EXPECT_EQ(cells_.count(place.cell), 1U) << place.cell;
    for (const Place& place : kStreamKeys)
        EXPECT_EQ(cells_.count(place.cell), 1U) << place.cell;
}

// What is shown of a number

struct Stored {
    const char* value;      // as an SQL literal
    const char* bytes;      // the number's own four
    const char* one_below;  // the byte of the constellation
};

const Stored kStored[] = {
    {"0", "00 00 00 00", "FF"},           {"1", "00 00 00 01", "00"},
    {"2", "00 00 00 02", "01"},           {"127", "00 00 00 7F", "7E"},
    {"128", "00 00 00 80", "7F"},         {"255", "00 00 00 FF", "FE"},
    {"256", "00 00 01 00", "FF"},         {"257", "00 00 01 01", "00"},
    {"65535", "00 00 FF FF", "FE"},       {"65536", "00 01 00 00", "FF"},
    {"16777215", "00 FF FF FF", "FE"},    {"16777216", "01 00 00 00", "FF"},
    {"305419896", "12 34 56 78", "77"},   {"2147483647", "7F FF FF FF", "FE"},
    {"-1", "FF FF FF FF", "FE"},          {"-2", "FF FF FF FE", "FD"},
    {"-128", "FF FF FF 80", "7F"},        {"-256", "FF FF FF 00", "FF"},
    {"-2147483648", "80 00 00 00", "FF"}, {"NULL", "00 00 00 00", "FF"},
    {"''", "00 00 00 00", "FF"},          {"'abc'", "00 00 00 00", "FF"},
    {"'300abc'", "00 00 01 2C", "2B"},    {"' 7'", "00 00 00 07", "06"},
    {"7.9", "00 00 00 07", "06"},
};

// Stores a value, given as an SQL literal, in all places of these kinds, and expects `bytes` there.
class EachPlace : public EachColumn {
  protected:
    template <typename BytesAt>
    void expect_in_all(std::initializer_list<Shown> kinds, const char* value, BytesAt bytes) const {
        SCOPED_TRACE(value);
        Bytes block1 = block_of(1, cells_);
        Bytes block2 = block_of(2, cells_);
        for (const Place& place : kPlaces) {
            if (std::find(kinds.begin(), kinds.end(), place.as) == kinds.end())
                continue;
            set(place.cell, value);
            put(bytes(place), place.position, place.block == 1 ? block1 : block2);
        }
        EXPECT_THAT(differences(block1, block(1)), IsEmpty());
        EXPECT_THAT(differences(block2, block(2)), IsEmpty());
    }
};

TEST_F(EachPlace, ShowsTheLowBytesOfItsNumber) {
    for (const Stored& stored : kStored) {
        expect_in_all({number, one_below}, stored.value, [&](const Place& place) {
            const Bytes whole = hex(stored.bytes);
            return place.as == one_below
                       ? hex(stored.one_below)
                       : Bytes(whole.end() - static_cast<std::ptrdiff_t>(place.width), whole.end());
        });
    }
}

struct StoredState {
    const char* value;  // as an SQL literal
    std::uint8_t byte;
};

// clang-format off
const StoredState kStates[] = {
    {"1", 1},
    {"2", 0},
    {"0", 0},
    {"3", 0},
    {"-1", 0},
    {"257", 0},     // its low byte is 1
    {"NULL", 0},
    {"''", 0},
    {"'1 on'", 1},
    {"'on'", 0},
};
// clang-format on

// Only a stored 1 is a stream that is on.
TEST_F(EachPlace, ShowsTheInvertedStateOfItsStream) {
    for (const StoredState& state : kStates)
        expect_in_all({stream}, state.value,
                      [&](const Place& /*place*/) { return Bytes{state.byte}; });
}

// What is shown of a text

struct StoredText {
    const char* value;  // as an SQL literal
    const char* terminated;
    const char* filled;
};

const StoredText kTexts[] = {
    {"NULL", "", ""},
    {"''", "", ""},
    {"'a'", "a", "a"},
    {"'abcdefghijklm'", "abcdefghijklm", "abcdefghijklm"},
    {"'abcdefghijklmn'", "abcdefghijklmn", "abcdefghijklmn"},
    {"'abcdefghijklmno'", "abcdefghijklmn", "abcdefghijklmno"},
    {"'abcdefghijklmnop'", "abcdefghijklmn", "abcdefghijklmno"},
    {"'abcdefghijklmnopqrst'", "abcdefghijklmn", "abcdefghijklmno"},
    {"' b  c '", " b  c ", " b  c "},
    {"1234", "1234", "1234"},
    {"'A\xC3\xB1o'", "A\xC3\xB1o", "A\xC3\xB1o"},
    // a character of two bytes may be cut in the middle
    {"'abcdefghijklm\xC3\xB1'", "abcdefghijklm\xC3", "abcdefghijklm\xC3\xB1"},
    // what stands behind a NUL is no part of the text
    {"CAST(x'616200636465' AS TEXT)", "ab", "ab"},
};

TEST_F(EachPlace, ShowsAsMuchOfItsTextAsThereIsRoomFor) {
    for (const StoredText& stored : kTexts) {
        expect_in_all({terminated, filled}, stored.value, [&](const Place& place) {
            Bytes text = text_bytes(place.as == filled ? stored.filled : stored.terminated);
            text.resize(15);
            return text;
        });
    }
}

// Values that cannot be read

struct Row {
    std::string table;
    long long key;
    const char* key_column;
    bool sought_by_key;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.table << " " << row.key;
}

const Row kRows[] = {
    {"ConfiguracionGen", 1, "IdConfiguracion", false},
    {"EntradaAV", 0, "IdEntradaAV", true},
    {"EntradaAV", 1, "IdEntradaAV", true},
    {"RFOut", 1, "idRFOut", true},
    {"ServiciosSalida", 0, "IdServicio", true},
    {"ServiciosSalida", 1, "IdServicio", true},
    {"PIDsSalida", 11, "idPID", false},
    {"PIDsSalida", 12, "idPID", false},
    {"PIDsSalida", 13, "idPID", false},
    {"PIDsSalida", 14, "idPID", false},
    {"Red", 1, "idRed", false},
    {"IPOut", 1, "IdConfiguracionIPout", false},
};

// Zeros where the answer has values of the table, or of one of its rows only. Of the constellation
// that is one below 0.
Bytes without(const std::string& row_or_table, Bytes info, std::uint8_t number) {
    for (const Place& place : kPlaces) {
        if (place.block != number || !place.cell.starts_with(row_or_table + " "))
            continue;
        put(Bytes(place.width), place.position, info);
        if (place.as == one_below)
            info[place.position] = 0xFF;
    }
    return info;
}

class Unreadable : public EachColumn {
  protected:
    void expect_without(const std::string& row_or_table) const {
        for (const std::uint8_t number : {std::uint8_t{1}, std::uint8_t{2}}) {
            SCOPED_TRACE("block " + std::to_string(number));
            EXPECT_THAT(
                differences(without(row_or_table, block_of(number, cells_), number), block(number)),
                IsEmpty());
        }
    }
};

class UnreadableRow : public Unreadable, public testing::WithParamInterface<Row> {
  protected:
    UnreadableRow() {
        const Row& row = GetParam();
        const std::string that_row =
            row.table + " WHERE " + row.key_column + " = " + std::to_string(row.key);
        conf_.run("CREATE TABLE kept AS SELECT * FROM " + that_row + "; DELETE FROM " + that_row);
    }

    void insert_with_key(long long key) const {
        conf_.run(std::string("UPDATE kept SET ") + GetParam().key_column + " = " +
                  std::to_string(key) + "; INSERT INTO " + GetParam().table +
                  " SELECT * FROM kept");
    }

    const std::string name_ = GetParam().table + " " + std::to_string(GetParam().key);

  private:
    const Database conf_{kConfDb};
};

TEST_P(UnreadableRow, IsZerosWhenThereIsNone) {
    expect_without(name_);
    insert_with_key(GetParam().key);
    expect_without("nothing");
}

TEST_P(UnreadableRow, IsZerosUnderAnotherKeyWhereTheKeyCounts) {
    insert_with_key(777);
    expect_without(GetParam().sought_by_key ? name_ : "nothing");
}

TEST_P(UnreadableRow, IsZerosWhenThereAreTwo) {
    insert_with_key(GetParam().key);
    expect_without("nothing");
    if (GetParam().sought_by_key)
        double_row(GetParam().table, GetParam().key);
    else
        insert_with_key(777);
    expect_without(name_);
}

INSTANTIATE_TEST_SUITE_P(, UnreadableRow, testing::ValuesIn(kRows), [](const auto& test) {
    return test.param.table + std::to_string(test.param.key);
});

const char* const kTables[] = {"ConfiguracionGen", "EntradaAV", "RFOut", "ServiciosSalida",
                               "PIDsSalida",       "Red",       "IPOut"};

TEST_F(Unreadable, EmptyTablesAreZeros) {
    for (const std::string table : kTables) {
        SCOPED_TRACE(table);
        const Database conf(kConfDb);
        conf.run("CREATE TABLE kept AS SELECT * FROM " + table + "; DELETE FROM " + table);
        expect_without(table);
        conf.run("INSERT INTO " + table + " SELECT * FROM kept; DROP TABLE kept");
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

// Each statement is tried three times.
TEST_F(Unreadable, MissingTablesAreZeros) {
    for (const std::string table : kTables) {
        SCOPED_TRACE(table);
        run_elsewhere(kConfDb, "ALTER TABLE " + table + " RENAME TO hidden");
        printed_by([&] { expect_without(table); });
        EXPECT_THAT(take_pauses(), Not(IsEmpty()));
        run_elsewhere(kConfDb, "ALTER TABLE hidden RENAME TO " + table);
        expect_without("nothing");
        EXPECT_THAT(take_pauses(), IsEmpty());
    }
}

const Bytes kNothing1 = [] {
    Bytes info(kSampleBlock1.size());
    info[0] = 1;
    info[document::place("Block 1", "RFOut.Constelacion").position] = 0xFF;
    return info;
}();

// The clock needs no database.
const Bytes kNothing2 = [] {
    Bytes info(kSampleBlock2.size());
    info[0] = 2;
    put(text_bytes("09.0503.02.2024"), document::place("Block 2", "time").position, info);
    return info;
}();

// Three attempts for each value, with pauses of 1, 2 and 3 seconds.
TEST_F(Configuration, OfALockedDatabaseIsZeros) {
    struct Case {
        std::uint8_t number;
        const Bytes& answer;
        std::size_t values;
    };
    for (const Case& c : {Case{1, kNothing1, kValues1}, Case{2, kNothing2, kValues2}}) {
        SCOPED_TRACE(static_cast<int>(c.number));
        const ForeignLock lock(kConfDb);
        printed_by([&] { EXPECT_THAT(differences(c.answer, block(c.number)), IsEmpty()); });
        std::vector<unsigned> pauses;
        for (std::size_t i = 0; i < c.values; ++i)
            pauses.insert(pauses.end(), {1, 2, 3});
        EXPECT_EQ(take_pauses(), pauses);
    }
    EXPECT_THAT(differences(kSampleBlock1, block(1)), IsEmpty());
    EXPECT_THAT(differences(kSampleBlock2, block(2)), IsEmpty());
}

// Nothing of it is read from the state database.
TEST_F(Configuration, DoesNotNeedTheStateDatabase) {
    const ForeignLock lock(kTempDb);
    EXPECT_THAT(differences(kSampleBlock1, block(1)), IsEmpty());
    EXPECT_THAT(differences(kSampleBlock2, block(2)), IsEmpty());
    EXPECT_THAT(take_pauses(), IsEmpty());
}

TEST_F(Configuration, HoldsTheValuesThatCanBeReadAtASecondAttempt) {
    ForeignLock lock(kConfDb);
    during_pauses([&] { lock.release(); });
    printed_by([] { EXPECT_THAT(differences(kSampleBlock1, block(1)), IsEmpty()); });
    during_pauses(nullptr);
    EXPECT_EQ(take_pauses(), std::vector<unsigned>{1});
}

}  // namespace
