// The tests' own codec against frames that were written out by hand.
#include "tests/support/frames.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

struct Written {
    std::uint8_t control;
    const char* info;
    const char* frame;
};

// start, control, three header bytes, length, info, checksum, CRC
constexpr Written kWritten[] = {
    {0, "", "A5 00 00 00 00 00 00"},
    {4, "", "A5 04 00 00 00 00 FC"},
    {3, "02 34", "A5 03 00 00 00 02 02 34 C5"},
    // bytes A5 of the info, and the checksum
    {3, "02 A5", "A5 03 00 00 00 02 02 A5 A5 54"},
    {4, "A5 A5", "A5 04 00 00 00 02 A5 A5 A5 A5 B0"},
    {3, "02 54", "A5 03 00 00 00 02 02 54 A5 A5"},
    // sequence 5; a control byte A5 is not doubled
    {0x54, "", "A5 54 00 00 00 00 AC"},
    {0xA5, "", "A5 A5 00 00 00 00 5B E1"},
    // CRC8 mode: the info XORed with 55, sequence 3, bytes of the info, checksum and CRC doubled
    {0x84, "", "A5 84 00 00 00 00 7C D4"},
    {0x83, "02 34", "A5 83 00 00 00 02 57 61 C3 BD"},
    {0xB3, "02 34", "A5 B3 00 00 00 02 57 61 93 A9"},
    {0x83, "02 F0", "A5 83 00 00 00 02 57 A5 A5 7F 16"},
    {0x83, "1F 41 22", "A5 83 00 00 00 03 4A 14 77 A5 A5 28"},
};

TEST(Frame, IsWhatIsWrittenByHand) {
    for (const Written& written : kWritten)
        EXPECT_EQ(to_hex(frame(written.control, written.info)), written.frame);
}

// 255 bytes A5, each doubled: 255 * A5 is A45B, so that the sum behind the start byte is 5B + 3 +
// FF, 5D in its low byte.
TEST(Frame, OfTheLongestInfoHasALengthOf255) {
    EXPECT_EQ(to_hex(frame(3, Bytes(255, 0xA5))),
              to_hex(joined({hex("A5 03 00 00 00 FF"), Bytes(510, 0xA5), hex("A3")})));
    EXPECT_EQ(to_hex(frame(3, Bytes(255))),
              to_hex(joined({hex("A5 03 00 00 00 FF"), Bytes(255), hex("FE")})));
}

TEST(InfoOfAnAnswer, IsThatOfAWholeAnswerToTheCommandAlone) {
    EXPECT_EQ(to_hex(info_of(hex("A5 03 00 00 00 02 02 A5 A5 54"), 3)), "02 A5");
    for (const char* const other : {
             "", "A5", "A5 04 00 00 00 02 02 34 C4",  // another command
             "A5 13 00 00 00 02 02 34 B5",            // a sequence number
             "A5 03 00 00 01 02 02 34 C4",            // a header byte
             "A5 03 00 00 00 02 02 34 C6",            // a wrong checksum
             "A5 03 00 00 00 02 02 34",               // a byte too few
             "A5 03 00 00 00 02 02 34 C5 00",         // and too much
             "A5 03 00 00 00 01 02 34 C6",            // a length too small
             "A5 03 00 00 00 02 02 A5 54",            // not doubled
         })
        EXPECT_THROW(info_of(hex(other), 3), std::runtime_error) << other;
}

}  // namespace
