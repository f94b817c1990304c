#include "link/physical_level.h"

#include <array>
#include <cassert>
#include <cstdio>
#include <ctime>
#include <span>
#include <string>

#include "link/mensaje.h"
#include "link/messages.h"
#include "link/receive_machine.h"
#include "transport/tcp_transport.h"

bool nfisico_trace = false;

namespace {

using State = ReceiveMachine::State;

constexpr char kSender[] = "enviar_mensaje_nfisico";
constexpr char kReceiver[] = "recibir_mensaje_nfisico";

// Start and control go out once, every byte behind them may be doubled.
constexpr std::size_t kUnstuffed = 2;
constexpr std::size_t kMaxStuffed = kUnstuffed + 2 * (kMaxFrame - kUnstuffed);
static_assert(kMaxStuffed == 524);

// Returns the number of bytes written to `out`, which holds at least twice the frame.
unsigned stuff(std::span<const std::uint8_t> frame, std::uint8_t* out) {
    std::uint8_t* end = out;
    for (std::size_t i = 0; i < frame.size(); ++i) {
        *end++ = frame[i];
        if (frame[i] == kStartByte && i >= kUnstuffed)
            *end++ = kStartByte;
    }
    return static_cast<unsigned>(end - out);
}

void trace_sending(unsigned nbytes, unsigned stuffed) {
    trace_line(stderr, kSender, " enviar_mensaje_nfisico, nbytes: %u", nbytes);
    trace_line(stderr, kSender, " enviar_mensaje_nfisico, buffer final nbytes: %u", stuffed);
}

// `state` is the one that took the byte.
void trace_step(State state, std::uint8_t byte, std::size_t data_end) {
    switch (state) {
        case State::READING_HEADER:
            return trace_line(stderr, kReceiver, "state= READING_HEADER, leido: 0x%x", byte);
        case State::READING_INFO:
            return trace_line(stderr, kReceiver, "state= READING_INFO, data_end: %zu", data_end);
        case State::READING_CHECKSUM:
            return trace_line(stderr, kReceiver, "state= READING_CHECKSUM");
        case State::READING_CRC:
            return trace_line(stderr, kReceiver, "state= READING_CRC");
        case State::WAITING_START:
        case State::TRAMA_RECIBIDA:
            return;
    }
}

// Tells what became of the reception, and dumps what it stored. In CRC8 mode every byte is shown
// XORed with 0x55, the header included.
void trace_result(int result, std::span<const std::uint8_t> stored) {
    trace_line(stderr, kReceiver, "%s",
               result == kReceived ? "res_op= TRAMA_RECIBIDA" : "Timeout in reception");
    const bool crc8_mode =
        stored.size() > kControlOffset && (stored[kControlOffset] & kCrc8ModeBit) != 0;
    const unsigned mask = crc8_mode ? kScramble : 0;
    std::string text = "Recibido (res: " + std::to_string(result) +
                       ") : " + std::to_string(stored.size()) + " bytes. Datos: \nRECIBIDO " +
                       std::to_string(std::time(nullptr)) + "\n";
    for (const std::uint8_t byte : stored) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x ", byte ^ mask);
        text += digits.data();
    }
    trace_line(stderr, kReceiver, "%s", text.c_str());
}

}  // namespace

void enviar_mensaje_nfisico(tPuertoZondar* port, mensaje* record, unsigned nbytes) {
    assert(nbytes <= kMaxFrame);
    reset_puerto_zondar(port->numero);
    cambia_modo_zondar(port, 1);
    std::array<std::uint8_t, kMaxStuffed> stuffed;  // is not cleared: only what is written is sent
    const unsigned length = stuff({frame_area(*record), nbytes}, stuffed.data());
    if (nfisico_trace)
        trace_sending(nbytes, length);
    enviar_buffer_zondar(port->numero, stuffed.data(), length);
    cambia_modo_zondar(port, 0);
}

int recibir_mensaje_nfisico(tPuertoZondar* port, std::uint8_t* trama, int timeout) {
    ReceiveMachine machine(trama);
    int result = kTimeout;
    std::uint8_t byte = 0;
    while (result == kTimeout && leer_byte_zondar(port->numero, &byte, timeout) == 1) {
        const State state = machine.state();
        const std::size_t stored = machine.stored();
        if (machine.feed(byte))
            result = kReceived;
        if (nfisico_trace && machine.stored() > stored)
            trace_step(state, byte, machine.data_end());
    }
    if (nfisico_trace)
        trace_result(result, {trama, machine.stored()});
    CerrarSocket_zondar();
    return result;
}
