// The frames of a capture file and what happened to their connections: a trace file of this
// project, or TCP as tcpdump records it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "master/bytes.h"
#include "master/frame.h"

namespace zondarctl {

enum class Direction : std::uint8_t { unknown, to_module, from_module };

struct Moment {
    std::size_t packet = 0;  // from 1; 0 outside of captures
    std::int64_t time = 0;   // microseconds since 1970; 0 when it is not known
};

struct CapturedFrame {
    Moment began = {};      // with its first byte
    Moment completed = {};  // with its last byte, and all before it; of one that is not complete
                            // with the last that came
    Direction direction = Direction::unknown;
    std::size_t connection = 0;
    master::Bytes bytes = {};  // as on the wire; of a trace file without stuffing, the info plain
    master::ReadFrame frame = {};
};

struct Endpoint {
    std::uint32_t address = 0;  // of IPv4
    std::uint16_t port = 0;

    bool operator<(const Endpoint& other) const {
        return std::pair(address, port) < std::pair(other.address, other.port);
    }
};

struct Connection {
    Endpoint master;
    Endpoint module;

    bool operator<(const Connection& other) const {
        return std::pair(master, module) < std::pair(other.master, other.module);
    }
};

// What happened on a connection. Within a packet in this order.
struct Event {
    enum class What : std::uint8_t {
        opened,      // SYN of the master
        accepted,    // SYN of the module
        came,        // bytes
        outside,     // bytes that belong to no frame
        frame,       // one is complete
        broken_off,  // a reception of a trace file, by time-out
        cut,         // the recording has not kept the packet whole
        ended,       // FIN
        reset,       // RST
    };
    What what;
    Moment moment;
    std::size_t connection;
    Direction direction;       // to_module is what the master does
    std::size_t frame = 0;     // which one is complete
    master::Bytes bytes = {};  // of a frame as on the wire, with those before it that belong to
                               // none; of an end those behind the last whole frame
    std::size_t count = 0;     // of the bytes outside
};

// Closed at its end as its second part says.
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// True for a capture file, by its first bytes, which are read again then.
bool is_capture(std::FILE* file);

struct Captured {
    std::vector<CapturedFrame> frames = {};  // in the order in which they began
    // Of a trace file two: one that the requests come on, one for the answers.
    std::vector<Connection> connections = {};
    std::vector<Event> events = {};  // in the order of the packets
    bool is_tcp = false;
    std::string problem = {};  // why there may be more; else empty
};

// In TCP the frames from and to `port`; in a trace file the direction of the first frame is that
// of the requests, whoever wrote it. The file may have any size; of the frames, or of the TCP with
// them, 8 MiB are read. Behind bytes that the capture does not have the search for frames begins
// anew. Throws a UsageError for a kind of network that is not known.
Captured read_capture(File file, std::uint16_t port);

// The frames in a run of bytes.
std::vector<CapturedFrame> frames_in(std::span<const std::uint8_t> bytes);

}  // namespace zondarctl
