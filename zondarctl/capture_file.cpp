#include "zondarctl/capture_file.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <tuple>
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

// A record of the trace file: the direction, then the record area up to the byte behind the
// checksum, which is the CRC in CRC8 mode only.
std::optional<CapturedFrame> traced_frame(Packet packet, std::int64_t time) {
    if (packet.size() < 1 + kInfoOffset + 2)
        return std::nullopt;
    const Packet area = packet.subspan(1);
    CapturedFrame captured{.time = time};
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
    std::uint32_t source, destination;
    std::uint16_t source_port, destination_port;
    std::uint32_t sequence;
    bool begins;         // SYN: its number counts as a byte
    std::size_t length;  // with its header
    Packet payload;
};

// From or to the port, by RFC 791 and RFC 9293; a fragment or a header that is cut is nothing.
std::optional<Segment> segment_in(Packet ip, std::uint16_t port) {
    constexpr std::size_t kSmallest = 20;
    constexpr std::uint8_t kTcp = 6;
    constexpr std::uint32_t kFragment = 0x3FFF;
    if (ip.size() < kSmallest || ip[0] >> 4U != 4 || ip[9] != kTcp ||
        (number_in(ip.subspan(6, 2)) & kFragment) != 0)
        return std::nullopt;
    const std::size_t ip_header = std::size_t{4} * (ip[0] & 0x0FU);
    const std::size_t total = std::min<std::size_t>(number_in(ip.subspan(2, 2)), ip.size());
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
    return Segment{.source = number_in(ip.subspan(12, 4)),
                   .destination = number_in(ip.subspan(16, 4)),
                   .source_port = source_port,
                   .destination_port = destination_port,
                   .sequence = number_in(tcp.subspan(4, 4)),
                   .begins = (tcp[13] & 0x02U) != 0,
                   .length = tcp.size(),
                   .payload = tcp.subspan(tcp_header)};
}

// One direction of a connection.
struct Flow {
    struct Part {
        std::int64_t time;
        Bytes bytes;
    };
    std::uint32_t first = 0;                   // the sequence number of its first byte
    std::map<std::uint32_t, Part> parts = {};  // by the distance from it
    Direction direction = Direction::unknown;
};

using FlowKey = std::tuple<std::uint32_t, std::uint16_t, std::uint32_t, std::uint16_t>;

void add_segment(std::map<FlowKey, std::vector<Flow>>& flows, const Segment& segment,
                 std::int64_t time, std::uint16_t port) {
    std::vector<Flow>& connections =
        flows[{segment.source, segment.source_port, segment.destination, segment.destination_port}];
    const std::uint32_t sequence = segment.sequence + (segment.begins ? 1 : 0);  // of its payload
    if (segment.begins || connections.empty()) {
        connections.push_back({.first = sequence,
                               .direction = segment.destination_port == port
                                                ? Direction::to_module
                                                : Direction::from_module});
    }
    Flow& flow = connections.back();
    const std::uint32_t distance = sequence - flow.first;
    constexpr std::uint32_t kBehind = 0x80000000;
    if (segment.payload.empty() || distance >= kBehind)
        return;
    Flow::Part& part = flow.parts[distance];
    if (part.bytes.size() < segment.payload.size())
        part = {time, {segment.payload.begin(), segment.payload.end()}};
}

// The bytes up to the first that is missing, without what was sent twice.
void add_frames_of(const Flow& flow, std::vector<CapturedFrame>& frames) {
    Bytes bytes;
    std::map<std::size_t, std::int64_t> times;
    for (const auto& [distance, part] : flow.parts) {
        if (distance > bytes.size())
            break;
        const std::size_t known = bytes.size() - distance;
        if (known >= part.bytes.size())
            continue;
        times.try_emplace(bytes.size(), part.time);
        bytes.insert(bytes.end(), part.bytes.begin() + static_cast<std::ptrdiff_t>(known),
                     part.bytes.end());
    }
    std::size_t position = 0;
    for (CapturedFrame& frame : frames_in(bytes)) {
        position += frame.frame.skipped;
        frame.time = std::prev(times.upper_bound(position))->second;
        frame.direction = flow.direction;
        position += frame.frame.length;
        frames.push_back(std::move(frame));
    }
}

// In a trace file of a master what it sent are the requests, in one of a module what it received.
// A conversation begins with a request.
void orient(std::vector<CapturedFrame>& frames) {
    if (frames.empty() || frames.front().direction == Direction::to_module)
        return;
    for (CapturedFrame& frame : frames)
        frame.direction =
            frame.direction == Direction::to_module ? Direction::from_module : Direction::to_module;
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

CapturedFrames read_capture(File file, std::uint16_t port) {
    constexpr int kTrace = 147;
    const Capture capture = open_capture(std::move(file));
    const bool trace = pcap_datalink(capture.get()) == kTrace;
    const LinkLayer* const layer = trace ? nullptr : &link_layer_of(capture.get());
    CapturedFrames captured;
    std::map<FlowKey, std::vector<Flow>> flows;
    pcap_pkthdr* header = nullptr;
    const unsigned char* data = nullptr;
    int result = 0;
    std::size_t kept = 0;
    while (kept <= kMostKept && (result = pcap_next_ex(capture.get(), &header, &data)) == 1) {
        const Packet packet(data, header->caplen);
        const std::int64_t time = microseconds(header->ts);
        if (trace) {
            kept += packet.size();
            if (std::optional<CapturedFrame> frame = traced_frame(packet, time))
                captured.frames.push_back(std::move(*frame));
        } else if (const auto segment = segment_in(ip_in(*layer, packet), port)) {
            kept += segment->length;
            add_segment(flows, *segment, time, port);
        }
    }
    if (result == PCAP_ERROR)
        captured.problem = fmt::format("the capture is broken: {}", pcap_geterr(capture.get()));
    if (kept > kMostKept)
        captured.problem = "the capture holds more than 8 MiB of the module: only these are read";
    if (trace)
        orient(captured.frames);
    for (const auto& [key, connections] : flows) {
        for (const Flow& flow : connections)
            add_frames_of(flow, captured.frames);
    }
    std::ranges::stable_sort(captured.frames, {}, &CapturedFrame::time);
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
