#include "master/frame.h"

#include <algorithm>
#include <numeric>

#include "link/crc8.h"
#include "link/link_level.h"
#include "master/wire.h"

namespace master {

namespace {

// The record with its code bytes, once sent to the tape.
mensaje sent(mensaje record, bool crc8_mode, Tape& tape) {
    const UseWire use(tape);
    tPuertoZondar port{};
    enviar_mensaje_nenlace(&port, &record, crc8_mode ? 1 : 0);
    return record;
}

bool has_code_a5(const mensaje& record, bool crc8_mode) {
    Tape tape;
    const mensaje coded = sent(record, crc8_mode, tape);
    const std::uint8_t* const codes = frame_area(coded) + kInfoOffset + coded.longitud;
    return codes[0] == kStartByte || (crc8_mode && codes[1] == kStartByte);
}

mensaje received(Tape& tape, std::uint8_t sequence, int& result) {
    const UseWire use(tape);
    tPuertoZondar port{};
    mensaje record{};
    result = recibir_mensaje_nenlace(&port, &record, 0, sequence);
    return record;
}

}  // namespace

mensaje request_record(std::uint8_t command, std::span<const std::uint8_t> info, bool crc8_mode,
                       std::uint8_t sequence) {
    mensaje record{};
    record.comando = command;
    record.secuencia = sequence;
    record.longitud = static_cast<std::uint8_t>(std::min(info.size(), kMaxInfo));
    std::copy_n(info.begin(), record.longitud, record.info);
    while (has_code_a5(record, crc8_mode))
        ++record.cabecera[2];
    return record;
}

Bytes wire_bytes(const mensaje& record, bool crc8_mode) {
    Tape tape;
    sent(record, crc8_mode, tape);
    return tape.sent();
}

std::optional<ReadFrame> read_frame(std::span<const std::uint8_t> bytes) {
    const auto start = std::find(bytes.begin(), bytes.end(), kStartByte);
    if (start == bytes.end())
        return std::nullopt;
    ReadFrame frame;
    frame.skipped = static_cast<std::size_t>(start - bytes.begin());
    const std::span<const std::uint8_t> from_start = bytes.subspan(frame.skipped);
    Tape tape(from_start);
    frame.record = received(tape, 0, frame.result);
    if (frame.result == kSequenceError) {
        int result = 0;
        Tape again(from_start);
        frame.record = received(again, frame.record.secuencia, result);
    }
    frame.length = from_start.size() - tape.rest().size();
    // A reception ends with the first byte of a doubled last one.
    frame.ends_doubled = from_start[frame.length - 1] == kStartByte && !tape.rest().empty() &&
                         tape.rest().front() == kStartByte && frame.result != kTimeout;
    if (frame.ends_doubled)
        ++frame.length;
    return frame;
}

WrongCodes wrong_codes(const mensaje& record) {
    const std::size_t length = kInfoOffset + record.longitud;
    const std::span<const std::uint8_t> covered(frame_area(record) + kControlOffset,
                                                frame_area(record) + length);
    const unsigned sum = std::accumulate(covered.begin(), covered.end(), 0U);
    const bool crc8_mode = (record.control & kCrc8ModeBit) != 0;
    return {.checksum = (sum + frame_area(record)[length]) % 256 != 0,
            .crc = crc8_mode && frame_area(record)[length + 1] != crc8(0, covered)};
}

}  // namespace master
