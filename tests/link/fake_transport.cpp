#include "tests/link/fake_transport.h"

#include <algorithm>
#include <initializer_list>

#include "link/mensaje.h"
#include "transport/tcp_transport.h"

FakeTransport wire;

namespace {

void record(const char* call, std::initializer_list<long long> arguments) {
    std::string text = call;
    for (const long long argument : arguments)
        text.append(" ").append(std::to_string(argument));
    wire.calls.push_back(text);
}

}  // namespace

int FakeTransport::closings() const {
    return static_cast<int>(std::count(calls.begin(), calls.end(), "cerrar"));
}

void reset_puerto_zondar(unsigned port) {
    record("reset", {port});
}

void cambia_modo_zondar(tPuertoZondar* port, unsigned mode) {
    record("modo", {port->numero, mode});
}

void enviar_buffer_zondar(unsigned port, const std::uint8_t* buf, unsigned len) {
    record("enviar", {port, len});
    wire.sent.insert(wire.sent.end(), buf, buf + len);
}

int leer_byte_zondar(unsigned port, std::uint8_t* byte, int timeout) {
    record("leer", {port, timeout});
    if (wire.incoming.empty())
        return wire.read_failure;
    *byte = wire.incoming.front();
    wire.incoming.erase(wire.incoming.begin());
    return 1;
}

void CerrarSocket_zondar() {
    record("cerrar", {});
}
