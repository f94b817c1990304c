// Frames of the protocol: the tests' own small codec.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>

#include "tests/support/bytes.h"

// A frame as it goes over the wire, its header bytes 0. `control` is the command, and besides as
// offset 1 of a frame is: 0x10 to 0x70 for a sequence number, 0x80 for CRC8 mode.
Bytes frame(std::uint8_t control, const Bytes& info = {});
// The same, info as in hex().
Bytes frame(std::uint8_t control, const std::convertible_to<std::string_view> auto& info) {
    return frame(control, hex(info));
}

// The info of an answer to `command`. Throws with the whole frame when it is anything else: another
// command or sequence, header bytes other than 0, a wrong length or checksum, a byte too much.
Bytes info_of(const Bytes& answer, std::uint8_t command);

// Sends a request and returns the answer's info. One that would end in a doubled byte, which
// swallows the next request, has another header byte 4.
Bytes ask(std::uint8_t command, const Bytes& info);
