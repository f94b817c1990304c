// All accessors have this engine. A family reads and writes single columns of one table; a selector
// names the column. Every call selects the row afresh, so what another process wrote counts at
// once, and acts only when the selection is exactly one row.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "params/databases.h"
#include "queltdb/records.h"

// A rule says how a text gets into a buffer that was cleared before.
enum class Copy {
    bounded,     // fills it to the last byte if it must: then there is no NUL
    terminated,  // leaves at least the last byte zero
};

// Clears the `size` bytes at `buffer` and copies `text` there; a size below 1 is no buffer.
void put_text(std::string_view text, Copy rule, std::uint8_t* buffer, int size);

// Takes at most size - 1 characters of a text in a buffer of `size` bytes, and reads no more.
std::string text_within(const char* text, unsigned size);

// A row of a family's table gives a selector its column. Without one the selector reads 0 and
// writes nothing.
template <typename RecordClass>
struct IntegerColumn {
    using Record = RecordClass;
    using Value = queltdb::tSqlite3int;
    int selector;
    std::optional<typename Record::Place> place;
};

template <typename RecordClass>
struct TextColumn {
    using Record = RecordClass;
    using Value = queltdb::tSqlite3parent;
    int selector;
    std::optional<typename Record::Place> place;
    Copy copy = Copy::terminated;
};

// Is true when each row stands at the index of its selector, the last one being `last`.
template <typename Column, std::size_t Size>
constexpr bool complete(const Column (&columns)[Size], int last) {
    for (std::size_t i = 0; i < Size; ++i) {
        if (columns[i].selector != static_cast<int>(i))
            return false;
    }
    return Size == static_cast<std::size_t>(last) + 1;
}

// Is true when the record class has a setter of the rows' kind for each column.
template <typename Column, std::size_t Size>
constexpr bool writable(const Column (&columns)[Size]) {
    constexpr const auto& kHasSetter = Column::Record::template kHasSetter<typename Column::Value>;
    return std::ranges::all_of(columns, [](const Column& column) {
        return !column.place || kHasSetter[static_cast<std::size_t>(*column.place)];
    });
}

enum class Outside { ignored, first };  // what a selector outside of the table stands for

template <typename Column>
struct Selectors {
    std::span<const Column> columns;
    Outside outside;

    // Returns null when the selector stands for no column.
    [[nodiscard]] constexpr const Column* find(int selector) const {
        const auto index = static_cast<unsigned>(selector);
        if (index < columns.size())
            return columns[index].place ? &columns[index] : nullptr;
        return outside == Outside::first ? columns.data() : nullptr;
    }
};

// Owns the record of the one row that a clause selects.
template <typename Record>
class OnlyRow {
  public:
    // The arguments are those of the clause's conversions.
    template <typename... Arguments>
    explicit OnlyRow(sqlite3* database, const char* clause, Arguments... arguments)
        : database_(database), list_(Record::doSelect(database, clause, arguments...)) {}

    // Is false when there is no such row, or more than one.
    explicit operator bool() const { return list_->size() == 1; }
    Record& operator*() const { return *list_->front(); }
    Record* operator->() const { return list_->front(); }
    // Writes its changes. An accessor does not look at the result: it reports that the row was
    // there.
    void write() { list_->front()->update(database_); }

  private:
    sqlite3* database_;
    queltdb::List<Record> list_;
};

template <typename Record>
struct Family {
    sqlite3*& database;
    const char* clause;  // is null for a table of a single row, else has a %lld for the key
    Selectors<IntegerColumn<Record>> integers;
    Selectors<TextColumn<Record>> texts = {};

    using Key = long long;

    // Returns the column's number; 0 without the row or the column.
    [[nodiscard]] int get(int selector, Key key = 0) const {
        const OnlyRow<Record> row(database, clause, key);
        const IntegerColumn<Record>* const column = integers.find(selector);
        if (!row || column == nullptr)
            return 0;
        return queltdb::textoAEntero((*row)[*column->place].value->texto());
    }

    // Returns 0, also when the selector stands for no column or the database took nothing; -1
    // without the row.
    [[nodiscard]] int set(int selector, int value, Key key = 0) const {
        return write(integers.find(selector), queltdb::tSqlite3int(value), key);
    }

    // Leaves the buffer cleared without the row or the column.
    void getstr(int selector, std::uint8_t* buffer, int size, Key key = 0) const {
        const OnlyRow<Record> row(database, clause, key);
        const TextColumn<Record>* const column = texts.find(selector);
        if (row && column != nullptr)
            put_text((*row)[*column->place].value->getString(), column->copy, buffer, size);
        else
            put_text({}, Copy::bounded, buffer, size);
    }

    // Does as set() with the text_within() the buffer.
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
            queltdb::assign((*row)[*column->place], value);
        row.write();
        return 0;
    }
};
