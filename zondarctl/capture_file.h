// The frames of a capture file: a trace file of this project, or TCP as tcpdump records it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
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

// Closed at its end as its second part says.
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// True for a capture file, by its first bytes, which are read again then.
bool is_capture(std::FILE* file);

struct CapturedFrames {
    std::vector<CapturedFrame> frames = {};  // in the order in which they began
    std::string problem = {};                // why there may be more; else empty
};

// In TCP the frames from and to `port`; in a trace file the direction of the first record is that
// of the requests, whoever wrote it. The file may have any size; of the frames, or of the TCP with
// them, 8 MiB are read. Throws a UsageError for a kind of network that is not known.
CapturedFrames read_capture(File file, std::uint16_t port);

// The frames in a run of bytes.
std::vector<CapturedFrame> frames_in(std::span<const std::uint8_t> bytes);

}  // namespace zondarctl
