#include "zondarctl/capture_file.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <utility>

#include "link/link_level.h"
#include "master/parameters.h"
#include "zondarctl/report.h"

namespace zondarctl {

namespace {

using Packet = std::span<const std::uint8_t>;
using Capture = std::unique_ptr<pcap_t, decltype(&pcap_close)>;

// What of it is looked at, in bytes.
constexpr std::size_t kMostKept = std::size_t{8} << 20U;

// Those that a file of a format begins with, of either byte order where it may have either.
constexpr std::array<std::array<unsigned char, 4>, 7> kBeginnings = {{
    {0xA1, 0xB2, 0xC3, 0xD4},
    {0xD4, 0xC3, 0xB2, 0xA1},
    {0xA1, 0xB2, 0x3C, 0x4D},  // with nanoseconds
    {0x4D, 0x3C, 0xB2, 0xA1},
    {0xA1, 0xB2, 0xCD, 0x34},  // with more in each record
    {0x34, 0xCD, 0xB2, 0xA1},
    {0x0A, 0x0D, 0x0D, 0x0A},  // pcapng
}};

Capture open_capture(File file) {
    std::array<char, PCAP_ERRBUF_SIZE> problem{};
    pcap_t* const handle = pcap_fopen_offline(file.get(), problem.data());
    if (handle == nullptr)
        throw UsageError(fmt::format("the capture is broken: {}", problem.data()));
    static_cast<void>(file.release());  // libpcap's from now on
    return {handle, pcap_close};
}

// 0 for a time that no capture was taken at.
std::int64_t microseconds(const timeval& time) {
    constexpr std::int64_t kSecond = 1000000;
    constexpr std::int64_t kYear10000 = 253402300800;
    if (time.tv_sec < 0 || time.tv_sec >= kYear10000)
        return 0;
    return std::max<std::int64_t>(time.tv_sec * kSecond + time.tv_usec, 0);
}

// True when the codes behind the info are those of the frame with this info, plain.
bool codes_fit(const mensaje& record, std::size_t length, bool crc8_mode) {
    const std::optional<ReadFrame> again = read_frame(wire_bytes(record, crc8_mode));
    const auto codes = [length](const mensaje& frame) {
        return Packet(frame_area(frame), length).subspan(kInfoOffset + frame.longitud);
    };
    return again && std::ranges::equal(codes(record), codes(again->record));
}

void scramble(mensaje& record) {
    for (std::uint8_t& byte : std::span(record.info, record.longitud))
        byte ^= kScramble;
}

// Doubles what the wire has twice.
Bytes stuffed(Packet frame) {
    constexpr std::size_t kNeverDoubled = 2;
    Bytes bytes(frame.begin(), frame.begin() + kNeverDoubled);
    for (const std::uint8_t byte : frame.subspan(kNeverDoubled))
        bytes.insert(bytes.end(), byte == kStartByte ? 2 : 1, byte);
    return bytes;
}

// A frame of a trace file, whose info is plain, as it went over the wire.
Bytes wire_form(CapturedFrame captured) {
    mensaje& record = captured.frame.record;
    if ((record.control & kCrc8ModeBit) != 0)
        scramble(record);
    return stuffed({frame_area(record), captured.frame.length});
}

// A record of the trace file: the direction, then the record area up to the byte behind the
// checksum, which is the CRC in CRC8 mode only.
std::optional<CapturedFrame> traced_frame(Packet packet, Moment moment) {
    if (packet.size() < 1 + kInfoOffset + 2)
        return std::nullopt;
    const Packet area = packet.subspan(1);
    CapturedFrame captured{.began = moment, .completed = moment};
    captured.direction = packet[0] == 0 ? Direction::from_module : Direction::to_module;
    std::memcpy(&captured.frame.record, area.data(), std::min(area.size(), sizeof(mensaje)));
    mensaje& record = captured.frame.record;
    record.comando = record.control & 0x0FU;
    record.secuencia = (record.control >> 4U) & 0x07U;
    const bool crc8_mode = (record.control & kCrc8ModeBit) != 0;
    const std::size_t length = kInfoOffset + record.longitud + (crc8_mode ? 2U : 1U);
    if (area.size() < length)
        return std::nullopt;
    captured.frame.length = length;
    captured.frame.result = kReceived;
    if (record.inicio != kStartByte) {
        captured.frame.result = kTimeout;  // what is written when nothing came
    } else if (!codes_fit(record, length, crc8_mode)) {
        captured.frame.result = kCodeError;
        // Of a frame with another sequence number the info is as on the wire.
        if (crc8_mode) {
            scramble(record);
            if (codes_fit(record, length, crc8_mode))
                captured.frame.result = kReceived;
            else
                scramble(record);
        }
    }
    const Packet bytes(frame_area(record), length);
    captured.bytes.assign(bytes.begin(), bytes.end());
    return captured;
}

// What a kind of network puts before an IPv4 header.
struct LinkLayer {
    int type;
    std::optional<std::size_t> protocol;  // where it names what it carries
    std::size_t network;                  // where that begins
};

// clang-format off
constexpr LinkLayer kLinkLayers[] = {
    {DLT_EN10MB, 12, 14},
    {DLT_LINUX_SLL, 14, 16},
    {DLT_LINUX_SLL2, 0, 20},
    {DLT_NULL, std::nullopt, 4},
    {DLT_LOOP, std::nullopt, 4},
    {DLT_RAW, std::nullopt, 0},
    {DLT_IPV4, std::nullopt, 0},
};
// clang-format on

const LinkLayer& link_layer_of(pcap_t* capture) {
    const int type = pcap_datalink(capture);
    const auto* const found = std::ranges::find(kLinkLayers, type, &LinkLayer::type);
    if (found == std::end(kLinkLayers))
        throw UsageError(fmt::format("a capture of another kind of network: link type {}", type));
    return *found;
}

// The packet from its IPv4 header on; empty for what has none. A tag of a virtual LAN may stand
// before it.
Packet ip_in(const LinkLayer& layer, Packet packet) {
    constexpr std::uint32_t kIpv4 = 0x0800;
    constexpr std::uint32_t kVlan = 0x8100;
    constexpr std::size_t kTagLength = 4;
    const auto carries = [&](std::uint32_t protocol, std::size_t behind) {
        const std::size_t at = *layer.protocol + behind;
        return packet.size() >= at + 2 && number_in(packet.subspan(at, 2)) == protocol;
    };
    std::size_t network = layer.network;
    if (layer.protocol) {
        const std::size_t tag = carries(kVlan, 0) ? kTagLength : 0;
        if (!carries(kIpv4, tag))
            return {};
        network += tag;
    }
    return packet.subspan(std::min(network, packet.size()));
}

struct Segment {
    Endpoint source, destination;
    std::uint32_t sequence;
    bool begins;         // SYN: its number counts as a byte
    bool ends;           // FIN
    bool resets;         // RST
    std::size_t length;  // with its header
    std::uint32_t sent;  // of its payload, whatever the capture has of it
    Packet payload;
};

// From or to the port, by RFC 791 and RFC 9293; a fragment or a header that is cut is nothing.
std::optional<Segment> segment_in(Packet ip, std::uint16_t port) {
    constexpr std::size_t kSmallest = 20;
    constexpr std::uint8_t kTcp = 6;
    constexpr std::uint32_t kFragment = 0x3FFF;
    constexpr std::uint8_t kFin = 0x01;
    constexpr std::uint8_t kSyn = 0x02;
    constexpr std::uint8_t kRst = 0x04;
    if (ip.size() < kSmallest || ip[0] >> 4U != 4 || ip[9] != kTcp ||
        (number_in(ip.subspan(6, 2)) & kFragment) != 0)
        return std::nullopt;
    const std::size_t ip_header = std::size_t{4} * (ip[0] & 0x0FU);
    const std::size_t announced = number_in(ip.subspan(2, 2));
    const std::size_t total = std::min(announced, ip.size());
    if (ip_header < kSmallest || total < ip_header + kSmallest)
        return std::nullopt;
    const Packet tcp = ip.subspan(ip_header, total - ip_header);
    const std::size_t tcp_header = std::size_t{4} * (tcp[12] >> 4U);
    if (tcp_header < kSmallest || tcp.size() < tcp_header)
        return std::nullopt;
    const auto source_port = static_cast<std::uint16_t>(number_in(tcp.first(2)));
    const auto destination_port = static_cast<std::uint16_t>(number_in(tcp.subspan(2, 2)));
    if (source_port != port && destination_port != port)
        return std::nullopt;
    const std::uint8_t flags = tcp[13];
    return Segment{.source = {number_in(ip.subspan(12, 4)), source_port},
                   .destination = {number_in(ip.subspan(16, 4)), destination_port},
                   .sequence = number_in(tcp.subspan(4, 4)),
                   .begins = (flags & kSyn) != 0,
                   .ends = (flags & kFin) != 0,
                   .resets = (flags & kRst) != 0,
                   .length = tcp.size(),
                   .sent = static_cast<std::uint32_t>(announced - ip_header - tcp_header),
                   .payload = tcp.subspan(tcp_header)};
}

// One direction of a connection.
struct Flow {
    struct Part {
        Moment moment;
        Bytes bytes;
    };
    struct Mark {
        Event::What what;
        Moment moment;
        std::uint32_t distance;
    };
    std::optional<std::uint32_t> first = {};   // the sequence number of its first byte
    std::map<std::uint32_t, Part> parts = {};  // by the distance from it
    std::vector<Mark> marks = {};
};

struct TcpConnection {
    Connection ends;
    Flow of_master = {};
    Flow of_module = {};
};

// A SYN with this number is not the one known, sent again.
bool begins_anew(const Flow& flow, std::uint32_t first) {
    const bool ended = std::ranges::any_of(
        flow.marks, [](const Flow::Mark& mark) { return mark.what >= Event::What::ended; });
    return flow.first && (*flow.first != first || !flow.parts.empty() || ended);
}

// Each byte keeps the moment at which it was sent first.
void add_bytes(Flow& flow, std::uint32_t distance, Packet payload, const Moment& moment) {
    while (!payload.empty()) {
        Flow::Part& part = flow.parts[distance];
        if (part.bytes.empty())
            part = {moment, {payload.begin(), payload.end()}};
        const std::size_t known = std::min(part.bytes.size(), payload.size());
        distance += static_cast<std::uint32_t>(known);
        payload = payload.subspan(known);
    }
}

void add_segment(Flow& flow, const Segment& segment, Event::What beginning, const Moment& moment) {
    const std::uint32_t sequence = segment.sequence + (segment.begins ? 1 : 0);  // of its payload
    if (!flow.first)
        flow.first = sequence;
    const std::uint32_t distance = sequence - *flow.first;
    if (segment.begins && flow.marks.empty())
        flow.marks.push_back({beginning, moment, 0});
    constexpr std::uint32_t kBehind = 0x80000000;
    if (distance < kBehind)
        add_bytes(flow, distance, segment.payload, moment);
    if (segment.sent > segment.payload.size())
        flow.marks.push_back({Event::What::cut, moment, distance});
    if (segment.ends)
        flow.marks.push_back({Event::What::ended, moment, distance + segment.sent});
    if (segment.resets)
        flow.marks.push_back({Event::What::reset, moment, distance});
}

class Connections {
  public:
    void add(const Segment& segment, std::uint16_t port, const Moment& moment) {
        // From a module's port to one the connection that is known tells, and else who sends first.
        const bool known = latest_.contains({segment.destination, segment.source});
        const bool by_master =
            segment.destination.port == port && (segment.source.port != port || !known);
        const Connection ends = by_master ? Connection{segment.source, segment.destination}
                                          : Connection{segment.destination, segment.source};
        const auto [latest, is_new] = latest_.try_emplace(ends, all_.size());
        Flow TcpConnection::*const side =
            by_master ? &TcpConnection::of_master : &TcpConnection::of_module;
        if (is_new) {
            all_.push_back({ends});
        } else if (segment.begins &&
                   begins_anew(all_[latest->second].*side, segment.sequence + 1)) {
            latest->second = all_.size();
            all_.push_back({ends});
        }
        add_segment(all_[latest->second].*side, segment,
                    by_master ? Event::What::opened : Event::What::accepted, moment);
    }

    [[nodiscard]] const std::vector<TcpConnection>& all() const { return all_; }

  private:
    std::map<Connection, std::size_t> latest_;  // of the same ends, by its index
    std::vector<TcpConnection> all_;
};

// Bytes without a hole.
struct Run {
    struct Origin {
        Moment sent;
        Moment arrived;  // with all before it
    };
    std::size_t begin;  // distance from the first byte of the flow
    Bytes bytes = {};
    std::map<std::size_t, Origin> origins = {};  // by the position of their first byte

    [[nodiscard]] std::size_t end() const { return begin + bytes.size(); }
    [[nodiscard]] const Origin& origin(std::size_t position) const {
        return std::prev(origins.upper_bound(position))->second;
    }
};

const Moment& later(const Moment& one, const Moment& other) {
    return one.packet < other.packet ? other : one;
}

// Without what was sent twice.
std::vector<Run> runs_of(const Flow& flow) {
    std::vector<Run> runs;
    for (const auto& [distance, part] : flow.parts) {
        if (runs.empty() || distance > runs.back().end())
            runs.push_back({.begin = distance});
        Run& run = runs.back();
        const std::size_t known = run.end() - distance;
        if (known >= part.bytes.size())
            continue;
        const Moment& before =
            run.origins.empty() ? part.moment : run.origins.rbegin()->second.arrived;
        run.origins[run.bytes.size()] = {part.moment, later(part.moment, before)};
        run.bytes.insert(run.bytes.end(), part.bytes.begin() + static_cast<std::ptrdiff_t>(known),
                         part.bytes.end());
    }
    return runs;
}

// The frames and events of one direction of a connection.
class FlowReader {
  public:
    FlowReader(Captured& captured, std::size_t connection, Direction direction)
        : captured_(captured), connection_(connection), direction_(direction) {}

    void read(const Flow& flow) {
        for (const Run& run : runs_of(flow))
            read(run);
        for (const Flow::Mark& mark : flow.marks)
            put_mark(mark);
    }

  private:
    Event& put(Event::What what, const Moment& moment) {
        captured_.events.push_back({what, moment, connection_, direction_});
        return captured_.events.back();
    }

    // One event for each packet that has some of them.
    void put_outside(const Run& run, std::size_t position, std::size_t end) {
        while (position < end) {
            const auto next = run.origins.upper_bound(position);
            const std::size_t stop = next == run.origins.end() ? end : std::min(next->first, end);
            put(Event::What::outside, run.origin(position).arrived).count = stop - position;
            position = stop;
        }
    }

    void read(const Run& run) {
        for (const auto& [position, origin] : run.origins)
            put(Event::What::came, origin.arrived);
        std::size_t position = 0;
        std::size_t whole = 0;  // up to where all frames are complete
        for (CapturedFrame& frame : frames_in(run.bytes)) {
            const std::size_t start = position + frame.frame.skipped;
            put_outside(run, position, start);
            position = start + frame.frame.length;
            frame.began = run.origin(start).sent;
            const std::size_t last = position - (frame.frame.ends_doubled ? 2 : 1);
            frame.completed = run.origin(last).arrived;
            frame.direction = direction_;
            frame.connection = connection_;
            if (frame.frame.result != kTimeout) {
                Event& event = put(Event::What::frame, frame.completed);
                event.frame = captured_.frames.size();
                event.bytes = bytes_of(run, whole, position);
                whole = position;
            }
            captured_.frames.push_back(std::move(frame));
        }
        put_outside(run, position, run.bytes.size());
        rest_ = bytes_of(run, whole, run.bytes.size());
        end_ = run.end();
        arrived_ = run.origins.rbegin()->second.arrived;
    }

    static Bytes bytes_of(const Run& run, std::size_t begin, std::size_t end) {
        const Packet bytes = Packet(run.bytes).subspan(begin, end - begin);
        return {bytes.begin(), bytes.end()};
    }

    // Behind a hole nobody knows what breaks off. The number of a reset may be any.
    void put_mark(const Flow::Mark& mark) {
        if (mark.what < Event::What::ended) {
            put(mark.what, mark.moment);
            return;
        }
        const bool by_reset = mark.what == Event::What::reset;
        Event& event = put(mark.what, by_reset ? mark.moment : later(mark.moment, arrived_));
        if (by_reset ? arrived_.packet <= mark.moment.packet : end_ == mark.distance)
            event.bytes = std::exchange(rest_, {});
    }

    Captured& captured_;
    std::size_t connection_;
    Direction direction_;
    Bytes rest_;           // of the last run, behind its last whole frame
    std::size_t end_ = 0;  // of the last run
    Moment arrived_;       // of its last byte
};

void put_connections(Captured& captured, const std::vector<TcpConnection>& all) {
    for (const TcpConnection& each : all) {
        const std::size_t index = captured.connections.size();
        captured.connections.push_back(each.ends);
        FlowReader(captured, index, Direction::to_module).read(each.of_master);
        FlowReader(captured, index, Direction::from_module).read(each.of_module);
    }
}

// In a trace file of a master what it sent are the requests, in one of a module what it received.
// A conversation begins with a request.
void orient(std::vector<CapturedFrame>& frames) {
    const auto first = std::ranges::find_if(
        frames, [](const CapturedFrame& each) { return each.frame.result != kTimeout; });
    const bool turned = first != frames.end() && first->direction == Direction::from_module;
    for (CapturedFrame& frame : frames) {
        if (turned)
            frame.direction = frame.direction == Direction::to_module ? Direction::from_module
                                                                      : Direction::to_module;
        frame.connection = frame.direction == Direction::to_module ? 0 : 1;
    }
}

void put_traced(Captured& captured) {
    orient(captured.frames);
    captured.connections.resize(2);
    for (std::size_t i = 0; i < captured.frames.size(); ++i) {
        const CapturedFrame& frame = captured.frames[i];
        const bool whole = frame.frame.result != kTimeout;
        captured.events.push_back({.what = whole ? Event::What::frame : Event::What::broken_off,
                                   .moment = frame.completed,
                                   .connection = frame.connection,
                                   .direction = frame.direction,
                                   .frame = i,
                                   .bytes = whole ? wire_form(frame) : Bytes()});
    }
}

// The frames in the order in which they began, the events in that of the packets.
void put_in_order(Captured& captured) {
    std::vector<std::size_t> order(captured.frames.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::stable_sort(order, {},
                             [&](std::size_t i) { return captured.frames[i].began.packet; });
    std::vector<CapturedFrame> frames;
    std::vector<std::size_t> place(order.size());
    for (const std::size_t i : order) {
        place[i] = frames.size();
        frames.push_back(std::move(captured.frames[i]));
    }
    captured.frames = std::move(frames);
    for (Event& event : captured.events) {
        if (event.what == Event::What::frame)
            event.frame = place[event.frame];
    }
    std::ranges::stable_sort(captured.events, {}, [](const Event& event) {
        return std::pair(event.moment.packet, event.what);
    });
}

}  // namespace

// The C library takes back as many bytes as it has just given.
bool is_capture(std::FILE* file) {
    std::array<unsigned char, 4> first{};
    std::size_t count = std::fread(first.data(), 1, first.size(), file);
    const bool is =
        count == first.size() && std::ranges::find(kBeginnings, first) != std::end(kBeginnings);
    while (count > 0)
        std::ungetc(first[--count], file);
    return is;
}

Captured read_capture(File file, std::uint16_t port) {
    constexpr int kTrace = 147;
    const Capture capture = open_capture(std::move(file));
    const bool trace = pcap_datalink(capture.get()) == kTrace;
    const LinkLayer* const layer = trace ? nullptr : &link_layer_of(capture.get());
    Captured captured{.is_tcp = !trace};
    Connections connections;
    pcap_pkthdr* header = nullptr;
    const unsigned char* data = nullptr;
    int result = 0;
    std::size_t kept = 0;
    Moment moment;
    while (kept <= kMostKept && (result = pcap_next_ex(capture.get(), &header, &data)) == 1) {
        const Packet packet(data, header->caplen);
        moment = {moment.packet + 1, microseconds(header->ts)};
        if (trace) {
            kept += packet.size();
            if (std::optional<CapturedFrame> frame = traced_frame(packet, moment))
                captured.frames.push_back(std::move(*frame));
        } else if (const auto segment = segment_in(ip_in(*layer, packet), port)) {
            kept += segment->length;
            connections.add(*segment, port, moment);
        }
    }
    if (result == PCAP_ERROR)
        captured.problem = fmt::format("the capture is broken: {}", pcap_geterr(capture.get()));
    if (kept > kMostKept)
        captured.problem = "the capture holds more than 8 MiB of the module: only these are read";
    if (trace)
        put_traced(captured);
    else
        put_connections(captured, connections.all());
    put_in_order(captured);
    return captured;
}

std::vector<CapturedFrame> frames_in(std::span<const std::uint8_t> bytes) {
    std::vector<CapturedFrame> frames;
    while (std::optional<ReadFrame> frame = read_frame(bytes)) {
        const auto of_frame = bytes.subspan(frame->skipped, frame->length);
        bytes = bytes.subspan(frame->skipped + frame->length);
        frames.push_back({.bytes = {of_frame.begin(), of_frame.end()}, .frame = *frame});
    }
    return frames;
}

}  // namespace zondarctl
