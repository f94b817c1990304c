// The state database names alarms and states, which the board's other processes report.
#pragma once

// Each mode reads the text of a value as a number in its own way.
enum e_modo : int {
    MODO_BINARIO = 0,      // its bits, the most significant first; the low 8 count
    MODO_HEXADECIMAL = 1,  // its digits, the most significant first; another character is a 0
    MODO_DECIMAL = 2,
};

// Returns the value named `name`; 0 without exactly one row of that name, for a text of more than 8
// characters and for any other mode. In binary every character but 0 is a one.
int get_alarmas_estado_valor(const char* name, e_modo mode);

// Stores at most size - 1 characters of `text`, no more than these being read, and marks the value
// as changed for those who read the database. Returns 0 when there is exactly one row of that name,
// else -1.
int setstr_alarmas_estado_valor(const char* name, const char* text, unsigned size);
