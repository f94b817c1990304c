// One TCP socket carries the protocol's bytes, as server (the normal mode) or as client. It knows
// nothing of frames. All state is global, and belongs to the protocol thread.
#pragma once

#include <cstdint>

struct tPuertoZondar;

// Prints every byte sent and received on standard output. It is off; no option turns it on.
extern bool transport_trace;

// Chooses server mode. Without it the transport is a client.
void SetSocketServer_zondar();

// Chooses peer address and port: 0 is 169.254.34.21, 1 and 2 are 192.168.5.1, all on port 8001;
// any other number keeps what is set. Prints the address in every case.
void set_zondar_servernumber(unsigned n);

// Makes the socket; in server mode also binds it to all interfaces and listens. Ends the process
// with status -1 when one of these fails. In client mode connecting is left to the first use.
void AbrirSocket_zondar();

// Client mode: closes the socket. Server mode: does nothing, the listening socket stays.
void CerrarSocket_zondar();

// Sends `len` bytes in one write. In server mode they go out on a connection accepted for them
// alone and closed afterwards; this waits until the master opens it. In client mode on a socket
// connected for them alone. Failures are printed, not returned. The port number is ignored.
void enviar_buffer_zondar(unsigned port, const std::uint8_t* buf, unsigned len);

// The time-out with which requests are read. It counts attempts, not time.
constexpr int kRequestTimeout = 5000;

constexpr int read_attempts(int timeout) {
    constexpr int kUnitsPerAttempt = 10;
    return timeout / kUnitsPerAttempt + 1;
}

// Reads one byte. 1: stored through `byte`; 0: the read_attempts(timeout) ran out. An attempt waits
// without limit inside accept and read and fails only when the peer has closed (client mode: or
// cannot be reached). The port number is ignored.
int leer_byte_zondar(unsigned port, std::uint8_t* byte, int timeout);

// These clear a line and turn it round before a frame is sent. A TCP connection needs neither: both
// do nothing.
void reset_puerto_zondar(unsigned port);
void cambia_modo_zondar(tPuertoZondar* port, unsigned mode);
