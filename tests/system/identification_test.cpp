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
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/syslog_reader.h"
#include "tests/support/wait.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Bytes kRequest = frame(4);
const std::string kSampleBoard = document::answer(kRequest);

// The sample board's answer, but for these places.
std::string answer_with(const std::vector<document::Part>& parts) {
    Bytes info = info_of(hex(kSampleBoard), 4);
    document::put(parts, "Identification", info);
    return to_hex(frame(4, info));
}

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
    EXPECT_EQ(to_hex(exchange(kRequest)), kSampleBoard);
}

TEST_F(Identification, IsTheSameForEveryFormOfTheRequest) {
    const Daemon daemon;
    for (const Bytes& request : {
             kRequest, hex("A5 04 01 02 03 00 F6"),  // header bytes are not copied into the answer
             frame(4, {1, 2}),                       // info is not looked at
             frame(4, {0xA5, 0xA5}),                 // info of two start bytes, each doubled
             frame(0x84),                            // CRC8 mode; the answer is in normal mode
             joined({kRequest, {0, 0, 0}}),          // bytes behind it that start no frame
         }) {
        SCOPED_TRACE(to_hex(request));
        EXPECT_EQ(to_hex(exchange(request)), kSampleBoard);
    }
}

TEST_F(Identification, WithoutMacHoldsZerosInItsPlace) {
    fs::remove("/quelt/script/MAC");
    const Daemon daemon({.options = {"-l", "16"}});
    EXPECT_EQ(to_hex(exchange(kRequest)), answer_with({{"mac", Bytes(12)}}));
}

TEST_F(Identification, DoublesTheStartByteWithinTheAnswer) {
    write_file("/quelt/conf/quelt_numserie", "\xA5\xA5SERIAL\x05\xA5\x06\xA5\n");
    const Daemon daemon;
    EXPECT_EQ(to_hex(exchange(kRequest)),
              answer_with({{"serial number", text_bytes("\xA5\xA5SERIAL\x05\xA5\x06\xA5")}}));
}

TEST_F(Identification, IsReadOnceAtTheStart) {
    {
        const Daemon daemon;
        EXPECT_EQ(to_hex(exchange(kRequest)), kSampleBoard);
        write_file("/quelt/conf/quelt_numserie", "NEW000000000\n");
        EXPECT_EQ(to_hex(exchange(kRequest)), kSampleBoard);
        // Nothing is left of the connections then, so that the port can be bound again.
        EXPECT_TRUE(eventually([&] { return daemon.out().ends_with("Client Close\n"); }));
    }
    const Daemon restarted;
    EXPECT_EQ(to_hex(exchange(kRequest)),
              answer_with({{"serial number", text_bytes("NEW000000000")}}));
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
        EXPECT_EQ(to_hex(exchange(kRequest)),
                  to_hex(frame(4, Bytes(document::length("Identification")))));
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
