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
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kWaiting = "<30>Waiting for zondar message:\n";
const std::string kRead = "<30>Zondar message readed.\n";
const std::string kResponse = "<30>Response to received frame:\n";

const Bytes kIdentify = frame(4);

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
    EXPECT_EQ(info_of(process(kIdentify), 4).size(), document::length("Identification"));
    EXPECT_THAT(log_.take(),
                ElementsAre(kWaiting, kRead, "<31>CMD: Peticion de identificacion\n", kResponse));
    EXPECT_TRUE(received_);
}

TEST_F(Processor, TakesOneRequestAtATimeFromAConnection) {
    const Connection master;
    master.send(joined({kIdentify, frame(3)}));
    for (const std::uint8_t command : Bytes{4, 3}) {
        const Connection collecting;
        zondar_process(&received_);
        info_of(collecting.read_to_end(), command);
    }
}

TEST_F(Processor, SaysNothingWithoutTheProtocolBit) {
    conf_log = 0xFFFFFFBF;
    EXPECT_FALSE(process(kIdentify).empty());
    EXPECT_THAT(process_unanswered(frame(5)), IsEmpty());
}

TEST_F(Processor, AnswersNoUnsupportedCommandButCountsItAsReceived) {
    EXPECT_THAT(process_unanswered(frame(5)),
                ElementsAre(kWaiting, kRead, "<28>CMD: ERROR: comando no soportado\n"));
    EXPECT_TRUE(received_);
}

struct Dropped {
    const char* name;
    Bytes request;
    const char* error;
};

const Dropped kDropped[] = {
    {.name = "wrong checksum",
     .request = hex("A5 04 00 00 00 00 FD"),
     .error = "[ERROR]recibir_mensaje_nenlace: Checksum NOK in message received\n"
              "[ERROR]recibir_mensaje_nenlace: ERROR CHECKSUM1 in message received\n"},
    {.name = "sequence 1",
     .request = frame(0x14),
     .error = "[ERROR]recibir_mensaje_nenlace: SEQUENCE ERROR: Expected: 0 Recieved: 1\n"},
};

TEST_F(Processor, AnswersNoInvalidRequestAndDoesNotCountItAsReceived) {
    for (const Dropped& c : kDropped) {
        SCOPED_TRACE(c.name);
        testing::internal::CaptureStderr();
        EXPECT_THAT(process_unanswered(c.request), ElementsAre(kWaiting));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.error);
        EXPECT_FALSE(received_);
    }
}

TEST_F(Processor, NeverClearsTheReceivedFlag) {
    received_ = true;
    process_unanswered(hex("A5 04 00 00 00 00 FD"));
    EXPECT_TRUE(received_);
    process_unanswered(frame(5));
    EXPECT_TRUE(received_);
    process(kIdentify);
    EXPECT_TRUE(received_);
}

}  // namespace
