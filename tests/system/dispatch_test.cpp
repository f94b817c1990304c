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
#include "tests/support/master.h"
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

const Bytes kIdentification = hex("A5 04 00 00 00 00 FC");
const std::string kAnswer =
    "A504000000305A4E4402045A4E443241562D54010303015A4E323032343030303132333030316132623363346435"
    "6500000000000000B8";

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
    const char* request;
    const char* head;  // of the answer: start, control, header bytes
    std::vector<std::string> log;
};

const std::vector<Answered> kAnswered = {
    {"A5 00 00 00 00 00 00", "A5 00 00 00 00 ", {kState}},
    {"A5 00 00 00 00 01 07 F8", "A5 00 00 00 00 ", {kState}},
    {"A5 01 00 00 00 00 FF", "A5 01 00 00 00 ", {kBadBlock}},
    {"A5 01 00 00 00 01 01 FD", "A5 01 00 00 00 ", {kBlock1}},
    {"A5 01 00 00 00 01 02 FC", "A5 01 00 00 00 ", {kBlock2}},
    {"A5 01 00 00 00 01 07 F7", "A5 01 00 00 00 ", {kBlock1}},
    {"A5 01 00 00 00 02 02 02 F9", "A5 01 00 00 00 ", {kBadBlock}},
    {"A5 02 00 00 00 00 FE", "A5 02 00 00 00 ", {kState}},
    {"A5 02 00 00 00 01 07 F6", "A5 02 00 00 00 ", {kState}},
    {"A5 03 00 00 00 00 FD", "A5 03 00 00 00 ", {kWrite, kBadLength}},
    {"A5 03 00 00 00 01 01 FB", "A5 03 00 00 00 ", {kWrite, kBadLength}},
    {"A5 03 00 00 00 02 FF 01 FB", "A5 03 00 00 00 ", {kWrite, kBadSubcommand}},
    {"A5 04 00 00 00 00 FC", "A5 04 00 00 00 ", {kIdentify}},
    {"A5 04 00 00 00 02 01 02 F7", "A5 04 00 00 00 ", {kIdentify}},
    // header bytes are carried, but not copied into the answer
    {"A5 04 01 02 03 00 F6", "A5 04 00 00 00 ", {kIdentify}},
    // CRC8 mode: the info is unscrambled, the answer is in normal mode
    {"A5 81 00 00 00 01 57 27 41", "A5 01 00 00 00 ", {kBlock2}},
    {"A5 83 00 00 00 02 AA 54 7D 2C", "A5 03 00 00 00 ", {kWrite, kBadSubcommand}},
    {"A5 84 00 00 00 00 7C D4", "A5 04 00 00 00 ", {kIdentify}},
};

TEST_F(Dispatch, AnswersCommandsZeroToFour) {
    start_logging_all();
    for (const Answered& c : kAnswered) {
        SCOPED_TRACE(c.request);
        EXPECT_EQ(to_hex(exchange(hex(c.request))).substr(0, 15), c.head);
        std::vector<std::string> expected = {kRead};
        expected.insert(expected.end(), c.log.begin(), c.log.end());
        expected.insert(expected.end(), {kResponse, kWaiting});
        EXPECT_THAT(next_cycle(), ElementsAreArray(expected));
    }
    EXPECT_EQ(daemon_->err(), "");
}

constexpr const char* kUnsupported[] = {
    "A5 05 00 00 00 00 FB",    "A5 06 00 00 00 00 FA",    "A5 07 00 00 00 00 F9",
    "A5 08 00 00 00 00 F8",    "A5 09 00 00 00 00 F7",    "A5 0A 00 00 00 00 F6",
    "A5 0B 00 00 00 00 F5",    "A5 0C 00 00 00 00 F4",    "A5 0D 00 00 00 00 F3",
    "A5 0E 00 00 00 00 F2",    "A5 0F 00 00 00 00 F1",    "A5 05 00 00 00 01 07 F3",
    "A5 06 00 00 00 01 07 F2", "A5 07 00 00 00 01 07 F1", "A5 08 00 00 00 01 07 F0",
    "A5 09 00 00 00 01 07 EF", "A5 0A 00 00 00 01 07 EE", "A5 0B 00 00 00 01 07 ED",
    "A5 0C 00 00 00 01 07 EC", "A5 0D 00 00 00 01 07 EB", "A5 0E 00 00 00 01 07 EA",
    "A5 0F 00 00 00 01 07 E9", "A5 85 00 00 00 00 7B 19",
};

TEST_F(Dispatch, AnswersNoOtherCommand) {
    start_logging_all();
    for (const char* request : kUnsupported) {
        SCOPED_TRACE(request);
        send_request(hex(request));
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
    const std::string refusal = to_hex(joined({hex("A5 03 00 00 00 FF"), Bytes(255), hex("FE")}));
    for (const char* request :
         {"A5 03 00 00 00 00 FD", "A5 03 00 00 00 01 01 FB", "A5 03 00 00 00 02 FF 01 FB"}) {
        SCOPED_TRACE(request);
        EXPECT_EQ(to_hex(exchange(hex(request))), refusal);
    }
}

TEST_F(Dispatch, AnswersAConfigurationReadOfWrongLengthWithoutInfo) {
    start({});
    for (const char* request : {"A5 01 00 00 00 00 FF", "A5 01 00 00 00 02 01 01 FB"}) {
        SCOPED_TRACE(request);
        EXPECT_EQ(to_hex(exchange(hex(request))), "A5 01 00 00 00 00 FF");
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

struct WrongSequence {
    const char* request;
    const char* received;
};

constexpr WrongSequence kWrongSequences[] = {
    {"A5 14 00 00 00 00 EC", "1"},
    {"A5 24 00 00 00 00 DC", "2"},
    {"A5 34 00 00 00 00 CC", "3"},
    {"A5 44 00 00 00 00 BC", "4"},
    {"A5 54 00 00 00 00 AC", "5"},
    {"A5 64 00 00 00 00 9C", "6"},
    {"A5 74 00 00 00 00 8C", "7"},
    {"A5 B4 00 00 00 00 4C 50", "3"},
    {"A5 F1 00 00 00 01 57 B7 D9", "7"},
    // a control byte of 0xA5, which is never doubled
    {"A5 A5 00 00 00 00 5B E1", "2"},
};

TEST_F(Dispatch, DropsARequestWithASequenceNumber) {
    start_logging_all();
    std::string errors;
    for (const WrongSequence& c : kWrongSequences) {
        SCOPED_TRACE(c.request);
        send_request(hex(c.request));
        EXPECT_THAT(next_cycle(), ElementsAre(kWaiting));
        errors += "[ERROR]recibir_mensaje_nenlace: SEQUENCE ERROR: Expected: 0 Recieved: ";
        errors += c.received;
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
    send_request(hex("A5 05 00 00 00 00 FB"));
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
    send_request(hex("A5 05 00 00 00 00 FB"));
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
    master.send(joined({kIdentification, hex("A5 03 00 00 00 00 FD"), hex("A5 05 00 00 00 00 FB"),
                        kIdentification}));
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
