// Requests as frames, and frames as they are read.
#include "master/frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace {

TEST(RequestFrame, IsThatOfTheProtocol) {
    EXPECT_EQ(to_hex(wire_bytes(request_record(4, {}, false), false)), "A5 04 00 00 00 00 FC");
}

}  // namespace
