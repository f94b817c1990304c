// A message record begins with the frame as it goes over the wire.
//
//   offset 0        1         2  3  4    5        6 ...      6+N        7+N
//        +--------+---------+----------+--------+----------+----------+----------+
//        | inicio | control | cabecera |longitud| info     | checksum | CRC-8    |
//        | 0xA5   |         | 3 bytes  | N      | N bytes  |          | CRC8 mode|
//        +--------+---------+----------+--------+----------+----------+----------+
//   control: bit 7 CRC8 mode, bits 6..4 sequence, bits 3..0 command
#pragma once

#include <cstddef>
#include <cstdint>

constexpr std::uint8_t kStartByte = 0xA5;
constexpr std::uint8_t kCrc8ModeBit = 0x80;
constexpr std::uint8_t kScramble = 0x55;  // XORed over each info byte in CRC8 mode

constexpr std::size_t kControlOffset = 1;
constexpr std::size_t kLengthOffset = 5;
constexpr std::size_t kInfoOffset = 6;
constexpr std::size_t kMaxInfo = 255;
constexpr std::size_t kMaxFrame = kInfoOffset + kMaxInfo + 2;

// Zero-filled by whoever creates it. The checksum and the CRC of a frame follow its last info
// byte, so those of a long frame run on into the fields behind `info`.
struct mensaje {
    std::uint8_t inicio;
    std::uint8_t control;
    std::uint8_t cabecera[3];  // carried and protected, never interpreted
    std::uint8_t longitud;     // N, number of info bytes
    std::uint8_t info[kMaxInfo];
    std::uint8_t checksum_rx;  // of the last received frame
    std::uint8_t crc8_rx;      // of the last received frame, CRC8 mode only
    std::uint8_t comando;      // 0..15, bits 3..0 of control
    std::uint8_t secuencia;    // 0..7, bits 6..4 of control
};

constexpr std::size_t kChecksumRxOffset = offsetof(mensaje, checksum_rx);
constexpr std::size_t kCrc8RxOffset = offsetof(mensaje, crc8_rx);

static_assert(sizeof(mensaje) == 265);
static_assert(offsetof(mensaje, longitud) == kLengthOffset);
static_assert(offsetof(mensaje, info) == kInfoOffset);
static_assert(kMaxFrame <= offsetof(mensaje, comando));

// Gives the record as bytes, 265 of them from `inicio` on. Frames are read and written through it
// alone: what runs over the end of `info` is then an ordinary byte access.
inline std::uint8_t* frame_area(mensaje& record) {
    return reinterpret_cast<std::uint8_t*>(&record);
}
inline const std::uint8_t* frame_area(const mensaje& record) {
    return reinterpret_cast<const std::uint8_t*>(&record);
}

// A port says which of several lines a message takes. Its number is handed to the transport, which
// has one line alone and ignores it.
struct tPuertoZondar {
    std::uint32_t numero;
};
