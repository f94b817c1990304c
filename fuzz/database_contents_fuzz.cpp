// Requests to the command processor on databases that hold what nobody expects.
//
// Input: 1 byte E, up to 8 edits, then up to 2 requests as fuzz/requests.h has them.
// An edit: 1 byte what, 1 byte which table, then
//   what 0 to 3: put a value; 1 byte row, 1 byte column, 1 byte kind, 1 byte N, N bytes
//   4: remove the row of that number, 1 byte; 255 all of them
//   5: one more row like the first; 6: one more row of NULLs
//   7: 1 byte what: 0 to 3 the table goes, a column goes, comes, or gets another name; 4 the
//   columns
//      are turned round; 1 byte column
// What SQLite refuses is no edit. Each input has the sample board as it was delivered.
#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/board.h"
#include "fuzz/input.h"
#include "fuzz/outside.h"
#include "fuzz/requests.h"
#include "fuzz/require.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "processor/identification.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

struct Table {
    sqlite3* database;
    std::string name;
    std::vector<std::string> columns;
};
std::vector<Table> tables;

void add_tables(sqlite3* database) {
    sqlite3_stmt* const names =
        prepared(database, "SELECT name FROM sqlite_master WHERE type = 'table'");
    while (sqlite3_step(names) == SQLITE_ROW) {
        Table table{database, reinterpret_cast<const char*>(sqlite3_column_text(names, 0)), {}};
        sqlite3_stmt* const all = prepared(database, "SELECT * FROM " + table.name);
        for (int i = 0; i < sqlite3_column_count(all); ++i)
            table.columns.emplace_back(sqlite3_column_name(all, i));
        sqlite3_finalize(all);
        tables.push_back(std::move(table));
    }
    sqlite3_finalize(names);
}

// The columns from the second to the last one, or from the last to the first, behind `first`.
std::string list(const Table& table, std::string first, bool turned_round) {
    const std::size_t count = table.columns.size();
    for (std::size_t i = turned_round ? 0 : 1; i < count; ++i) {
        first += first.empty() ? "" : ", ";
        first += table.columns[turned_round ? count - 1 - i : i];
    }
    return first;
}

void bind(sqlite3_stmt* statement, std::uint8_t kind, Bytes bytes) {
    constexpr std::size_t kLong = 10240;
    const auto* const text = reinterpret_cast<const char*>(bytes.data());
    const int size = static_cast<int>(bytes.size());
    std::string filled;
    sqlite3_int64 number = 0;
    for (const std::uint8_t byte : bytes.first(std::min<std::size_t>(bytes.size(), 8)))
        number = static_cast<sqlite3_int64>(static_cast<std::uint64_t>(number) << 8U | byte);
    switch (kind % 8) {
        case 0:
            sqlite3_bind_null(statement, 1);
            break;
        case 1:
            sqlite3_bind_int64(statement, 1, number);
            break;
        case 2:
            sqlite3_bind_double(statement, 1, static_cast<double>(number) / 3);
            break;
        case 3:
            sqlite3_bind_blob(statement, 1, bytes.data(), size, SQLITE_TRANSIENT);
            break;
        case 4:
            while (!bytes.empty() && filled.size() < kLong)
                filled.append(text, bytes.size());
            sqlite3_bind_text(statement, 1, filled.data(), static_cast<int>(filled.size()),
                              SQLITE_TRANSIENT);
            break;
        case 5:
            sqlite3_bind_text(statement, 1, "-99999999999999999999", -1, SQLITE_STATIC);
            break;
        case 6:
            sqlite3_bind_text(statement, 1, "%n%s%Q%%", -1, SQLITE_STATIC);
            break;
        default:
            sqlite3_bind_text(statement, 1, text, size, SQLITE_TRANSIENT);
    }
}

// Runs what may be refused, with the values that `fill` binds.
template <typename Fill>
void attempt(const Table& table, const std::string& sql, Fill fill) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(table.database, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
        return;
    fill(statement);
    sqlite3_step(statement);
    sqlite3_finalize(statement);
}

void attempt(const Table& table, const std::string& sql) {
    sqlite3_exec(table.database, sql.c_str(), nullptr, nullptr, nullptr);
}

void restructure(const Table& table, Input& input) {
    const std::uint8_t what = input.byte();
    const std::string& column = table.columns[input.byte() % table.columns.size()];
    const std::string alter = "ALTER TABLE " + table.name;
    switch (what % 5) {
        case 0:
            return attempt(table, "DROP TABLE " + table.name);
        case 1:
            return attempt(table, alter + " DROP COLUMN " + column);
        case 2:
            return attempt(table, alter + " ADD COLUMN another DEFAULT 'x'");
        case 3:
            return attempt(table, alter + " RENAME COLUMN " + column + " TO another");
        default:
            attempt(table, "CREATE TABLE turned AS SELECT " + list(table, "", true) + " FROM " +
                               table.name + "; DROP TABLE " + table.name +
                               "; ALTER TABLE turned RENAME TO " + table.name);
    }
}

void edit(Input& input) {
    constexpr std::uint8_t kAll = 255;
    const std::uint8_t what = input.byte() % 8;
    const Table& table = tables[input.byte() % tables.size()];
    const auto row = [&table](unsigned number) {
        return " WHERE rowid = (SELECT rowid FROM " + table.name + " LIMIT 1 OFFSET " +
               std::to_string(number) + ")";
    };
    if (what < 4) {
        const std::uint8_t number = input.byte();
        const std::string& column = table.columns[input.byte() % table.columns.size()];
        const std::uint8_t kind = input.byte();
        const Bytes bytes = input.bytes(input.byte());
        attempt(table, "UPDATE " + table.name + " SET " + column + " = ?" + row(number),
                [&](sqlite3_stmt* statement) { bind(statement, kind, bytes); });
    } else if (what == 4) {
        const std::uint8_t number = input.byte();
        attempt(table, "DELETE FROM " + table.name + (number == kAll ? "" : row(number)));
    } else if (what == 5) {
        attempt(table, "INSERT INTO " + table.name + " SELECT " + list(table, "NULL", false) +
                           " FROM " + table.name + " LIMIT 1");
    } else if (what == 6) {
        attempt(table, "INSERT INTO " + table.name + " DEFAULT VALUES");
    } else {
        restructure(table, input);
    }
}

void start() {
    open_board();
    add_tables(ConfDB);
    add_tables(TempDB);
    REQUIRE(tables.size() == 10);
    conf_log = 0x7F;
    fill_identification();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned kInputsBetweenChecks = 32;
    constexpr unsigned kMostEdits = 8;
    constexpr unsigned kMostRequests = 2;
    static unsigned inputs = 0;
    if (tables.empty())
        start();
    Input input(data, size);
    const unsigned edits = std::min<unsigned>(input.byte(), kMostEdits);
    for (unsigned i = 0; i < edits; ++i)
        edit(input);
    for (unsigned i = 0; i < kMostRequests && !input.at_end(); ++i)
        carry_out(*read_request(input));
    if (inputs++ % kInputsBetweenChecks == 0)
        check_integrity();
    undo_changes();
    return 0;
}
