// A service state tells whether an output service carries its streams of a type. It is kept in two
// tables, PIDsSalida and EntradaAV.
#pragma once

enum e_serv_type : int {
    ST_TIPO_1 = 1,
    ST_TIPO_2 = 2,
};

// Returns the stored selection less one: 0 for a stream that is on, 1 for one that is off. -1
// without exactly one row of the service and type, as for a stored 0.
int get_service_state(e_serv_type type, int service);

// Stores `value` as the selection, 0 as the 2 that means off, and in Remux_Av of the channel with
// the service's number a bit for each type that is off: bit 1 for type 1, bit 0 for type 2. For
// another type Remux_Av becomes 0. A row that is missing does not keep the other from being
// written. Returns 0 when both were there, else -1.
int set_service_state(e_serv_type type, int service, int value);
