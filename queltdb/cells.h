// All record classes share their columns as data, and what is done to them alike. The classes
// themselves are made from the column lists by record.inc.
#pragma once

#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "queltdb/values.h"

namespace queltdb {

struct Column {
    const char* name;
    tSqlite3parent* (*make)(const char* text);  // makes a new value of the column's kind
};

struct Table {
    const char* name;
    std::span<const Column> columns;  // the first one is the key
};

// One column of one record: cell k belongs to column k of the record's table.
struct Cell {
    tSqlite3parent*& value;  // the record owns it; it is null in an empty one
    bool& modified;
};

// A column says whether the record class has a setter for it.
enum Setter { fixed, settable };

template <typename Record>
struct ListEnd {
    void operator()(std::vector<Record*>* list) const { Record::eliminaListaResultados(list); }
};

// Owns the list of a select and the records in it.
template <typename Record>
using List = std::unique_ptr<std::vector<Record*>, ListEnd<Record>>;

template <typename Value>
tSqlite3parent* make(const char* text) {
    return new Value(text);
}

// Gives each cell of an empty record its value, a copy of the text of the same index.
void fill(std::span<const Column> columns, std::span<const Cell> cells,
          std::span<const char* const> texts);

// Frees the values in the order of the columns.
void destroy(std::span<const Cell> cells);

// Puts a value of kind `Value` in a cell's place and marks it modified, unless the cell holds the
// same text already. A cell without value or with a null is always replaced: an empty text is
// another thing to the database.
template <typename Value>
void assign(Cell cell, Value value) {
    if (cell.value != nullptr && cell.value->texto() != nullptr &&
        cell.value->getString() == value.getString())
        return;
    delete cell.value;
    cell.value = nullptr;
    cell.value = new Value(std::move(value));
    cell.modified = true;
}

}  // namespace queltdb
