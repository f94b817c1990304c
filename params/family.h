// The engine of the accessors. A family reads and writes single columns of one table; a selector
// names the column. Every call selects the row afresh, so what another process wrote counts at
// once, and acts only when the selection is exactly one row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "params/column_names.h"
#include "params/databases.h"
#include "queltdb/records.h"

// How a text gets into a buffer that was cleared before.
enum class Copy {
    bounded,     // fills it to the last byte if it must: then there is no NUL
    terminated,  // leaves at least the last byte zero
};

// Clears the `size` bytes at `buffer` and copies `text` there; a size below 1 is no buffer.
void put_text(std::string_view text, Copy rule, std::uint8_t* buffer, int size);

// What a text in a buffer of `size` bytes counts for: at most size - 1 characters of it. Not more
// than that is read.
std::string text_within(const char* text, unsigned size);

// A column by its selector: a row of a family's table. Without a column the selector reads 0 and
// writes nothing.
template <typename Record>
struct IntegerColumn {
    int selector;
    queltdb::tSqlite3parent* Record::*value;
    void (Record::*set)(queltdb::tSqlite3int);
};

template <typename Record>
struct TextColumn {
    int selector;
    queltdb::tSqlite3parent* Record::*value;
    void (Record::*set)(queltdb::tSqlite3parent);
    Copy copy = Copy::terminated;
};

// The column `name` of the class Record in such a row.
#define COLUMN(name) &Record::name, &Record::set##name

// True when each row stands at the index of its selector, the last one being `last`.
template <typename Column>
constexpr bool complete(std::span<const Column> columns, int last) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].selector != static_cast<int>(i))
            return false;
    }
    return columns.size() == static_cast<std::size_t>(last) + 1;
}

// What such a row's column is called. A record begins with its values, in the order of its columns.
template <typename Record>
ColumnName name_of(queltdb::tSqlite3parent* Record::*value) {
    if (value == nullptr)
        return {Record::kTable.name, nullptr};
    const Record record;
    const auto* const first = reinterpret_cast<queltdb::tSqlite3parent* const*>(&record);
    const auto index = static_cast<std::size_t>(&(record.*value) - first);
    return {Record::kTable.name, Record::kColumns[index].name};
}

enum class Outside { ignored, first };  // what a selector outside of the table stands for

template <typename Column>
struct Selectors {
    std::span<const Column> columns;
    Outside outside;

    // Null when the selector stands for no column.
    [[nodiscard]] constexpr const Column* find(int selector) const {
        const auto index = static_cast<unsigned>(selector);
        if (index < columns.size())
            return columns[index].value != nullptr ? &columns[index] : nullptr;
        return outside == Outside::first ? columns.data() : nullptr;
    }
};

// The record of the one row that a clause selects, until the end of its life.
template <typename Record>
class OnlyRow {
  public:
    // The arguments are those of the clause's conversions.
    template <typename... Arguments>
    explicit OnlyRow(sqlite3* database, const char* clause, Arguments... arguments)
        : database_(database), list_(Record::doSelect(database, clause, arguments...)) {}
    ~OnlyRow() { Record::eliminaListaResultados(list_); }
    OnlyRow(const OnlyRow&) = delete;
    OnlyRow& operator=(const OnlyRow&) = delete;

    // False when there is no such row, or more than one.
    explicit operator bool() const { return list_->size() == 1; }
    Record& operator*() const { return *list_->front(); }
    Record* operator->() const { return list_->front(); }
    // Writes its changes. An accessor does not look at the result: it reports that the row was
    // there.
    void write() { list_->front()->update(database_); }

  private:
    sqlite3* database_;
    std::vector<Record*>* list_;
};

template <typename Record>
struct Family {
    sqlite3*& database;
    const char* clause;  // null for a table of a single row, else with one %lld for the key
    Selectors<IntegerColumn<Record>> integers;
    Selectors<TextColumn<Record>> texts = {};

    using Key = long long;

    // The column's number; 0 without the row or the column.
    [[nodiscard]] int get(int selector, Key key = 0) const {
        const OnlyRow<Record> row(database, clause, key);
        const IntegerColumn<Record>* const column = integers.find(selector);
        if (!row || column == nullptr)
            return 0;
        return queltdb::textoAEntero(((*row).*column->value)->texto());
    }

    [[nodiscard]] ColumnName integer_name(int selector) const {
        const IntegerColumn<Record>* const column = integers.find(selector);
        return name_of<Record>(column == nullptr ? nullptr : column->value);
    }
    [[nodiscard]] ColumnName text_name(int selector) const {
        const TextColumn<Record>* const column = texts.find(selector);
        return name_of<Record>(column == nullptr ? nullptr : column->value);
    }

    // 0, also when the selector stands for no column or the database took nothing; -1 without the
    // row.
    [[nodiscard]] int set(int selector, int value, Key key = 0) const {
        return write(integers.find(selector), queltdb::tSqlite3int(value), key);
    }

    // Leaves the buffer cleared without the row or the column.
    void getstr(int selector, std::uint8_t* buffer, int size, Key key = 0) const {
        const OnlyRow<Record> row(database, clause, key);
        const TextColumn<Record>* const column = texts.find(selector);
        if (row && column != nullptr)
            put_text(((*row).*column->value)->getString(), column->copy, buffer, size);
        else
            put_text({}, Copy::bounded, buffer, size);
    }

    // As set(), with what text_within() the text counts for.
    [[nodiscard]] int setstr(int selector, const char* text, unsigned size, Key key = 0) const {
        const queltdb::tSqlite3parent value(text_within(text, size).c_str());
        return write(texts.find(selector), value, key);
    }

  private:
    template <typename Column, typename Value>
    int write(const Column* column, const Value& value, Key key) const {
        OnlyRow<Record> row(database, clause, key);
        if (!row)
            return -1;
        if (column != nullptr)
            ((*row).*column->set)(value);
        row.write();
        return 0;
    }
};
