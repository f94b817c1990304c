// Requests of every kind to the real daemon: which are answered, what is logged in which order,
// what is printed, and how the stream between two requests may look.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/wait.h"
#include "tests/system/cycle_log.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

const std::string kRead = "<30>Zondar message readed.\n";
const std::string kResponse = "<30>Response to received frame:\n";
const std::string kState = "<31>CMD: Peticion de estado o alarmas\n";
const std::string kBlock1 = "<31>CMD: Peticion de configuracion ID_PARAMETROS 1.\n";
const std::string kBlock2 = "<31>CMD: Peticion de configuracion ID_PARAMETROS 2.\n";
const std::string kBadBlock = "<28>CMD: Peticion de configuracion de longitud incorrecta.\n";
const std::string kWrite = "<31>CMD: Comando escritura parametros.\n";
const std::string kBadLength = "<28>Comando con longitud no esperada.\n";
const std::string kBadSubcommand = "<28>Comando - Subcomando no reconocido.\n";
const std::string kIdentify = "<31>CMD: Peticion de identificacion\n";
const std::string kNotSupported = "<28>CMD: ERROR: comando no soportado\n";

const std::string kChecksumNok =
    "[ERROR]recibir_mensaje_nenlace: Checksum NOK in message received\n";
const std::string kCrcNok = "[ERROR]recibir_mensaje_nenlace: CRC8 NOK in message received\n";
const std::string kCodesNok =
    "[ERROR]recibir_mensaje_nenlace: ERROR CHECKSUM1 in message received\n";

int occurrences(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::string compact(const Bytes& bytes) {
    std::string text = to_hex(bytes);
    std::erase(text, ' ');
    return text;
}

const Bytes kIdentification = frame(4);
const std::string kAnswer = compact(hex(document::answer(kIdentification)));

// The daemon on the sample board, and its log cycle by cycle.
class Dispatch : public testing::Test {
  protected:
    Dispatch() { make_board(); }

    void start(const std::vector<std::string>& options) {
        daemon_ = std::make_unique<Daemon>(Daemon::Setup{.options = options});
    }
    // Everything logged, up to its waiting for the first request.
    void start_logging_all() {
        start({"-l", "64", "-s", "5"});
        ASSERT_THAT(next_cycle(), testing::Contains(kWaiting));
    }

    std::vector<std::string> next_cycle() { return log_.next_cycle(); }

    // Everything of the protocol, whose lines alone have a line end. A line of our own behind them
    // tells that none is on its way any more.
    std::vector<std::string> all_protocol_lines() {
        syslog(LOG_EMERG, "mark");
        EXPECT_TRUE(log_.wait_for("mark"));
        std::vector<std::string> lines;
        for (const LogLine& line : log_.lines()) {
            if (line.text.ends_with("\n"))
                lines.push_back(with_priority(line));
        }
        return lines;
    }

    void expect_identification() { EXPECT_EQ(compact(exchange(kIdentification)), kAnswer); }

    CycleLog log_;
    std::unique_ptr<Daemon> daemon_;
};

struct Answered {
    Bytes request;
    std::uint8_t command;
    std::vector<std::string> log;
};

const std::vector<Answered> kAnswered = {
    {frame(0), 0, {kState}},
    {frame(0, "07"), 0, {kState}},
    {frame(1), 1, {kBadBlock}},
    {frame(1, "01"), 1, {kBlock1}},
    {frame(1, "02"), 1, {kBlock2}},
    {frame(1, "07"), 1, {kBlock1}},
    {frame(1, "02 02"), 1, {kBadBlock}},
    {frame(2), 2, {kState}},
    {frame(2, "07"), 2, {kState}},
    {frame(3), 3, {kWrite, kBadLength}},
    {frame(3, "01"), 3, {kWrite, kBadLength}},
    {frame(3, "FF 01"), 3, {kWrite, kBadSubcommand}},
    {frame(4), 4, {kIdentify}},
    {frame(4, "01 02"), 4, {kIdentify}},
    // header bytes are carried, but not copied into the answer
    {hex("A5 04 01 02 03 00 F6"), 4, {kIdentify}},
    // CRC8 mode: the answer is in normal mode
    {frame(0x81, "02"), 1, {kBlock2}},
    {frame(0x83, "FF 01"), 3, {kWrite, kBadSubcommand}},
    {frame(0x84), 4, {kIdentify}},
};

TEST_F(Dispatch, AnswersCommandsZeroToFour) {
    start_logging_all();
    for (const Answered& c : kAnswered) {
        SCOPED_TRACE(to_hex(c.request));
        info_of(exchange(c.request), c.command);
        std::vector<std::string> expected = {kRead};
        expected.insert(expected.end(), c.log.begin(), c.log.end());
        expected.insert(expected.end(), {kResponse, kWaiting});
        EXPECT_THAT(next_cycle(), ElementsAreArray(expected));
    }
    EXPECT_EQ(daemon_->err(), "");
}

TEST_F(Dispatch, AnswersNoOtherCommand) {
    start_logging_all();
    std::vector<Bytes> requests = {frame(0x85)};
    for (std::uint8_t command = 5; command <= 15; ++command)
        requests.insert(requests.end(), {frame(command), frame(command, {7})});
    for (const Bytes& request : requests) {
        SCOPED_TRACE(to_hex(request));
        send_request(request);
        EXPECT_THAT(next_cycle(), ElementsAre(kRead, kNotSupported, kWaiting));
    }
    EXPECT_EQ(daemon_->err(), "");
    expect_identification();
    EXPECT_EQ(occurrences(daemon_->out(), "WriteSocket"), 1);
}

// The response is announced before the master collects it.
TEST_F(Dispatch, LogsTheResponseBeforeItIsSent) {
    start({"-l", "64"});
    send_request(kIdentification);
    EXPECT_TRUE(log_.wait_for("Response to received frame:"));
    EXPECT_EQ(compact(collect_answer()), kAnswer);
}

TEST_F(Dispatch, RefusesAWriteWithTwoHundredFiftyFiveZeros) {
    start({});
    for (const Bytes& request : {frame(3), frame(3, {1}), frame(3, {255, 1})}) {
        SCOPED_TRACE(to_hex(request));
        EXPECT_EQ(to_hex(exchange(request)), to_hex(frame(3, Bytes(255))));
    }
}

TEST_F(Dispatch, AnswersAConfigurationReadOfWrongLengthWithoutInfo) {
    start({});
    for (const Bytes& request : {frame(1), frame(1, {1, 1})}) {
        SCOPED_TRACE(to_hex(request));
        EXPECT_EQ(to_hex(exchange(request)), to_hex(frame(1)));
    }
}

struct Dropped {
    const char* request;
    std::string error;
};

const std::vector<Dropped> kDropped = {
    // the checksum one too high, one too low, missing a bit
    {"A5 04 00 00 00 00 FD", kChecksumNok + kCodesNok},
    {"A5 04 00 00 00 00 FB", kChecksumNok + kCodesNok},
    {"A5 04 00 00 00 00 7C", kChecksumNok + kCodesNok},
    {"A5 04 00 00 00 01 01 FB", kChecksumNok + kCodesNok},
    // CRC8 mode: CRC wrong, checksum wrong, both wrong
    {"A5 84 00 00 00 00 7C D5", kCrcNok + kCodesNok},
    {"A5 84 00 00 00 00 7D D4", kChecksumNok + kCrcNok + kCodesNok},
    {"A5 84 00 00 00 00 7D D5", kChecksumNok + kCrcNok + kCodesNok},
};

TEST_F(Dispatch, DropsARequestWithAWrongCode) {
    start_logging_all();
    std::string errors;
    for (const Dropped& c : kDropped) {
        SCOPED_TRACE(c.request);
        send_request(hex(c.request));
        EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
        errors += c.error;
        EXPECT_EQ(daemon_->err(), errors);
    }
    expect_identification();
    EXPECT_EQ(occurrences(daemon_->out(), "WriteSocket"), 1);
}

TEST_F(Dispatch, DropsARequestWithASequenceNumber) {
    start_logging_all();
    std::string errors;
    // The control byte of the last one is a start byte, which is not doubled here.
    for (const std::uint8_t control :
         Bytes{0x14, 0x24, 0x34, 0x44, 0x54, 0x64, 0x74, 0xB4, 0xF1, 0xA5}) {
        SCOPED_TRACE(int{control});
        send_request(frame(control, {2}));
        EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
        errors += "[ERROR]recibir_mensaje_nenlace: SEQUENCE ERROR: Expected: 0 Recieved: ";
        errors += std::to_string(control / 0x10 % 8);
        errors += "\n";
        EXPECT_EQ(daemon_->err(), errors);
    }
    expect_identification();
    EXPECT_EQ(occurrences(daemon_->out(), "WriteSocket"), 1);
}

struct Mask {
    const char* name;
    std::vector<std::string> options;
    std::vector<std::string> log;
};

std::ostream& operator<<(std::ostream& out, const Mask& mask) {
    return out << mask.name;
}

// For an identification, an unsupported command and an identification.
const Mask kMasks[] = {
    {"Default", {}, {}},
    {"AllLevelsNoCategory", {"-s", "5"}, {}},
    {"DatabasesAlone", {"-s", "5", "-l", "32"}, {}},
    {"AllButTheProtocol", {"-s", "5", "-l", "63"}, {}},
    {"ErrorsAlone", {"-s", "1", "-l", "127"}, {}},
    {"Warnings", {"-s", "2", "-l", "64"}, {kNotSupported}},
    {"Notices", {"-s", "3", "-l", "64"}, {kNotSupported}},
    {"NoDebug",
     {"-l", "64"},
     {kWaiting, kRead, kResponse, kWaiting, kRead, kNotSupported, kWaiting, kRead, kResponse,
      kWaiting}},
    {"Everything",
     {"-s", "5", "-l", "127"},
     {kWaiting, kRead, kIdentify, kResponse, kWaiting, kRead, kNotSupported, kWaiting, kRead,
      kIdentify, kResponse, kWaiting}},
};

class DispatchLog : public Dispatch, public testing::WithParamInterface<Mask> {};

TEST_P(DispatchLog, ShowsWhatLevelAndMaskLetThrough) {
    start(GetParam().options);
    expect_identification();
    send_request(frame(5));
    expect_identification();
    // It has read the end of the last request then, and so has begun to wait for the next.
    EXPECT_TRUE(eventually([&] { return occurrences(daemon_->out(), "Client Close") == 3; }));
    EXPECT_THAT(all_protocol_lines(), ElementsAreArray(GetParam().log));
}

INSTANTIATE_TEST_SUITE_P(, DispatchLog, testing::ValuesIn(kMasks),
                         [](const auto& test) { return test.param.name; });

// What a terminal or a supervisor's journal shows.
TEST_F(Dispatch, PrintsItsStartEachAnswerAndEachClosedConnection) {
    start({});
    EXPECT_TRUE(
        eventually([&] { return daemon_->out() == "IP:169.254.34.21\nAbrirSocketServer\n"; }));
    expect_identification();
    expect_identification();
    send_request(frame(5));
    const std::string answer = "WriteSocket\nBuffer: " + kAnswer + "\nClient Close\n";
    const std::string expected =
        "IP:169.254.34.21\nAbrirSocketServer\n" + answer + answer + "Client Close\n";
    EXPECT_TRUE(eventually([&] { return daemon_->out().size() >= expected.size(); }));
    EXPECT_EQ(daemon_->out(), expected);
    EXPECT_EQ(daemon_->err(), "");
}

TEST_F(Dispatch, PrintsAnAnswerAsItIsSentWithDoubledStartBytes) {
    write_file("/quelt/conf/quelt_numserie", "\xA5\n");
    start({});
    const Bytes answer = exchange(kIdentification);
    EXPECT_NE(compact(answer).find("0301A5A500"), std::string::npos);
    EXPECT_THAT(daemon_->out(), testing::HasSubstr("\nBuffer: " + compact(answer) + "\n"));
}

TEST_F(Dispatch, TakesARequestByteByByte) {
    start({});
    const Connection master;
    for (const std::uint8_t byte : kIdentification)
        master.send({&byte, 1});
    EXPECT_EQ(compact(collect_answer()), kAnswer);
}

// The end of a connection is no end of a frame: the next one carries on.
TEST_F(Dispatch, TakesARequestSpreadOverConnections) {
    start({});
    for (const char* part : {"A5 04", "00 00 00", "00 FC"})
        send_request(hex(part));
    EXPECT_EQ(compact(collect_answer()), kAnswer);
}

TEST_F(Dispatch, TakesSeveralRequestsOnOneConnection) {
    start({});
    const Connection master;
    for (int i = 0; i < 3; ++i) {
        master.send(kIdentification);
        EXPECT_EQ(compact(collect_answer()), kAnswer);
    }
    EXPECT_TRUE(master.stays_silent());
}

TEST_F(Dispatch, TakesSeveralRequestsSentAtOnce) {
    start({});
    const Connection master;
    master.send(joined({kIdentification, frame(3), frame(5), kIdentification}));
    EXPECT_EQ(compact(collect_answer()), kAnswer);
    EXPECT_EQ(collect_answer().size(), 262U);
    EXPECT_EQ(compact(collect_answer()), kAnswer);
    EXPECT_TRUE(master.stays_silent());
}

TEST_F(Dispatch, SkipsWhatStandsBeforeTheStartByte) {
    start({});
    const Bytes garbage = hex("00 FF 04 FC 5A 01 0D 0A");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(compact(exchange(joined({garbage, kIdentification}))), kAnswer);
    EXPECT_EQ(compact(exchange(joined({kIdentification, garbage}))), kAnswer);
    expect_identification();
}

// Its checksum is 0xA5, so the last byte comes twice. The first one completes the frame; the
// second starts the next, of which the next request is the rest.
const Bytes kEndsDoubled = hex("A5 04 57 00 00 00 A5 A5");

TEST_F(Dispatch, LosesTheRequestBehindADoubledLastByteOnTheSameConnection) {
    start_logging_all();
    const Connection master;
    master.send(kEndsDoubled);
    EXPECT_EQ(compact(collect_answer()), kAnswer);
    EXPECT_THAT(next_cycle(), ElementsAre(kRead, kIdentify, kResponse, kWaiting));
    EXPECT_EQ(daemon_->err(), "");

    master.send(kIdentification);
    EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
    EXPECT_EQ(daemon_->err(), kChecksumNok + kCrcNok + kCodesNok);

    master.send(kIdentification);
    EXPECT_EQ(compact(collect_answer()), kAnswer);
}

TEST_F(Dispatch, LosesTheRequestBehindADoubledLastByteOnTheNextConnectionToo) {
    start_logging_all();
    EXPECT_EQ(compact(exchange(kEndsDoubled)), kAnswer);
    EXPECT_THAT(next_cycle(), ElementsAre(kRead, kIdentify, kResponse, kWaiting));
    send_request(kIdentification);
    EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
    EXPECT_EQ(daemon_->err(), kChecksumNok + kCrcNok + kCodesNok);
    expect_identification();
}

// 7 of the 39 bytes of a write.
const Bytes kCutOff = hex("A5 03 00 00 00 20 01");

TEST_F(Dispatch, TakesTheNextRequestsForTheRestOfAFrameThatWasCutOff) {
    start_logging_all();
    send_request(kCutOff);
    for (int i = 0; i < 4; ++i)
        send_request(kIdentification);
    EXPECT_TRUE(eventually([&] { return occurrences(daemon_->out(), "Client Close") == 5; }));
    EXPECT_EQ(daemon_->err(), "");
    send_request(kIdentification);
    EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
    EXPECT_EQ(daemon_->err(), kChecksumNok + kCodesNok);
    expect_identification();
}

TEST_F(Dispatch, ForgetsACutOffFrameAfterFiveHundredAndOneClosedConnections) {
    start_logging_all();
    send_request(kCutOff);
    for (int i = 0; i < 499; ++i)
        ASSERT_EQ(to_hex(empty_connection()), "");
    EXPECT_EQ(occurrences(daemon_->out(), "Client Close"), 500);
    EXPECT_EQ(log_.count("Waiting for zondar message:"), 1);
    empty_connection();
    EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
    expect_identification();
    EXPECT_THAT(next_cycle(), ElementsAre(kRead, kIdentify, kResponse, kWaiting));
    EXPECT_EQ(daemon_->err(), "");
}

// A byte starts the count of closed connections anew.
TEST_F(Dispatch, KeepsACutOffFrameAsLongAsBytesCome) {
    start_logging_all();
    send_request(kCutOff);
    for (int i = 0; i < 499; ++i)
        empty_connection();
    send_request(hex("00"));
    for (int i = 0; i < 499; ++i)
        empty_connection();
    EXPECT_EQ(occurrences(daemon_->out(), "Client Close"), 1000);
    EXPECT_EQ(log_.count("Waiting for zondar message:"), 1);
    empty_connection();
    EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
    expect_identification();
}

TEST_F(Dispatch, IsResynchronisedByEmptyConnections) {
    start({});
    send_request(kCutOff);
    resynchronise();
    expect_identification();
}

}  // namespace
