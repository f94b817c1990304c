// The column lists: the classes as a listing, and against the tables of the sample board.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "queltdb/records.h"
#include "tests/queltdb/fields.h"
#include "tests/support/database.h"
#include "tests/support/files.h"

namespace {

using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;

std::string kind_of(const queltdb::Column& column) {
    const std::unique_ptr<tSqlite3parent> value(column.make(nullptr));
    const tSqlite3parent& made = *value;
    return typeid(made) == typeid(tSqlite3int) ? "integer" : "text";
}

template <typename Record>
std::string listing_of() {
    std::string columns;
    int integers = 0;
    int setters = 0;
    for (std::size_t k = 0; k < Record::kTable.columns.size(); ++k) {
        const queltdb::Column& column = Record::kTable.columns[k];
        const Field<Record>& field = kFields<Record>.at(k);
        EXPECT_STREQ(column.name, field.name);
        const std::string kind = kind_of(column);
        EXPECT_EQ(kind, field.integer ? "integer" : "text") << field.name;
        integers += kind == "integer" ? 1 : 0;
        setters += field.set != nullptr ? 1 : 0;
        std::array<char, 100> line{};
        std::snprintf(line.data(), line.size(), "%2zu %-28s %-7s %s\n", k, column.name,
                      kind.c_str(), field.set != nullptr ? field.setter_name : "-");
        columns += line.data();
    }
    std::ostringstream head;
    head << Record::kTable.name << ", " << kClassName<Record> << ": "
         << Record::kTable.columns.size() << " columns, " << integers << " integer, "
         << static_cast<int>(Record::kTable.columns.size()) - integers << " text, " << setters
         << " settable; doSelect" << (kUpdates<Record> ? " update" : "")
         << (kInserts<Record> ? " insert" : "") << "\n";
    return head.str() + columns + "\n";
}

template <template <typename...> class List, typename... Records>
std::string listing(List<Records...> /*classes*/) {
    std::string text = (listing_of<Records>() + ...);
    text.pop_back();  // no empty line behind the last
    return text;
}

// Other programs of the board own the tables: a list that changes here reads and writes the wrong
// columns there. On an intended change, take over what the failure shows.
TEST(Columns, AreThoseOfTheGoldenListing) {
    EXPECT_EQ(listing(AllRecords()), read_file(ZONDAR_SOURCE_DIR "/tests/queltdb/columns.golden"));
}

template <typename Record>
class BoardTables : public testing::Test {};
TYPED_TEST_SUITE(BoardTables, AllRecords, ClassName);

TYPED_TEST(BoardTables, HaveTheColumnsOfTheClassInTheirOrder) {
    make_board();
    const std::string table = TypeParam::kTable.name;
    const bool state = table == "alarmasEstado" || table == "Bitrate_Nulos";
    const Database database(state ? kTempDb : kConfDb);
    using Rows = std::vector<std::vector<std::string>>;
    Rows expected;
    for (const Field<TypeParam>& field : kFields<TypeParam>)
        expected.push_back({field.name, field.integer ? "INTEGER" : "TEXT", "0"});
    // The keys are compared with quoted numbers, which needs a column that takes them as numbers.
    if (table != "Bitrate_Nulos")
        expected.front().back() = "1";
    EXPECT_EQ(
        database.rows("SELECT name, type, pk FROM pragma_table_info('" + table + "') ORDER BY cid"),
        expected);
}

}  // namespace
