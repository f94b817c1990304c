#include "master/wire.h"

#include <cstdio>

#include "link/messages.h"
#include "link/trace_file.h"
#include "transport/tcp_transport.h"

namespace master {

namespace {

thread_local Wire* in_use = nullptr;

}  // namespace

UseWire::UseWire(Wire& wire) : before_(in_use) {
    in_use = &wire;
}

UseWire::~UseWire() {
    in_use = before_;
}

}  // namespace master

using master::in_use;

// In place of the daemon's transport.

void enviar_buffer_zondar(unsigned /*port*/, const std::uint8_t* buf, unsigned len) {
    in_use->send({buf, len});
}

// The time-out is the wire's.
int leer_byte_zondar(unsigned /*port*/, std::uint8_t* byte, int /*timeout*/) {
    const std::optional<std::uint8_t> next = in_use->next();
    *byte = next.value_or(0);
    return next ? 1 : 0;
}

void CerrarSocket_zondar() {}

void reset_puerto_zondar(unsigned /*port*/) {}

void cambia_modo_zondar(tPuertoZondar* /*port*/, unsigned /*mode*/) {}

// In place of the daemon's one trace file.
void write_zondar_msg_to_pcap(const std::uint8_t* trama, unsigned direction) {
    in_use->trace(trama, direction);
}

// In place of the link's messages: the results say the same.

void error_line(const char* /*function*/, const char* /*format*/, ...) {}

void trace_line(std::FILE* /*stream*/, const char* /*function*/, const char* /*format*/, ...) {}
