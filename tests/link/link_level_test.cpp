// The link level: golden frames in both directions, what is refused and how, the lines printed.
#include "link/link_level.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/link/fake_transport.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"

namespace {

class LinkLevel : public testing::Test {
  protected:
    LinkLevel() { wire = {}; }
    ~LinkLevel() override { nenlace_trace = switch_; }

    int receive(const Bytes& incoming, std::uint8_t expected_sequence = 0) {
        record_ = {};
        wire.incoming = incoming;
        return recibir_mensaje_nenlace(&port_, &record_, 5000, expected_sequence);
    }
    // The first `count` bytes of the record.
    std::string stored(std::size_t count) { return to_hex({frame_area(record_), count}); }
    [[nodiscard]] std::string info() const { return to_hex({record_.info, record_.longitud}); }

    tPuertoZondar port_{7};
    mensaje record_{};

  private:
    const bool switch_ = nenlace_trace;  // as the program has it
};

// A message and its frame on the wire.
struct Golden {
    const char* name;
    unsigned crc8_mode = 0;
    std::uint8_t comando;
    std::uint8_t secuencia = 0;
    Bytes cabecera = hex("00 00 00");
    Bytes info = {};
    std::uint8_t control;
    Bytes wire;
    std::uint8_t checksum_rx;  // what the record's two fields hold after a reception
    std::uint8_t crc8_rx = 0;
    Bytes left = {};  // of `wire`, after a reception
};

void PrintTo(const Golden& golden, std::ostream* out) {
    *out << golden.name;
}

class GoldenFrame : public LinkLevel, public testing::WithParamInterface<Golden> {};

TEST_P(GoldenFrame, IsSent) {
    const Golden& golden = GetParam();
    record_.comando = golden.comando;
    record_.secuencia = golden.secuencia;
    std::copy(golden.cabecera.begin(), golden.cabecera.end(), record_.cabecera);
    record_.longitud = static_cast<std::uint8_t>(golden.info.size());
    std::copy(golden.info.begin(), golden.info.end(), record_.info);

    enviar_mensaje_nenlace(&port_, &record_, golden.crc8_mode);

    EXPECT_EQ(to_hex(wire.sent), to_hex(golden.wire));
    EXPECT_EQ(record_.inicio, 0xA5);
    EXPECT_EQ(record_.control, golden.control);
    EXPECT_EQ(info(), to_hex(golden.info)) << "plain again";
    EXPECT_EQ(record_.comando, golden.comando);
    EXPECT_EQ(record_.secuencia, golden.secuencia);
}

TEST_P(GoldenFrame, IsReceived) {
    const Golden& golden = GetParam();
    EXPECT_EQ(receive(golden.wire, golden.secuencia), 1);
    EXPECT_EQ(record_.inicio, 0xA5);
    EXPECT_EQ(record_.control, golden.control);
    EXPECT_EQ(to_hex(record_.cabecera), to_hex(golden.cabecera));
    EXPECT_EQ(info(), to_hex(golden.info));
    EXPECT_EQ(record_.comando, golden.comando);
    EXPECT_EQ(record_.secuencia, golden.secuencia);
    EXPECT_EQ(record_.checksum_rx, golden.checksum_rx);
    EXPECT_EQ(record_.crc8_rx, golden.crc8_rx);
    EXPECT_EQ(to_hex(wire.incoming), to_hex(golden.left));
}

// In the comments | divides start and control, header, length, info, checksum and CRC.
const std::vector<Golden> kGolden = {
    // A5 04 | 00 00 00 | 00 | FC
    {.name = "NoInfo",
     .comando = 4,
     .control = 0x04,
     .wire = hex("A5 04 00 00 00 00 FC"),
     .checksum_rx = 0xFC},
    // A5 84 | 00 00 00 | 00 | 7C D4
    {.name = "NoInfoCrc8",
     .crc8_mode = 1,
     .comando = 4,
     .control = 0x84,
     .wire = hex("A5 84 00 00 00 00 7C D4"),
     .checksum_rx = 0x7C,
     .crc8_rx = 0xD4},
    // A5 07 | 00 00 00 | 01 | 2A | CE
    {.name = "OneInfoByte",
     .comando = 7,
     .info = hex("2A"),
     .control = 0x07,
     .wire = hex("A5 07 00 00 00 01 2A CE"),
     .checksum_rx = 0xCE},
    // A5 87 | 00 00 00 | 01 | 2A ^ 55 | F9 12
    {.name = "OneInfoByteCrc8",
     .crc8_mode = 1,
     .comando = 7,
     .info = hex("2A"),
     .control = 0x87,
     .wire = hex("A5 87 00 00 00 01 7F F9 12"),
     .checksum_rx = 0xF9,
     .crc8_rx = 0x12},
    // A5 03 | 01 02 03 | 02 | 10 20 | C5
    {.name = "HeaderBytes",
     .comando = 3,
     .cabecera = hex("01 02 03"),
     .info = hex("10 20"),
     .control = 0x03,
     .wire = hex("A5 03 01 02 03 02 10 20 C5"),
     .checksum_rx = 0xC5},
    // A5 88 | 10 20 40 | 04 | 01 82 30 0C ^ 55 | 1B 76
    {.name = "HeaderBytesCrc8",
     .crc8_mode = 1,
     .comando = 8,
     .cabecera = hex("10 20 40"),
     .info = hex("01 82 30 0C"),
     .control = 0x88,
     .wire = hex("A5 88 10 20 40 04 54 D7 65 59 1B 76"),
     .checksum_rx = 0x1B,
     .crc8_rx = 0x76},
    // A5 FF | 00 00 00 | 00 | 01 C9
    {.name = "HighestSequenceAndCommand",
     .crc8_mode = 1,
     .comando = 15,
     .secuencia = 7,
     .control = 0xFF,
     .wire = hex("A5 FF 00 00 00 00 01 C9"),
     .checksum_rx = 0x01,
     .crc8_rx = 0xC9},
    // A5 03 | A5, A5, A5 twice each | 01 | A5 twice | 68
    {.name = "HeaderAndInfoA5",
     .comando = 3,
     .cabecera = hex("A5 A5 A5"),
     .info = hex("A5"),
     .control = 0x03,
     .wire = hex("A5 03 A5 A5 A5 A5 A5 A5 01 A5 A5 68"),
     .checksum_rx = 0x68},
    // A5 03 | 00 00 00 | A5 twice: 165 info bytes | 00 ... 00 | 58
    {.name = "LengthA5",
     .comando = 3,
     .info = Bytes(165, 0x00),
     .control = 0x03,
     .wire = joined({hex("A5 03 00 00 00 A5 A5"), Bytes(165, 0x00), hex("58")}),
     .checksum_rx = 0x58},
    // A5 A5: sequence 2, command 5 | A5 twice, 00 00 | 02 | 01 02 ^ 55 | 09 5D
    {.name = "ControlA5",
     .crc8_mode = 1,
     .comando = 5,
     .secuencia = 2,
     .cabecera = hex("A5 00 00"),
     .info = hex("01 02"),
     .control = 0xA5,
     .wire = hex("A5 A5 A5 A5 00 00 02 54 57 09 5D"),
     .checksum_rx = 0x09,
     .crc8_rx = 0x5D},
    // A5 88 | 00 00 00 | 02 | F0 ^ 55 = A5 twice, A5 ^ 55 = F0 | E1 4C
    {.name = "InfoScrambledToA5",
     .crc8_mode = 1,
     .comando = 8,
     .info = hex("F0 A5"),
     .control = 0x88,
     .wire = hex("A5 88 00 00 00 02 A5 A5 F0 E1 4C"),
     .checksum_rx = 0xE1,
     .crc8_rx = 0x4C},
    // A5 04 | 00 00 00 | 01 | 56 | A5 twice
    {.name = "ChecksumA5",
     .comando = 4,
     .info = hex("56"),
     .control = 0x04,
     .wire = hex("A5 04 00 00 00 01 56 A5 A5"),
     .checksum_rx = 0xA5,
     .left = hex("A5")},
    // A5 04 | 00 00 B1 | 01 | A5 twice | A5 twice
    {.name = "InfoAndChecksumA5",
     .comando = 4,
     .cabecera = hex("00 00 B1"),
     .info = hex("A5"),
     .control = 0x04,
     .wire = hex("A5 04 00 00 B1 01 A5 A5 A5 A5"),
     .checksum_rx = 0xA5,
     .left = hex("A5")},
    // A5 84 | 00 00 00 | 02 | 00 D5 ^ 55 | A5 twice, 28
    {.name = "ChecksumA5Crc8",
     .crc8_mode = 1,
     .comando = 4,
     .info = hex("00 D5"),
     .control = 0x84,
     .wire = hex("A5 84 00 00 00 02 55 80 A5 A5 28"),
     .checksum_rx = 0xA5,
     .crc8_rx = 0x28},
    // A5 84 | 00 00 00 | 02 | 00 4C ^ 55 | 0C, A5 twice
    {.name = "CrcA5",
     .crc8_mode = 1,
     .comando = 4,
     .info = hex("00 4C"),
     .control = 0x84,
     .wire = hex("A5 84 00 00 00 02 55 19 0C A5 A5"),
     .checksum_rx = 0x0C,
     .crc8_rx = 0xA5,
     .left = hex("A5")},
    // A5 84 | 00 00 00 | 03 | 8F FC 04 ^ 55 | A5 twice, A5 twice
    {.name = "ChecksumAndCrcA5",
     .crc8_mode = 1,
     .comando = 4,
     .info = hex("8F FC 04"),
     .control = 0x84,
     .wire = hex("A5 84 00 00 00 03 DA A9 51 A5 A5 A5 A5"),
     .checksum_rx = 0xA5,
     .crc8_rx = 0xA5,
     .left = hex("A5")},
    // A5 07 | 01 02 03 | FE | 11 ... 11 | 17
    {.name = "Info254",
     .comando = 7,
     .cabecera = hex("01 02 03"),
     .info = Bytes(254, 0x11),
     .control = 0x07,
     .wire = joined({hex("A5 07 01 02 03 FE"), Bytes(254, 0x11), hex("17")}),
     .checksum_rx = 0x17},
    // A5 87 | 01 02 03 | FE | 44 ... 44 | FD 64. The CRC's place is the checksum's field.
    {.name = "Info254Crc8",
     .crc8_mode = 1,
     .comando = 7,
     .cabecera = hex("01 02 03"),
     .info = Bytes(254, 0x11),
     .control = 0x87,
     .wire = joined({hex("A5 87 01 02 03 FE"), Bytes(254, 0x44), hex("FD 64")}),
     .checksum_rx = 0x64,
     .crc8_rx = 0x64},
    // A5 07 | 01 02 03 | FF | 11 ... 11 | 05
    {.name = "Info255",
     .comando = 7,
     .cabecera = hex("01 02 03"),
     .info = Bytes(255, 0x11),
     .control = 0x07,
     .wire = joined({hex("A5 07 01 02 03 FF"), Bytes(255, 0x11), hex("05")}),
     .checksum_rx = 0x05},
    // A5 87 | 01 02 03 | FF | 44 ... 44 | B8 E7
    {.name = "Info255Crc8",
     .crc8_mode = 1,
     .comando = 7,
     .cabecera = hex("01 02 03"),
     .info = Bytes(255, 0x11),
     .control = 0x87,
     .wire = joined({hex("A5 87 01 02 03 FF"), Bytes(255, 0x44), hex("B8 E7")}),
     .checksum_rx = 0xB8,
     .crc8_rx = 0xE7},
    // A5 07 | A5 twice each | FF | A5 twice each | B0
    {.name = "Info255AllA5",
     .comando = 7,
     .cabecera = hex("A5 A5 A5"),
     .info = Bytes(255, 0xA5),
     .control = 0x07,
     .wire = joined({hex("A5 07"), Bytes(6, 0xA5), hex("FF"), Bytes(510, 0xA5), hex("B0")}),
     .checksum_rx = 0xB0},
    // A5 87 | A5 twice each | FF | F0 ^ 55 = A5 twice each | 30 74
    {.name = "Info255AllA5Crc8",
     .crc8_mode = 1,
     .comando = 7,
     .cabecera = hex("A5 A5 A5"),
     .info = Bytes(255, 0xF0),
     .control = 0x87,
     .wire = joined({hex("A5 87"), Bytes(6, 0xA5), hex("FF"), Bytes(510, 0xA5), hex("30 74")}),
     .checksum_rx = 0x30,
     .crc8_rx = 0x74},
};

INSTANTIATE_TEST_SUITE_P(BothWays, GoldenFrame, testing::ValuesIn(kGolden),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(LinkLevel, CutsSequenceAndCommandWhenSending) {
    record_.secuencia = 10;
    record_.comando = 0xD4;
    enviar_mensaje_nenlace(&port_, &record_, 0);
    EXPECT_EQ(to_hex(wire.sent), "A5 24 00 00 00 00 DC");
}

TEST_F(LinkLevel, AnyNonZeroFlagSelectsCrc8Mode) {
    for (const unsigned flag : {1U, 2U, 0x80000000U}) {
        wire = {};
        record_ = {};
        record_.comando = 4;
        enviar_mensaje_nenlace(&port_, &record_, flag);
        EXPECT_EQ(to_hex(wire.sent), "A5 84 00 00 00 00 7C D4") << flag;
    }
}

// The record keeps what was sent, behind its info.
TEST_F(LinkLevel, LeavesTheCodesInTheRecord) {
    record_.comando = 7;
    record_.longitud = 1;
    record_.info[0] = 0x2A;
    enviar_mensaje_nenlace(&port_, &record_, 0);
    EXPECT_EQ(stored(9), "A5 07 00 00 00 01 2A CE 00");
    enviar_mensaje_nenlace(&port_, &record_, 1);
    EXPECT_EQ(stored(9), "A5 87 00 00 00 01 2A F9 12");
}

// Every reply is in normal mode, also one whose record came in as a CRC8 request.
TEST_F(LinkLevel, RepliesInNormalMode) {
    EXPECT_EQ(receive(hex("A5 87 00 00 00 01 7F F9 12")), 1);
    Tx_mensaje_zondar(&port_, &record_);
    EXPECT_EQ(to_hex(wire.sent), "A5 07 00 00 00 01 2A CE");
}

TEST_F(LinkLevel, HandsTheTimeoutDown) {
    EXPECT_EQ(Rx_mensaje_zondar(&port_, 0, &record_, 5000, 1), 4);
    EXPECT_EQ(recibir_mensaje_nenlace(&port_, &record_, -3, 0), 4);
    EXPECT_EQ(wire.calls,
              (std::vector<std::string>{"leer 7 5000", "cerrar", "leer 7 -3", "cerrar"}));
}

// With sequence 3 in the frame.
TEST_F(LinkLevel, ComparesTheSequenceWithTheExpectedOne) {
    const Bytes frame = hex("A5 B4 00 00 00 02 44 77 8F E3");
    for (const std::uint8_t expected : hex("00 01 02 04 05 06 07 0B 33 FF")) {
        EXPECT_EQ(receive(frame, expected), 6) << int{expected};
        EXPECT_EQ(record_.comando, 4);
        EXPECT_EQ(record_.secuencia, 3);
        EXPECT_EQ(info(), "44 77") << "still scrambled";
    }
    EXPECT_EQ(receive(frame, 3), 1);
    EXPECT_EQ(info(), "11 22");
}

// One more on one byte, one less on the other: the checksum cannot see it, the CRC does.
TEST_F(LinkLevel, CrcSeesWhatTheChecksumCannot) {
    EXPECT_EQ(receive(hex("A5 08 10 20 40 04 02 81 30 0C C5")), 1);
    EXPECT_EQ(receive(hex("A5 88 10 20 40 04 55 D6 65 59 1B 76")), 5);
}

TEST_F(LinkLevel, ABrokenFrameStaysRawInTheRecord) {
    EXPECT_EQ(receive(hex("A5 B4 00 00 00 02 44 77 8F E4")), 5);
    EXPECT_EQ(stored(10), "A5 B4 00 00 00 02 44 77 8F E4");
    EXPECT_EQ(record_.comando, 0);
    EXPECT_EQ(record_.secuencia, 0);
}

struct Flips {
    const char* name;
    Bytes frame;
    // Per byte the results with bit 0, 1 ... 7 flipped: 4 where a start or more bytes are awaited.
    std::vector<std::string> results;
};

void PrintTo(const Flips& test, std::ostream* out) {
    *out << test.name;
}

class FlippedBit : public LinkLevel, public testing::WithParamInterface<Flips> {};

TEST_P(FlippedBit, IsNeverAccepted) {
    const auto& [name, frame, results] = GetParam();
    ASSERT_EQ(receive(frame), 1);
    for (std::size_t offset = 0; offset < frame.size(); ++offset) {
        std::string found;
        for (unsigned bit = 0; bit < 8; ++bit) {
            Bytes flipped = frame;
            flipped[offset] ^= static_cast<std::uint8_t>(1U << bit);
            printed_by([&] { found += std::to_string(receive(flipped)); });
        }
        EXPECT_EQ(found, results.at(offset)) << "offset " << offset;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Frames, FlippedBit,
    testing::Values(Flips{"Normal",
                          hex("A5 08 10 20 40 04 01 82 30 0C C5"),
                          {"44444444",  // start
                           "55555554",  // control: bit 7 calls for a CRC that never comes
                           "55555555", "55555555", "55555555",
                           "44544444",  // length: only 4 - 4 = 0 is shorter
                           "55555555", "55555555", "55555555", "55555555", "55555555"}},
                    Flips{
                        "Crc8",
                        hex("A5 88 10 20 40 04 54 D7 65 59 1B 76"),
                        {"44444444", "55555555", "55555555", "55555555", "55555555",
                         "44544444",  // length
                         "55555555", "55555555", "55555555", "55555555", "55555555", "55555555"}}),
    [](const auto& instance) { return instance.param.name; });

struct Lines {
    const char* name;
    Bytes incoming;
    int result;
    std::vector<std::string> errors;  // texts, on standard error
    std::vector<std::string> traces;  // texts, on standard output with the switch on
};

void PrintTo(const Lines& test, std::ostream* out) {
    *out << test.name;
}

std::string lines(const std::string& tag, const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
        all.append(tag).append("recibir_mensaje_nenlace: ").append(text).append("\n");
    return all;
}

class ReceptionLines : public LinkLevel, public testing::WithParamInterface<Lines> {};

TEST_P(ReceptionLines, AreErrorsAlwaysAndTracesBehindTheSwitch) {
    const Lines& test = GetParam();
    for (const bool on : {false, true}) {
        SCOPED_TRACE(on);
        nenlace_trace = on;
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(receive(test.incoming), test.result); }),
                  (Printed{.out = on ? lines("[DEBUG]", test.traces) : "",
                           .err = lines("[ERROR]", test.errors)}));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Receptions, ReceptionLines,
    testing::Values(
        Lines{.name = "Good",
              .incoming = hex("A5 04 00 00 00 00 FC"),
              .result = 1,
              .errors = {},
              .traces = {"Checksum OK in message received", "Will not check CRC8"}},
        Lines{.name = "GoodCrc8",
              .incoming = hex("A5 84 00 00 00 00 7C D4"),
              .result = 1,
              .errors = {},
              .traces = {"Checksum OK in message received", "CRC8 OK in message received"}},
        Lines{.name = "WrongChecksum",
              .incoming = hex("A5 04 00 00 00 00 FD"),
              .result = 5,
              .errors = {"Checksum NOK in message received", "ERROR CHECKSUM1 in message received"},
              .traces = {"Will not check CRC8"}},
        // The CRC line covers both codes.
        Lines{.name = "WrongChecksumRightCrc",
              .incoming = hex("A5 84 00 00 00 00 7D D4"),
              .result = 5,
              .errors = {"Checksum NOK in message received", "CRC8 NOK in message received",
                         "ERROR CHECKSUM1 in message received"},
              .traces = {}},
        Lines{.name = "RightChecksumWrongCrc",
              .incoming = hex("A5 84 00 00 00 00 7C D5"),
              .result = 5,
              .errors = {"CRC8 NOK in message received", "ERROR CHECKSUM1 in message received"},
              .traces = {"Checksum OK in message received"}},
        Lines{.name = "BothWrong",
              .incoming = hex("A5 84 00 00 00 00 7D D5"),
              .result = 5,
              .errors = {"Checksum NOK in message received", "CRC8 NOK in message received",
                         "ERROR CHECKSUM1 in message received"},
              .traces = {}},
        Lines{.name = "WrongSequence",
              .incoming = hex("A5 B4 00 00 00 02 44 77 8F E3"),
              .result = 6,
              .errors = {"SEQUENCE ERROR: Expected: 0 Recieved: 3"},
              .traces = {"Checksum OK in message received", "CRC8 OK in message received"}},
        Lines{.name = "Timeout",
              .incoming = hex("A5 04 00"),
              .result = 4,
              .errors = {},
              .traces = {}}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(LinkLevel, NamesBothSequencesInDecimal) {
    EXPECT_EQ(printed_by([this] { receive(hex("A5 FF 00 00 00 00 01 C9"), 255); }).err,
              "[ERROR]recibir_mensaje_nenlace: SEQUENCE ERROR: Expected: 255 Recieved: 7\n");
}

TEST_F(LinkLevel, TracesTheModeOfASending) {
    nenlace_trace = true;
    EXPECT_EQ(printed_by([this] { enviar_mensaje_nenlace(&port_, &record_, 0); }),
              (Printed{"[DEBUG]enviar_mensaje_nenlace: Sending mesage in normal mode\n", ""}));
    EXPECT_EQ(printed_by([this] { enviar_mensaje_nenlace(&port_, &record_, 1); }),
              (Printed{"[DEBUG]enviar_mensaje_nenlace: Sending mesage in CRC8 mode\n", ""}));
}

TEST_F(LinkLevel, SendsSilentlyWithoutItsSwitch) {
    EXPECT_EQ(printed_by([this] {
                  enviar_mensaje_nenlace(&port_, &record_, 0);
                  enviar_mensaje_nenlace(&port_, &record_, 1);
              }),
              (Printed{"", ""}));
}

struct Attempts {
    const char* name;
    int attempts;
    Bytes incoming;
    int result;
    int receptions;
};

void PrintTo(const Attempts& test, std::ostream* out) {
    *out << test.name;
}

class RepeatedReception : public LinkLevel, public testing::WithParamInterface<Attempts> {};

TEST_P(RepeatedReception, EndsWithTheFirstGoodFrame) {
    const auto& [name, attempts, incoming, result, receptions] = GetParam();
    wire.incoming = incoming;
    EXPECT_EQ(Rx_mensaje_zondar(&port_, 0, &record_, 5000, attempts), result);
    EXPECT_EQ(wire.closings(), receptions);
}

const Bytes kGood = hex("A5 04 00 00 00 00 FC");
const Bytes kBadChecksum = hex("A5 04 00 00 00 00 FD");
const Bytes kBadSequence = hex("A5 34 00 00 00 00 CC");

INSTANTIATE_TEST_SUITE_P(
    Streams, RepeatedReception,
    testing::Values(Attempts{"NoneAskedFor", 0, kGood, 0, 0}, Attempts{"Negative", -1, kGood, 0, 0},
                    Attempts{"OneGood", 1, kGood, 1, 1}, Attempts{"OneTimeout", 1, {}, 4, 1},
                    Attempts{"OneBad", 1, joined({kBadChecksum, kGood}), 5, 1},
                    Attempts{"GoodAtOnce", 3, joined({kGood, kGood}), 1, 1},
                    Attempts{"GoodAtLast", 3, joined({kBadSequence, kBadChecksum, kGood}), 1, 3},
                    Attempts{"LastResultCounts", 2, joined({kBadChecksum, kBadSequence}), 6, 2},
                    Attempts{"OnlyTimeouts", 3, {}, 4, 3}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(LinkLevel, ExpectsTheSequenceItIsGiven) {
    wire.incoming = kBadSequence;
    EXPECT_EQ(Rx_mensaje_zondar(&port_, 3, &record_, 5000, 1), 1);
}

}  // namespace
