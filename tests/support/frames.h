// Frames of the protocol in normal mode, for sweeps over many requests: the tests' own small codec.
#pragma once

#include <cstdint>

#include "tests/support/bytes.h"

// The request of a command as it goes over the wire: sequence 0, header bytes 0. A frame that would
// end in a doubled byte, which swallows the next request, has another header byte 4.
Bytes frame(std::uint8_t command, const Bytes& info);

// The info of an answer to `command`. Throws with the whole frame when it is anything else: another
// command or sequence, a wrong length or checksum, a byte too much.
Bytes info_of(const Bytes& answer, std::uint8_t command);

// Sends the request and returns the answer's info.
Bytes ask(std::uint8_t command, const Bytes& info);
