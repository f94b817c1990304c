// All tables share this SQL: statement texts, three attempts at each, and what is said of a
// failure.
//
// A failed attempt is reported on standard error and followed by a pause of 1, 2 and 3 seconds,
// also behind the last one; SQLite itself waits besides for the locks of other processes. Nothing
// is kept between calls, and only a failed allocation throws.
#pragma once

#include <cstdarg>
#include <span>

#include "queltdb/cells.h"

struct sqlite3;

namespace queltdb {

// Rows are the result of "SELECT * FROM table " and a clause, whose conversions are SQLite's (%q,
// %d) and take `arguments`; a null clause selects all rows. Without rows when all attempts failed.
class Rows {
  public:
    Rows(sqlite3* db, const char* table, const char* clause, std::va_list arguments);
    ~Rows();
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    [[nodiscard]] int count() const { return count_; }
    // Takes the texts that follow each other from the first column of `row` (from 0) on, null for
    // an SQL NULL and beyond the end of the result. They live as long as the result. The width of
    // the result is not checked: a table wider than `texts` is cut, of a narrower one the next
    // row's texts are taken.
    void take(int row, std::span<const char*> texts) const;

  private:
    char** texts_ = nullptr;  // holds a row of column names, then the rows
    int count_ = 0;
    int width_ = 0;
};

// Writes the modified cells to the rows whose key is the record's, in one statement. The
// first per cent sign of each value is replaced by a blank, in the cell too; further ones stay.
// Returns 1, with no cell modified any more, or with no statement when none was; 0, with the cells
// as they were, when all attempts failed.
int update(sqlite3* db, const Table& table, std::span<const Cell> cells);

// Inserts the cells as a new row and gives cell 0 the key that the database assigned. Returns 1,
// or 0 with the key as it was when all attempts failed.
int insert(sqlite3* db, const Table& table, std::span<const Cell> cells);

}  // namespace queltdb
