// What all online commands have in common: the options, and what becomes of exchanges that fail.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/peer.h"
#include "tests/support/protocol_document.h"
#include "tests/support/standing_clock.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/replaying_daemon.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kIdentity[] =
    "model        ZND\n"
    "software     2.4\n"
    "name         ZND2AV-T\n"
    "boot_loader  1.3\n"
    "hardware     3.1\n"
    "serial       ZN2024000123\n"
    "mac          001a2b3c4d5e\n";
// How a message about the module begins.
const std::string kOfModule = "zondarctl: 127.0.0.1:8001: ";
const std::string kIdentificationRequest = "Tx: " + to_hex(frame(4)) + "\n";
const std::string kIdentificationAnswer = "Rx: " + document::answer(frame(4)) + "\n";
const std::string kWrittenAnswer = "Rx: " + to_hex(frame(3)) + "\n";

Words joined_words(const Words& one, const Words& other) {
    Words all = one;
    all.insert(all.end(), other.begin(), other.end());
    return all;
}

// As a user types it into a shell: "status > /dev/full".
ProgramRun in_shell(const std::string& line) {
    return run_program({"/bin/sh", "-c", "exec " + zondarctl_path() + " " + line});
}

// The keys of an object, in their order.
Words keys(const Json& object) {
    Words all;
    for (const auto& item : object.items())
        all.push_back(item.key());
    return all;
}

class Exchange : public testing::Test {
  protected:
    RunningDaemon daemon_;
};

const std::pair<Words, const char*> kCommands[] = {
    {{"identify"}, "identify"},
    {{"status"}, "status"},
    {{"config"}, "config"},
    {{"config", "2"}, "config"},
    {{"get", "Red.NID"}, "get"},
    {{"dump"}, "dump"},
    {{"resync", "-t", "60"}, "resync"},
    {{"set", "Red.NID", "1"}, "set"},
    {{"country"}, "country"},
    {{"--yes", "country", "Spain"}, "country"},
    {{"time"}, "time"},
    {{"date"}, "date"},
    {{"--yes", "time", "now"}, "time"},
    {{"--yes", "reset-factory"}, "reset-factory"},
    {{"raw", "4"}, "raw"},
    {{"slave", "pending", "0a1b2c3d4e5f", "0"}, "slave pending"},
    {{"slave", "encoder", "0a1b2c3d4e5f", "0"}, "slave encoder"},
    {{"slave", "clear", "0"}, "slave clear"},
    {{"slave", "confirm", "0"}, "slave confirm"},
    {{"slave", "report", "0a1b2c3d4e5f", "0"}, "slave report"},
    {{"slave", "register", "0a1b2c3d4e5f"}, "slave register"},
    {{"slave", "upgrade", "0a1b2c3d4e5f"}, "slave upgrade"},
    {{"slave", "state", "0a1b2c3d4e5f", "0"}, "slave state"},
};

TEST_F(Exchange, OfEachCommandIsOneJsonObject) {
    for (const auto& [words, name] : kCommands) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(joined_words(words, {"--json"}));
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_THAT(run.out, testing::EndsWith("\n}\n"));
        const Json json = Json::parse(run.out);
        EXPECT_THAT(keys(json),
                    ElementsAre("schema", "target", "command", "ok", "elapsed_ms", "data"));
        EXPECT_EQ(json["schema"], 2);
        EXPECT_EQ(json["target"], "127.0.0.1:8001");
        EXPECT_EQ(json["command"], name);
        EXPECT_EQ(json["ok"], true);
        EXPECT_TRUE(json["elapsed_ms"].is_number_unsigned() || json["elapsed_ms"] == 0);
        EXPECT_TRUE(json["data"].is_object());
    }
}

TEST(WithoutADaemon, EachCommandSaysThatInOneLineAndInJson) {
    for (const auto& [words, name] : kCommands) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 3);
        EXPECT_EQ(run.err, kOfModule + "no connection: Connection refused\n");
        if (words[0] != "dump") {
            EXPECT_EQ(run.out, "");
        }
        const Json json = json_of(words, 3);
        EXPECT_THAT(keys(json), ElementsAre("schema", "target", "command", "ok", "elapsed_ms",
                                            "data", "error"));
        EXPECT_EQ(json["command"], name);
        EXPECT_EQ(json["ok"], false);
        EXPECT_EQ(json["error"]["stage"], "connect");
        EXPECT_EQ(json["error"]["message"], "no connection: Connection refused");
    }
}

TEST_F(Exchange, IsShownByVerboseInTwoLines) {
    const ProgramRun run = run_zondarctl({"-v", "identify"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, kIdentity);
    EXPECT_EQ(run.err, std::string(kIdentificationRequest) + kIdentificationAnswer);

    const ProgramRun two =
        run_zondarctl({"get", "EntradaAV.0.Brillo", "ConfiguracionGen.Country", "-v"});
    EXPECT_EQ(two.out, "EntradaAV.0.Brillo        51\nConfiguracionGen.Country  Spain\n");
    EXPECT_THAT(
        lines_of(two.err),
        ElementsAre("Tx: " + to_hex(frame(1, {1})), "Rx: " + document::answer(frame(1, {1})),
                    "Tx: " + to_hex(frame(1, {2})), StartsWith("Rx: A5 01 ")));
    // As on the wire: A5 doubled, and header bytes that keep it from the end of the frame.
    EXPECT_EQ(run_zondarctl({"--verbose", "raw", "3", "02A5"}).err,
              "Tx: " + to_hex(frame(3, {2, 165})) + "\n" + kWrittenAnswer);
    EXPECT_EQ(run_zondarctl({"-v", "raw", "3", "0254"}).err,
              "Tx: A5 03 00 00 01 02 02 54 A4\n" + kWrittenAnswer);

    const ProgramRun none = run_zondarctl({"-v", "raw", "5"});
    EXPECT_EQ(none.err, "Tx: " + to_hex(frame(5)) + "\nRx:\n" + kOfModule +
                            "sent; the module gave no answer; the module may have carried it out: "
                            "read it back\n");
    // JSON stays alone on standard output.
    EXPECT_EQ(Json::parse(run_zondarctl({"--json", "-v", "identify"}).out)["ok"], true);
}

TEST_F(Exchange, GoesOutInCrc8Mode) {
    EXPECT_EQ(run_zondarctl({"--crc8", "-v", "identify"}).err,
              "Tx: " + to_hex(frame(0x84)) + "\n" + kIdentificationAnswer);
    const ProgramRun run = run_zondarctl({"raw", "3", "02", "34", "--crc8", "-v"});
    EXPECT_EQ(run.status, 0);
    // Each byte of the info XORed with 55, the two code bytes behind it.
    EXPECT_THAT(lines_of(run.err)[0], MatchesRegex("Tx: A5 83 00 00 00 02 57 61 C3 ..( ..)?"));
    EXPECT_THAT(lines_of(run.err)[1], "Rx: " + to_hex(frame(3)));
    EXPECT_EQ(Database(kConfDb).value("SELECT Brillo FROM EntradaAV WHERE IdEntradaAV = 0"), "52");
}

TEST_F(Exchange, TakesOptionsBeforeAndBehindTheCommand) {
    for (const Words& words :
         {Words{"--json", "--host", "localhost", "--port", "8001", "-t", "20", "-r", "0", "get",
                "Red.NID"},
          Words{"get", "Red.NID", "--json", "--host=localhost", "--port=8001", "--timeout=20",
                "--retries=0"},
          Words{"--port", "8001", "get", "--json", "Red.NID", "--host", "localhost"}}) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        const Json json = Json::parse(run.out);
        EXPECT_EQ(json["target"], "localhost:8001");
        EXPECT_EQ(json["data"]["parameters"], Json::parse(R"([{"name": "Red.NID", "value": 1}])"));
    }
    EXPECT_EQ(run_zondarctl({"slave", "--json", "clear", "0", "-v"}).err,
              "Tx: " + to_hex(frame(3, {107, 0})) + "\n" + kWrittenAnswer);
}

TEST_F(Exchange, FailsWithoutAConnection) {
    const struct {
        Words words;
        int status;
        const char* stage;
        const char* err;  // a regular expression
    } cases[] = {
        {{"--port", "8002"}, 3, "connect", "127.0.0.1:8002: no connection: Connection refused"},
        {{"--host", "127.0.0.2", "--port", "8002"},
         3,
         "connect",
         "127.0.0.2:8002: no connection: Connection refused"},
        {{"--host", "127.0.0.2:8003", "--port", "8002"},
         3,
         "connect",
         "127.0.0.2:8003: no connection: Connection refused"},
        {{"--host", "192.0.2.1"},
         3,
         "connect",
         "192.0.2.1:8001: no connection: Network is unreachable"},
        {{"--host", "nowhere.invalid"},
         3,
         "resolve",
         "nowhere.invalid:8001: no host nowhere\\.invalid: [^\n]+"},
        {{"--host", "300.1.1.1"}, 3, "resolve", "300.1.1.1:8001: no host 300\\.1\\.1\\.1: [^\n]+"},
        {{"--host", "::1"}, 2, "usage", "::1: IPv4 only, HOST or HOST:PORT"},
        {{"--host", ""}, 2, "usage", "an empty word: no host"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.err);
        const Words words = joined_words({"identify"}, each.words);
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, MatchesRegex(std::string("zondarctl: ") + each.err + "\n"));
        EXPECT_EQ(json_of(words, each.status)["error"]["stage"], each.stage);
    }
    // Any address of the module will do.
    EXPECT_EQ(run_zondarctl({"--host", "127.0.0.3", "identify"}).out, kIdentity);
}

// The records of a trace file: the direction, 1 out and 0 in, and the frame without its CRC.
std::vector<std::string> traced(const std::string& path) {
    const std::string file = read_file(path);
    EXPECT_EQ(to_hex(text_bytes(file.substr(0, 24))),
              "D4 C3 B2 A1 02 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 93 00 00 00");
    std::vector<std::string> records;
    for (std::size_t at = 24; at + 16 < file.size();) {
        std::uint32_t length = 0;
        std::memcpy(&length, &file[at + 8], sizeof length);
        const Bytes record = text_bytes(file.substr(at + 16, length));
        records.push_back((record.at(0) == 1 ? "Tx: " : "Rx: ") +
                          to_hex(std::span(record).subspan(1, record.size() - 2)));
        at += 16 + length;
    }
    return records;
}

TEST_F(Exchange, IsAppendedToACaptureFile) {
    const std::string first = run_zondarctl({"-v", "--pcap", "/tmp/frames", "identify"}).err;
    EXPECT_EQ(first, std::string(kIdentificationRequest) + kIdentificationAnswer);
    EXPECT_EQ(traced("/tmp/frames"), lines_of(first));
    const std::string more =
        run_zondarctl({"get", "Red.NID", "ConfiguracionGen.Country", "--pcap", "/tmp/frames", "-v"})
            .err;
    EXPECT_THAT(lines_of(more), SizeIs(4));
    EXPECT_EQ(traced("/tmp/frames"), lines_of(first + more));
    // A request without an answer is in it, too, with what came of one: nothing.
    run_zondarctl({"raw", "5", "--pcap", "/tmp/frames"});
    EXPECT_EQ(traced("/tmp/frames"), lines_of(first + more + "Tx: " + to_hex(frame(5)) + "\n" +
                                              "Rx: 00 00 00 00 00 00 00\n"));
}

TEST(CaptureFile, IsRefusedBeforeAnythingIsSent) {
    write_file("/tmp/text", "this is something else than a capture");
    write_file("/tmp/empty", "");
    const Bytes wifi =
        hex("D4 C3 B2 A1 02 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 69 00 00 00");
    write_file("/tmp/wifi", std::string(wifi.begin(), wifi.end()));
    const std::pair<const char*, const char*> cases[] = {
        {"/tmp/text", "it is there, and holds something else"},
        {"/tmp/empty", "it is there, and holds something else"},
        {"/tmp/wifi", "it is there, and holds something else"},
        {"/tmp", "it is there, and holds something else"},
        {"/nowhere/frames", "No such file or directory"},
        {"/tmp/text/frames", "Not a directory"},
        {"/usr/frames", "Read-only file system"},
    };
    // Without a daemon: had it been asked, the status would be 3.
    for (const auto& [path, why] : cases) {
        const ProgramRun run = run_zondarctl({"identify", "--pcap", path});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err,
                  std::string("zondarctl: cannot write frames to ") + path + ": " + why + "\n");
        EXPECT_EQ(json_of({"identify", "--pcap", path}, 2)["error"]["stage"], "usage");
    }
    EXPECT_EQ(read_file("/tmp/text"), "this is something else than a capture");
    EXPECT_EQ(read_file("/tmp/empty"), "");
    // No daemon, no frames, no file.
    EXPECT_EQ(run_zondarctl({"identify", "--pcap", "/tmp/none"}).status, 3);
    EXPECT_FALSE(fs::exists("/tmp/none"));
}

TEST_F(Exchange, ShowsTextsOfAnyEncoding) {
    const struct {
        const char* bytes;  // in the database
        const char* shown;
        const char* json;
        const char* hex;  // empty for none
    } cases[] = {
        {"C3B16F", "\u00F1o", "\u00F1o", ""},
        {"41FF", "A\\xFF", "A\uFFFD", "41 FF"},
        {"1B5B33316D41", "\\x1B[31mA", "\x1B[31mA", ""},
        {"C29B41", "\\xC2\\x9BA", "\u009BA", ""},
        {"410A42", "A\\x0AB", "A\nB", ""},
        {"417F", "A\\x7F", "A\x7F", ""},
        {"EDA080", "\\xED\\xA0\\x80", "\uFFFD\uFFFD\uFFFD", "ED A0 80"},
        {"C3", "\\xC3", "\uFFFD", "C3"},
        {"E282AC", "\u20AC", "\u20AC", ""},
        {"22", "\"", "\"", ""},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.bytes);
        run_elsewhere(
            kConfDb, std::string("UPDATE Red SET Proveedor = CAST(x'") + each.bytes + "' AS TEXT)");
        EXPECT_EQ(run_zondarctl({"get", "Red.Proveedor"}).out,
                  std::string("Red.Proveedor  ") + each.shown + "\n");
        const Json parameter = json_of({"get", "Red.Proveedor"})["data"]["parameters"][0];
        EXPECT_EQ(parameter["value"], each.json);
        EXPECT_EQ(parameter.value("value_hex", ""), each.hex);
    }
    // Also in what is said of it.
    const ProgramRun run = run_zondarctl({"get", "Red.TSID_Out\x1B[m"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "zondarctl: no parameter Red.TSID_Out\\x1B[m; did you mean Red.TSID_Out?\n");
}

TEST_F(Exchange, IsColouredForATerminalOnly) {
    const std::string alert = "\033[1;31malarma_in        yes\033[0m\r\n";
    const auto on_terminal = [](const Words& environment) {
        return run_on_terminal(joined_words(joined_words({"/usr/bin/env"}, environment),
                                            {zondarctl_path(), "status"}))
            .out;
    };
    EXPECT_THAT(on_terminal({"-u", "NO_COLOR"}), HasSubstr(alert));
    EXPECT_THAT(on_terminal({"-u", "NO_COLOR"}), HasSubstr("\nalarma_cod       no\r\n"));
    EXPECT_THAT(on_terminal({"NO_COLOR="}), HasSubstr(alert));
    EXPECT_THAT(on_terminal({"NO_COLOR=1"}), Not(HasSubstr("\033")));
    EXPECT_THAT(on_terminal({"NO_COLOR=1"}), HasSubstr("\nalarma_in        yes\r\n"));
    EXPECT_THAT(run_zondarctl({"status"}).out, Not(HasSubstr("\033")));
    EXPECT_THAT(zondarctl_on_terminal({"--json", "status"}).out, Not(HasSubstr("\033")));
}

// The lock of the target; what it holds is a mark that the module is in the middle of something.
const std::string kLock = "/tmp/zondar-127.0.0.1-8001.lock";

TEST_F(Exchange, GoesItsWayWhateverTheStandardStreamsAre) {
    const struct {
        const char* line;
        int status;
    } cases[] = {
        {"config > /dev/full", 2},
        {"list > /dev/full", 2},
        {"dump > /dev/full", 2},
        {"-v dump 2> /dev/full", 0},
        {"-v dump > /dev/full 2> /dev/full", 2},
        {"watch --count 3 -n 0 > /dev/full", 2},
        {"config >&-", 0},
        {"-v dump 2>&-", 0},
        {"-v dump <&- >&- 2>&-", 0},
        {"raw 3 36 01 2> /dev/full", 1},
        {"raw 3 36 01 2>&-", 1},
        {"raw 1 1 2> /dev/full", 2},
        {"--port 8002 identify 2> /dev/full", 3},
        {"--port 8002 identify 2>&-", 3},
        {"-v raw 5 <&- >&- 2>&-", 4},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.line);
        EXPECT_EQ(in_shell(each.line).status, each.status);
        EXPECT_EQ(read_file(kLock).size(), each.status == 4 ? 1U : 0U);
    }
    EXPECT_EQ(in_shell("set EntradaAV.0.Brillo 7 > /dev/full").status, 2);
    EXPECT_EQ(run_zondarctl({"get", "EntradaAV.0.Brillo"}).out, "EntradaAV.0.Brillo  7\n");
}

// What something that is no module does with a connection for an answer.
using Answer = std::function<void(const Peer::Accept& accept, const Peer::Visitor& collection)>;

Answer sends(const Bytes& bytes) {
    return [bytes](const Peer::Accept& /*accept*/, const Peer::Visitor& collection) {
        collection.send(bytes);
    };
}

// Sends it and keeps the connection open.
Answer holds(const Bytes& bytes) {
    return [bytes](const Peer::Accept& accept, const Peer::Visitor& collection) {
        collection.send(bytes);
        accept();
    };
}

Answer never_ends(const Bytes& bytes) {
    return [bytes](const Peer::Accept& /*accept*/, const Peer::Visitor& collection) {
        while (collection.takes(bytes)) {
        }
    };
}

TEST(AnswerThatIsNone, HasItsExitStatusAndOneLine) {
    Bytes wrong_checksum = frame(4, Bytes(48));
    wrong_checksum.back() ^= 1U;
    Bytes late_beginning(4 * 263);  // the most that is read in search of a frame
    std::ranges::copy(hex("A5 04 00 00 00 30"), std::back_inserter(late_beginning));
    const struct {
        const char* what;
        Answer answer;
        int status;
        const char* stage;
        const char* message;  // a regular expression
    } cases[] = {
        {"nothing", sends({}), 4, "answer", "the module gave no answer"},
        {"nothing, for ever", holds({}), 4, "answer", "no answer after 0\\.3 s"},
        {"garbage", sends(text_bytes("HTTP/1.1 400 Bad Request\r\n")), 4, "answer",
         "what answers there is no module: \"HTTP/1.1 400 Bad Request\""},
        {"a byte", sends(hex("A5")), 4, "answer", "the answer broke off after 1 bytes"},
        {"half a frame", sends(hex("A5 04 00 00 00 30 5A 4E 44")), 4, "answer",
         "the answer broke off after 9 bytes"},
        {"half a frame, for ever", holds(hex("A5 04 00 00 00 30 5A 4E 44")), 4, "answer",
         "only 9 bytes of the answer in time"},
        {"an endless stream", never_ends(Bytes(1000)), 4, "answer",
         "what answers there is no module"},
        {"a late beginning", holds(late_beginning), 4, "answer",
         "no frame in the first [0-9]+ bytes of the answer"},
        {"an endless stream of starts", never_ends(Bytes(1000, 0xA5)), 5, "code",
         "wrong checksum or CRC in the answer"},
        {"wrong checksum", sends(wrong_checksum), 5, "code", "wrong checksum or CRC in the answer"},
        // start, control: sequence 1, command 4
        {"wrong sequence", sends(frame(0x14)), 6, "sequence", "the answer has sequence number 1"},
        {"wrong sequence 7", sends(frame(0x74)), 6, "sequence", "the answer has sequence number 7"},
        {"another command", sends(frame(0, Bytes(28))), 7, "command",
         "an answer to command 0 instead of 4"},
        {"an identification that is too short", sends(frame(4, Bytes(47))), 7, "command",
         "an answer to another request"},
        {"an identification that is too long", sends(frame(4, Bytes(49))), 7, "command",
         "an answer to another request"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        for (const bool json : {false, true}) {
            fs::remove(kLock);  // with it the mark that the module has to be re-synchronised first
            const Peer peer([&](const Peer::Accept& accept) {
                const auto request = accept();
                if (request->read_to_end().empty())
                    return;
                if (const auto collection = accept())
                    each.answer(accept, *collection);
            });
            Words words = {"identify", "-r", "0", "-t", "0.3"};
            if (json)
                words.emplace_back("--json");
            const ProgramRun run = run_zondarctl(words);
            EXPECT_EQ(run.status, each.status);
            EXPECT_THAT(run.err, MatchesRegex(kOfModule + each.message + "\n"));
            if (json) {
                EXPECT_EQ(Json::parse(run.out)["error"]["stage"], each.stage);
                EXPECT_EQ(Json::parse(run.out)["data"], Json::object());
            } else {
                EXPECT_EQ(run.out, "");
            }
        }
    }
}

// The answer has come whole; what is still waited for is the module's end of its connection, within
// the time of the call. On a clock that stands.
TEST(WholeAnswer, IsWaitedBehindFor200Milliseconds) {
    const std::pair<const char*, const char*> cases[] = {{"5", "200"}, {"0.1", "100"}};
    for (const auto& [timeout, farewell] : cases) {
        const Peer peer([](const Peer::Accept& accept) {
            const auto request = accept();
            EXPECT_EQ(to_hex(request->read_to_end()), to_hex(frame(4)));
            holds(frame(4, Bytes(48)))(accept, *accept());
        });
        Words words = with_standing_clock("poll", "/tmp/calls");
        words = joined_words(words, {zondarctl_path(), "identify", "-t", timeout});
        EXPECT_EQ(run_program(words).status, 0);
        EXPECT_THAT(read_file("/tmp/calls"), HasSubstr(std::string(", events=POLLIN}], 1, ") +
                                                       farewell + ") = 0 (Timeout)\n"));
    }
}

TEST(AnswerThatIsNone, MakesNoValueOfAnyCommand) {
    const Peer peer([&](const Peer::Accept& accept) { answer_with(accept, frame(9, Bytes(60))); });
    for (const auto& [words, name] : kCommands) {
        if (words[0] == "dump")
            continue;
        SCOPED_TRACE(testing::PrintToString(words));
        const Json json = json_of(joined_words(words, {"-r", "0"}), 7);
        EXPECT_EQ(json["data"], Json::object());
        EXPECT_THAT(
            json["error"]["message"].get<std::string>(),
            MatchesRegex("(sent; )?an answer to command 9 instead of [0-4](; the module may "
                         "have carried it out: read it back)?"));
    }
}

// Nobody accepts: the connections stand in the queue.
TEST(SilentPeer, CostsNoMoreThanTheTimeOfTheCall) {
    const Peer peer([](const Peer::Accept& /*accept*/) {});
    const ProgramRun run = run_zondarctl({"identify", "-t", "0.2", "-r", "100"});
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err, kOfModule + "no answer after 0.2 s\n");
    // And is found silent again, when the module has to be re-synchronised first.
    EXPECT_EQ(run_zondarctl({"identify", "-t", "0.2"}).status, 4);
}

Bytes block(std::uint8_t number) {
    Bytes info(document::length("Block " + std::to_string(number)));
    info[0] = number;
    return frame(1, info);
}

TEST(Request, IsRepeatedWhenItOnlyReads) {
    const struct {
        Words words;
        unsigned damaged;  // the command whose answers are
        int times;
    } cases[] = {
        {{"identify"}, 4, 3},
        {{"identify", "-r", "0"}, 4, 1},
        {{"status", "-r", "4"}, 0, 5},
        {{"get", "Red.NID", "--retries", "1"}, 1, 2},
        {{"set", "Red.NID", "1", "-r", "4"}, 1, 5},
        {{"set", "Red.NID", "1", "-r", "4"}, 3, 1},
        {{"raw", "4", "-r", "4"}, 4, 1},
        {{"slave", "state", "0a1b2c3d4e5f", "1", "-r", "4"}, 3, 1},
        {{"--yes", "reset-factory", "-r", "4"}, 3, 1},
        {{"--yes", "time", "09.05", "-r", "4"}, 3, 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        fs::remove(kLock);
        std::atomic<int> damaged = 0;
        std::atomic<std::size_t> exchanges = 0;
        const Peer peer([&](const Peer::Accept& accept) {
            while (const auto visitor = accept()) {
                const Bytes request = visitor->read_to_end();
                if (request.empty())
                    continue;
                ++exchanges;
                const bool damages = request.at(1) == each.damaged;
                damaged += damages ? 1 : 0;
                if (const auto collection = accept())
                    collection->send(damages ? hex("A5 03 00 00 00 00 FE") : block(request.at(6)));
            }
        });
        const ProgramRun run = run_zondarctl(joined_words(each.words, {"-v", "-t", "60"}));
        EXPECT_EQ(run.status, 5);
        EXPECT_EQ(damaged, each.times);
        // Two lines for each, and one for the end.
        EXPECT_THAT(lines_of(run.err), SizeIs(2 * exchanges + 1));
    }
}

TEST(Request, SucceedsWithTheAnswerToItsRepetition) {
    Bytes wrong = frame(4, Bytes(48));
    wrong.back() ^= 1U;
    const Peer peer([&](const Peer::Accept& accept) {
        answer_in_turn(accept, {wrong, {}, frame(4, text_bytes(std::string(48, 'a')))});
    });
    const ProgramRun run = run_zondarctl({"identify", "-t", "60"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, HasSubstr("serial       aaaaaaaaaaaa\n"));
}

TEST_F(Exchange, IsRefusedByTheModule) {
    const ProgramRun run = run_zondarctl({"raw", "3", "36", "01"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, kOfModule + "the module refused the request\n");
    EXPECT_EQ(json_of({"raw", "3", "36", "01"}, 1)["error"]["stage"], "refused");
    // It was between two frames all the time.
    EXPECT_EQ(read_file(kLock), "");
}

// Another master asks for the status and goes away without its answer.
TEST_F(Exchange, NeverTakesTheAnswerToSomebodyElse) {
    const Bytes status_request = frame(0);
    send_request(status_request);
    EXPECT_EQ(run_zondarctl({"identify"}).out, kIdentity);
    send_request(status_request);
    EXPECT_EQ(run_zondarctl({"get", "EntradaAV.0.Brillo"}).out, "EntradaAV.0.Brillo  51\n");
    send_request(status_request);
    const ProgramRun watched = run_zondarctl({"watch", "--count", "2", "-n", "0"});
    EXPECT_THAT(watched.out, testing::EndsWith("\n2 exchanges, 2 answers, 0 losses\n"));

    // What is changed is read before, which brings the module back.
    send_request(status_request);
    EXPECT_EQ(run_zondarctl({"set", "EntradaAV.0.Brillo", "52"}).out,
              "EntradaAV.0.Brillo  52  read back, was 51\n");
    // A write is not repeated; it has not been carried out.
    const std::string lost =
        kOfModule +
        "the module was waiting to answer somebody else; it did not take this request\n";
    send_request(status_request);
    const ProgramRun write = run_zondarctl({"raw", "3", "02", "07"});
    EXPECT_EQ(write.status, 7);
    EXPECT_EQ(write.out, "");
    EXPECT_EQ(write.err, lost);
    EXPECT_EQ(run_zondarctl({"get", "EntradaAV.0.Brillo"}).out, "EntradaAV.0.Brillo  52\n");
    send_request(status_request);
    const Json error = json_of({"slave", "clear", "0"}, 7)["error"];
    EXPECT_EQ(error["stage"], "command");
    EXPECT_EQ(error["outcome"], "not taken");
    // The exchange behind one that failed finds out for itself what was left.
    send_request(status_request);
    EXPECT_EQ(run_zondarctl({"identify", "-r", "0", "-t", "60"}).out, kIdentity);
    send_request(status_request);
    EXPECT_EQ(run_zondarctl({"identify", "-r", "0"}).err, lost);
    EXPECT_EQ(run_zondarctl({"set", "EntradaAV.0.Brillo", "7"}).status, 0);
    // An answer to the same command is not taken either: it would be of a time before.
    send_request(status_request);
    run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor = '1' WHERE nombre = 'alarma_ip'");
    EXPECT_EQ(json_of({"status"})["data"]["alarms"], Json::parse(R"(["alarma_in", "alarma_ip"])"));
}

const Bytes kWriteSeven = frame(3, "02 07");
constexpr char kReplays[] =
    "the module carries out old requests again, one for each connection: its daemon must be "
    "restarted, not re-synchronised";

// Three connections are what it takes to tell, and each carries the write out again.
TEST(ReplayingModule, IsLeftAloneBehindAFewAnswers) {
    const struct {
        Words words;
        int status;
        std::string out;
        std::string err;
    } cases[] = {
        {{"resync", "-t", "60"}, 7, "", kOfModule + kReplays + "\n"},
        {{"identify", "-r", "100", "-t", "60"}, 7, "", kOfModule + kReplays + "\n"},
        {{"status"}, 7, "", kOfModule + kReplays + "\n"},
        {{"watch", "-n", "0"}, 7, "", kOfModule + kReplays + "\n"},
        {{"check"},
         2,
         std::string("ZONDAR CRITICAL - ") + kReplays + "\n",
         kOfModule + kReplays + "\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        fs::remove(kLock);
        ReplayingDaemon daemon(kWriteSeven);
        run_elsewhere(kConfDb, "UPDATE EntradaAV SET Brillo = 51 WHERE rowid = 0");
        const ProgramRun run = run_zondarctl(each.words);
        EXPECT_EQ(run.status, each.status);
        EXPECT_EQ(run.out, each.out);
        EXPECT_EQ(run.err, each.err);
        EXPECT_EQ(daemon.connections(), 3);
        EXPECT_TRUE(daemon.carried_out_again(1 + 3));
        EXPECT_EQ(Database(kConfDb).value("SELECT Brillo FROM EntradaAV WHERE rowid = 0"), "7");
        // The next call knows that the last one did not end well.
        const Json error = json_of({"status"}, 7)["error"];
        EXPECT_EQ(error["stage"], "command");
        EXPECT_EQ(error["message"], kReplays);
        EXPECT_EQ(daemon.connections(), 3 + 3);
    }
}

TEST(ReplayingModule, GetsNoWriteTwice) {
    fs::remove(kLock);
    ReplayingDaemon daemon(kWriteSeven);
    EXPECT_EQ(run_zondarctl({"raw", "3", "03", "09"}).err,
              kOfModule +
                  "the module was waiting to answer somebody else; it did not take this "
                  "request\n");
    EXPECT_EQ(daemon.connections(), 2);
    for (const Words& write :
         {Words{"raw", "3", "03", "09"}, {"set", "EntradaAV.0.Contraste", "9"}}) {
        const int before = daemon.connections();
        EXPECT_EQ(run_zondarctl(write).err, kOfModule + kReplays + "\n");
        EXPECT_EQ(daemon.connections(), before + 3);
    }
}

class HeldLock {
  public:
    HeldLock() : descriptor_(open(kLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
        EXPECT_EQ(flock(descriptor_, LOCK_EX), 0);
    }
    ~HeldLock() { close(descriptor_); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

  private:
    int descriptor_;
};

TEST_F(Exchange, FailsWhileAnotherProgramHoldsTheTarget) {
    const HeldLock held;
    for (const Words& words :
         {Words{"identify", "-t", "0.1"}, Words{"set", "Red.NID", "7", "-t", "0.1"},
          Words{"dump", "-t", "0.1"}, Words{"resync", "-t", "0.1"}}) {
        const ProgramRun run = run_zondarctl(words);
        EXPECT_EQ(run.status, 8);
        EXPECT_THAT(run.err, StartsWith(kOfModule + "another program is asking this module"));
        EXPECT_EQ(json_of(words, 8)["error"]["stage"], "lock");
    }
    const ProgramRun check = run_zondarctl({"check", "-t", "0.1"});
    EXPECT_EQ(check.status, 3);
    EXPECT_THAT(check.out, StartsWith("ZONDAR UNKNOWN - another program is asking this module"));
    // By another name it is the same target, at another port it is not.
    EXPECT_EQ(run_zondarctl({"--host", "localhost", "identify", "-t", "0.1"}).status, 8);
    EXPECT_EQ(run_zondarctl({"--port", "8002", "identify", "-t", "0.1"}).status, 3);
    EXPECT_EQ(run_zondarctl({"list", "-t", "0.1"}).status, 0);
}

TEST_F(Exchange, WaitsForItsTurn) {
    std::optional<HeldLock> held(std::in_place);
    const ProgramRun run =
        run_program({zondarctl_path(), "identify", "-t", "60"}, "", [&](int pid) {
            EXPECT_TRUE(eventually([&] {
                std::error_code none;
                for (const auto& entry :
                     fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", none)) {
                    if (fs::read_symlink(entry.path(), none) == kLock)
                        return true;
                }
                return false;
            }));
            held.reset();
        });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, kIdentity);
}

TEST_F(Exchange, OfManyProgramsAtOnceGetsEachItsOwnAnswer) {
    std::vector<std::thread> programs;
    std::atomic<int> right = 0;
    for (int i = 0; i < 6; ++i) {
        programs.emplace_back([&right, i] {
            for (int times = 0; times < 4; ++times) {
                const std::string name = i % 2 == 0 ? "Red.NID" : "IPOut.Ttl";
                const ProgramRun run = run_zondarctl({"get", name, "-t", "60"});
                right += run.out == name + (i % 2 == 0 ? "  1\n" : "  16\n") ? 1 : 0;
            }
        });
    }
    for (std::thread& program : programs)
        program.join();
    EXPECT_EQ(right, 24);
}

}  // namespace
