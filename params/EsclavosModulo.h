// Each slave module of the chassis has a row.
#pragma once

enum e_EsclavosModulo : int {
    EM_ESTADO = 0,
    EM_RESET_FACTORY = 1,
    EM_UPGRADE = 2,
    EM_MASTER = 3,
};

enum e_str_EsclavosModulo : int {
    EMS_MAC = 0,
    EMS_HOSTNAME = 1,
    EMS_SERIAL = 2,
    EMS_MODELO = 3,
    EMS_IP = 4,
    EMS_SWVERSION = 5,
};

// Returns the column's number; 0 without exactly one row of the slave. `slave` is the row's key.
// Any other selector is EM_ESTADO.
int get_EsclavosModulo(e_EsclavosModulo selector, int slave);

// Returns 0 when there is exactly one row of the slave, else -1. Any other selector is EM_ESTADO.
int set_EsclavosModulo(e_EsclavosModulo selector, int slave, int value);

// Stores at most size - 1 characters of `text`; no more than these are read. Returns 0 when there
// is exactly one row of the slave, else -1. Any other selector writes nothing.
int setstr_EsclavosModulo(e_str_EsclavosModulo selector, int slave, const char* text,
                          unsigned size);

// Sees to it that there is a slave: adds a row with the first 12 characters of `MAC` when the
// table is empty. Returns 1, whichever slaves there are: all of them share the row of that key.
int get_EsclavosModuloIdByMAC(const char* MAC);
