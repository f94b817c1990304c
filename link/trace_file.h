// Appends frames to a capture file that protocol analysers read: classic pcap, link type 147.
#pragma once

#include <cstdint>

constexpr unsigned kFrameReceived = 0;
constexpr unsigned kFrameSent = 1;

// Names the trace file, and is not owned. Without a name there is no trace. No option sets it.
extern const char* zondar_pcap_path;

// Appends the frame at `trama` (265 bytes of a mensaje) with the time of day and its direction,
// kFrameReceived or kFrameSent. Creates the file when it is missing. The byte behind the
// checksum is always written, also in normal mode.
void write_zondar_msg_to_pcap(const std::uint8_t* trama, unsigned direction);
