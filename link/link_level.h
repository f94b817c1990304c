// The link level adds and checks control byte, checksum, CRC and scrambling, between a mensaje and
// the physical level. Each frame also goes to the trace file.
#pragma once

#include <cstdint>

#include "link/mensaje.h"
#include "link/physical_level.h"

// The receiving calls have these results beside kReceived and kTimeout.
constexpr int kCodeError = 5;      // the checksum or the CRC is wrong
constexpr int kSequenceError = 6;  // the sequence number is not the expected one

// Traces each message on standard output. It is off; no option turns it on.
extern bool nenlace_trace;

// Receives a valid frame of sequence `secuencia` (0..7) into `record`, in up to `attempts`
// receptions; kReceived ends them. Returns the result of the last one, 0 when `attempts` is
// below 1.
int Rx_mensaje_zondar(tPuertoZondar* port, std::uint8_t secuencia, mensaje* record, int timeout,
                      int attempts);

// Sends `record` in normal mode, whatever the mode of the request was: masters rely on it.
void Tx_mensaje_zondar(tPuertoZondar* port, mensaje* record);

// Makes one reception. kReceived: decoded, info plain. kSequenceError: decoded, info as on the
// wire. kCodeError: the raw frame is in the record. kTimeout: as the physical level left it.
int recibir_mensaje_nenlace(tPuertoZondar* port, mensaje* record, int timeout,
                            std::uint8_t secuencia);

// Sends `comando`, `secuencia`, `cabecera` and the info of `record`; `crc8_mode` non-zero selects
// CRC8 mode. Sets `inicio`, `control` and the code bytes; the info is plain again afterwards.
void enviar_mensaje_nenlace(tPuertoZondar* port, mensaje* record, unsigned crc8_mode);
