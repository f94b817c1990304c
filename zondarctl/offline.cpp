// Frames without a module: made from words, read from hexadecimal digits and capture files.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "link/link_level.h"
#include "master/frame.h"
#include "master/parameters.h"
#include "zondarctl/capture_file.h"
#include "zondarctl/commands.h"
#include "zondarctl/conversation.h"
#include "zondarctl/parameter_report.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

constexpr std::size_t kMostDigits = std::size_t{4} << 20U;

struct FrameState {
    int result;
    const char* name;
    int status;
};

constexpr FrameState kFrameStates[] = {
    {kReceived, "valid", kDone},
    {kSequenceError, "valid", kDone},  // that is for its receiver to judge
    {kCodeError, "wrong checksum or CRC", kWrongCode},
    {kTimeout, "not complete", kNoAnswer},
};

const FrameState& state_of(const ReadFrame& frame) {
    return *std::ranges::find(kFrameStates, frame.result, &FrameState::result);
}

const char* name_of(Direction direction) {
    switch (direction) {
        case Direction::to_module:
            return "to the module";
        case Direction::from_module:
            return "from the module";
        case Direction::unknown:
            break;
    }
    return "";
}

std::string text_of(std::int64_t time) {
    if (time == 0)
        return "";
    constexpr std::int64_t kSecond = 1000000;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(time / kSecond), time % kSecond);
}

std::string text_of(const Endpoint& end) {
    return fmt::format("{}.{}.{}.{}:{}", end.address >> 24U, end.address >> 16U & 0xFFU,
                       end.address >> 8U & 0xFFU, end.address & 0xFFU, end.port);
}

const protocol::FindingText& row_of(protocol::Finding what) {
    return protocol::kFindings[static_cast<std::size_t>(what)];
}

std::string text_of(const Found& found) {
    std::string text = row_of(found.what).text;
    if (!found.detail.empty())
        text += ": " + found.detail;
    if (found.parameter != nullptr)
        text += fmt::format(": {} is {}, not {}", found.parameter->name,
                            shown(item_of(*found.parameter, found.read)),
                            shown(item_of(*found.parameter, found.written)));
    return text;
}

Json finding_json(const Found& found) {
    const protocol::FindingText& row = row_of(found.what);
    Json object = {{"name", row.name},
                   {"severity", protocol::kSeverityNames[static_cast<std::size_t>(row.severity)]},
                   {"packet", found.of.packet},
                   {"found_in", found.found_in.packet},
                   {"text", printable(text_of(found))}};
    if (found.parameter != nullptr) {
        object["parameter"] = found.parameter->name;
        put_item(object, "written", item_of(*found.parameter, found.written));
        put_item(object, "read", item_of(*found.parameter, found.read));
    }
    return object;
}

Meaning meaning_of(const CapturedFrame& captured) {
    if (state_of(captured.frame).status != kDone)
        return {state_of(captured.frame).name, {}};
    constexpr Half kHalves[] = {Half::unknown, Half::request, Half::answer};  // by Direction
    return master::meaning_of(captured.frame.record,
                              kHalves[static_cast<std::size_t>(captured.direction)]);
}

// A line for people about what happened in a packet.
std::string heading(const Moment& moment, Direction direction, const std::string& what) {
    std::vector<std::string> parts = {text_of(moment.time)};
    if (moment.packet != 0)
        parts.push_back(fmt::format("packet {}", moment.packet));
    parts.insert(parts.end(), {name_of(direction), what});
    std::erase(parts, "");
    return fmt::format("{}", fmt::join(parts, "  "));
}

TextLine::Look look_of(const Found& found) {
    return row_of(found.what).severity == protocol::Severity::note ? TextLine::Look::plain
                                                                   : TextLine::Look::alert;
}

// Reports frames and what was found of them.
class Teller {
  public:
    Teller(Report& report, const Captured& captured)
        : report_(report), captured_(captured), told_(conversation_of(captured)) {}

    void tell() {
        auto next = told_.findings.begin();
        const auto tell_connections = [&](std::size_t packet) {
            for (; next != told_.findings.end() && next->of.packet < packet; ++next) {
                if (!next->frame)
                    report_.line({heading(next->of, next->direction, printable(text_of(*next)))},
                                 look_of(*next));
            }
        };
        for (std::size_t i = 0; i < captured_.frames.size(); ++i) {
            tell_connections(captured_.frames[i].completed.packet);
            tell(i);
        }
        tell_connections(std::numeric_limits<std::size_t>::max());
        if (captured_.connections.empty())
            return;
        report_.data["findings"] = Json::array();
        for (const Found& found : told_.findings)
            report_.data["findings"].push_back(finding_json(found));
    }

  private:
    void tell(std::size_t index) {
        const CapturedFrame& captured = captured_.frames[index];
        const FrameState& state = state_of(captured.frame);
        const bool readable = state.status == kDone;
        const Meaning meaning = zondarctl::meaning_of(captured);
        report_.data["frames"].push_back(frame_json(index, meaning));
        report_.line({heading({captured.completed.packet, captured.began.time}, captured.direction,
                              meaning.text)},
                     readable ? TextLine::Look::heading : TextLine::Look::alert);
        put_hex_lines(report_, captured.bytes);
        for (const Item& item : meaning.items)
            report_.line({"  " + item.name, shown(item)});
        tell_partner(index);
        const std::size_t packet = captured.completed.packet;
        auto found = std::ranges::lower_bound(told_.findings, packet, {},
                                              [](const Found& each) { return each.of.packet; });
        for (; found != told_.findings.end() && found->of.packet == packet; ++found) {
            if (found->frame == index)
                tell_below(*found);
        }
        if (!readable && !report_.error)
            report_.fail(state.status, state.status == kWrongCode ? "code" : "answer",
                         fmt::format("a frame is {}", state.status == kWrongCode
                                                          ? "damaged: wrong checksum or CRC"
                                                          : state.name));
    }

    void tell_below(const Found& found) {
        std::string text = "  ! " + printable(text_of(found));
        if (found.found_in.packet != found.of.packet)
            text += fmt::format(" (packet {})", found.found_in.packet);
        report_.line({text}, look_of(found));
    }

    void tell_partner(std::size_t index) {
        const Partner& partner = told_.partners[index];
        if (!partner.frame)
            return;
        const char* const does = is_request(index) ? "answered by" : "answers";
        std::string text =
            fmt::format("  {} packet {}", does, captured_.frames[*partner.frame].completed.packet);
        if (const auto time = response_time(index, *partner.frame))
            text += fmt::format(", in {:.3f} ms", static_cast<double>(*time) / 1000);
        report_.line({text});
    }

    [[nodiscard]] bool is_request(std::size_t index) const {
        return captured_.frames[index].direction == Direction::to_module;
    }

    // In microseconds. The times of a trace file are those of its writer.
    [[nodiscard]] std::optional<std::int64_t> response_time(std::size_t one,
                                                            std::size_t other) const {
        const std::int64_t asked = captured_.frames[is_request(one) ? one : other].completed.time;
        const std::int64_t answered =
            captured_.frames[is_request(one) ? other : one].completed.time;
        if (!captured_.is_tcp || asked == 0 || answered == 0)
            return std::nullopt;
        return answered - asked;
    }

    [[nodiscard]] Json frame_json(std::size_t index, const Meaning& meaning) const {
        const CapturedFrame& captured = captured_.frames[index];
        const mensaje& record = captured.frame.record;
        Json object;
        if (captured.began.time != 0)
            object["time"] = text_of(captured.began.time);
        if (captured.direction != Direction::unknown)
            object["direction"] = name_of(captured.direction);
        put_place(object, index);
        object["frame"] = hex_digits(captured.bytes);
        object["state"] = state_of(captured.frame).name;
        object["skipped"] = captured.frame.skipped;
        if (captured.frame.result == kTimeout)
            return object;
        object["command"] = record.control & 0x0FU;
        object["sequence"] = record.control >> 4U & 0x07U;
        object["crc8"] = (record.control & kCrc8ModeBit) != 0;
        object["header"] = hex_digits(record.cabecera);
        object["length"] = record.longitud;
        object["info"] = hex_digits(std::span(record.info, record.longitud));
        if (captured.frame.result != kCodeError) {
            object["meaning"] = meaning.text;
            object["items"] = to_json(meaning.items);
        }
        return object;
    }

    // Its packet, its connection, and what it has to do with others.
    void put_place(Json& object, std::size_t index) const {
        const CapturedFrame& captured = captured_.frames[index];
        if (captured.completed.packet == 0)
            return;
        object["packet"] = captured.completed.packet;
        if (captured_.is_tcp) {
            const Connection& connection = captured_.connections[captured.connection];
            object["master"] = text_of(connection.master);
            object["module"] = text_of(connection.module);
        }
        const Partner& partner = told_.partners[index];
        if (partner.frame) {
            object[is_request(index) ? "answer_in" : "request_in"] =
                captured_.frames[*partner.frame].completed.packet;
            if (const auto time = response_time(index, *partner.frame))
                object["response_us"] = *time;
        }
        if (partner.no_answer)
            object["no_answer"] = row_of(*partner.no_answer).name;
    }

    Report& report_;
    const Captured& captured_;
    Conversation told_;
};

std::string text_in(std::FILE* file, const std::string& name) {
    std::string text(kMostDigits + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    if (std::ferror(file) != 0)
        throw UsageError(fmt::format("{}: {}", name, std::strerror(errno)));
    if (text.size() > kMostDigits)
        throw UsageError(fmt::format("{}: no capture file, and more than 4 MiB of digits", name));
    return text;
}

Captured frames_of(const std::string& text) {
    const std::optional<Bytes> bytes = from_hex(text);
    if (!bytes)
        throw UsageError("neither hexadecimal digits nor a capture file");
    return {.frames = frames_in(*bytes)};
}

// Read once: a pipe gives it no second time.
Captured frames_of(File file, const std::string& name, std::uint16_t port) {
    return is_capture(file.get()) ? read_capture(std::move(file), port)
                                  : frames_of(text_in(file.get(), name));
}

// Whoever writes a slash or a full stop, or a single word that are no digits, means a file.
Captured frames_of(const Words& words, std::uint16_t port) {
    if (words.empty() || (words.size() == 1 && words[0] == "-"))
        return frames_of({stdin, [](std::FILE* /*file*/) { return 0; }}, "standard input", port);
    const std::string text = fmt::format("{}", fmt::join(words, " "));
    const bool has_blanks = text.find_first_of(" \n\t") != std::string::npos;
    const bool is_path = words.size() == 1 && (text.find_first_of("./") != std::string::npos ||
                                               (!has_blanks && !from_hex(text)) || is_file(text));
    if (!is_path)
        return frames_of(text);
    File file(std::fopen(text.c_str(), "rbe"), std::fclose);
    if (file == nullptr)
        throw UsageError(fmt::format("{}: {}", text, std::strerror(errno)));
    return frames_of(std::move(file), text, port);
}

Request request_of(const std::vector<std::string>& words) {
    const bool is_name =
        !words[0].empty() && std::isalpha(static_cast<unsigned char>(words[0][0])) != 0;
    if (!is_name)
        return {.command = byte_of(words[0], 15, "command or parameter"),
                .info = bytes_of({words.begin() + 1, words.end()})};
    const Parameter& parameter = known_parameter(words[0]);
    if (words.size() != 2)
        throw UsageError(fmt::format("{} takes one value", parameter.name));
    return write_request(parameter, parsed_value(parameter, words[1]));
}

}  // namespace

Report encode(const std::vector<std::string>& words, bool crc8_mode, unsigned sequence) {
    const Request request = request_of(words);
    const mensaje record = request_record(request.command, request.info, crc8_mode,
                                          static_cast<std::uint8_t>(sequence));
    const Bytes frame = wire_bytes(record, crc8_mode);
    Report report{.data = {{"frame", hex_digits(frame)}}};
    report.line({hex_digits(frame)});
    return report;
}

Report decode(const std::vector<std::string>& words, std::uint16_t port) {
    Report report{.data = {{"frames", Json::array()}}};
    const Captured captured = frames_of(words, port);
    Teller(report, captured).tell();
    if (!captured.problem.empty())
        report.fail(kUsage, "usage", captured.problem);
    else if (captured.frames.empty())
        report.fail(kNoAnswer, "answer", "no frame");
    return report;
}

}  // namespace zondarctl
