#include "link/link_level.h"

#include <cstdio>
#include <numeric>
#include <span>

#include "link/crc8.h"
#include "link/messages.h"
#include "link/trace_file.h"

bool nenlace_trace = false;

namespace {

constexpr char kReceiver[] = "recibir_mensaje_nenlace";

void trace(const char* function, const char* text) {
    if (nenlace_trace)
        trace_line(stdout, function, "%s", text);
}

// Both codes cover these: control, header bytes, length and info, as on the wire.
std::span<const std::uint8_t> protected_bytes(mensaje& record) {
    return {frame_area(record) + kControlOffset, kInfoOffset - kControlOffset + record.longitud};
}

std::uint8_t sum(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

void scramble(mensaje& record) {
    for (std::uint8_t& byte : std::span(record.info, record.longitud))
        byte ^= kScramble;
}

int verify_checksum(mensaje& record) {
    const std::uint8_t checksum = frame_area(record)[kInfoOffset + record.longitud];
    return static_cast<std::uint8_t>(sum(protected_bytes(record)) + checksum) == 0 ? kReceived
                                                                                   : kCodeError;
}

// Returns kReceived or kCodeError, and prints the messages on the way.
int verify_codes(mensaje& record) {
    int verdict = verify_checksum(record);
    if (verdict == kReceived)
        trace(kReceiver, "Checksum OK in message received");
    else
        error_line(kReceiver, "Checksum NOK in message received");

    if ((record.control & kCrc8ModeBit) == 0) {
        trace(kReceiver, "Will not check CRC8");
    } else {
        if (crc8(0, protected_bytes(record)) != record.crc8_rx)
            verdict = kCodeError;
        // The verdict is that of both codes: a wrong checksum alone gives this line as well.
        if (verdict == kReceived)
            trace(kReceiver, "CRC8 OK in message received");
        else
            error_line(kReceiver, "CRC8 NOK in message received");
    }
    if (verdict != kReceived)
        error_line(kReceiver, "ERROR CHECKSUM1 in message received");
    return verdict;
}

}  // namespace

int Rx_mensaje_zondar(tPuertoZondar* port, std::uint8_t secuencia, mensaje* record, int timeout,
                      int attempts) {
    int result = 0;
    for (int attempt = 0; attempt < attempts && result != kReceived; ++attempt)
        result = recibir_mensaje_nenlace(port, record, timeout, secuencia);
    return result;
}

void Tx_mensaje_zondar(tPuertoZondar* port, mensaje* record) {
    enviar_mensaje_nenlace(port, record, 0);
}

int recibir_mensaje_nenlace(tPuertoZondar* port, mensaje* record, int timeout,
                            std::uint8_t secuencia) {
    int result = recibir_mensaje_nfisico(port, frame_area(*record), timeout);
    if (result != kReceived) {
        write_zondar_msg_to_pcap(frame_area(*record), kFrameReceived);
        return result;
    }
    result = verify_codes(*record);
    if (result != kReceived)
        return result;

    record->comando = record->control & 0x0FU;
    record->secuencia = (record->control >> 4U) & 0x07U;
    if (record->secuencia != secuencia) {
        error_line(kReceiver, "SEQUENCE ERROR: Expected: %u Recieved: %u", secuencia,
                   record->secuencia);
        result = kSequenceError;
    } else if ((record->control & kCrc8ModeBit) != 0) {
        scramble(*record);
    }
    write_zondar_msg_to_pcap(frame_area(*record), kFrameReceived);
    return result;
}

void enviar_mensaje_nenlace(tPuertoZondar* port, mensaje* record, unsigned crc8_mode) {
    record->inicio = kStartByte;
    const unsigned sequence = record->secuencia & 0x07U;
    record->control = static_cast<std::uint8_t>(sequence << 4U | (record->comando & 0x0FU));
    if (crc8_mode != 0) {
        record->control |= kCrc8ModeBit;
        scramble(*record);
    }
    trace("enviar_mensaje_nenlace",
          crc8_mode != 0 ? "Sending mesage in CRC8 mode" : "Sending mesage in normal mode");

    const auto covered = protected_bytes(*record);
    std::uint8_t* const codes = frame_area(*record) + kInfoOffset + record->longitud;
    codes[0] = static_cast<std::uint8_t>(0x100U - sum(covered));
    if (crc8_mode != 0)
        codes[1] = crc8(0, covered);
    enviar_mensaje_nfisico(port, record, record->longitud + (crc8_mode != 0 ? 8U : 7U));

    if (crc8_mode != 0)
        scramble(*record);
    write_zondar_msg_to_pcap(frame_area(*record), kFrameSent);
}
