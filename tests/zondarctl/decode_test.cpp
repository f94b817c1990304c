// `decode`: frames from words, standard input, files, trace files and TCP captures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>

#include "link/link_level.h"
#include "master/trace_file.h"
#include "master/wire.h"
#include "tests/support/files.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"
#include "zondarctl/commands.h"

namespace zondarctl {

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

using Texts = std::vector<std::string>;

const std::string kIdentify = "A5 04 00 00 00 00 FC";
const std::string kStatus = "A5 00 00 00 00 00 00";
const std::string kWritten = "A5 03 00 00 00 00 FD";

// What JSON says of each frame, but for its items: "to the module: A5 ... valid, request: status".
std::string summary(const Json& frame) {
    std::string text = frame.contains("direction") ? frame["direction"].get<std::string>() : "?";
    text += ": " + frame["frame"].get<std::string>() + " " + frame["state"].get<std::string>();
    if (frame["skipped"] != 0)
        text += ", " + frame["skipped"].dump() + " skipped";
    if (frame.contains("meaning"))
        text += ", " + frame["meaning"].get<std::string>();
    return text;
}

Texts summaries(const Json& frames) {
    Texts all;
    for (const Json& frame : frames)
        all.push_back(summary(frame));
    return all;
}

struct Decoded {
    int status;
    Texts frames;
    std::string error;

    bool operator==(const Decoded&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Decoded& decoded) {
    stream << decoded.status << " '" << decoded.error << "'";
    for (const std::string& frame : decoded.frames)
        stream << "\n    " << frame;
    return stream;
}

Decoded decoded(std::vector<std::string> words, const std::string& input = "") {
    words.insert(words.begin(), {"--json", "decode"});
    const ProgramRun run = run_zondarctl(words, input);
    const Json answer = Json::parse(run.out);
    EXPECT_EQ(answer["ok"], run.status == 0);
    EXPECT_EQ(answer["target"], nullptr);
    const Texts frames =
        answer["data"].contains("frames") ? summaries(answer["data"]["frames"]) : Texts();
    return {run.status, frames, run.err};
}

const std::string kDamaged = "zondarctl: a frame is damaged: wrong checksum or CRC\n";
const std::string kIncomplete = "zondarctl: a frame is not complete\n";
const std::string kNoFrame = "zondarctl: no frame\n";
const std::string kUnreadable = "zondarctl: neither hexadecimal digits nor a capture file\n";

struct Hexadecimal {
    const char* digits;
    Decoded wanted;
};

const Hexadecimal kHexadecimal[] = {
    {"A5 04 00 00 00 00 FC", {0, {"?: A5 04 00 00 00 00 FC valid, request: identification"}, ""}},
    {"a5040000 0000fc\n", {0, {"?: A5 04 00 00 00 00 FC valid, request: identification"}, ""}},
    // Several in a row, with bytes in between that belong to none.
    {"00 11 A5 00 00 00 00 00 00 22 A5 03 00 00 00 00 FD 33",
     {0,
      {"?: A5 00 00 00 00 00 00 valid, 2 skipped, request: status",
       "?: A5 03 00 00 00 00 FD valid, 1 skipped, answer: written or not"},
      ""}},
    {"A5 84 00 00 00 00 7C D4",
     {0, {"?: A5 84 00 00 00 00 7C D4 valid, request: identification"}, ""}},
    // With another sequence number, also in CRC8 mode with its info scrambled.
    {"A5 14 00 00 00 00 EC", {0, {"?: A5 14 00 00 00 00 EC valid, request: identification"}, ""}},
    {"A5 D3 00 00 00 02 57 61 73 81",
     {0,
      {"?: A5 D3 00 00 00 02 57 61 73 81 valid, request: write, sub-command 2 Brillo ch1."},
      ""}},
    // Doubled bytes: in the info, as the checksum.
    {"A5 03 00 00 00 02 02 A5 A5 54",
     {0,
      {"?: A5 03 00 00 00 02 02 A5 A5 54 valid, request: write, sub-command 2 Brillo ch1."},
      ""}},
    {"A5 03 00 00 00 02 02 54 A5 A5 A5 04 00 00 00 00 FC",
     {0,
      {"?: A5 03 00 00 00 02 02 54 A5 A5 valid, request: write, sub-command 2 Brillo ch1.",
       "?: A5 04 00 00 00 00 FC valid, request: identification"},
      ""}},
    {"A5 04 00 00 00 00 FD", {5, {"?: A5 04 00 00 00 00 FD wrong checksum or CRC"}, kDamaged}},
    {"A5 84 00 00 00 00 7C D5",
     {5, {"?: A5 84 00 00 00 00 7C D5 wrong checksum or CRC"}, kDamaged}},
    {"A5 84 00 00 00 00 7D D4",
     {5, {"?: A5 84 00 00 00 00 7D D4 wrong checksum or CRC"}, kDamaged}},
    {"A5 04 00 00 00 05 FC 01", {4, {"?: A5 04 00 00 00 05 FC 01 not complete"}, kIncomplete}},
    {"A5", {4, {"?: A5 not complete"}, kIncomplete}},
    // The first failure is the one that is told, and does not keep the others from being shown.
    {"A5 04 00 00 00 00 FD A5 00 00 00 00 00 00 A5 04",
     {5,
      {"?: A5 04 00 00 00 00 FD wrong checksum or CRC",
       "?: A5 00 00 00 00 00 00 valid, request: status", "?: A5 04 not complete"},
      kDamaged}},
    {"00 11 22", {4, {}, kNoFrame}},
    {"A5 04 00 00 00 00 F", {2, {}, kUnreadable}},
    {"A5 0 400", {2, {}, kUnreadable}},
    {"A5 - 04", {2, {}, kUnreadable}},
    {"x yz", {2, {}, kUnreadable}},
};

TEST(Decode, ReadsHexadecimalDigits) {
    for (const Hexadecimal& each : kHexadecimal) {
        SCOPED_TRACE(each.digits);
        EXPECT_EQ(decoded({each.digits}), each.wanted);
    }
    EXPECT_EQ(decoded({"A504", "0000", "00", "00FC"}),
              (Decoded{0, {"?: A5 04 00 00 00 00 FC valid, request: identification"}, ""}));
    EXPECT_EQ(decoded({}, ""), (Decoded{4, {}, kNoFrame}));
    EXPECT_EQ(decoded({"0xA504,0000,0000", "0xFC"}),
              (Decoded{0, {"?: A5 04 00 00 00 00 FC valid, request: identification"}, ""}));
}

TEST(Decode, ReadsThemFromStandardInputAndFiles) {
    for (const Hexadecimal& each : {kHexadecimal[2], kHexadecimal[8], std::end(kHexadecimal)[-1]}) {
        SCOPED_TRACE(each.digits);
        EXPECT_EQ(decoded({}, each.digits), each.wanted);
        EXPECT_EQ(decoded({"-"}, each.digits), each.wanted);
        write_file("/tmp/frames.hex", each.digits);
        EXPECT_EQ(decoded({"/tmp/frames.hex"}), each.wanted);
    }
}

TEST(Decode, ReadsWhatCanBeReadOnlyOnce) {
    const ProgramRun run =
        run_program({"/bin/bash", "-c",
                     zondarctl_path() + " decode <(echo " + kIdentify + "); " + zondarctl_path() +
                         " decode < <(echo " + kStatus + ")"});
    EXPECT_EQ(run.out, "request: identification\n" + kIdentify + "\n" +  //
                           "request: status\n" + kStatus + "\n");
    EXPECT_EQ(run.err, "");
}

TEST(Decode, SaysThatAFileCannotBeRead) {
    const std::pair<const char*, const char*> cases[] = {
        {"/tmp", "Is a directory"},
        {"/tmp/none.pcap", "No such file or directory"},
        {"none.pcap", "No such file or directory"},
        {"xyz", "No such file or directory"},
        {"A5-04", "No such file or directory"},
    };
    for (const auto& [path, why] : cases)
        EXPECT_EQ(decoded({path}),
                  (Decoded{2, {}, std::string("zondarctl: ") + path + ": " + why + "\n"}));
    // The sandbox's root has no right to read what its mode forbids.
    write_file("/tmp/frames.hex", kIdentify);
    ASSERT_EQ(chmod("/tmp/frames.hex", 0), 0);
    EXPECT_EQ(decoded({"/tmp/frames.hex"}),
              (Decoded{2, {}, "zondarctl: /tmp/frames.hex: Permission denied\n"}));
}

TEST(Decode, ShowsPeopleTheItems) {
    const ProgramRun run = run_zondarctl(
        {"decode",
         "A5 04 00 00 00 30 5A 4E 44 02 04 5A 4E 44 32 41 56 2D 54 01 03 03 01 5A 4E 32 30 32 34 30 "
         "30 30 31 32 33 30 30 31 61 32 62 33 63 34 64 35 65 00 00 00 00 00 00 00 B8",
         "A5 03 00 00 00 04 14 07 A1 20 1D", "A5 04 00 00 00 00 FD"});
    EXPECT_EQ(run.out,
              "answer: identification\n"
              "A5 04 00 00 00 30 5A 4E 44 02 04 5A 4E 44 32 41\n"
              "56 2D 54 01 03 03 01 5A 4E 32 30 32 34 30 30 30\n"
              "31 32 33 30 30 31 61 32 62 33 63 34 64 35 65 00\n"
              "00 00 00 00 00 00 B8\n"
              "  model        ZND\n"
              "  software     2.4\n"
              "  name         ZND2AV-T\n"
              "  boot_loader  1.3\n"
              "  hardware     3.1\n"
              "  serial       ZN2024000123\n"
              "  mac          001a2b3c4d5e\n"
              "request: write, sub-command 20 SUBCOMMAND_FRECUENCIA_1\n"
              "A5 03 00 00 00 04 14 07 A1 20 1D\n"
              "  RFOut.Frecuencia  500000\n"
              "wrong checksum or CRC\n"
              "A5 04 00 00 00 00 FD\n");
    EXPECT_EQ(run.err, kDamaged);
    EXPECT_EQ(run.status, 5);
}

TEST(Decode, ShowsScriptsTheParts) {
    const Json data = json_of({"decode", "A5 D3 01 02 03 02 57 61 6D BD", kIdentify})["data"];
    EXPECT_EQ(data["frames"][0], Json::parse(R"({
        "frame": "A5 D3 01 02 03 02 57 61 6D BD", "state": "valid", "skipped": 0,
        "command": 3, "sequence": 5, "crc8": true, "header": "01 02 03", "length": 2,
        "info": "02 34", "meaning": "request: write, sub-command 2 Brillo ch1.",
        "items": {"EntradaAV.0.Brillo": 52}})"));
    EXPECT_EQ(data["frames"][1], Json::parse(R"({
        "frame": "A5 04 00 00 00 00 FC", "state": "valid", "skipped": 0,
        "command": 4, "sequence": 0, "crc8": false, "header": "00 00 00", "length": 0,
        "info": "", "meaning": "request: identification", "items": {}})"));
    EXPECT_EQ(json_of({"decode", "A5 04 00 00 00 00 FD"}, 5)["data"]["frames"][0], Json::parse(R"({
        "frame": "A5 04 00 00 00 00 FD", "state": "wrong checksum or CRC", "skipped": 0,
        "command": 4, "sequence": 0, "crc8": false, "header": "00 00 00", "length": 0,
        "info": ""})"));
    const Json half = json_of({"decode", "11 A5 04"}, 4);
    EXPECT_EQ(half["data"]["frames"][0],
              Json::parse(R"({"frame": "A5 04", "state": "not complete", "skipped": 1})"));
    EXPECT_EQ(half["error"],
              Json::parse(R"({"stage": "answer", "message": "a frame is not complete"})"));
    EXPECT_EQ(json_of({"decode", "A5 04 00 00 00 00 FD"}, 5)["error"]["stage"], "code");
    EXPECT_EQ(json_of({"decode", "00"}, 4)["data"], Json::parse(R"({"frames": []})"));
}

// Trace files, written by the project's own writer.

const std::string kTrace = "/tmp/trace.pcap";

class TracedTape : public Tape {
  public:
    using Tape::Tape;

    void trace(const std::uint8_t* frame, unsigned direction) override {
        append_to_trace(kTrace, frame, direction);
    }
};

mensaje record_of(std::uint8_t command, const Bytes& info) {
    mensaje record{};
    record.comando = command;
    record.longitud = static_cast<std::uint8_t>(info.size());
    std::copy(info.begin(), info.end(), record.info);
    return record;
}

void trace_sent(mensaje record, bool crc8_mode = false) {
    TracedTape tape;
    const UseWire use(tape);
    tPuertoZondar port{};
    enviar_mensaje_nenlace(&port, &record, crc8_mode ? 1 : 0);
}

void trace_received(const std::string& digits) {
    const Bytes bytes = hex(digits);
    TracedTape tape(bytes);
    const UseWire use(tape);
    tPuertoZondar port{};
    mensaje record{};
    recibir_mensaje_nenlace(&port, &record, 0, 0);
}

const std::string kToModule = "to the module: ";
const std::string kFromModule = "from the module: ";

TEST(DecodeTrace, TellsTheDirectionFromAMastersPointOfView) {
    trace_sent(record_of(4, {}));
    trace_received(kWritten);
    trace_sent(record_of(3, {2, 52}), true);
    EXPECT_EQ(
        decoded({kTrace}),
        (Decoded{0,
                 {kToModule + kIdentify + " valid, request: identification",
                  kFromModule + kWritten + " valid, answer: written or not",
                  // The info plain, the codes those of the scrambled one.
                  kToModule +
                      "A5 83 00 00 00 02 02 34 C3 BD valid, request: write, sub-command 2 Brillo "
                      "ch1."},
                 ""}));
    // The moment is now; its form is fixed.
    const Json frames = json_of({"decode", kTrace})["data"]["frames"];
    ASSERT_EQ(frames.size(), 3);
    for (const Json& frame : frames)
        EXPECT_THAT(frame["time"].get<std::string>(),
                    MatchesRegex("20..-..-..T..:..:..\\.......Z"));
}

TEST(DecodeTrace, TellsTheDirectionFromAModulesPointOfView) {
    trace_received("A5 83 00 00 00 02 57 61 C3 BD");
    trace_sent(record_of(3, {}));
    trace_received(kStatus);
    EXPECT_EQ(
        decoded({kTrace}),
        (Decoded{0,
                 {kToModule +
                      "A5 83 00 00 00 02 02 34 C3 BD valid, request: write, sub-command 2 Brillo "
                      "ch1.",
                  kFromModule + kWritten + " valid, answer: written or not",
                  kToModule + kStatus + " valid, request: status"},
                 ""}));
}

TEST(DecodeTrace, ShowsDoubledBytesOnce) {
    trace_sent(record_of(3, {2, 0xA5}));
    trace_received("A5 03 00 00 00 02 02 54 A5 A5");
    EXPECT_THAT(
        decoded({kTrace}).frames,
        ElementsAre(kToModule +
                        "A5 03 00 00 00 02 02 A5 54 valid, request: write, sub-command 2 Brillo "
                        "ch1.",
                    kFromModule + "A5 03 00 00 00 02 02 54 A5 valid, answer: sub-command 2"));
}

TEST(DecodeTrace, ReadsTheLongestFrame) {
    trace_sent(record_of(3, Bytes(255)), true);
    trace_sent(record_of(3, Bytes(255)));
    const Json frames = json_of({"decode", kTrace})["data"]["frames"];
    for (const Json& frame : frames) {
        EXPECT_EQ(frame["state"], "valid");
        EXPECT_EQ(frame["length"], 255);
        EXPECT_EQ(frame["meaning"], "request: write, unknown sub-command 0");
    }
    EXPECT_EQ(frames[0]["frame"].get<std::string>().size(), 3 * 263 - 1);
    EXPECT_EQ(frames[1]["frame"].get<std::string>().size(), 3 * 262 - 1);
}

// The wire's form of the info is in the trace then.
TEST(DecodeTrace, ReadsACrc8FrameOfAnotherSequence) {
    trace_received("A5 D3 00 00 00 02 57 61 73 81");
    EXPECT_EQ(decoded({kTrace}),
              (Decoded{0,
                       {kToModule +
                        "A5 D3 00 00 00 02 02 34 73 81 valid, request: write, sub-command 2 Brillo "
                        "ch1."},
                       ""}));
}

// What the link writes when nothing came, or not all.
TEST(DecodeTrace, SaysThatNothingWasReceived) {
    trace_sent(record_of(4, {}));
    trace_received("");
    EXPECT_EQ(decoded({kTrace}),
              (Decoded{4,
                       {kToModule + kIdentify + " valid, request: identification",
                        kFromModule + "00 00 00 00 00 00 00 not complete"},
                       kIncomplete}));
}

TEST(DecodeTrace, OfARunningDaemon) {
    const RunningDaemon daemon;
    EXPECT_EQ(run_zondarctl({"--pcap", kTrace, "raw", "3", "02", "A5"}).status, 0);
    EXPECT_EQ(run_zondarctl({"--pcap", kTrace, "config", "1"}).status, 0);
    EXPECT_EQ(run_zondarctl({"--pcap", kTrace, "--crc8", "raw", "3", "FE", "00"}).status, 1);
    EXPECT_EQ(run_zondarctl({"--pcap", kTrace, "identify"}).status, 0);
    const ProgramRun run = run_zondarctl({"decode", kTrace});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    const Json frames = json_of({"decode", kTrace})["data"]["frames"];
    Texts meanings;
    for (const Json& frame : frames)
        meanings.push_back(frame["direction"].get<std::string>() + ": " +
                           frame["meaning"].get<std::string>());
    EXPECT_THAT(meanings, ElementsAre("to the module: request: write, sub-command 2 Brillo ch1.",
                                      "from the module: answer: written or not",
                                      "to the module: request: configuration, block 1",
                                      "from the module: answer: configuration, block 1",
                                      "to the module: request: write, unknown sub-command 254",
                                      "from the module: answer: refused",
                                      "to the module: request: identification",
                                      "from the module: answer: identification"));
    EXPECT_EQ(frames[0]["items"]["EntradaAV.0.Brillo"], 165);
    EXPECT_EQ(frames[3]["items"]["EntradaAV.0.Brillo"], 165);
    EXPECT_EQ(frames[4]["crc8"], true);
    EXPECT_EQ(frames[7]["items"]["serial"], "ZN2024000123");
}

// Capture files of any kind, written by libpcap.

struct Packet {
    int microseconds;  // behind kSecond
    Bytes bytes;
    std::size_t cut = 0;  // bytes at the end that the capture does not have
};

constexpr std::time_t kSecond = 1706951100;  // 2024-02-03 09:05:00 UTC

const std::string kCapture = "/tmp/tcp.pcap";

void write_capture(int link_type, const std::vector<Packet>& packets,
                   const std::string& path = kCapture) {
    pcap_t* const dead = pcap_open_dead(link_type, 65535);
    pcap_dumper_t* const dumper = pcap_dump_open(dead, path.c_str());
    ASSERT_NE(dumper, nullptr);
    for (const Packet& packet : packets) {
        pcap_pkthdr header{};
        header.ts = {kSecond, packet.microseconds};
        header.len = static_cast<bpf_u_int32>(packet.bytes.size());
        header.caplen = static_cast<bpf_u_int32>(packet.bytes.size() - packet.cut);
        pcap_dump(reinterpret_cast<unsigned char*>(dumper), &header, packet.bytes.data());
    }
    pcap_dump_close(dumper);
    pcap_close(dead);
}

constexpr int kTraceLinkType = 147;

// The records of a trace file at moments that the test knows.
TEST(DecodeTrace, TellsTheMomentToTheMicrosecond) {
    const Bytes record = hex("01 A5 04 00 00 00 00 FC 00");
    std::vector<Packet> packets;
    for (const int microsecond : {0, 1, 123457, 250001, 333333, 700003, 999999})
        packets.push_back({microsecond, record});
    write_capture(kTraceLinkType, packets);
    const Json frames = json_of({"decode", kCapture})["data"]["frames"];
    Texts times;
    for (const Json& frame : frames)
        times.push_back(frame["time"]);
    EXPECT_THAT(times, ElementsAre("2024-02-03T09:05:00.000000Z", "2024-02-03T09:05:00.000001Z",
                                   "2024-02-03T09:05:00.123457Z", "2024-02-03T09:05:00.250001Z",
                                   "2024-02-03T09:05:00.333333Z", "2024-02-03T09:05:00.700003Z",
                                   "2024-02-03T09:05:00.999999Z"));
}

struct SpoiltRecord {
    const char* name;
    Bytes record;
    std::size_t cut;
    Decoded wanted;
};

const SpoiltRecord kSpoiltRecords[] = {
    {"as written",
     hex("01 A5 04 00 00 00 00 FC 00"),
     0,
     {0, {kToModule + kIdentify + " valid, request: identification"}, ""}},
    {"without the byte behind the checksum",
     hex("01 A5 04 00 00 00 00 FC 00"),
     1,
     {4, {}, kNoFrame}},
    {"a changed info",
     hex("01 A5 03 00 00 00 02 02 35 C5 00"),
     0,
     {5, {kToModule + "A5 03 00 00 00 02 02 35 C5 wrong checksum or CRC"}, kDamaged}},
    {"a changed CRC",
     hex("01 A5 84 00 00 00 00 7C D5"),
     0,
     {5, {kToModule + "A5 84 00 00 00 00 7C D5 wrong checksum or CRC"}, kDamaged}},
    {"shorter than its length", hex("01 A5 03 00 00 00 09 02 35 C5 00"), 0, {4, {}, kNoFrame}},
    {"longer than a frame can be",
     joined({hex("01 A5 04 00 00 00 00 FC"), Bytes(1000)}),
     0,
     {0, {kToModule + kIdentify + " valid, request: identification"}, ""}},
    {"empty", {}, 0, {4, {}, kNoFrame}},
};

TEST(DecodeTrace, ReadsSpoiltRecords) {
    for (const SpoiltRecord& each : kSpoiltRecords) {
        SCOPED_TRACE(each.name);
        write_capture(kTraceLinkType, {{0, each.record, each.cut}});
        EXPECT_EQ(decoded({kCapture}), each.wanted);
    }
}

// What JSON says of a capture besides its frames: "1 answered in 2", "3: lost", "lost 3",
// "closed 1 in 4".
Texts told(const std::string& path, int status = 0) {
    const Json data = json_of({"decode", path}, status)["data"];
    Texts all;
    for (const Json& frame : data["frames"]) {
        const std::string packet = frame["packet"].dump();
        if (frame.contains("answer_in"))
            all.push_back(packet + " answered in " + frame["answer_in"].dump());
        if (frame.contains("request_in"))
            all.push_back(packet + " answers " + frame["request_in"].dump());
        if (frame.contains("no_answer"))
            all.push_back(packet + ": " + frame["no_answer"].get<std::string>());
    }
    for (const Json& finding : data["findings"]) {
        std::string text = finding["name"].get<std::string>() + " " + finding["packet"].dump();
        if (finding["found_in"] != finding["packet"])
            text += " in " + finding["found_in"].dump();
        all.push_back(text);
    }
    return all;
}

struct TracedConversation {
    const char* name;
    std::vector<const char*> records;
    Texts told;
    int status = 0;
};

const TracedConversation kTracedConversations[] = {
    {"of a master",
     {"01 A5 04 00 00 00 00 FC 00", "00 A5 04 00 00 00 03 5A 4E 44 0D 00"},
     {"1 answered in 2", "2 answers 1"}},
    {"of a module",
     {"00 A5 04 00 00 00 00 FC 00", "01 A5 04 00 00 00 03 5A 4E 44 0D 00"},
     {"1 answered in 2", "2 answers 1"}},
    {"without answers, and without requests",
     {"01 A5 04 00 00 00 00 FC 00", "01 A5 00 00 00 00 00 00 00", "00 A5 00 00 00 00 01 07 F8 00",
      "00 A5 00 00 00 00 01 07 F8 00"},
     {"1: passed_over", "2 answered in 3", "3 answers 2", "passed_over 1 in 3", "no_request 4"}},
    {"an answer that did not come",
     {"01 A5 04 00 00 00 00 FC 00", "00 00 00 00 00 00 00 00 00"},
     {"1: timed_out", "timed_out 1 in 2"},
     4},
    {"a reception that ended by time-out",
     {"00 A5 04 00 00 00 00 FC 00", "00 00 00 00 00 00 00 00 00"},
     {"breaks_off 2"},
     4},
    {"one before all frames",
     {"00 00 00 00 00 00 00 00 00", "01 A5 03 00 00 00 02 02 33 C6 00",
      "00 A5 03 00 00 00 00 FD 00"},
     {"2 answered in 3", "3 answers 2", "breaks_off 1"},
     4},
    // The info is plain there, and nothing is doubled: an A5 on the wire, and none.
    {"in CRC8 mode",
     {"01 A5 83 00 00 00 02 02 F0 7F 16", "00 A5 03 00 00 00 00 FD 00",
      "01 A5 83 00 00 00 02 02 A5 34 F2", "00 A5 03 00 00 00 00 FD 00"},
     {"1 answered in 2", "2 answers 1", "3 answered in 4", "4 answers 3"}},
    {"behind one that ends in A5",
     {"01 A5 03 00 00 00 02 02 54 A5 00", "00 A5 03 00 00 00 00 FD 00",
      "01 A5 04 00 00 00 00 FC 00", "01 A5 04 00 00 00 00 FC 00"},
     {"1 answered in 2", "2 answers 1", "ends_in_a5 1"}},
    {"a wrong checksum, and the right CRC",
     {"01 A5 83 00 00 00 02 02 34 C4 BD"},
     {"1: wrong_checksum", "wrong_checksum 1"},
     5},
};

TEST(DecodeTrace, TellsOfTheConversation) {
    for (const TracedConversation& each : kTracedConversations) {
        SCOPED_TRACE(each.name);
        std::vector<Packet> packets;
        for (const char* const record : each.records)
            packets.push_back({static_cast<int>(packets.size()), hex(record)});
        write_capture(kTraceLinkType, packets);
        EXPECT_THAT(told(kCapture, each.status), testing::ElementsAreArray(each.told));
    }
}

// Its times are those of whoever wrote it.
TEST(DecodeTrace, ShowsNoResponseTimes) {
    write_capture(kTraceLinkType, {{1, hex("01 A5 04 00 00 00 00 FC 00")},
                                   {2, hex("00 A5 04 00 00 00 03 5A 4E 44 0D 00")}});
    const Json frame = json_of({"decode", kCapture})["data"]["frames"][0];
    EXPECT_EQ(frame["answer_in"], 2);
    EXPECT_FALSE(frame.contains("response_us"));
    EXPECT_FALSE(frame.contains("master"));
    EXPECT_EQ(run_zondarctl({"decode", kCapture}).out,
              "2024-02-03T09:05:00.000001Z  packet 1  to the module  request: identification\n"
              "A5 04 00 00 00 00 FC\n"
              "  answered by packet 2\n"
              "2024-02-03T09:05:00.000002Z  packet 2  from the module  answer: identification\n"
              "A5 04 00 00 00 03 5A 4E 44 0D\n"
              "  model  ZND\n"
              "  answers packet 1\n");
}

// TCP over IPv4 (RFC 9293, RFC 791): what a capture has, checksums aside.

Bytes be16(unsigned number) {
    return {static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)};
}
Bytes be32(std::uint32_t number) {
    return joined({be16(number >> 16U), be16(number & 0xFFFFU)});
}

constexpr std::uint16_t kMaster = 40000;  // its port
constexpr std::uint8_t kFin = 0x01;
constexpr std::uint8_t kSyn = 0x02;
constexpr std::uint8_t kRst = 0x04;
constexpr std::uint8_t kAck = 0x10;

struct Segment {
    std::uint16_t from;
    std::uint16_t to;
    std::uint32_t sequence;
    std::string payload;  // in hexadecimal digits
    std::uint8_t flags = kAck;
    Bytes options = {};  // of TCP, a multiple of 4
};

// The addresses change with the direction.
Bytes tcp_over_ip(const Segment& segment, const Bytes& ip_options = {}, unsigned fragment = 0,
                  std::uint8_t protocol = 6) {
    const auto words = [](std::size_t bytes) { return static_cast<std::uint8_t>(bytes / 4); };
    const Bytes payload = hex(segment.payload);
    const Bytes tcp = joined(
        {be16(segment.from),
         be16(segment.to),
         be32(segment.sequence),
         be32(0),
         {static_cast<std::uint8_t>(words(20 + segment.options.size()) << 4U), segment.flags},
         be16(65535),
         be16(0),
         be16(0),
         segment.options,
         payload});
    const bool to_master = segment.from < segment.to;
    const Bytes module = {192, 168, 1, 50};
    const Bytes master = {192, 168, 1, 2};
    return joined({{static_cast<std::uint8_t>(0x40U | words(20 + ip_options.size())), 0},
                   be16(static_cast<unsigned>(20 + ip_options.size() + tcp.size())),
                   be16(0),
                   be16(fragment),
                   {64, protocol},
                   be16(0),
                   to_master ? module : master,
                   to_master ? master : module,
                   ip_options,
                   tcp});
}

Bytes ethernet(const Bytes& ip, const Bytes& tag = {}) {
    return joined({Bytes(12, 0x5E), tag, be16(0x0800), ip});
}

void write_tcp(const std::vector<Segment>& segments) {
    std::vector<Packet> packets;
    for (const Segment& segment : segments)
        packets.push_back({static_cast<int>(packets.size()) * 1000, tcp_over_ip(segment)});
    write_capture(DLT_RAW, packets);
}

const std::string kIdentifyFrame = kToModule + kIdentify + " valid, request: identification";
const std::string kStatusFrame = kToModule + kStatus + " valid, request: status";
const std::string kWrittenFrame = kFromModule + kWritten + " valid, answer: written or not";

TEST(DecodeTcp, ReadsAnExchange) {
    write_capture(
        DLT_EN10MB,
        {{1, ethernet(tcp_over_ip({40000, 8001, 99, "", kSyn}))},
         {2, ethernet(tcp_over_ip({8001, 40000, 499, "", kSyn | kAck}))},
         {123457, ethernet(tcp_over_ip({40000, 8001, 100, "A5 03 00 00 00 02 02 34 C5"}))},
         {123458, ethernet(tcp_over_ip({40002, 8001, 7, "", kSyn}))},
         {123459, ethernet(tcp_over_ip({8001, 40002, 300, "", kSyn | kAck}))},
         {999999, ethernet(tcp_over_ip({8001, 40002, 301, kWritten}))}});
    const ProgramRun run = run_zondarctl({"decode", kCapture});
    EXPECT_EQ(run.out,
              "2024-02-03T09:05:00.123457Z  packet 3  to the module  request: write, sub-command 2 "
              "Brillo ch1.\n"
              "A5 03 00 00 00 02 02 34 C5\n"
              "  EntradaAV.0.Brillo  52\n"
              "  answered by packet 6, in 876.542 ms\n"
              "2024-02-03T09:05:00.999999Z  packet 6  from the module  answer: written or not\n"
              "A5 03 00 00 00 00 FD\n"
              "  answers packet 3, in 876.542 ms\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    const Json frames = json_of({"decode", kCapture})["data"]["frames"];
    EXPECT_EQ(frames[0]["time"], "2024-02-03T09:05:00.123457Z");
    EXPECT_EQ(frames[0]["items"], Json::parse(R"({"EntradaAV.0.Brillo": 52})"));
}

struct LinkType {
    const char* name;
    int type;
    Bytes before;  // the IP header
    Bytes behind = {};
};

TEST(DecodeTcp, KnowsTheUsualLinkTypes) {
    const Bytes addresses(12, 0x5E);
    const LinkType kLinkTypes[] = {
        {"Ethernet", DLT_EN10MB, joined({addresses, be16(0x0800)})},
        {"VLAN", DLT_EN10MB, joined({addresses, be16(0x8100), be16(100), be16(0x0800)})},
        {"padded to the shortest frame", DLT_EN10MB, joined({addresses, be16(0x0800)}),
         hex("A5 04 00 00 00 00 FC")},
        {"Linux cooked", DLT_LINUX_SLL, joined({Bytes(14), be16(0x0800)})},
        {"Linux cooked 2", DLT_LINUX_SLL2, joined({be16(0x0800), Bytes(18)})},
        {"raw IP", DLT_RAW, {}},
        {"raw IPv4", DLT_IPV4, {}},
        {"loopback", DLT_NULL, hex("02 00 00 00")},
        {"OpenBSD loopback", DLT_LOOP, hex("00 00 00 02")},
    };
    const Bytes ip = tcp_over_ip({40000, 8001, 100, kIdentify});
    for (const LinkType& each : kLinkTypes) {
        SCOPED_TRACE(each.name);
        write_capture(each.type, {{0, joined({each.before, ip, each.behind})}});
        EXPECT_EQ(decoded({kCapture}), (Decoded{0, {kIdentifyFrame}, ""}));
    }
    const LinkType kOthers[] = {
        {"ARP", DLT_EN10MB, joined({addresses, be16(0x0806)})},
        {"IPv6 in a VLAN", DLT_EN10MB, joined({addresses, be16(0x8100), be16(1), be16(0x86DD)})},
        {"IPv6, cooked", DLT_LINUX_SLL, joined({Bytes(14), be16(0x86DD)})},
        {"IPv6, cooked 2", DLT_LINUX_SLL2, joined({be16(0x86DD), Bytes(18)})},
    };
    for (const LinkType& each : kOthers) {
        SCOPED_TRACE(each.name);
        write_capture(each.type, {{0, joined({each.before, ip, each.behind})}});
        EXPECT_EQ(decoded({kCapture}), (Decoded{4, {}, kNoFrame}));
    }
    write_capture(DLT_IEEE802_11, {{0, joined({addresses, be16(0x0800), ip})}});
    EXPECT_EQ(decoded({kCapture}),
              (Decoded{2, {}, "zondarctl: a capture of another kind of network: link type 105\n"}));
}

struct OnePacket {
    const char* name;
    Bytes ip;
    bool read;
};

TEST(DecodeTcp, TakesWhatBelongsToTheModuleOnly) {
    const Segment request = {40000, 8001, 100, kIdentify};
    const Bytes plain = tcp_over_ip(request);
    const auto changed = [&plain](std::size_t position, std::uint8_t byte) {
        Bytes bytes = plain;
        bytes.at(position) = byte;
        return bytes;
    };
    Bytes short_header = plain;  // all is there but for four bytes of it
    short_header.erase(short_header.begin() + 16, short_header.begin() + 20);
    short_header[0] = 0x44;
    short_header[3] -= 4;
    const OnePacket kPackets[] = {
        {"plain", plain, true},
        {"IP options", tcp_over_ip(request, Bytes(40, 1)), true},
        {"TCP options", tcp_over_ip({40000, 8001, 100, kIdentify, kAck, Bytes(40, 1)}), true},
        {"both", tcp_over_ip({40000, 8001, 100, kIdentify, kAck, Bytes(4, 1)}, Bytes(8, 1)), true},
        {"not to be fragmented", tcp_over_ip(request, {}, 0x4000), true},
        {"on a SYN", tcp_over_ip({40000, 8001, 100, kIdentify, kSyn}), true},
        {"first fragment", tcp_over_ip(request, {}, 0x2000), false},
        {"last fragment", tcp_over_ip(request, {}, 0x0010), false},
        {"UDP", tcp_over_ip(request, {}, 0, 17), false},
        {"another port", tcp_over_ip({40000, 8002, 100, kIdentify}), false},
        {"IPv6", changed(0, 0x65), false},
        {"an IP header below 20 bytes", short_header, false},
        {"an IP header beyond the packet", changed(0, 0x4F), false},
        {"a total length below the headers", changed(3, 39), false},
        {"a TCP header below 20 bytes", changed(32, 0x40), false},
        {"a TCP header beyond the packet", changed(32, 0xF0), false},
    };
    for (const OnePacket& each : kPackets) {
        SCOPED_TRACE(each.name);
        write_capture(DLT_RAW, {{0, each.ip}});
        EXPECT_EQ(decoded({kCapture}),
                  each.read ? (Decoded{0, {kIdentifyFrame}, ""}) : (Decoded{4, {}, kNoFrame}));
    }
}

TEST(DecodeTcp, LooksAtThePortThatIsAskedFor) {
    write_tcp({{40000, 9000, 100, kIdentify}, {40000, 8001, 100, kStatus}});
    EXPECT_EQ(decoded({kCapture, "--port", "9000"}), (Decoded{0, {kIdentifyFrame}, ""}));
    EXPECT_EQ(decoded({kCapture}), (Decoded{0, {kStatusFrame}, ""}));
    EXPECT_EQ(decoded({"--port", "9", kCapture}), (Decoded{4, {}, kNoFrame}));
}

struct Stream {
    const char* name;
    std::vector<Segment> segments;
    Decoded wanted;
};

const Stream kStreams[] = {
    {"a byte in each",
     {{kMaster, 8001, 0, "A5"},
      {kMaster, 8001, 1, "04"},
      {kMaster, 8001, 2, "00"},
      {kMaster, 8001, 3, "00 00 00"},
      {kMaster, 8001, 6, "FC"}},
     {0, {kIdentifyFrame}, ""}},
    {"out of order",
     {{kMaster, 8001, 999, "", kSyn},
      {kMaster, 8001, 1004, "00 00 FC"},
      {kMaster, 8001, 1000, "A5 04 00 00"}},
     {0, {kIdentifyFrame}, ""}},
    {"sent twice",
     {{kMaster, 8001, 100, kIdentify}, {kMaster, 8001, 100, kIdentify}},
     {0, {kIdentifyFrame}, ""}},
    {"overlapping",
     {{kMaster, 8001, 100, "A5 04 00 00"},
      {kMaster, 8001, 102, "00 00 00 00 FC A5"},
      {kMaster, 8001, 107, kStatus}},
     {0, {kIdentifyFrame, kStatusFrame}, ""}},
    {"sent again with more behind it",
     {{kMaster, 8001, 100, "A5 04 00"}, {kMaster, 8001, 100, kIdentify + kStatus}},
     {0, {kIdentifyFrame, kStatusFrame}, ""}},
    {"sent again with less",
     {{kMaster, 8001, 100, kIdentify}, {kMaster, 8001, 100, "A5 04"}},
     {0, {kIdentifyFrame}, ""}},
    {"a gap in a frame",
     {{kMaster, 8001, 100, "A5 04 00"}, {kMaster, 8001, 104, "00 00 FC"}},
     {4, {kToModule + "A5 04 00 not complete"}, kIncomplete}},
    {"a gap in a frame, and another frame behind it",
     {{kMaster, 8001, 100, "A5 04 00"}, {kMaster, 8001, 104, "00 00 FC" + kStatus}},
     {4,
      {kToModule + "A5 04 00 not complete",
       kToModule + kStatus + " valid, 3 skipped, request: status"},
      kIncomplete}},
    {"a gap behind a frame",
     {{kMaster, 8001, 100, kIdentify}, {kMaster, 8001, 108, kStatus}},
     {0, {kIdentifyFrame, kStatusFrame}, ""}},
    {"behind a SYN, the first byte missing",
     {{kMaster, 8001, 99, "", kSyn}, {kMaster, 8001, 101, kIdentify}},
     {0, {kIdentifyFrame}, ""}},
    {"sequence numbers that wrap around",
     {{kMaster, 8001, 0xFFFFFFFC, "A5 04 00"},
      {kMaster, 8001, 0xFFFFFFFF, "00 00"},
      {kMaster, 8001, 1, "00 FC"}},
     {0, {kIdentifyFrame}, ""}},
    {"the SYN's own number wraps around",
     {{kMaster, 8001, 0xFFFFFFFF, "", kSyn}, {kMaster, 8001, 0, kIdentify}},
     {0, {kIdentifyFrame}, ""}},
    {"from before the capture",
     {{kMaster, 8001, 100, kIdentify}, {kMaster, 8001, 93, kStatus}},
     {0, {kIdentifyFrame}, ""}},
    {"a SYN sent twice",
     {{kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 100, kIdentify}},
     {0, {kIdentifyFrame}, ""}},
    {"a port used again",
     {{kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 100, "A5 04 00"},
      {kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 100, kStatus}},
     {4, {kToModule + "A5 04 00 not complete", kStatusFrame}, kIncomplete}},
    {"two connections interleaved",
     {{kMaster, 8001, 100, "A5 04 00"},
      {kMaster + 1, 8001, 100, "A5 00 00"},
      {kMaster, 8001, 103, "00 00 00 FC"},
      {kMaster + 1, 8001, 103, "00 00 00 00"}},
     {0, {kIdentifyFrame, kStatusFrame}, ""}},
    {"both directions of one connection",
     {{kMaster, 8001, 100, kIdentify}, {8001, kMaster, 100, kWritten}},
     {0, {kIdentifyFrame, kWrittenFrame}, ""}},
    {"by the moment at which they began",
     {{kMaster + 1, 8001, 100, kStatus}, {kMaster, 8001, 100, kIdentify}},
     {0, {kStatusFrame, kIdentifyFrame}, ""}},
    {"by the moment of the segment that has the start",
     {{kMaster, 8001, 100, "11 22 33 44 55 66 77 88"},
      {kMaster + 1, 8001, 100, kStatus},
      {kMaster, 8001, 108, kIdentify}},
     {0, {kStatusFrame, kToModule + kIdentify + " valid, 8 skipped, request: identification"}, ""}},
    // A repeated segment between two frames is not the second one's moment.
    {"by the moment at which they were sent first",
     {{kMaster, 8001, 100, kIdentify},
      {kMaster, 8001, 107, kStatus},
      {8001, kMaster, 100, kWritten},
      {kMaster, 8001, 104, "00 00 FC"}},
     {0, {kIdentifyFrame, kStatusFrame, kWrittenFrame}, ""}},
};

TEST(DecodeTcp, PutsSegmentsTogether) {
    for (const Stream& each : kStreams) {
        SCOPED_TRACE(each.name);
        write_tcp(each.segments);
        EXPECT_EQ(decoded({kCapture}), each.wanted);
    }
}

struct TcpConversation {
    const char* name;
    std::vector<Segment> segments;
    Texts told;
    int status = 0;
};

const std::string kIdentity = "A5 04 00 00 00 03 5A 4E 44 0D";

const TcpConversation kTcpConversations[] = {
    {"a frame in several packets is that of its last byte",
     {{kMaster, 8001, 100, "A5 04 00"},
      {kMaster, 8001, 103, "00 00 00 FC A5 00 00"},
      {kMaster, 8001, 110, "00 00 00 00"},
      {8001, kMaster + 1, 100, kIdentity}},
     {"2 answered in 4", "4 answers 2"}},
    {"out of order, it is that of the byte that was missing",
     {{kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 103, "00 00 00 FC" + kStatus},
      {8001, kMaster + 1, 100, kIdentity},
      {kMaster, 8001, 100, "A5 04 00"},
      {8001, kMaster + 1, 110, kIdentity}},
     {"4 answered in 5", "5 answers 4", "no_request 3"}},
    {"sent twice, it is that of the first time",
     {{kMaster, 8001, 100, kIdentify},
      {kMaster, 8001, 100, kIdentify + kStatus},
      {8001, kMaster + 1, 100, kIdentity}},
     {"1 answered in 3", "3 answers 1"}},
    {"closed",
     {{kMaster, 8001, 100, kIdentify}, {8001, kMaster, 100, "", kFin}},
     {"1: closed", "closed 1 in 2"}},
    {"a request in the packet that ends the connection",
     {{kMaster, 8001, 100, kIdentify, kFin},
      {8001, kMaster + 1, 100, kIdentity, kFin},
      {8001, kMaster, 100, "", kFin}},
     {"1 answered in 2", "2 answers 1"}},
    {"nobody listens",
     {{kMaster, 8001, 99, "", kSyn},
      {8001, kMaster, 499, "", kSyn | kAck},
      {kMaster, 8001, 100, kIdentify},
      {kMaster + 1, 8001, 99, "", kSyn},
      {8001, kMaster + 1, 0, "", kRst}},
     {"3: closed", "closed 3 in 5"}},
    {"reset, but of a connection that was accepted",
     {{kMaster, 8001, 100, kIdentify},
      {kMaster + 1, 8001, 99, "", kSyn},
      {8001, kMaster + 1, 499, "", kSyn | kAck},
      {8001, kMaster + 1, 500, "", kRst}},
     {}},
    {"reset by the master",
     {{kMaster, 8001, 100, kIdentify}, {kMaster, 8001, 107, "", kRst}},
     {"reset 2"}},
    {"breaks off by an end",
     {{kMaster, 8001, 100, kIdentify + "A5 04"}, {kMaster, 8001, 109, "", kFin}},
     {"breaks_off 2"},
     4},
    {"breaks off by a reset, whatever its number",
     {{8001, kMaster, 100, "A5 04"}, {8001, kMaster, 0, "", kRst}},
     {"breaks_off 2"},
     4},
    {"breaks off, with bytes of another connection behind it",
     {{kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 100, "A5 04"},
      {kMaster, 8001, 102, "", kFin},
      {kMaster, 8001, 199, "", kSyn},
      {kMaster, 8001, 200, kIdentify}},
     {"5: lost", "breaks_off 3", "lost 5"},
     4},
    {"an end before its bytes",
     {{kMaster, 8001, 100, "A5 04 00"},
      {kMaster, 8001, 107, "", kFin},
      {kMaster, 8001, 103, "00 00 00 FC"}},
     {}},
    {"nothing breaks off where the capture has a hole",
     {{kMaster, 8001, 100, "A5 04 00"}, {kMaster, 8001, 105, "", kFin}},
     {},
     4},
    {"bytes outside of frames, by their packets",
     {{kMaster, 8001, 100, "01 02"},
      {kMaster, 8001, 102, "03" + kIdentify + "04 05"},
      {8001, kMaster + 1, 100, kIdentity}},
     {"2 answered in 3", "3 answers 2", "skipped 1", "skipped 2", "skipped 2"}},
    {"a SYN sent again begins nothing",
     {{kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 99, "", kSyn},
      {8001, kMaster, 499, "", kSyn | kAck},
      {8001, kMaster, 499, "", kSyn | kAck},
      {kMaster, 8001, 100, kIdentify},
      {8001, kMaster, 500, "", kFin}},
     {"5: closed", "closed 5 in 6"}},
    {"another SYN begins another connection",
     {{kMaster, 8001, 99, "", kSyn},
      {kMaster, 8001, 100, kIdentify},
      {kMaster, 8001, 199, "", kSyn},
      {8001, kMaster, 500, "", kFin}},
     {}},
};

TEST(DecodeTcp, TellsOfTheConversation) {
    for (const TcpConversation& each : kTcpConversations) {
        SCOPED_TRACE(each.name);
        write_tcp(each.segments);
        EXPECT_THAT(told(kCapture, each.status), testing::ElementsAreArray(each.told));
    }
}

// A write, its answer, a read-back that is another one, a damaged request, and one more that is
// closed.
const std::vector<Segment> kConversation = {
    {kMaster, 8001, 100, "A5 03 00 00 00 02 02 34 C5"},
    {8001, kMaster + 1, 100, kWritten},
    {kMaster, 8001, 109, "A5 01 00 00 00 01 01 FD"},
    {8001, kMaster + 2, 100, "A5 01 00 00 00 72 01 00 35" + std::string(222, '0') + "57"},
    {kMaster, 8001, 117, "A5 04 00 00 00 00 FD" + kIdentify},
    {8001, kMaster, 100, "", kFin},
    {kMaster, 8001, 131, "A5", kFin},
};

TEST(DecodeTcp, TellsScriptsWhatWasFound) {
    write_tcp(kConversation);
    const Json data = json_of({"decode", kCapture}, 5)["data"];
    EXPECT_EQ(data["findings"], Json::parse(R"([
        {"name": "differs", "severity": "warn", "packet": 4, "found_in": 4,
         "text": "what is read is not what was written: EntradaAV.0.Brillo is 53, not 52",
         "parameter": "EntradaAV.0.Brillo", "written": 52, "read": 53},
        {"name": "wrong_checksum", "severity": "error", "packet": 5, "found_in": 5,
         "text": "wrong checksum"},
        {"name": "closed", "severity": "warn", "packet": 5, "found_in": 6,
         "text": "the module closed the connection without an answer"},
        {"name": "breaks_off", "severity": "warn", "packet": 7, "found_in": 7,
         "text": "the frame breaks off"}])"));
    EXPECT_EQ(data["frames"][0], Json::parse(R"({
        "time": "2024-02-03T09:05:00.000000Z", "direction": "to the module", "packet": 1,
        "master": "192.168.1.2:40000", "module": "192.168.1.50:8001", "answer_in": 2,
        "response_us": 1000, "frame": "A5 03 00 00 00 02 02 34 C5", "state": "valid",
        "skipped": 0, "command": 3, "sequence": 0, "crc8": false, "header": "00 00 00",
        "length": 2, "info": "02 34", "meaning": "request: write, sub-command 2 Brillo ch1.",
        "items": {"EntradaAV.0.Brillo": 52}})"));
    EXPECT_EQ(data["frames"][1], Json::parse(R"({
        "time": "2024-02-03T09:05:00.001000Z", "direction": "from the module", "packet": 2,
        "master": "192.168.1.2:40001", "module": "192.168.1.50:8001", "request_in": 1,
        "response_us": 1000, "frame": "A5 03 00 00 00 00 FD", "state": "valid", "skipped": 0,
        "command": 3, "sequence": 0, "crc8": false, "header": "00 00 00", "length": 0,
        "info": "", "meaning": "answer: written or not", "items": {}})"));
    EXPECT_EQ(data["frames"][4]["no_answer"], "wrong_checksum");
    EXPECT_EQ(data["frames"][5]["no_answer"], "closed");
}

TEST(DecodeTcp, TellsPeopleWhatWasFound) {
    write_tcp({kConversation.begin() + 4, kConversation.end()});
    EXPECT_EQ(run_zondarctl({"decode", kCapture}).out,
              "2024-02-03T09:05:00.000000Z  packet 1  to the module  wrong checksum or CRC\n"
              "A5 04 00 00 00 00 FD\n"
              "  ! wrong checksum\n"
              "2024-02-03T09:05:00.000000Z  packet 1  to the module  request: identification\n"
              "A5 04 00 00 00 00 FC\n"
              "  ! the module closed the connection without an answer (packet 2)\n"
              "2024-02-03T09:05:00.002000Z  packet 3  to the module  not complete\n"
              "A5\n"
              "2024-02-03T09:05:00.002000Z  packet 3  to the module  the frame breaks off\n");
}

// What is found changes nothing in the status.
TEST(DecodeTcp, SucceedsWhateverWasFound) {
    write_tcp({{kMaster, 8001, 100, kIdentify}, {kMaster, 8001, 107, "", kRst}});
    const ProgramRun run = run_zondarctl({"decode", kCapture});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "2024-02-03T09:05:00.000000Z  packet 1  to the module  request: identification\n"
              "A5 04 00 00 00 00 FC\n"
              "2024-02-03T09:05:00.001000Z  packet 2  to the module  reset by the master before "
              "the module had closed: the module takes one stale byte\n");
}

// tcpdump -s: the IP header says how long the packet was.
TEST(DecodeTcp, ReadsPacketsThatTheCaptureCut) {
    const Bytes packet = tcp_over_ip({40000, 8001, 100, kIdentify});
    write_capture(DLT_RAW, {{0, packet, 2}});
    EXPECT_EQ(decoded({kCapture}),
              (Decoded{4, {kToModule + "A5 04 00 00 00 not complete"}, kIncomplete}));
    for (std::size_t cut = 7; cut <= packet.size(); cut += 4) {
        SCOPED_TRACE(cut);
        write_capture(DLT_RAW, {{0, packet, cut}});
        EXPECT_EQ(decoded({kCapture}), (Decoded{4, {}, kNoFrame}));
    }
}

// Section header, interface and one enhanced packet block, little-endian, times in microseconds.
Bytes pcapng_of(const Bytes& ethernet_packet) {
    const auto le32 = [](std::size_t number) {
        const Bytes big = be32(static_cast<std::uint32_t>(number));
        return Bytes(big.rbegin(), big.rend());
    };
    const Bytes padding((4 - ethernet_packet.size() % 4) % 4);
    const std::size_t length = 32 + ethernet_packet.size() + padding.size();
    constexpr std::uint64_t kMoment = std::uint64_t{kSecond} * 1000000 + 123457;
    return joined({hex("0A 0D 0D 0A 1C 00 00 00 4D 3C 2B 1A 01 00 00 00 FF FF FF FF FF FF FF FF "
                       "1C 00 00 00"
                       "01 00 00 00 14 00 00 00 01 00 00 00 00 00 04 00 14 00 00 00"
                       "06 00 00 00"),
                   le32(length), le32(0), le32(kMoment >> 32U), le32(kMoment & 0xFFFFFFFFU),
                   le32(ethernet_packet.size()), le32(ethernet_packet.size()), ethernet_packet,
                   padding, le32(length)});
}

std::string text_of(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

TEST(DecodeTcp, ReadsThePcapngFormat) {
    const Bytes file = pcapng_of(ethernet(tcp_over_ip({40000, 8001, 100, kIdentify})));
    write_file(kCapture, text_of(file));
    EXPECT_EQ(decoded({kCapture}), (Decoded{0, {kIdentifyFrame}, ""}));
    EXPECT_EQ(json_of({"decode", kCapture})["data"]["frames"][0]["time"],
              "2024-02-03T09:05:00.123457Z");
}

// The seconds have 64 bits there.
TEST(DecodeTcp, ShowsNoTimeThatIsNone) {
    for (const char byte : {'\x7F', '\x80', '\xFF'}) {
        Bytes file = pcapng_of(ethernet(tcp_over_ip({40000, 8001, 100, kIdentify})));
        file.at(28 + 20 + 15) = static_cast<std::uint8_t>(byte);  // the highest of the time
        write_file(kCapture, text_of(file));
        EXPECT_EQ(decoded({kCapture}), (Decoded{0, {kIdentifyFrame}, ""}));
        EXPECT_FALSE(json_of({"decode", kCapture})["data"]["frames"][0].contains("time"));
    }
}

TEST(DecodeTcp, ReadsACaptureFromStandardInput) {
    write_tcp({{40000, 8001, 100, kIdentify}});
    EXPECT_EQ(decoded({}, read_file(kCapture)), (Decoded{0, {kIdentifyFrame}, ""}));
    EXPECT_EQ(decoded({"-"}, read_file(kCapture)), (Decoded{0, {kIdentifyFrame}, ""}));
}

// A file of any size is read so far and no farther.
TEST(DecodeTcp, ReadsTheBeginningOfALargeCapture) {
    constexpr std::uint32_t kLength = 60000;
    std::vector<Segment> segments = {{40000, 8001, 100, kIdentify}};
    for (std::uint32_t i = 0; i < (8U << 20U) / kLength; ++i)
        segments.push_back({40000, 8001, 107 + i * kLength, std::string(2UL * kLength, '0')});
    segments.push_back({40001, 8001, 100, kStatus});
    write_tcp(segments);
    EXPECT_EQ(decoded({kCapture}), (Decoded{0, {kIdentifyFrame, kStatusFrame}, ""}));
    segments.insert(segments.begin() + 1, segments[1]);
    write_tcp(segments);
    EXPECT_EQ(decoded({kCapture}),
              (Decoded{2,
                       {kIdentifyFrame},
                       "zondarctl: the capture holds more than 8 MiB of the module: only these are "
                       "read\n"}));
}

TEST(DecodeTcp, SaysWhatIsWrongWithACapture) {
    write_tcp({{40000, 8001, 100, kIdentify}, {40001, 8001, 100, kIdentify}});
    const std::string whole = read_file(kCapture);
    write_file(kCapture, whole.substr(0, whole.size() - 1));
    const Decoded cut = decoded({kCapture});
    EXPECT_EQ(cut.status, 2);
    EXPECT_THAT(cut.frames, ElementsAre(kIdentifyFrame));
    EXPECT_THAT(cut.error, MatchesRegex("zondarctl: the capture is broken: truncated [^\n]*\n"));
    write_file(kCapture, whole.substr(0, 20));
    EXPECT_THAT(decoded({kCapture}).error,
                MatchesRegex("zondarctl: the capture is broken: truncated [^\n]*\n"));
}

// Decodes in this process; throws only for what cannot be read.
int status_of(const std::string& path) {
    try {
        return decode({path}, 8001).status;
    } catch (const UsageError&) {
        return kUsage;
    }
}

std::vector<std::string> good_files() {
    std::vector<std::string> files;
    trace_sent(record_of(4, {}));
    trace_received("A5 83 00 00 00 02 57 61 C3 BD");
    files.push_back(read_file(kTrace));
    write_capture(DLT_EN10MB,
                  {{0, ethernet(tcp_over_ip({40000, 8001, 99, "", kSyn, Bytes(4, 1)}))},
                   {1, ethernet(tcp_over_ip({40000, 8001, 104, "00 00 FC"}), hex("81 00 00 01"))},
                   {2, ethernet(tcp_over_ip({40000, 8001, 100, "A5 04 00 00 00"}, Bytes(4, 1)))}});
    files.push_back(read_file(kCapture));
    files.push_back(text_of(pcapng_of(ethernet(tcp_over_ip({40000, 8001, 100, kIdentify})))));
    files.push_back(kIdentify + "\n" + kStatus);
    return files;
}

// What does not crash here does not read beyond its bytes either, under the sanitizers.
TEST(HostileCapture, EndsInAStatus) {
    const std::string path = "/tmp/hostile";
    std::mt19937 random(20240203);
    const auto below = [&random](std::size_t end) { return random() % end; };
    for (const std::string& file : good_files()) {
        write_file(path, file);
        ASSERT_EQ(status_of(path), 0);
        for (std::size_t length = 0; length < file.size(); ++length) {
            write_file(path, file.substr(0, length));
            EXPECT_THAT(status_of(path), testing::AnyOf(0, 2, 4, 5)) << length;
        }
        for (int i = 0; i < 1000; ++i) {
            std::string spoilt = file;
            for (std::size_t count = 1 + below(4); count > 0; --count)
                spoilt[below(spoilt.size())] = static_cast<char>(random());
            write_file(path, spoilt);
            EXPECT_THAT(status_of(path), testing::AnyOf(0, 2, 4, 5)) << i;
        }
    }
}

}  // namespace

}  // namespace zondarctl
