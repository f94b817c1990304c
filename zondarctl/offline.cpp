// Frames without a module: made from words, read from hexadecimal digits and capture files.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "link/link_level.h"
#include "master/frame.h"
#include "master/parameters.h"
#include "zondarctl/capture_file.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

struct Outcome {
    int result;
    const char* name;
    int status;
};

constexpr Outcome kOutcomes[] = {
    {kReceived, "valid", kDone},
    {kSequenceError, "valid", kDone},  // that is for its receiver to judge
    {kCodeError, "wrong checksum or CRC", kWrongCode},
    {kTimeout, "not complete", kNoAnswer},
};

const Outcome& outcome_of(const ReadFrame& frame) {
    return *std::ranges::find(kOutcomes, frame.result, &Outcome::result);
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
    object["state"] = outcome_of(captured.frame).name;
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
    const Outcome& outcome = outcome_of(captured.frame);
    const bool readable = outcome.status == kDone;
    const Meaning meaning =
        readable ? meaning_of(captured.frame.record) : Meaning{outcome.name, {}};
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
        report.fail(outcome.status, outcome.status == kWrongCode ? "code" : "answer",
                    fmt::format("a frame is {}", outcome.status == kWrongCode
                                                     ? "damaged: wrong checksum or CRC"
                                                     : outcome.name));
}

bool is_file(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

std::string text_of_stream(std::istream& stream) {
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string text_of_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw UsageError(fmt::format("{}: {}", path, std::strerror(errno)));
    return text_of_stream(file);
}

// What the words mean, read once: a pipe gives it no second time.
std::string content_of(const std::vector<std::string>& words) {
    if (words.empty() || (words.size() == 1 && words[0] == "-"))
        return text_of_stream(std::cin);
    if (words.size() == 1 && is_file(words[0]))
        return text_of_file(words[0]);
    return fmt::format("{}", fmt::join(words, " "));
}

CapturedFrames frames_of(const std::string& content, std::uint16_t port) {
    if (is_capture(content))
        return read_capture(content, port);
    const std::optional<Bytes> bytes = from_hex(content);
    if (!bytes)
        throw UsageError("neither hexadecimal digits nor a capture file");
    return {.frames = frames_in(*bytes)};
}

Request request_of(const std::vector<std::string>& words) {
    const Parameter* const parameter = find_parameter(words[0]);
    if (parameter == nullptr)
        return {.command = byte_of(words[0], 15, "command or parameter"),
                .info = bytes_of({words.begin() + 1, words.end()})};
    if (words.size() != 2)
        throw UsageError(fmt::format("{} takes one value", parameter->name));
    return write_request(*parameter, parsed_value(*parameter, words[1]));
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
    const CapturedFrames captured = frames_of(content_of(words), port);
    for (const CapturedFrame& frame : captured.frames)
        put_frame(report, frame);
    if (!captured.problem.empty())
        report.fail(kUsage, "usage", captured.problem);
    else if (captured.frames.empty())
        report.fail(kNoAnswer, "answer", "no frame");
    return report;
}

}  // namespace zondarctl
