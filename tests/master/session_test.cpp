// Conversations with a module over real connections, and with what only looks like one.
#include "master/session.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "master/failure.h"
#include "master/frame.h"
#include "master/parameters.h"
#include "master/requests.h"
#include "tests/master/outcomes.h"
#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/peer.h"
#include "tests/support/protocol_document.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/running_daemon.h"

namespace master {

namespace {

using testing::ElementsAre;
using testing::StartsWith;

// How many connections have their end at port 8001 in the state of waiting for late segments, in
// which they keep the port from being bound.
int waiting_at_the_port() {
    std::ifstream table("/proc/net/tcp");
    int count = 0;
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream words(line);
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        words >> number >> local >> remote >> state;
        if (local.ends_with(":1F41") && state == "06")
            ++count;
    }
    return count;
}

Request write_brightness(std::uint32_t value) {
    return write_request(*find_parameter("EntradaAV.0.Brillo"), value);
}

std::string stored_brightness() {
    return Database(kConfDb).value("SELECT Brillo FROM EntradaAV WHERE rowid = 0");
}

// Of a write whose fate is not known.
const std::string kReadBack = "; the module may have carried it out: read it back";

const Bytes kIdentify = frame(4);
const Bytes kIdentification = hex(document::answer(kIdentify));
const Bytes kWritten = frame(3);
const Bytes kRefused = frame(3, Bytes(255));

// What outcome() says of the answers.
std::string bytes_of(const std::string& heading) {
    return std::to_string(document::length(heading)) + " bytes";
}
const std::string kIdentified = bytes_of("Identification");

// What a module that is none does with a request's collecting connection.
struct Reply {
    enum class After : std::uint8_t { closes, resets, keeps, repeats };
    Bytes bytes;
    After after = After::closes;
};

// Takes requests and answers the first with the first reply, each further one with the next, or
// with the last. Keeps a request's connection until it is answered, as a module does. What it saw
// is told once it has ended.
class FakeModule {
  public:
    explicit FakeModule(std::vector<Reply> replies) : replies_(std::move(replies)) {
        peer_.emplace([this](const Peer::Accept& accept) { run(accept); });
    }

    std::size_t requests() { return sent().size(); }
    const std::vector<Bytes>& sent() {
        peer_.reset();
        return sent_;
    }
    // Somebody waits for an answer, or did so.
    [[nodiscard]] bool asked() const { return asked_; }
    // Connections without a byte, as re-synchronisations are made of.
    std::size_t empty_ones() {
        peer_.reset();
        return empty_ones_;
    }

  private:
    void run(const Peer::Accept& accept) {
        while (auto request = accept()) {
            const Bytes bytes = request->read_to_end();
            if (bytes.empty()) {
                ++empty_ones_;
                continue;
            }
            sent_.push_back(bytes);
            auto collection = accept();
            if (collection == nullptr)
                return;
            asked_ = true;
            if (current().after == Reply::After::resets)
                request.reset();
            reply(*collection);
            if (current().after == Reply::After::keeps) {
                kept_.push_back(std::move(request));
                kept_.push_back(std::move(collection));
            }
        }
    }

    [[nodiscard]] const Reply& current() const {
        return replies_[std::min(sent_.size(), replies_.size()) - 1];
    }

    void reply(const Peer::Visitor& collection) const {
        if (current().after == Reply::After::resets) {
            // Not any sooner: the master may then think that there is no connection.
            EXPECT_EQ(collection.read_to_end(), Bytes());
            collection.reset_at_end();
        }
        if (!current().bytes.empty())
            collection.send(current().bytes);
        while (current().after == Reply::After::repeats && collection.takes(current().bytes)) {
        }
    }

    std::vector<Reply> replies_;
    std::vector<Bytes> sent_;
    std::atomic<bool> asked_ = false;
    std::size_t empty_ones_ = 0;
    std::vector<std::unique_ptr<Peer::Visitor>> kept_;
    std::optional<Peer> peer_;
};

using After = Reply::After;

TEST(Session, ReturnsTheInfoOfTheAnswer) {
    FakeModule module({{kIdentification}});
    EXPECT_EQ(to_hex(Session({}).ask(identification_request())),
              to_hex({kIdentification.begin() + 6, kIdentification.end() - 1}));
    EXPECT_THAT(module.sent(), ElementsAre(kIdentify));
    EXPECT_EQ(module.empty_ones(), 0U);
    EXPECT_FALSE(marked());
}

TEST(Session, TakesAnAnswerInEitherMode) {
    const Request any = {.command = 3};
    for (const char* const answer :
         {"A5 03 00 00 00 02 02 34 C5", "A5 83 00 00 00 02 57 61 C3 BD"}) {
        FakeModule module({{hex(answer)}});
        EXPECT_EQ(to_hex(Session({}).ask(any)), "02 34") << answer;
    }
}

TEST(Session, AsksInCrc8Mode) {
    FakeModule module({{kIdentification}});
    EXPECT_EQ(outcome(identification_request(), {.crc8_mode = true}), kIdentified);
    EXPECT_THAT(module.sent(), ElementsAre(frame(0x84)));
}

TEST(Session, TakesTheFirstFrameOfWhatComes) {
    for (const Reply& reply :
         {Reply{joined({kIdentification, hex("A5 03 00 00 FF")})},
          Reply{joined({hex("00 FC 04"), kIdentification})}, Reply{kIdentification, After::keeps},
          Reply{kIdentification, After::repeats}}) {
        FakeModule module({reply});
        EXPECT_EQ(outcome(identification_request(), {.timeout = kForEver}), kIdentified);
        EXPECT_EQ(module.requests(), 1U);
        EXPECT_FALSE(marked());
    }
}

// What has come from port 8001 and nobody has read yet.
std::size_t unread_bytes() {
    std::ifstream table("/proc/net/tcp");
    std::size_t count = 0;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        std::string queues;  // "sent:received"
        words >> number >> local >> remote >> state >> queues;
        if (remote.ends_with(":1F41"))
            count += std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16);
    }
    return count;
}

// 263 bytes are 520 on the wire when all that can be doubled is; they come as the network brings
// them.
TEST(Session, TakesTheLongestAnswerInAnyParts) {
    const Bytes answer =
        joined({hex("A5 04"), Bytes(6, 0xA5), hex("FF"), Bytes(510, 0xA5), hex("B3")});
    for (const std::size_t part : {520U, 263U, 264U, 500U, 1U}) {
        SCOPED_TRACE(part);
        const Peer peer([&](const Peer::Accept& accept) {
            const auto request = accept();
            EXPECT_EQ(request->read_to_end(), kIdentify);
            const auto collection = accept();
            for (std::span<const std::uint8_t> rest = answer; !rest.empty();) {
                collection->send(rest.first(std::min(part, rest.size())));
                rest = rest.subspan(std::min(part, rest.size()));
                EXPECT_TRUE(eventually([] { return unread_bytes() == 0; }));
            }
        });
        EXPECT_EQ(outcome({.command = 4}, {.timeout = kForEver}), "255 bytes");
    }
}

// Of a request that reads and of one that writes. The answers to the latter, which must be empty,
// bear its command.
TEST(Session, RepeatsWhatReadsAndNeverWhatWritesWhenTheAnswerIsNotOne) {
    const struct {
        const char* what;
        Reply to_read;
        Reply to_write;
        const char* outcome;
    } kCases[] = {
        {"nothing", {}, {}, "answer: the module gave no answer"},
        {"reset", {{}, After::resets}, {{}, After::resets}, "answer: the module gave no answer"},
        {"half a frame",
         {hex("A5 04 00 00 00 30 5A")},
         {hex("A5 03 00 00 00 30 5A")},
         "answer: the answer broke off after 7 bytes"},
        {"checksum",
         {hex("A5 04 00 00 00 00 FD")},
         {hex("A5 03 00 00 00 00 FC")},
         "code: wrong checksum or CRC in the answer"},
        {"CRC",
         {hex("A5 84 00 00 00 00 7C D5")},
         {hex("A5 83 00 00 00 02 57 61 C3 BC")},
         "code: wrong checksum or CRC in the answer"},
        {"sequence", {frame(0x34)}, {frame(0x33)}, "sequence: the answer has sequence number 3"},
        {"command", {frame(2)}, {frame(2)}, "command: an answer to command 2 instead of 4"},
        {"length", {frame(4, "5A")}, {frame(3, "5A")}, "command: an answer to another request"},
        {"half a frame behind too many zeros",
         {joined({Bytes(1052), hex("A5 04 00 00 00 30 5A")})},
         {joined({Bytes(1052), hex("A5 03 00 00 00 30 5A")})},
         "answer: no frame in the first 1059 bytes of the answer"},
        {"starts without end",
         {Bytes(1000, 0xA5), After::repeats},
         {Bytes(1000, 0xA5), After::repeats},
         "code: wrong checksum or CRC in the answer"},
    };
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.what);
        FakeModule read({each.to_read});
        EXPECT_EQ(outcome(identification_request(), {.timeout = kForEver}), each.outcome);
        EXPECT_EQ(read.requests(), 3U);
        EXPECT_EQ(read.empty_ones(), 2 * 501U);
        EXPECT_TRUE(marked());
        std::filesystem::remove(kLockFile);

        FakeModule written({each.to_write});
        std::string expected = each.outcome;
        if (expected.ends_with("4") && expected.starts_with("command"))
            expected.back() = '3';
        expected.insert(expected.find(' '), " sent;");
        EXPECT_EQ(outcome(write_brightness(52), {.timeout = kForEver}), expected + kReadBack);
        EXPECT_EQ(written.requests(), 1U);
        EXPECT_EQ(written.empty_ones(), 0U);
        EXPECT_TRUE(marked());
        std::filesystem::remove(kLockFile);
    }
}

// Whoever it is, it is asked once, is sent no empty connections, and leaves no mark. Without an
// introduction it may have been a module after all.
TEST(Session, TellsWhatIsNoModule) {
    const std::string kLine60(60, 'x');
    const struct {
        Bytes bytes;
        std::string said;
        After after = After::closes;
    } kCases[] = {
        {text_bytes("SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n"), R"(: "SSH-2.0-OpenSSH_9.2p1 Debian-2")"},
        {text_bytes("HTTP/1.1 400 Bad Request\nServer: \xE9\n"), R"(: "HTTP/1.1 400 Bad Request")"},
        {text_bytes("+OK"), R"(: "+OK")", After::keeps},
        {text_bytes(kLine60), ": \"" + kLine60 + '"'},
        {text_bytes(kLine60 + "x"), ""},
        {text_bytes("\033[2J\r\n"), ""},
        {text_bytes("\r\nlogin: "), ""},
        {hex("00 FC 04 B8"), ""},
        {Bytes(1000), "", After::repeats},
    };
    for (const auto& each : kCases) {
        const std::string expected = "answer: what answers there is no module" + each.said;
        SCOPED_TRACE(expected);
        const Settings settings = {.timeout = each.after == After::keeps ? kShort : kForEver};
        FakeModule server({{each.bytes, each.after}});
        EXPECT_EQ(outcome(identification_request(), settings), expected);
        const std::string of_write = "answer: sent; what answers there is no module";
        EXPECT_EQ(outcome(write_brightness(52), settings),
                  each.said.empty() ? of_write + kReadBack : expected);
        EXPECT_EQ(server.requests(), 2U);
        EXPECT_EQ(server.empty_ones(), 0U);
        EXPECT_FALSE(marked());
    }
}

// Most of them before they are asked anything.
TEST(Session, TellsAServerThatIntroducesItself) {
    std::size_t connections = 0;
    {
        const Peer server([&](const Peer::Accept& accept) {
            std::vector<std::unique_ptr<Peer::Visitor>> kept;
            while (auto visitor = accept()) {
                visitor->send(text_bytes("SSH-2.0-Test\r\n"));
                kept.push_back(std::move(visitor));
                ++connections;
            }
        });
        for (const Request& request : {identification_request(), write_brightness(52)})
            EXPECT_EQ(outcome(request, {.timeout = kForEver}),
                      "answer: what answers there is no module: \"SSH-2.0-Test\"");
        EXPECT_FALSE(marked());
        EXPECT_EQ(outcome_of([] { return Session({}).resync(), Bytes(); }),
                  "answer: what answers there is no module: \"SSH-2.0-Test\"");
    }
    EXPECT_LE(connections, 5U);
}

Outcome fate_of(const Request& request, const Settings& settings) {
    try {
        Session(settings).ask(request);
    } catch (const Failure& failure) {
        return failure.outcome();
    }
    ADD_FAILURE() << "it was answered";
    return Outcome::none;
}

TEST(Session, TellsTheFateOfWhatWrites) {
    const Reply kSilence = {{}, After::keeps};
    const struct {
        const char* what;
        Reply reply;
        Outcome outcome;
    } kCases[] = {
        {"silence", kSilence, Outcome::unknown},
        {"nothing", {}, Outcome::unknown},
        {"checksum", {hex("A5 03 00 00 00 00 FC")}, Outcome::unknown},
        {"command", {frame(2)}, Outcome::unknown},
        {"refused", {kRefused}, Outcome::not_taken},
        {"no module", {text_bytes("+OK")}, Outcome::not_taken},
    };
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.what);
        const FakeModule module({each.reply});
        EXPECT_EQ(fate_of(write_brightness(52), {.timeout = kShort}), each.outcome);
        std::filesystem::remove(kLockFile);
        // The refusal of a write is another answer to what reads.
        EXPECT_EQ(fate_of(identification_request(), {.timeout = kShort}), Outcome::none);
        std::filesystem::remove(kLockFile);
    }
    EXPECT_EQ(fate_of(write_brightness(52), {}), Outcome::not_sent);
    EXPECT_EQ(fate_of(write_brightness(52), {.target = {.host = "::1"}}), Outcome::not_sent);
    write_file(kLockFile, "x");
    {
        const Peer server([](const Peer::Accept& accept) {
            while (const auto visitor = accept())
                visitor->send(text_bytes("+OK\r\n"));
        });
        EXPECT_EQ(fate_of(write_brightness(52), {.timeout = kShort}), Outcome::not_sent);
    }
    write_file(kLockFile, "x");
    const Peer busy([](const Peer::Accept&) {}, 5);
    EXPECT_EQ(fate_of(write_brightness(52), {.timeout = kShort}), Outcome::not_sent);
    const Session other({});
    EXPECT_EQ(fate_of(write_brightness(52), {.timeout = kShort}), Outcome::not_sent);
}

TEST(Session, SaysHowLongItWaitedForAnAnswer) {
    const FakeModule module({{{}, After::keeps}});
    Session session({.timeout = 500ms});
    EXPECT_EQ(outcome_of([&] { return session.ask(write_brightness(52)); }),
              "answer: sent; no answer after 0.5 s" + kReadBack);
    std::filesystem::resize_file(kLockFile, 0);
    session.allow(1s);
    EXPECT_EQ(outcome_of([&] { return session.ask(identification_request()); }),
              "answer: no answer after 1 s");
}

TEST(Session, TakesNoAnswerToAnotherBlockOrSubcommand) {
    constexpr char kMac[] = "0a1b2c3d4e5f";
    Bytes info(document::length("Block 1"));
    info[0] = 1;
    FakeModule other_block({{frame(1, info)}});
    EXPECT_EQ(outcome(block_request(1)), bytes_of("Block 1"));
    EXPECT_EQ(outcome(block_request(2), {.retries = 0}), "command: an answer to another request");
    info[0] = 2;
    EXPECT_EQ(other_block.requests(), 2U);
    FakeModule short_block({{frame(1, info)}});
    EXPECT_EQ(outcome(block_request(2), {.retries = 0}), "command: an answer to another request");
    EXPECT_EQ(short_block.requests(), 1U);
    FakeModule slave({{frame(3, "69 01 00")}});
    EXPECT_EQ(
        outcome(action_request("slave pending", {{"mac", kMac}, {"channel", std::int64_t{1}}})),
        "3 bytes");
    EXPECT_EQ(
        outcome(action_request("slave encoder", {{"mac", kMac}, {"channel", std::int64_t{1}}})),
        "command: sent; an answer to another request" + kReadBack);
    EXPECT_EQ(slave.requests(), 2U);
}

TEST(Session, SaysWhenTheModuleRefuses) {
    const struct {
        const char* what;
        Request request;
    } kCases[] = {
        {"a write", write_brightness(52)},
        {"one whose answer has data",
         action_request("slave pending", {{"mac", "0a1b2c3d4e5f"}, {"channel", std::int64_t{1}}})},
        {"what reads is not repeated either", {.command = 3, .info = {2}, .reads = true}},
    };
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.what);
        FakeModule module({{kRefused}});
        EXPECT_EQ(outcome(each.request), "refused: the module refused the request");
        EXPECT_EQ(module.requests(), 1U);
        EXPECT_FALSE(marked());
    }
    // Only a write can be refused.
    FakeModule module({{frame(4, Bytes(255))}});
    EXPECT_EQ(outcome({.command = 4}), "255 bytes");
}

TEST(Session, RepeatsAsOftenAsItIsTold) {
    for (const unsigned retries : {0U, 1U, 4U}) {
        FakeModule module({Reply()});
        EXPECT_EQ(outcome(identification_request(), {.timeout = kForEver, .retries = retries}),
                  "answer: the module gave no answer");
        EXPECT_EQ(module.requests(), retries + 1);
        EXPECT_EQ(module.empty_ones(), retries * 501U);
        std::filesystem::remove(kLockFile);
    }
}

TEST(Session, ReturnsTheAnswerToARepetition) {
    FakeModule module({{hex("A5 04 00 00 00 00 FD")}, {}, {kIdentification}});
    EXPECT_EQ(outcome(identification_request(), {.timeout = kForEver}), kIdentified);
    EXPECT_EQ(module.requests(), 3U);
    EXPECT_FALSE(marked());
}

TEST(Session, ReportsTheFirstFailure) {
    FakeModule module({{frame(0x34)}, {hex("A5 04 00 00 00 00 FD")}, {}});
    EXPECT_EQ(outcome(identification_request(), {.timeout = kForEver}),
              "sequence: the answer has sequence number 3");
    EXPECT_EQ(module.requests(), 3U);
}

// The peer takes no connection after the answer.
TEST(Session, ReportsTheFirstFailureWhenTheModuleThenCannotBeResynchronised) {
    const Peer peer([](const Peer::Accept& accept) {
        EXPECT_EQ(accept()->read_to_end(), kIdentify);
        accept()->send(hex("A5 04 00 00 00 00 FD"));
    });
    EXPECT_EQ(outcome(identification_request(), {.timeout = kShort}),
              "code: wrong checksum or CRC in the answer");
}

TEST(Session, EndsByItsDeadlineWhateverThePeerDoes) {
    const struct {
        const char* what;
        Reply reply;
        const char* outcome;
    } kCases[] = {
        {"silence", {{}, After::keeps}, "answer: no answer after 0.3 s"},
        {"half a frame, then silence",
         {hex("A5 04 00 00 00 30 5A"), After::keeps},
         "answer: only 7 bytes of the answer in time"},
    };
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.what);
        FakeModule module({each.reply});
        EXPECT_EQ(outcome(identification_request(), {.timeout = kShort}), each.outcome);
        EXPECT_EQ(module.requests(), 1U);
        EXPECT_TRUE(marked());
        std::filesystem::remove(kLockFile);
    }
}

// The answer to another request on the request connection, without an end.
TEST(Session, IsNotHeldByALeftOverAnswerWithoutEnd) {
    for (const bool endless : {false, true}) {
        std::vector<std::unique_ptr<Peer::Visitor>> kept;
        Peer peer([&](const Peer::Accept& accept) {
            kept.push_back(accept());
            while (kept.back()->takes(kIdentification) && endless) {
            }
            while (auto next = accept())
                kept.push_back(std::move(next));
        });
        EXPECT_EQ(outcome(identification_request(), {.timeout = kShort}),
                  "command: the module was waiting to answer somebody else; it did not take this "
                  "request");
        EXPECT_TRUE(marked());
        std::filesystem::remove(kLockFile);
    }
}

TEST(Session, SaysThatThereIsNoConnection) {
    EXPECT_EQ(outcome(identification_request()), "connect: no connection: Connection refused");
    EXPECT_FALSE(marked());
    EXPECT_EQ(outcome(write_brightness(52)), "connect: no connection: Connection refused");
    EXPECT_FALSE(marked());
    for (const char* const host : {"::1", "fe80::1%lo"})
        EXPECT_EQ(outcome(identification_request(), {.target = {.host = host}}),
                  std::string("resolve: no host ") + host + ": IPv4 only");
    for (const char* const host : {"no.such.host.invalid", "300.1.1.1", ""})
        EXPECT_THAT(outcome(identification_request(), {.target = {.host = host}}),
                    StartsWith(std::string("resolve: no host ") + host + ": "));
}

TEST(Session, SaysThatAPeerAcceptsNoConnection) {
    const Peer peer([](const Peer::Accept&) {}, 0);
    const Connection fills_the_queue;
    EXPECT_EQ(outcome(identification_request(), {.timeout = kShort}),
              "connect: no connection: time-out");
    EXPECT_FALSE(marked());
}

// The request has left by then.
TEST(Session, RemembersARequestWhoseAnswerCouldNotBeCollected) {
    const Peer peer([](const Peer::Accept&) {}, 0);
    std::string told;
    const Settings settings = {.timeout = kShort,
                               .on_exchange = [&](const Bytes& sent, const Bytes& received) {
                                   told += to_hex(sent) + " > " + to_hex(received);
                               }};
    EXPECT_EQ(outcome(write_brightness(52), settings),
              "answer: sent; the answer cannot be collected: no connection: time-out" + kReadBack);
    EXPECT_EQ(told, "A5 03 00 00 00 02 02 34 C5 > ");
    EXPECT_TRUE(marked());
}

TEST(Session, ReachesItsTargetByNameAndPort) {
    EXPECT_EQ(name_of(Target{}), "127.0.0.1:8001");
    EXPECT_EQ(name_of(Target{.host = "cabecera", .port = 7}), "cabecera:7");
    FakeModule module({{kIdentification}});
    EXPECT_EQ(outcome(identification_request(), {.target = {.host = "localhost"}}), kIdentified);
    EXPECT_EQ(outcome(identification_request(), {.target = {.port = 8002}}),
              "connect: no connection: Connection refused");
}

TEST(Session, EndsTheRequestNormallyAndTheCollectionByReset) {
    std::unique_ptr<Peer::Visitor> request;
    std::unique_ptr<Peer::Visitor> collection;
    const Peer peer([&](const Peer::Accept& accept) {
        request = accept();
        EXPECT_EQ(request->read_to_end(), kIdentify);
        collection = accept();
        collection->send(kIdentification);
    });
    EXPECT_EQ(outcome(identification_request()), kIdentified);
    EXPECT_EQ(request->end(), "normal");
    EXPECT_EQ(collection->end(), "reset");
}

// An answer that was ready is written, and its connection closed, as soon as there is one.
TEST(Session, LeavesThePortFreeHoweverFastTheModuleIs) {
    FakeModule module({{kIdentification}});
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(outcome(identification_request()), kIdentified);
    EXPECT_EQ(module.requests(), 100U);
    EXPECT_EQ(waiting_at_the_port(), 0);
}

TEST(Session, TellsTheBytesOfEachExchange) {
    std::vector<std::string> told;
    const Settings settings = {.timeout = kForEver,
                               .on_exchange = [&](const Bytes& sent, const Bytes& received) {
                                   told.push_back(to_hex(sent) + " > " + to_hex(received));
                               }};
    {
        FakeModule module({{hex("00 A5 04 00 00")}, {{}}, {hex("A5 04 00 00 00 00 FC A5")}});
        Session session(settings);
        session.ask({.command = 4, .reads = true});
        EXPECT_THAT(told,
                    ElementsAre("A5 04 00 00 00 00 FC > 00 A5 04 00 00", "A5 04 00 00 00 00 FC > ",
                                "A5 04 00 00 00 00 FC > A5 04 00 00 00 00 FC A5"));
    }
    told.clear();
    FakeModule module({{kRefused}});
    // Stuffed as on the wire.
    EXPECT_EQ(outcome(write_brightness(0xA5), settings), "refused: the module refused the request");
    EXPECT_THAT(told, ElementsAre("A5 03 00 00 00 02 02 A5 A5 54 > " + to_hex(kRefused)));
}

// The records of a trace file: "> " a frame sent, "< " one received.
std::vector<std::string> records_of(const char* path) {
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const file = pcap_open_offline(path, error);
    if (file == nullptr)
        return {error};
    std::vector<std::string> records;
    if (pcap_datalink(file) != 147)
        records.emplace_back("another link type");
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    while (pcap_next_ex(file, &header, &data) == 1)
        records.push_back((data[0] == 1 ? "> " : "< ") + to_hex({data + 1, header->caplen - 1}));
    pcap_close(file);
    return records;
}

TEST(Session, TracesItsFramesAndNoOthers) {
    constexpr char kTrace[] = "/tmp/trace.pcap";
    Settings settings = {.trace_path = kTrace};
    EXPECT_EQ(outcome({.command = 4}, settings), "connect: no connection: Connection refused");
    EXPECT_FALSE(std::filesystem::exists(kTrace));

    FakeModule module({{frame(4, "5A")}});
    const auto use_frames = [] {
        wire_bytes(request_record(3, Bytes{1, 2}, true), true);
        read_frame(kIdentification);
    };
    settings.on_exchange = [&](const Bytes&, const Bytes&) { use_frames(); };
    EXPECT_EQ(outcome({.command = 4}, settings), "1 bytes");
    use_frames();
    EXPECT_EQ(outcome({.command = 4}), "1 bytes");
    // The byte behind the checksum is always written.
    EXPECT_THAT(records_of(kTrace),
                ElementsAre("> A5 04 00 00 00 00 FC 00", "< A5 04 00 00 00 01 5A A1 00"));
    settings.crc8_mode = true;
    EXPECT_EQ(outcome({.command = 4}, settings), "1 bytes");
    EXPECT_THAT(records_of(kTrace),
                ElementsAre("> A5 04 00 00 00 00 FC 00", "< A5 04 00 00 00 01 5A A1 00",
                            "> A5 84 00 00 00 00 7C D4", "< A5 04 00 00 00 01 5A A1 00"));
}

TEST(TargetLock, RemembersAProgramThatWasKilledWhileItWaited) {
    FakeModule module({{{}, After::keeps}, {kWritten}});
    const pid_t program = in_another_process([] {
        Session({.timeout = kForEver}).ask(write_brightness(52));
        return true;
    });
    EXPECT_TRUE(eventually([&] { return module.asked(); }));
    kill(program, SIGKILL);
    status_of(program);
    EXPECT_TRUE(marked());
    EXPECT_EQ(outcome(write_brightness(53)), "0 bytes");
    EXPECT_FALSE(marked());
    EXPECT_EQ(module.empty_ones(), 501U);
}

TEST(Resync, IsAConnectionForEachFailedReadThatEndsAReception) {
    FakeModule module({});
    Session({}).resync();
    EXPECT_EQ(module.empty_ones(), 501U);
    EXPECT_FALSE(marked());
}

TEST(Resync, BeginsAnewBehindAnAnswer) {
    std::size_t connections = 0;
    {
        const Peer peer([&](const Peer::Accept& accept) {
            while (const auto visitor = accept()) {
                if (++connections == 100)
                    visitor->send(kIdentification);
                else
                    EXPECT_EQ(visitor->read_to_end(), Bytes());
            }
        });
        Session({}).resync();
    }
    EXPECT_GE(connections, 100 + 501U);
}

// The peer is held by somebody else after some of them.
TEST(Resync, GoesOnWhereAnotherProgramEnded) {
    {
        std::size_t connections = 0;
        std::vector<std::unique_ptr<Peer::Visitor>> kept;
        const Peer peer([&](const Peer::Accept& accept) {
            while (auto visitor = accept()) {
                if (++connections > 100)
                    kept.push_back(std::move(visitor));
            }
        });
        EXPECT_EQ(
            status_of(in_another_process([] {
                return outcome_of([] { return Session({.timeout = 2s}).resync(), Bytes(); }) ==
                       "resync: the module is still being re-synchronised, by 100 of 501 "
                       "connections so far; the next call goes on";
            })),
            0);
    }
    EXPECT_TRUE(marked());
    FakeModule module({{kWritten}});
    EXPECT_EQ(outcome(write_brightness(52)), "0 bytes");
    EXPECT_EQ(module.empty_ones(), 401U);
    EXPECT_FALSE(marked());
}

// One behind two that were left is a module that reads.
TEST(Resync, StopsAtTheThirdAnswerThatNobodyAskedFor) {
    const struct {
        std::size_t answers;
        std::size_t connections;
        const char* outcome;
    } kCases[] = {
        {2, 2 + 501, "0 bytes"},
        {3, 3,
         "command: the module carries out old requests again, one for each connection: its daemon "
         "must be restarted, not re-synchronised"},
    };
    for (const auto& each : kCases) {
        std::size_t connections = 0;
        {
            const Peer peer([&](const Peer::Accept& accept) {
                while (const auto visitor = accept()) {
                    if (++connections <= each.answers)
                        visitor->send(kIdentification);
                    else
                        EXPECT_EQ(visitor->read_to_end(), Bytes());
                }
            });
            Session session({});
            EXPECT_EQ(outcome_of([&] { return session.resync(), Bytes(); }), each.outcome);
            EXPECT_EQ(marked(), each.answers == 3);
            // Nor is it asked anything afterwards.
            if (each.answers == 3) {
                EXPECT_EQ(outcome_of([&] { return session.ask(identification_request()); }),
                          each.outcome);
            }
        }
        EXPECT_EQ(connections, each.connections);
        std::filesystem::remove(kLockFile);
    }
}

TEST(Resync, EndsByItsDeadlineWithAPeerThatDoesNotClose) {
    for (const bool endless : {false, true}) {
        std::vector<std::unique_ptr<Peer::Visitor>> kept;
        const Peer peer([&](const Peer::Accept& accept) {
            while (auto visitor = accept()) {
                while (endless && visitor->takes(Bytes(1000, 0xA5))) {
                }
                kept.push_back(std::move(visitor));
            }
        });
        EXPECT_EQ(outcome_of([&] {
                      Session({.timeout = endless ? kForEver : kShort}).resync();
                      return Bytes();
                  }),
                  "resync: the module could not be re-synchronised in time: it is busy, or another "
                  "master holds it");
        EXPECT_TRUE(marked());
        std::filesystem::remove(kLockFile);
    }
}

TEST(Resync, SaysThatNobodyListens) {
    EXPECT_EQ(outcome_of([] { return Session({}).resync(), Bytes(); }),
              "connect: no connection: Connection refused");
}

// The real daemon.
class AskedDaemon : public testing::Test {
  protected:
    RunningDaemon daemon_;
};

// What is left of 80 announced bytes behind the first 7 of a frame.
void leave_in_mid_frame() {
    send_request(hex("A5 03 00 00 00 50 02"));
}

// An answer that nobody collects.
void leave_an_answer() {
    send_request(kIdentify);
}

TEST_F(AskedDaemon, AnswersReadsAndWritesInBothModes) {
    for (const bool crc8_mode : {false, true}) {
        const Settings settings = {.crc8_mode = crc8_mode};
        Session session(settings);
        EXPECT_EQ(session.ask(identification_request()).size(), 48U);
        EXPECT_EQ(session.ask(status_request()).size(), 28U);
        EXPECT_EQ(session.ask(block_request(1)).size(), 114U);
        EXPECT_EQ(session.ask(block_request(2)).size(), 185U);
        const std::uint32_t value = crc8_mode ? 0xA5 : 0xF0;
        EXPECT_EQ(session.ask(write_brightness(value)).size(), 0U);
        EXPECT_EQ(stored_brightness(), std::to_string(value));
        EXPECT_EQ(outcome_of([&] { return session.ask({.command = 3, .info = {2}}); }),
                  "refused: the module refused the request");
        EXPECT_EQ(session.ask(status_request()).size(), 28U);
    }
}

TEST_F(AskedDaemon, IsReadInSpiteOfAnAnswerThatNobodyCollected) {
    leave_an_answer();
    EXPECT_EQ(outcome(status_request()), bytes_of("Status"));
    EXPECT_FALSE(marked());
}

TEST_F(AskedDaemon, IsNotWrittenToBehindAnAnswerThatNobodyCollected) {
    const std::string before = stored_brightness();
    leave_an_answer();
    EXPECT_EQ(outcome(write_brightness(77)),
              "command: the module was waiting to answer somebody else; it did not take this "
              "request");
    EXPECT_EQ(stored_brightness(), before);
    EXPECT_EQ(outcome(write_brightness(78)), "0 bytes");
    EXPECT_EQ(stored_brightness(), "78");
    EXPECT_EQ(waiting_at_the_port(), 0);
}

TEST_F(AskedDaemon, IsReadInSpiteOfHalfAFrame) {
    leave_in_mid_frame();
    std::size_t exchanges = 0;
    EXPECT_EQ(outcome(status_request(),
                      {.on_exchange = [&](const Bytes&, const Bytes&) { ++exchanges; }}),
              bytes_of("Status"));
    EXPECT_EQ(exchanges, 2U);
    EXPECT_FALSE(marked());
}

TEST_F(AskedDaemon, IsWrittenToByTheNextCallBehindHalfAFrame) {
    Session session({});
    leave_in_mid_frame();
    EXPECT_EQ(outcome_of([&] { return session.ask(write_brightness(77)); }),
              "answer: sent; the module gave no answer" + kReadBack);
    EXPECT_TRUE(marked());
    EXPECT_EQ(outcome_of([&] { return session.ask(write_brightness(78)); }), "0 bytes");
    EXPECT_FALSE(marked());
    EXPECT_EQ(stored_brightness(), "78");
}

TEST_F(AskedDaemon, IsWrittenToByTheNextProgramBehindHalfAFrame) {
    leave_in_mid_frame();
    EXPECT_EQ(status_of(in_another_process([] {
                  return outcome(write_brightness(77)) ==
                         "answer: sent; the module gave no answer" + kReadBack;
              })),
              0);
    EXPECT_TRUE(marked());
    EXPECT_EQ(outcome(write_brightness(78)), "0 bytes");
    EXPECT_EQ(stored_brightness(), "78");
}

TEST_F(AskedDaemon, CanBeResynchronisedAtAnyTime) {
    const auto resync = [] { return outcome_of([] { return Session({}).resync(), Bytes(); }); };
    EXPECT_EQ(resync(), "0 bytes");
    EXPECT_EQ(outcome(write_brightness(77)), "0 bytes");
    leave_an_answer();
    EXPECT_EQ(resync(), "0 bytes");
    EXPECT_EQ(outcome(write_brightness(78)), "0 bytes");
    EXPECT_EQ(waiting_at_the_port(), 0);
    leave_in_mid_frame();
    EXPECT_EQ(resync(), "0 bytes");
    EXPECT_EQ(outcome(write_brightness(79)), "0 bytes");
    EXPECT_EQ(stored_brightness(), "79");
}

TEST_F(AskedDaemon, CanBeStartedAgainAtOnce) {
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(outcome(identification_request()), kIdentified);
    EXPECT_EQ(waiting_at_the_port(), 0);
    (*daemon_).stop(SIGTERM);
    Daemon next;
    EXPECT_EQ(empty_connection(), Bytes());
    EXPECT_TRUE(next.running());
    EXPECT_EQ(outcome(identification_request()), kIdentified);
}

// Without the lock one would collect the answer to another.
TEST_F(AskedDaemon, IsAskedByOneOfManyProgramsAtATime) {
    const Request kRequests[] = {identification_request(), status_request(), block_request(1),
                                 block_request(2)};
    const Settings settings = {.timeout = kForEver, .retries = 0};
    std::vector<pid_t> programs;
    for (const Request& request : kRequests) {
        programs.push_back(in_another_process([&] {
            for (int i = 0; i < 20; ++i) {
                if (!outcome(request, settings).ends_with("bytes"))
                    return false;
            }
            return true;
        }));
    }
    for (const pid_t program : programs)
        EXPECT_EQ(status_of(program), 0);
}

}  // namespace

}  // namespace master
