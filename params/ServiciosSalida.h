// Each output service has a row.
#pragma once

#include <cstdint>

enum e_ServiciosSalida : int {
    SS_LCN = 0,
    SS_SID = 1,
    SS_IP_PORT_SOURCE = 2,
};

enum e_str_ServiciosSalida : int {
    SSS_NOMBRE = 0,
    SSS_NOMBRE_SAP = 1,
    SSS_IP_ADDRESS_SOURCE = 2,
};

// Returns the column's number; 0 without exactly one row of the service and for any other selector.
// `service` is the row's key, from 0.
int get_ServiciosSalida(e_ServiciosSalida selector, int service);

// Returns 0 when there is exactly one row of the service, else -1. Any other selector writes
// nothing.
int set_ServiciosSalida(e_ServiciosSalida selector, int service, int value);

// Clears the `size` bytes at `buffer` and copies the text. The address may fill the buffer without
// a NUL, the names always end in one. Any other selector leaves the buffer cleared.
void getstr_ServiciosSalida(e_str_ServiciosSalida selector, int service, std::uint8_t* buffer,
                            int size);

// Stores at most size - 1 characters of `text`; no more than these are read. Returns 0 when there
// is exactly one row of the service, else -1. Any other selector writes nothing.
int setstr_ServiciosSalida(e_str_ServiciosSalida selector, int service, const char* text,
                           unsigned size);
