// Frames without a module: made from words, read from hexadecimal digits and capture files.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "link/link_level.h"
#include "master/frame.h"
#include "master/parameters.h"
#include "zondarctl/capture_file.h"
#include "zondarctl/commands.h"
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

std::string time_of(const CapturedFrame& captured) {
    if (captured.time == 0)
        return "";
    constexpr std::int64_t kSecond = 1000000;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(captured.time / kSecond),
                       captured.time % kSecond);
}

Json frame_json(const CapturedFrame& captured, const Meaning& meaning) {
    const mensaje& record = captured.frame.record;
    Json object;
    if (captured.time != 0)
        object["time"] = time_of(captured);
    if (captured.direction != Direction::unknown)
        object["direction"] = name_of(captured.direction);
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

void put_frame(Report& report, const CapturedFrame& captured) {
    const FrameState& state = state_of(captured.frame);
    const bool readable = state.status == kDone;
    const Meaning meaning = readable ? meaning_of(captured.frame.record) : Meaning{state.name, {}};
    report.data["frames"].push_back(frame_json(captured, meaning));

    const std::string time = time_of(captured);
    const char* const direction = name_of(captured.direction);
    report.line({fmt::format("{}{}{}{}{}", time, time.empty() ? "" : "  ", direction,
                             *direction == '\0' ? "" : "  ", meaning.text)},
                readable ? TextLine::Look::heading : TextLine::Look::alert);
    put_hex_lines(report, captured.bytes);
    for (const Item& item : meaning.items)
        report.line({"  " + item.name, shown(item)});
    if (!readable && !report.error)
        report.fail(state.status, state.status == kWrongCode ? "code" : "answer",
                    fmt::format("a frame is {}", state.status == kWrongCode
                                                     ? "damaged: wrong checksum or CRC"
                                                     : state.name));
}

std::string text_in(std::FILE* file, const std::string& name) {
    std::string text(kMostDigits + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    if (std::ferror(file) != 0)
        throw UsageError(fmt::format("{}: {}", name, std::strerror(errno)));
    if (text.size() > kMostDigits)
        throw UsageError(fmt::format("{}: no capture file, and more than 4 MiB of digits", name));
    return text;
}

CapturedFrames frames_of(const std::string& text) {
    const std::optional<Bytes> bytes = from_hex(text);
    if (!bytes)
        throw UsageError("neither hexadecimal digits nor a capture file");
    return {.frames = frames_in(*bytes)};
}

// Read once: a pipe gives it no second time.
CapturedFrames frames_of(File file, const std::string& name, std::uint16_t port) {
    return is_capture(file.get()) ? read_capture(std::move(file), port)
                                  : frames_of(text_in(file.get(), name));
}

// Whoever writes a slash or a full stop, or a single word that are no digits, means a file.
CapturedFrames frames_of(const Words& words, std::uint16_t port) {
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
    const CapturedFrames captured = frames_of(words, port);
    for (const CapturedFrame& frame : captured.frames)
        put_frame(report, frame);
    if (!captured.problem.empty())
        report.fail(kUsage, "usage", captured.problem);
    else if (captured.frames.empty())
        report.fail(kNoAnswer, "answer", "no frame");
    return report;
}

}  // namespace zondarctl
