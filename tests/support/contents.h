// What is in the board's databases, read and written over connections beside the one under test.
#pragma once

#include <map>
#include <string>
#include <vector>

// Every cell of both databases: "EntradaAV 1 Brillo" (table, row, column) to its value, as an SQL
// literal: 50, 'Spain', NULL. A row goes by its id. Where it is known by something else, so it is
// here: a state by its name, a stream as "0.1", its service and its type. When that is NULL or not
// of one row alone, its id is taken all the same.
using Contents = std::map<std::string, std::string>;
Contents contents();
// The same with each row's id.
Contents contents_by_id();

// Stores an SQL expression in a cell of contents().
void set_cell(const std::string& cell, const std::string& value);

// The id of the state of that name on the sample board.
std::string id_of_state(const std::string& name);

// The cells that differ, as "EntradaAV 1 Brillo: 50 -> 51"; one that is not there is "nothing".
std::vector<std::string> changes(const Contents& before, const Contents& after);

// Fills both databases so that no two cells hold the same value: numbers of six digits, and the
// keys. The tables with many rows get all of `kKeys`, the others a row with the key 1.
void number_all_cells();
inline const std::vector<long long> kKeys = {
    -2147483648, -2147483647, -1, 0, 1, 2, 7, 2147483647, 2147483648,
};

// Makes a table take equal keys, and doubles the row `key`.
void double_row(const std::string& table, long long key);
