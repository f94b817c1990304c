// The main job, as a master sees it: the request goes out on one connection, the answer is
// collected on a second.
#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/master.h"
#include "tests/support/syslog_reader.h"

namespace {

// start, control: command 4, three header bytes, length 0, checksum
const Bytes kRequest = hex("A5 04 00 00 00 00 FC");

class Identification : public testing::Test {
  protected:
    Identification() { make_board(); }

    SyslogReader log_;
};

TEST_F(Identification, OfTheSampleBoardByteByByte) {
    const Daemon daemon;
    const Bytes expected = joined({
        hex("A5 04 00 00 00 30"),    // start, control, header, length 48
        text_bytes("ZND"),           // the model
        hex("02 04"),                // software 2.4
        text_bytes("ZND2AV-T"),      // the name
        hex("01 03"),                // boot loader 1.3
        hex("03 01"),                // hardware 3.1
        text_bytes("ZN2024000123"),  // the serial number
        text_bytes("001a2b3c4d5e"),  // the MAC address
        hex("00 00 00 00 00 00 00"),
        hex("B8"),  // checksum
    });
    EXPECT_EQ(to_hex(exchange(kRequest)), to_hex(expected));
}

}  // namespace
