// What the tests of the statements share: the board, a look at what runs on a connection, records
// as texts.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "queltdb/records.h"
#include "tests/queltdb/fields.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/pauses.h"

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

inline const Printed kNothing{};
inline const std::string kSubstituted = "[DEBUG_DB]update: sustituido caracter % por espacio\n";

template <typename Record, typename... Arguments>
queltdb::List<Record> select(sqlite3* db, const char* clause, Arguments... arguments) {
    return queltdb::List<Record>(Record::doSelect(db, clause, arguments...));
}

// The texts of a record, "NULL" for a null one.
template <typename Record>
Row texts_of(const Record& record) {
    Row row;
    for (const Field<Record>& field : kFields<Record>) {
        const queltdb::tSqlite3parent& value = *(record.*field.value);
        row.emplace_back(value.texto() == nullptr ? "NULL" : value.texto());
    }
    return row;
}

template <typename Record>
Rows texts_of(const std::vector<Record*>& list) {
    Rows rows;
    for (const Record* const record : list)
        rows.push_back(texts_of(*record));
    return rows;
}

// The statements that run on a connection, as they were given to SQLite.
class Trace {
  public:
    explicit Trace(const Database& database) : db_(database.handle()) {
        const auto note = [](unsigned, void* to, void*, void* text) {
            static_cast<Row*>(to)->emplace_back(static_cast<const char*>(text));
            return 0;
        };
        sqlite3_trace_v2(db_, SQLITE_TRACE_STMT, note, &statements_);
    }
    ~Trace() { sqlite3_trace_v2(db_, 0, nullptr, nullptr); }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    // Those since the last call.
    Row take() { return std::exchange(statements_, {}); }

  private:
    sqlite3* db_;
    Row statements_;
};

// All that was taken from SQLite must be given back by the end of the test.
class NoLeakInSqlite {
  public:
    ~NoLeakInSqlite() { EXPECT_EQ(sqlite3_memory_used(), 0); }
};

// The board.
class Statements : public testing::Test {
  protected:
    Statements() {
        make_board();
        take_pauses();
    }
    ~Statements() override { during_pauses(nullptr); }

  private:
    NoLeakInSqlite no_leak_;
};
