// The link level on a transport of its own: what goes out, byte by byte, and what comes of a
// stream.
//
// Input: 1 byte of flags, then what they ask for.
//   bit 0: with the traces; bit 1: with the trace file
//   bit 2, send a message and receive it again: 1 byte, bits 0 to 6 those of the control byte, bit
//   7
//     CRC8 mode; 3 header bytes; 1 byte N, N info bytes
//   else receive: bits 3 to 5 the sequence, bits 6 and 7 the attempts; the rest is the stream
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/require.h"
#include "link/link_level.h"
#include "link/receive_machine.h"
#include "link/trace_file.h"
#include "transport/tcp_transport.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Record = std::array<std::uint8_t, 265>;

constexpr std::uint8_t kStart = 0xA5;
constexpr std::uint8_t kCrc8Mode = 0x80;
constexpr std::uint8_t kMask = 0x55;
constexpr std::size_t kInfo = 6;
constexpr int kTimeoutArgument = 5000;

struct Wire {
    std::span<const std::uint8_t> incoming = {};
    Bytes sent = {};
    int sendings = 0;
    int closings = 0;
};
Wire wire;

}  // namespace

// In the place of the transport.

void reset_puerto_zondar(unsigned /*port*/) {}

void cambia_modo_zondar(tPuertoZondar* /*port*/, unsigned /*mode*/) {}

void enviar_buffer_zondar(unsigned port, const std::uint8_t* buf, unsigned len) {
    REQUIRE(port == 7);
    wire.sent.assign(buf, buf + len);
    ++wire.sendings;
}

int leer_byte_zondar(unsigned port, std::uint8_t* byte, int timeout) {
    REQUIRE(port == 7 && timeout == kTimeoutArgument);
    if (wire.incoming.empty())
        return 0;
    *byte = wire.incoming.front();
    wire.incoming = wire.incoming.subspan(1);
    return 1;
}

void CerrarSocket_zondar() {
    ++wire.closings;
}

namespace {

tPuertoZondar port{7};

std::uint8_t plain_sum(std::span<const std::uint8_t> bytes) {
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : bytes)
        sum = static_cast<std::uint8_t>(sum + byte);
    return sum;
}

std::uint8_t plain_crc(std::span<const std::uint8_t> bytes) {
    unsigned crc = 0;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1U) != 0 ? crc >> 1U ^ 0x8CU : crc >> 1U;
    }
    return static_cast<std::uint8_t>(crc);
}

Record bytes_of(const mensaje& message) {
    Record record;
    std::memcpy(record.data(), &message, record.size());
    return record;
}

void mask_info(Record& record) {
    for (std::uint8_t& byte : std::span(record).subspan(kInfo, record[5]))
        byte ^= kMask;
}

// One reception, as the link level is to see it. The physical level is taken for granted.
int plain_reception(std::span<const std::uint8_t>& stream, Record& record, std::uint8_t sequence) {
    ReceiveMachine machine(record.data());
    bool complete = false;
    while (!complete && !stream.empty()) {
        complete = machine.feed(stream.front());
        stream = stream.subspan(1);
    }
    if (!complete)
        return kTimeout;
    const bool crc8_mode = (record[1] & kCrc8Mode) != 0;
    const auto covered = std::span(record).subspan(1, 5U + record[5]);
    const std::uint8_t checksum = record[kInfo + record[5]];
    if (static_cast<std::uint8_t>(plain_sum(covered) + checksum) != 0)
        return kCodeError;
    if (crc8_mode && plain_crc(covered) != record[262])
        return kCodeError;
    record[263] = record[1] & 0x0FU;
    record[264] = record[1] >> 4U & 7U;
    if (record[264] != sequence)
        return kSequenceError;
    if (crc8_mode)
        mask_info(record);
    return kReceived;
}

// The frames in the trace file, each with its direction; removes it.
Bytes traced() {
    std::ifstream file(zondar_pcap_path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Bytes directions;
    if (text.empty())
        return directions;
    constexpr std::size_t kHeader = 24;
    constexpr std::size_t kRecordHeader = 16;
    REQUIRE(text.starts_with("\xD4\xC3\xB2\xA1"));
    std::size_t at = kHeader;
    while (at < text.size()) {
        REQUIRE(at + kRecordHeader + kInfo < text.size());
        std::array<std::uint32_t, 4> header{};
        std::memcpy(header.data(), &text[at], kRecordHeader);
        at += kRecordHeader;
        directions.push_back(static_cast<std::uint8_t>(text[at]));
        const auto length = static_cast<std::uint8_t>(text[at + kInfo]);
        REQUIRE(header[2] == length + 9U && header[3] == header[2]);
        at += header[2];
    }
    REQUIRE(at == text.size());
    unlink(zondar_pcap_path);
    return directions;
}

void check_trace(std::size_t frames, unsigned last_direction) {
    if (*zondar_pcap_path == '\0')
        return;
    const Bytes directions = traced();
    REQUIRE(directions.size() == frames);
    REQUIRE(frames == 0 || directions.back() == last_direction);
}

// Reception after reception until the stream has ended.
void receive(std::span<const std::uint8_t> stream, std::uint8_t sequence, int attempts) {
    wire.incoming = stream;
    while (!wire.incoming.empty()) {
        auto rest = wire.incoming;
        const int closings = wire.closings;
        mensaje message{};
        Record expected = bytes_of(message);
        int expected_result = 0;
        int receptions = 0;
        std::size_t frames = 0;
        while (receptions < attempts && expected_result != kReceived) {
            expected_result = plain_reception(rest, expected, sequence);
            frames += expected_result == kCodeError ? 0 : 1;
            ++receptions;
        }
        const int result = Rx_mensaje_zondar(&port, sequence, &message, kTimeoutArgument, attempts);
        REQUIRE(result == expected_result);
        REQUIRE(bytes_of(message) == expected);
        REQUIRE(wire.incoming.size() == rest.size());
        REQUIRE(wire.closings == closings + receptions);
        check_trace(frames, kFrameReceived);
        if (attempts == 0)
            return;
    }
}

// The bytes that the wire sees of the message.
Bytes frame_of(const mensaje& message, bool crc8_mode) {
    Bytes frame = {kStart};
    const unsigned control = message.comando | unsigned{message.secuencia} << 4U;
    frame.push_back(static_cast<std::uint8_t>(control | (crc8_mode ? kCrc8Mode : 0U)));
    frame.insert(frame.end(), std::begin(message.cabecera), std::end(message.cabecera));
    frame.push_back(message.longitud);
    for (const std::uint8_t byte : std::span(message.info).first(message.longitud))
        frame.push_back(crc8_mode ? byte ^ kMask : byte);
    const auto covered = std::span(frame).subspan(1);
    const auto checksum = static_cast<std::uint8_t>(-plain_sum(covered));
    const std::uint8_t crc = plain_crc(covered);
    frame.push_back(checksum);
    if (crc8_mode)
        frame.push_back(crc);
    return frame;
}

Bytes stuffed(const Bytes& frame) {
    Bytes bytes(frame.begin(), frame.begin() + 2);
    for (const std::uint8_t byte : std::span(frame).subspan(2))
        bytes.insert(bytes.end(), byte == kStart ? 2 : 1, byte);
    return bytes;
}

// What is sent in normal mode comes from the call that always does so.
void send(const mensaje& message, bool crc8_mode) {
    mensaje sent = message;
    if (crc8_mode)
        enviar_mensaje_nenlace(&port, &sent, 1);
    else
        Tx_mensaje_zondar(&port, &sent);
    const Bytes frame = frame_of(message, crc8_mode);
    REQUIRE(wire.sendings == 1 && wire.sent == stuffed(frame));
    REQUIRE(sent.control == frame[1] && sent.comando == message.comando);
    REQUIRE(std::ranges::equal(std::span(sent.info).first(sent.longitud),
                               std::span(message.info).first(sent.longitud)));
    check_trace(1, kFrameSent);

    wire.incoming = wire.sent;
    mensaje received{};
    REQUIRE(recibir_mensaje_nenlace(&port, &received, kTimeoutArgument, message.secuencia) ==
            kReceived);
    REQUIRE(wire.incoming.size() <= (frame.back() == kStart ? 1 : 0));
    REQUIRE(received.comando == message.comando && received.longitud == message.longitud);
    REQUIRE(std::ranges::equal(received.cabecera, message.cabecera));
    REQUIRE(std::ranges::equal(std::span(received.info).first(received.longitud),
                               std::span(message.info).first(received.longitud)));
    check_trace(1, kFrameReceived);
}

mensaje message_of(Input& input, std::uint8_t control) {
    mensaje message{};
    message.comando = control & 0x0FU;
    message.secuencia = control >> 4U & 7U;
    input.copy(message.cabecera, std::size(message.cabecera));
    message.longitud = input.byte();
    input.copy(message.info, message.longitud);
    return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = "/tmp/link_level_fuzz." + std::to_string(getpid());
    Input input(data, size);
    const std::uint8_t flags = input.byte();
    nfisico_trace = nenlace_trace = (flags & 1U) != 0;
    zondar_pcap_path = (flags & 2U) != 0 ? path.c_str() : "";
    wire = {};
    if ((flags & 4U) != 0) {
        const std::uint8_t control = input.byte();
        send(message_of(input, control), (control & kCrc8Mode) != 0);
    } else {
        receive(input.bytes(input.size()), flags >> 3U & 7U, flags >> 6U);
    }
    return 0;
}
