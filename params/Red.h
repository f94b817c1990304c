// The network that the output belongs to has a single row.
#pragma once

#include <cstdint>

enum e_Red : int {
    RED_NID = 0,
    RED_NIT_PATRON = 3,
    RED_LCN_MODE = 4,
    RED_INSERTAR_TDT = 5,
};

// The identifiers of the output's transport stream and of its original network. The table has the
// columns, but the accessors have no selector for them: they are read as 0, and a write changes
// nothing and counts as done. Masters send them all the same.
constexpr auto kNoTsidOut = static_cast<e_Red>(1);
constexpr auto kNoOnidOut = static_cast<e_Red>(2);

enum e_str_Red : int {
    REDS_NETWORKNAME = 0,
    REDS_PROVEEDOR = 1,
};

// Returns the column's number; 0 without exactly one row and for any other selector.
int get_Red(e_Red selector);

// Returns 0 when there is exactly one row, else -1. Any other selector writes nothing and still
// counts as done: there is none for the transport stream and original network identifiers, which
// masters write with the 1 and 2 left out here.
int set_Red(e_Red selector, int value);

// Clears the `size` bytes at `buffer` and copies the text, which always ends in a NUL. Any other
// selector is REDS_NETWORKNAME.
void getstr_Red(e_str_Red selector, std::uint8_t* buffer, int size);

// Stores at most size - 1 characters of `text`; no more than these are read. Returns 0 when there
// is exactly one row, else -1. Any other selector is REDS_NETWORKNAME.
int setstr_Red(e_str_Red selector, const char* text, unsigned size);
