// Appends frames to a capture file, as the daemon's writer does, for any number of threads and
// programs at a time: records stay whole, and one of them begins the file.
#pragma once

#include <cstdint>
#include <string>

namespace master {

// The frame at `trama` (265 bytes of a mensaje) with the time of day and its direction,
// kFrameReceived or kFrameSent. Creates the file when it is missing. A trace that cannot be written
// is no reason to disturb the protocol.
void append_to_trace(const std::string& path, const std::uint8_t* trama, unsigned direction);

}  // namespace master
