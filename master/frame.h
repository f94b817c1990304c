// Frames as a master makes and reads them, by the codec of link/.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "link/mensaje.h"
#include "master/bytes.h"

namespace master {

// The record of a request, its header bytes chosen so that no code byte of its frame is A5: the
// module would take the second of the two for the start of the next frame. `info` is cut to 255
// bytes, the sequence number to 0..7.
mensaje request_record(std::uint8_t command, std::span<const std::uint8_t> info, bool crc8_mode,
                       std::uint8_t sequence = 0);

// The record's frame as it goes over the wire.
Bytes wire_bytes(const mensaje& record, bool crc8_mode);

struct ReadFrame {
    mensaje record{};
    int result = 0;           // of link/link_level.h; kTimeout for a frame that is not complete
    std::size_t skipped = 0;  // bytes before its start
    std::size_t length = 0;   // bytes on the wire, from its start on
    bool ends_doubled =
        false;  // its last byte is there twice: it is complete with the first of them
};

// The first frame in `bytes`; nothing when no start byte is among them. Of a frame with another
// sequence number than 0 the info is plain all the same.
std::optional<ReadFrame> read_frame(std::span<const std::uint8_t> bytes);

struct WrongCodes {
    bool checksum;
    bool crc;
};

// Which ones are, of a frame that was read with kCodeError from bytes as they go over the wire.
WrongCodes wrong_codes(const mensaje& record);

}  // namespace master
