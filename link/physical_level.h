// The physical level stuffs bytes on the way out and runs the receive machine on the way in.
// Checksum, CRC and scrambling are the link level's.
#pragma once

#include <cstdint>

struct mensaje;
struct tPuertoZondar;

// The receiving calls of physical and link level have these results.
constexpr int kReceived = 1;
constexpr int kTimeout = 4;

// Traces each step on standard error. It is off; no option turns it on.
extern bool nfisico_trace;

// Sends the first `nbytes` bytes (7..263) of the record, stuffed, in one call of the transport.
void enviar_mensaje_nfisico(tPuertoZondar* port, mensaje* record, unsigned nbytes);

// Receives one frame into `trama`, the 265 bytes of a mensaje. Returns kReceived, or kTimeout when
// a byte did not come; what was stored by then stays. `timeout` goes to each byte read as it is.
int recibir_mensaje_nfisico(tPuertoZondar* port, std::uint8_t* trama, int timeout);
