// The processor's cycle in this process, on the real transport: each call takes one request that
// is already waiting, and hands its answer to a connection that is already waiting too.
#include "processor/processor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "processor/conf_log.h"
#include "tests/processor/own_log.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/master.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kWaiting = "<30>Waiting for zondar message:\n";
const std::string kRead = "<30>Zondar message readed.\n";
const std::string kResponse = "<30>Response to received frame:\n";

const Bytes kIdentify = hex("A5 04 00 00 00 00 FC");

// Every test has a process of its own, so nothing has brought the processor up here.
TEST(ProcessorBeforeInit, LogsAnErrorAndReturnsAtOnce) {
    OwnLog log;
    bool received = false;
    for (const unsigned mask : {0U, 0x3FU, 0xFFFFFFBFU}) {
        conf_log = mask;
        zondar_process(&received);
        EXPECT_THAT(log.take(), IsEmpty());
    }
    for (const unsigned mask : {0x40U, 0x7FU}) {
        conf_log = mask;
        zondar_process(&received);
        EXPECT_THAT(log.take(),
                    ElementsAre("<27>ERROR: zondar_process: call init before this call."));
    }
    EXPECT_FALSE(received);
}

class Processor : public testing::Test {
  protected:
    Processor() {
        make_board();
        EXPECT_EQ(zondar_process_init(), 0);
        conf_log = 0x40;
    }

    // One cycle for a request that gets no answer.
    std::vector<std::string> process_unanswered(const Bytes& request) {
        send_request(request);
        zondar_process(&received_);
        return log_.take();
    }

    // One cycle for a request that gets one.
    Bytes process(const Bytes& request) {
        send_request(request);
        const Connection collecting;
        zondar_process(&received_);
        return collecting.read_to_end();
    }

    OwnLog log_;
    bool received_ = false;
};

TEST_F(Processor, AnswersOneRequestACycle) {
    EXPECT_EQ(to_hex(process(kIdentify)).substr(0, 18), "A5 04 00 00 00 30 ");
    EXPECT_THAT(log_.take(),
                ElementsAre(kWaiting, kRead, "<31>CMD: Peticion de identificacion\n", kResponse));
    EXPECT_TRUE(received_);
}

TEST_F(Processor, TakesOneRequestAtATimeFromAConnection) {
    const Connection master;
    master.send(joined({kIdentify, hex("A5 03 00 00 00 00 FD")}));
    for (const char* start : {"A5 04 00 00 00 30 ", "A5 03 00 00 00 FF "}) {
        const Connection collecting;
        zondar_process(&received_);
        EXPECT_EQ(to_hex(collecting.read_to_end()).substr(0, 18), start);
    }
}

TEST_F(Processor, SaysNothingWithoutTheProtocolBit) {
    conf_log = 0xFFFFFFBF;
    EXPECT_EQ(process(kIdentify).size(), 55U);
    EXPECT_THAT(process_unanswered(hex("A5 05 00 00 00 00 FB")), IsEmpty());
}

TEST_F(Processor, AnswersNoUnsupportedCommandButCountsItAsReceived) {
    EXPECT_THAT(process_unanswered(hex("A5 05 00 00 00 00 FB")),
                ElementsAre(kWaiting, kRead, "<28>CMD: ERROR: comando no soportado\n"));
    EXPECT_TRUE(received_);
}

struct Dropped {
    const char* name;
    const char* request;
    const char* error;
};

constexpr Dropped kDropped[] = {
    {.name = "wrong checksum",
     .request = "A5 04 00 00 00 00 FD",
     .error = "[ERROR]recibir_mensaje_nenlace: Checksum NOK in message received\n"
              "[ERROR]recibir_mensaje_nenlace: ERROR CHECKSUM1 in message received\n"},
    {.name = "sequence 1",
     .request = "A5 14 00 00 00 00 EC",
     .error = "[ERROR]recibir_mensaje_nenlace: SEQUENCE ERROR: Expected: 0 Recieved: 1\n"},
};

TEST_F(Processor, AnswersNoInvalidRequestAndDoesNotCountItAsReceived) {
    for (const Dropped& c : kDropped) {
        SCOPED_TRACE(c.name);
        testing::internal::CaptureStderr();
        EXPECT_THAT(process_unanswered(hex(c.request)), ElementsAre(kWaiting));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.error);
        EXPECT_FALSE(received_);
    }
}

TEST_F(Processor, NeverClearsTheReceivedFlag) {
    received_ = true;
    process_unanswered(hex("A5 04 00 00 00 00 FD"));
    EXPECT_TRUE(received_);
    process_unanswered(hex("A5 05 00 00 00 00 FB"));
    EXPECT_TRUE(received_);
    process(kIdentify);
    EXPECT_TRUE(received_);
}

}  // namespace
