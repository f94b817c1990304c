// The receive state machine, fed from literals: where each byte goes, which state follows, how the
// doubled 0xA5 is undone.
#include "link/receive_machine.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/bytes.h"

namespace {

using State = ReceiveMachine::State;
constexpr std::size_t kRecord = 265;

struct Case {
    const char* name;
    Bytes wire;
    // One letter per byte: the state after it, of Waiting, Header, Info, checKsum, Crc, Frame.
    const char* states;
    Bytes stored;          // the record's beginning
    std::size_t left = 0;  // bytes of `wire` behind the end of the frame
};

char letter(State state) {
    return "WHIKCF"[static_cast<int>(state)];
}

void PrintTo(const Case& test, std::ostream* out) {
    *out << test.name;
}

class ReceiveMachineTest : public testing::TestWithParam<Case> {};

TEST_P(ReceiveMachineTest, StoresTheFrame) {
    const auto& [name, wire, states, stored, left] = GetParam();
    std::array<std::uint8_t, kRecord> record{};
    ReceiveMachine machine(record.data());
    EXPECT_EQ(machine.state(), State::WAITING_START);
    std::string passed;
    std::size_t fed = 0;
    bool complete = false;
    while (!complete && fed < wire.size()) {
        complete = machine.feed(wire[fed++]);
        passed += letter(machine.state());
        EXPECT_EQ(complete, machine.state() == State::TRAMA_RECIBIDA) << "byte " << fed;
    }
    EXPECT_EQ(passed, states);
    EXPECT_EQ(machine.stored(), stored.size());
    EXPECT_EQ(to_hex({record.data(), machine.stored()}), to_hex(stored));
    EXPECT_EQ(wire.size() - fed, left);
}

INSTANTIATE_TEST_SUITE_P(
    Wire, ReceiveMachineTest,
    testing::Values(
        Case{.name = "NoInfo",
             .wire = hex("A5 04 00 00 00 00 FC"),
             .states = "HHHHHKF",
             .stored = hex("A5 04 00 00 00 00 FC")},
        Case{.name = "NoInfoInCrc8Mode",
             .wire = hex("A5 84 00 00 00 00 7C D4"),
             .states = "HHHHHKCF",
             .stored = hex("A5 84 00 00 00 00 7C D4")},
        Case{.name = "OneInfoByte",
             .wire = hex("A5 07 00 00 00 01 2A CE"),
             .states = "HHHHHIKF",
             .stored = hex("A5 07 00 00 00 01 2A CE")},
        Case{.name = "TwoInfoBytesInCrc8Mode",
             .wire = hex("A5 B4 00 00 00 02 44 77 8F E3"),
             .states = "HHHHHIIKCF",
             .stored = hex("A5 B4 00 00 00 02 44 77 8F E3")},
        Case{.name = "GarbageBeforeTheStart",
             .wire = hex("00 04 FF 5A A5 04 00 00 00 00 FC"),
             .states = "WWWWHHHHHKF",
             .stored = hex("A5 04 00 00 00 00 FC")},
        Case{.name = "GarbageOnly",
             .wire = hex("00 04 FF A4 A6 25"),
             .states = "WWWWWW",
             .stored = {}},
        Case{.name = "ASecondFrameIsLeft",
             .wire = hex("A5 04 00 00 00 00 FC A5 04 00 00 00 00 FC"),
             .states = "HHHHHKF",
             .stored = hex("A5 04 00 00 00 00 FC"),
             .left = 7},
        Case{.name = "OneByteShort",
             .wire = hex("A5 04 00 00 00 00"),
             .states = "HHHHHK",
             .stored = hex("A5 04 00 00 00 00")},
        Case{.name = "OneByteShortInCrc8Mode",
             .wire = hex("A5 84 00 00 00 00 7C"),
             .states = "HHHHHKC",
             .stored = hex("A5 84 00 00 00 00 7C")},
        // A start byte is never doubled, so the 0xA5 behind it is a control byte of its own.
        Case{.name = "ControlA5AndHeaderA5",
             .wire = hex("A5 A5 A5 A5 00 00 02 54 57 09 5D"),
             .states = "HHHHHHIIKCF",
             .stored = hex("A5 A5 A5 00 00 02 54 57 09 5D")},
        Case{.name = "ControlA5AndPlainHeader",
             .wire = hex("A5 A5 01 00 00 00 5A 7B"),
             .states = "HHHHHKCF",
             .stored = hex("A5 A5 01 00 00 00 5A 7B")},
        Case{.name = "EveryHeaderByteA5",
             .wire = hex("A5 03 A5 A5 A5 A5 A5 A5 01 A5 A5 68"),
             .states = "HHHHHHHHIKKF",
             .stored = hex("A5 03 A5 A5 A5 01 A5 68")},
        Case{.name = "InfoA5",
             .wire = hex("A5 08 00 00 00 02 05 A5 A5 4C"),
             .states = "HHHHHIIKKF",
             .stored = hex("A5 08 00 00 00 02 05 A5 4C")},
        Case{.name = "ThreeA5StoreTwo",
             .wire = hex("A5 08 00 00 00 03 05 A5 A5 A5 A7"),
             .states = "HHHHHIIIIKF",
             .stored = hex("A5 08 00 00 00 03 05 A5 A5 A7")},
        Case{.name = "FourA5StoreTwo",
             .wire = hex("A5 08 00 00 00 03 05 A5 A5 A5 A5 A7"),
             .states = "HHHHHIIIIKKF",
             .stored = hex("A5 08 00 00 00 03 05 A5 A5 A7")},
        // There is no way back to the start inside a frame.
        Case{.name = "ASingleA5InMidFrameIsData",
             .wire = hex("A5 08 00 A5 00 02 A5 04 4C"),
             .states = "HHHHHIIKF",
             .stored = hex("A5 08 00 A5 00 02 A5 04 4C")},
        Case{.name = "ChecksumA5InCrc8Mode",
             .wire = hex("A5 84 00 00 00 02 55 80 A5 A5 28"),
             .states = "HHHHHIIKCCF",
             .stored = hex("A5 84 00 00 00 02 55 80 A5 28")},
        Case{.name = "ChecksumAndCrcA5",
             .wire = hex("A5 84 00 00 00 03 DA A9 51 A5 A5 A5 A5"),
             .states = "HHHHHIIIKCCF",
             .stored = hex("A5 84 00 00 00 03 DA A9 51 A5 A5"),
             .left = 1},
        // The frame is complete with the first of the two, so the second stays behind.
        Case{.name = "ChecksumA5LeavesOneByte",
             .wire = hex("A5 04 00 00 00 01 56 A5 A5"),
             .states = "HHHHHIKF",
             .stored = hex("A5 04 00 00 00 01 56 A5"),
             .left = 1},
        Case{.name = "CrcA5LeavesOneByte",
             .wire = hex("A5 84 00 00 00 02 55 19 0C A5 A5"),
             .states = "HHHHHIIKCF",
             .stored = hex("A5 84 00 00 00 02 55 19 0C A5"),
             .left = 1}),
    [](const auto& instance) { return instance.param.name; });

// Where the code bytes are kept beside their place in the frame: offsets 261 and 262.
TEST(ReceivedCodes, AreKeptApart) {
    std::array<std::uint8_t, kRecord> record{};
    ReceiveMachine machine(record.data());
    for (const std::uint8_t byte : hex("A5 84 00 00 00 00 7C D4"))
        machine.feed(byte);
    EXPECT_EQ(record[261], 0x7C);
    EXPECT_EQ(record[262], 0xD4);
}

TEST(ReceivedCodes, HaveNoCrcInNormalMode) {
    std::array<std::uint8_t, kRecord> record{};
    ReceiveMachine machine(record.data());
    for (const std::uint8_t byte : hex("A5 04 00 00 00 00 FC"))
        machine.feed(byte);
    EXPECT_EQ(record[261], 0xFC);
    EXPECT_EQ(record[262], 0x00);
}

// The longest frame there is ends at offset 262 and touches nothing behind it.
TEST(LongestFrame, EndsBeforeTheDecodedFields) {
    std::array<std::uint8_t, kRecord> record{};
    ReceiveMachine machine(record.data());
    const Bytes frame = joined({hex("A5 87 01 02 03 FF"), Bytes(255, 0x44), hex("B8 E7")});
    for (const std::uint8_t byte : frame) {
        ASSERT_NE(machine.state(), State::TRAMA_RECIBIDA);
        machine.feed(byte);
    }
    EXPECT_EQ(machine.state(), State::TRAMA_RECIBIDA);
    EXPECT_EQ(machine.data_end(), 260U);
    EXPECT_EQ(machine.stored(), 263U);
    EXPECT_EQ(to_hex(record), to_hex(joined({frame, hex("00 00")})));
}

}  // namespace
