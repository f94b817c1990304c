// The headers of a capture file that protocol analysers read: classic pcap, link type 147.
//
// They are written in the host's byte order; the magic number tells a reader which one. Format:
// https://www.tcpdump.org/manpages/pcap-savefile.5.html
#pragma once

#include <sys/time.h>

#include <cstdint>

#include "link/mensaje.h"

// What a file begins with.
struct TraceFileHeader {
    std::uint32_t magic = 0xA1B2C3D4;
    std::uint16_t major = 2;
    std::uint16_t minor = 4;
    std::uint32_t zone = 0;
    std::uint32_t accuracy = 0;
    std::uint32_t snapshot = 0;  // readers take 0 as unlimited
    std::uint32_t link_type = 147;
};
static_assert(sizeof(TraceFileHeader) == 24);

// What stands in front of a direction byte and a frame.
struct TraceRecordHeader {
    std::uint32_t seconds;
    std::uint32_t microseconds;
    std::uint32_t captured;
    std::uint32_t on_the_wire;
};
static_assert(sizeof(TraceRecordHeader) == 16);

// How much of the 265 bytes of a mensaje is written: the byte behind the checksum, too, in any
// mode.
inline std::uint32_t traced_length(const std::uint8_t* trama) {
    return trama[kLengthOffset] + 8U;
}

inline TraceRecordHeader trace_record_header(const std::uint8_t* trama, const timeval& time) {
    const std::uint32_t length = traced_length(trama) + 1;
    return {static_cast<std::uint32_t>(time.tv_sec), static_cast<std::uint32_t>(time.tv_usec),
            length, length};
}
