// The main job, as a master sees it: the request goes out on one connection, the answer is
// collected on a second.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/master.h"
#include "tests/support/syslog_reader.h"
#include "tests/support/wait.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// start, control: command 4, three header bytes, length 0, checksum
const Bytes kRequest = hex("A5 04 00 00 00 00 FC");

// start, control, header, length 48
const Bytes kHead = hex("A5 04 00 00 00 30");

const Bytes kSampleBoard = joined({
    kHead,
    text_bytes("ZND"),           // the model
    hex("02 04"),                // software 2.4
    text_bytes("ZND2AV-T"),      // the name
    hex("01 03"),                // boot loader 1.3
    hex("03 01"),                // hardware 3.1
    text_bytes("ZN2024000123"),  // the serial number
    text_bytes("001a2b3c4d5e"),  // the MAC address
    Bytes(7),
    hex("B8"),  // checksum
});

class Identification : public testing::Test {
  protected:
    Identification() { make_board(); }

    // What the processor's start said about the device's files, each as "<priority>text".
    [[nodiscard]] std::vector<std::string> file_warnings() const {
        std::vector<std::string> warnings;
        for (const LogLine& line : log_.lines()) {
            EXPECT_EQ(line.name, "ZONDAR_NET_RECEIVER");
            if (line.text.starts_with("FILE"))
                warnings.push_back(testing::PrintToString(line));
        }
        return warnings;
    }

    SyslogReader log_;
};

TEST_F(Identification, OfTheSampleBoardByteByByte) {
    const Daemon daemon;
    EXPECT_EQ(to_hex(exchange(kRequest)), to_hex(kSampleBoard));
}

TEST_F(Identification, IsTheSameForEveryFormOfTheRequest) {
    const Daemon daemon;
    for (const char* request : {
             "A5 04 00 00 00 00 FC",              //
             "A5 04 01 02 03 00 F6",              // header bytes are not copied into the answer
             "A5 04 00 00 00 02 01 02 F7",        // info is not looked at
             "A5 04 00 00 00 02 A5 A5 A5 A5 B0",  // info of two start bytes, each doubled
             "A5 84 00 00 00 00 7C D4",           // CRC8 mode; the answer is in normal mode
             "A5 04 00 00 00 00 FC 00 00 00",     // bytes behind it that start no frame
         }) {
        SCOPED_TRACE(request);
        EXPECT_EQ(to_hex(exchange(hex(request))), to_hex(kSampleBoard));
    }
}

TEST_F(Identification, WithoutMacHoldsZerosInItsPlace) {
    fs::remove("/quelt/script/MAC");
    const Daemon daemon({.options = {"-l", "16"}});
    EXPECT_EQ(
        to_hex(exchange(kRequest)),
        to_hex(joined({kHead, text_bytes("ZND"), hex("02 04"), text_bytes("ZND2AV-T"), hex("01 03"),
                       hex("03 01"), text_bytes("ZN2024000123"), Bytes(12), Bytes(7), hex("06")})));
}

TEST_F(Identification, DoublesTheStartByteWithinTheAnswer) {
    write_file("/quelt/conf/quelt_numserie", "\xA5\xA5SERIAL\x05\xA5\x06\xA5\n");
    const Daemon daemon;
    EXPECT_EQ(to_hex(exchange(kRequest)),
              to_hex(joined({kHead, text_bytes("ZND"), hex("02 04"), text_bytes("ZND2AV-T"),
                             hex("01 03"), hex("03 01"), hex("A5 A5 A5 A5"), text_bytes("SERIAL"),
                             hex("05 A5 A5 06 A5 A5"), text_bytes("001a2b3c4d5e"), Bytes(7),
                             hex("EF")})));
}

TEST_F(Identification, IsReadOnceAtTheStart) {
    {
        const Daemon daemon;
        EXPECT_EQ(to_hex(exchange(kRequest)), to_hex(kSampleBoard));
        write_file("/quelt/conf/quelt_numserie", "NEW000000000\n");
        EXPECT_EQ(to_hex(exchange(kRequest)), to_hex(kSampleBoard));
        // Nothing is left of the connections then, so that the port can be bound again.
        EXPECT_TRUE(eventually([&] { return daemon.out().ends_with("Client Close\n"); }));
    }
    const Daemon restarted;
    EXPECT_EQ(to_hex(exchange(kRequest)),
              to_hex(joined({kHead, text_bytes("ZND"), hex("02 04"), text_bytes("ZND2AV-T"),
                             hex("01 03"), hex("03 01"), text_bytes("NEW000000000"),
                             text_bytes("001a2b3c4d5e"), Bytes(7), hex("B4")})));
}

class IdentificationOfABareBoard : public Identification {
  protected:
    IdentificationOfABareBoard() {
        fs::remove_all("/quelt/conf");
        fs::remove("/quelt/script/MAC");
        write_script("/quelt/script/get_board_versions.sh",
                     "echo b Software: .; echo b U-Boot: .; echo b Hardware: .");
    }

    void expect_zeros() {
        EXPECT_EQ(to_hex(exchange(kRequest)), to_hex(joined({kHead, Bytes(48), hex("CC")})));
    }
};

TEST_F(IdentificationOfABareBoard, IsAllZerosAndLogged) {
    const Daemon daemon({.options = {"-l", "16"}});
    expect_zeros();
    ASSERT_TRUE(log_.wait_for("ready..."));
    EXPECT_THAT(
        file_warnings(),
        ElementsAre("<28> ZONDAR_NET_RECEIVER: FILE: Error al recuperar tipo y modelo del equipo.",
                    "<28> ZONDAR_NET_RECEIVER: FILE: Error al recuperar las versiones del equipo.",
                    "<28> ZONDAR_NET_RECEIVER: FILE: Error al recuperar las versiones del equipo.",
                    "<28> ZONDAR_NET_RECEIVER: FILE: Error al recuperar las versiones del equipo.",
                    "<28> ZONDAR_NET_RECEIVER: FILE: Error al recuperar el numero de serie.",
                    "<28> ZONDAR_NET_RECEIVER: FILE: Error al recuperar la MAC."));
}

TEST_F(IdentificationOfABareBoard, IsNotLoggedWithoutTheGeneralBit) {
    const Daemon daemon({.options = {"-l", "111", "-s", "5"}});  // all but 16
    expect_zeros();
    ASSERT_TRUE(log_.wait_for("ready..."));
    EXPECT_THAT(file_warnings(), IsEmpty());
}

TEST_F(IdentificationOfABareBoard, IsAllZerosWithoutScripts) {
    fs::remove_all("/quelt/script");
    const Daemon daemon;
    expect_zeros();
}

}  // namespace
