// The frames of a capture file: a trace file of this project, or TCP as tcpdump records it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "master/bytes.h"
#include "master/frame.h"

namespace zondarctl {

enum class Direction : std::uint8_t { unknown, to_module, from_module };

struct CapturedFrame {
    std::int64_t time = 0;  // microseconds since 1970; 0 when it is not known
    Direction direction = Direction::unknown;
    master::Bytes bytes = {};  // as on the wire; of a trace file without stuffing, the info plain
    master::ReadFrame frame = {};
};

// True for the content of a capture file.
bool is_capture(const std::string& content);

struct CapturedFrames {
    std::vector<CapturedFrame> frames = {};  // in the order in which they began
    std::string problem = {};                // why there may be more; else empty
};

// In TCP the frames from and to `port`; in a trace file the direction of the first record is that
// of the requests, whoever wrote it. Throws a UsageError for a kind of network that is not known.
CapturedFrames read_capture(const std::string& content, std::uint16_t port);

// The frames in a run of bytes.
std::vector<CapturedFrame> frames_in(std::span<const std::uint8_t> bytes);

}  // namespace zondarctl
