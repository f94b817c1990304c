// The sweeps over the accessors of a table: what each selector reads and writes, for every row, and
// nothing besides. Each family's test file has the table of its selectors, written by hand, and
// instantiates the suites that fit; selectors_test.cpp has the tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <vector>

#include "tests/support/contents.h"
#include "tests/support/open_board.h"

// What a caller gives for a row, and the key that this row has.
struct Key {
    int given;
    long long row;
};

enum Copied { kTerminated, kBounded };  // a bounded text may fill the buffer without a NUL

struct Selector {
    int number;
    int member;          // the enumeration's, to be the same number
    const char* column;  // null for none
    Copied copied = kTerminated;
    const char* read = nullptr;  // a column that a getstr reads in place of `column`
};

// The integer selectors of a table with get and set, or the text selectors with getstr and setstr.
struct Family {
    const char* table;
    const char* select;  // the statement for the row with the key 1
    std::vector<Key> keys;
    std::vector<Selector> selectors;
    bool outside_is_first = false;  // whether other selectors stand for the first; else for none
    int (*get)(int selector, int key) = nullptr;
    int (*set)(int selector, int key, int value) = nullptr;
    void (*getstr)(int selector, int key, std::uint8_t* buffer, int size) = nullptr;
    int (*setstr)(int selector, int key, const char* text, unsigned size) = nullptr;
};

inline void PrintTo(const Family& family, std::ostream* out) {
    *out << family.table;
}

// A board whose every cell holds another value.
class Accessors : public testing::TestWithParam<Family> {
  protected:
    Accessors() { number_all_cells(); }

  private:
    OpenBoard board_;
};

class IntegerReads : public Accessors {};
class IntegerWrites : public Accessors {};
class TextReads : public Accessors {};
class TextWrites : public Accessors {};
