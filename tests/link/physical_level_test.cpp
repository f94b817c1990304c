// The physical level: stuffing on the way out, frames off the fake transport on the way in, the
// calls made into the transport and their order, the trace behind its switch.
#include "link/physical_level.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "link/mensaje.h"
#include "tests/link/fake_transport.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"

namespace {

using testing::ElementsAre;

class PhysicalLevel : public testing::Test {
  protected:
    PhysicalLevel() { wire = {}; }
    ~PhysicalLevel() override { nfisico_trace = switch_; }

    void load(const Bytes& frame) { std::copy(frame.begin(), frame.end(), frame_area(record_)); }
    void send(const Bytes& frame) {
        load(frame);
        enviar_mensaje_nfisico(&port_, &record_, static_cast<unsigned>(frame.size()));
    }
    int receive(int timeout = 5000) {
        return recibir_mensaje_nfisico(&port_, frame_area(record_), timeout);
    }
    // The first `count` bytes of the record.
    std::string stored(std::size_t count) { return to_hex({frame_area(record_), count}); }

    tPuertoZondar port_{7};
    mensaje record_{};

  private:
    const bool switch_ = nfisico_trace;  // as the program has it
};

struct Stuffing {
    const char* name;
    Bytes frame;
    Bytes sent;
};

void PrintTo(const Stuffing& test, std::ostream* out) {
    *out << test.name;
}

class Stuffed : public PhysicalLevel, public testing::WithParamInterface<Stuffing> {};

TEST_P(Stuffed, GoesOutInOneCall) {
    const auto& [name, frame, sent] = GetParam();
    send(frame);
    EXPECT_EQ(to_hex(wire.sent), to_hex(sent));
    EXPECT_THAT(wire.calls, ElementsAre("reset 7", "modo 7 1",
                                        "enviar 7 " + std::to_string(sent.size()), "modo 7 0"));
    EXPECT_EQ(stored(frame.size()), to_hex(frame)) << "the record is not touched";
}

INSTANTIATE_TEST_SUITE_P(
    Frames, Stuffed,
    testing::Values(
        Stuffing{"NothingToDouble", hex("A5 04 00 00 00 00 FC"), hex("A5 04 00 00 00 00 FC")},
        Stuffing{"ControlIsNeverDoubled", hex("A5 A5 01 00 00 00 5A 7B"),
                 hex("A5 A5 01 00 00 00 5A 7B")},
        Stuffing{"HeaderAndLength", hex("A5 03 A5 A5 A5 A5 00"),
                 hex("A5 03 A5 A5 A5 A5 A5 A5 A5 A5 00")},
        Stuffing{"Info", hex("A5 08 00 00 00 02 05 A5 4C"), hex("A5 08 00 00 00 02 05 A5 A5 4C")},
        Stuffing{"Checksum", hex("A5 04 00 00 57 00 A5"), hex("A5 04 00 00 57 00 A5 A5")},
        Stuffing{"ChecksumAndCrc", hex("A5 84 00 00 00 03 DA A9 51 A5 A5"),
                 hex("A5 84 00 00 00 03 DA A9 51 A5 A5 A5 A5")},
        Stuffing{"NothingButA5", Bytes(263, 0xA5), Bytes(524, 0xA5)}),
    [](const auto& instance) { return instance.param.name; });

struct Reception {
    const char* name;
    Bytes incoming;
    int result;
    Bytes stored;
    Bytes left = {};
};

void PrintTo(const Reception& test, std::ostream* out) {
    *out << test.name;
}

class Received : public PhysicalLevel, public testing::WithParamInterface<Reception> {};

TEST_P(Received, FromTheWire) {
    const auto& [name, incoming, result, expected, left] = GetParam();
    wire.incoming = incoming;
    EXPECT_EQ(receive(), result);
    EXPECT_EQ(stored(expected.size()), to_hex(expected));
    EXPECT_EQ(to_hex(wire.incoming), to_hex(left));
}

INSTANTIATE_TEST_SUITE_P(
    Streams, Received,
    testing::Values(
        Reception{"Frame", hex("A5 07 00 00 00 01 2A CE"), 1, hex("A5 07 00 00 00 01 2A CE")},
        Reception{"FrameInCrc8Mode", hex("A5 87 00 00 00 01 7F F9 12"), 1,
                  hex("A5 87 00 00 00 01 7F F9 12")},
        Reception{"BehindGarbage", hex("00 FF 04 A5 07 00 00 00 01 2A CE"), 1,
                  hex("A5 07 00 00 00 01 2A CE")},
        Reception{"Garbage", hex("00 FF 04"), 4, hex("00 00 00")},
        Reception{"Nothing", {}, 4, hex("00 00")},
        // What came before the stall stays, and nothing more.
        Reception{"StallInMidFrame", hex("A5 07 00 00 00 01"), 4, hex("A5 07 00 00 00 01 00 00")},
        Reception{"OneByteShortInCrc8Mode", hex("A5 87 00 00 00 01 7F F9"), 4,
                  hex("A5 87 00 00 00 01 7F F9 00")},
        Reception{"OneByteLong", hex("A5 07 00 00 00 01 2A CE 33"), 1,
                  hex("A5 07 00 00 00 01 2A CE 00"), hex("33")},
        Reception{"OneByteLongInCrc8Mode", hex("A5 87 00 00 00 01 7F F9 12 33"), 1,
                  hex("A5 87 00 00 00 01 7F F9 12 00"), hex("33")},
        // A checksum is not looked at here.
        Reception{"WrongChecksum", hex("A5 07 00 00 00 01 2A 00"), 1,
                  hex("A5 07 00 00 00 01 2A 00")},
        Reception{"StuffedByteLast", hex("A5 04 00 00 57 00 A5 A5"), 1, hex("A5 04 00 00 57 00 A5"),
                  hex("A5")}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(PhysicalLevel, ReadsByteByByteAndClosesAtTheEnd) {
    wire.incoming = hex("A5 04 00 00 00 00 FC");
    EXPECT_EQ(receive(), 1);
    EXPECT_THAT(wire.calls, ElementsAre("leer 7 5000", "leer 7 5000", "leer 7 5000", "leer 7 5000",
                                        "leer 7 5000", "leer 7 5000", "leer 7 5000", "cerrar"));
}

TEST_F(PhysicalLevel, ClosesAlsoAfterOneTimeout) {
    wire.incoming = hex("A5 04");
    EXPECT_EQ(receive(), 4);
    EXPECT_THAT(wire.calls, ElementsAre("leer 7 5000", "leer 7 5000", "leer 7 5000", "cerrar"));
}

TEST_F(PhysicalLevel, HandsTheTimeoutDownUnchanged) {
    for (const int timeout : {0, 9, -1, -2147483647, 2147483647}) {
        wire = {};
        EXPECT_EQ(receive(timeout), 4);
        EXPECT_THAT(wire.calls, ElementsAre("leer 7 " + std::to_string(timeout), "cerrar"));
    }
}

// Only 1 is a byte.
TEST_F(PhysicalLevel, TakesAnyOtherReadResultAsTimeout) {
    for (const int failure : {0, 2, -1, 257}) {
        wire = {};
        wire.read_failure = failure;
        wire.incoming = hex("A5 04 00");
        EXPECT_EQ(receive(), 4) << failure;
        EXPECT_EQ(wire.calls.size(), 5U) << failure;
    }
}

TEST_F(PhysicalLevel, TakesTwoFramesOfOneStreamOneByOne) {
    wire.incoming = hex("A5 04 00 00 00 00 FC A5 07 00 00 00 01 2A CE");
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(stored(7), "A5 04 00 00 00 00 FC");
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(stored(8), "A5 07 00 00 00 01 2A CE");
    EXPECT_EQ(receive(), 4);
}

// The byte left behind is taken for the next start, the real start for a control byte.
TEST_F(PhysicalLevel, FrameBehindAStuffedLastByteIsMisread) {
    wire.incoming = hex("A5 04 00 00 57 00 A5 A5  A5 04 00 00 00 00 FC");
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(stored(8), "A5 A5 04 00 00 00 00 FC");
    EXPECT_TRUE(wire.incoming.empty());
}

// Nothing of an interrupted frame is remembered: its rest is garbage to the next reception.
TEST_F(PhysicalLevel, KeepsNoStateBetweenCalls) {
    const Bytes frame = hex("A5 88 10 20 40 04 54 D7 65 59 1B 76");
    for (std::size_t cut = 0; cut < frame.size(); ++cut) {
        SCOPED_TRACE(cut);
        record_ = {};
        const auto middle = frame.begin() + static_cast<std::ptrdiff_t>(cut);
        wire.incoming = Bytes(frame.begin(), middle);
        EXPECT_EQ(receive(), 4);
        EXPECT_EQ(stored(cut), to_hex({frame.data(), cut}));
        wire.incoming = Bytes(middle, frame.end());
        EXPECT_EQ(receive(), cut == 0 ? 1 : 4);
        wire.incoming = frame;
        EXPECT_EQ(receive(), 1);
        EXPECT_EQ(stored(frame.size()), to_hex(frame));
    }
}

TEST_F(PhysicalLevel, TracesEachStepOfAReceptionOnStandardError) {
    nfisico_trace = true;
    wire.incoming = hex("33 A5 07 A5 A5 0F 00 02 2A 11 AD");
    const std::time_t before = std::time(nullptr);
    const Printed printed = printed_by([this] { EXPECT_EQ(receive(), 1); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(without_time(printed.err, "\nRECIBIDO ", before),
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x7\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0xa5\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0xf\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x0\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x2\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_INFO, data_end: 7\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_INFO, data_end: 7\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_CHECKSUM\n"
              "[DEBUG]recibir_mensaje_nfisico: res_op= TRAMA_RECIBIDA\n"
              "[DEBUG]recibir_mensaje_nfisico: Recibido (res: 1) : 9 bytes. Datos: \n"
              "RECIBIDO NOW\n"
              "a5 07 a5 0f 00 02 2a 11 ad \n");
}

// Every byte of the dump is XORed with 0x55 then, not the info alone.
TEST_F(PhysicalLevel, DumpsAFrameInCrc8ModeUnmasked) {
    nfisico_trace = true;
    wire.incoming = hex("A5 84 00 00 00 00 7C D4");
    const std::time_t before = std::time(nullptr);
    const Printed printed = printed_by([this] { EXPECT_EQ(receive(), 1); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(without_time(printed.err, "\nRECIBIDO ", before),
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x84\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x0\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x0\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x0\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_HEADER, leido: 0x0\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_CHECKSUM\n"
              "[DEBUG]recibir_mensaje_nfisico: state= READING_CRC\n"
              "[DEBUG]recibir_mensaje_nfisico: res_op= TRAMA_RECIBIDA\n"
              "[DEBUG]recibir_mensaje_nfisico: Recibido (res: 1) : 8 bytes. Datos: \n"
              "RECIBIDO NOW\n"
              "f0 d1 55 55 55 55 29 81 \n");
}

// All of it, to the last byte.
TEST_F(PhysicalLevel, DumpsTheLongestFrame) {
    nfisico_trace = true;
    wire.incoming = joined({hex("A5 87 01 02 03 FF"), Bytes(255, 0x44), hex("B8 E7")});
    std::string dump = "f0 d2 54 57 56 aa ";
    for (int i = 0; i < 255; ++i)
        dump += "11 ";
    dump += "ed b2 \n";
    const std::time_t before = std::time(nullptr);
    const Printed printed = printed_by([this] { EXPECT_EQ(receive(), 1); });
    EXPECT_THAT(without_time(printed.err, "\nRECIBIDO ", before),
                testing::EndsWith("[DEBUG]recibir_mensaje_nfisico: Recibido (res: 1) : 263 bytes. "
                                  "Datos: \nRECIBIDO NOW\n" +
                                  dump));
}

// A record that was used before must not make the dump of a lone start byte look like CRC8 mode.
TEST_F(PhysicalLevel, TracesATimeout) {
    nfisico_trace = true;
    load(hex("A5 84"));
    wire.incoming = hex("A5");
    const std::time_t before = std::time(nullptr);
    const Printed printed = printed_by([this] { EXPECT_EQ(receive(), 4); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(without_time(printed.err, "\nRECIBIDO ", before),
              "[DEBUG]recibir_mensaje_nfisico: Timeout in reception\n"
              "[DEBUG]recibir_mensaje_nfisico: Recibido (res: 4) : 1 bytes. Datos: \n"
              "RECIBIDO NOW\n"
              "a5 \n");
}

TEST_F(PhysicalLevel, TracesASendingOnStandardError) {
    nfisico_trace = true;
    EXPECT_EQ(printed_by([this] { send(hex("A5 08 00 00 00 02 05 A5 4C")); }),
              (Printed{.out = "",
                       .err = "[DEBUG]enviar_mensaje_nfisico:  enviar_mensaje_nfisico, nbytes: 9\n"
                              "[DEBUG]enviar_mensaje_nfisico:  enviar_mensaje_nfisico, buffer "
                              "final nbytes: 10\n"}));
}

TEST_F(PhysicalLevel, IsSilentWithoutItsSwitch) {
    EXPECT_EQ(printed_by([this] {
                  send(hex("A5 08 00 00 00 02 05 A5 4C"));
                  wire.incoming = hex("33 A5 84 00 00 00 00 7C D4 A5");
                  EXPECT_EQ(receive(), 1);
                  EXPECT_EQ(receive(), 4);
              }),
              (Printed{.out = "", .err = ""}));
}

}  // namespace
