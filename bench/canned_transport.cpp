#include "bench/canned_transport.h"

#include <algorithm>

#include "transport/tcp_transport.h"

Canned canned;

void reset_puerto_zondar(unsigned /*port*/) {}

void cambia_modo_zondar(tPuertoZondar* /*port*/, unsigned /*mode*/) {}

void CerrarSocket_zondar() {}

void enviar_buffer_zondar(unsigned /*port*/, const std::uint8_t* buf, unsigned len) {
    std::copy_n(buf, len, canned.bytes.begin());
    canned.sent = len;
}

int leer_byte_zondar(unsigned /*port*/, std::uint8_t* byte, int /*timeout*/) {
    if (canned.read == canned.sent)
        return 0;
    *byte = canned.bytes[canned.read++];
    return 1;
}
