// The identification block: which bytes each source leaves when others fail, and what is logged.
#include "processor/identification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "processor/conf_log.h"
#include "tests/processor/own_log.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kModel[] = "/quelt/conf/quelt_modelo";
constexpr char kSerial[] = "/quelt/conf/quelt_numserie";
constexpr char kMac[] = "/quelt/script/MAC";
constexpr char kVersions[] = "/quelt/script/get_board_versions.sh";

const std::string kModelWarning = "<28>FILE: Error al recuperar tipo y modelo del equipo.";
const std::string kVersionsWarning = "<28>FILE: Error al recuperar las versiones del equipo.";
const std::string kSerialWarning = "<28>FILE: Error al recuperar el numero de serie.";
const std::string kMacWarning = "<28>FILE: Error al recuperar la MAC.";

constexpr std::size_t kLength = 48;

// Every test has a process of its own, whose block is still zero.
class IdentificationBlock : public testing::Test {
  protected:
    IdentificationBlock() {
        write_file(kModel, "MODELNAME\n");
        write_file(kSerial, "SERIAL012345\n");
        write_script(kMac, "echo 00:1a:2b:3c:4d:5e");
        set_versions("1.2.3", "4.5.6", "7.8.9");
        conf_log = 0x10;
    }

    static void set_versions(const std::string& software, const std::string& boot_loader,
                             const std::string& hardware) {
        write_script(kVersions, "echo b Software: " + software + "; echo b U-Boot: " + boot_loader +
                                    "; echo b Hardware: " + hardware);
    }

    // Fills the block, expects these bytes and zeros behind them; the log lines.
    std::vector<std::string> fill(const Bytes& expected) {
        fill_identification();
        mensaje answer{};
        put_identification(answer);
        EXPECT_EQ(answer.longitud, 48);
        Bytes whole = expected;
        whole.resize(255);
        EXPECT_EQ(to_hex(answer.info), to_hex(whole));
        EXPECT_EQ(expected.size(), kLength);
        return log_.take();
    }

    OwnLog log_;
};

TEST_F(IdentificationBlock, OfACompleteDevice) {
    EXPECT_THAT(fill(joined({text_bytes("MOD"),
                             {1, 2},
                             text_bytes("MODELNAM"),
                             {4, 5},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                IsEmpty());
}

// Nine characters and a zero at 0 to 9, of which the versions and the name leave the first three.
TEST_F(IdentificationBlock, OfAShortModel) {
    write_file(kModel, "M\n");
    EXPECT_THAT(fill(joined({text_bytes("M"),
                             {0, 0},
                             {1, 2},
                             text_bytes("M"),
                             Bytes(7),
                             {4, 5},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                IsEmpty());
}

// The software's build number stands where the name would begin.
TEST_F(IdentificationBlock, WithoutModelFile) {
    fs::remove(kModel);
    EXPECT_THAT(fill(joined({{0, 0, 0},
                             {1, 2, 3},
                             Bytes(7),
                             {4, 5},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kModelWarning));
}

// The name of an empty model file is eight zeros, and no failure.
TEST_F(IdentificationBlock, WithEmptyModelFile) {
    write_file(kModel, "");
    EXPECT_THAT(fill(joined({{0, 0, 0},
                             {1, 2},
                             Bytes(8),
                             {4, 5},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kModelWarning));
}

// The model shows through where the software version would stand.
TEST_F(IdentificationBlock, WithoutSoftwareVersion) {
    set_versions(".2.3", "4.5.6", "7.8.9");
    EXPECT_THAT(fill(joined({text_bytes("MODEL"),
                             text_bytes("MODELNAM"),
                             {4, 5},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kVersionsWarning));
}

TEST_F(IdentificationBlock, WithoutBootLoaderVersion) {
    set_versions("1.2.3", ".5.6", "7.8.9");
    EXPECT_THAT(fill(joined({text_bytes("MOD"),
                             {1, 2},
                             text_bytes("MODELNAM"),
                             {0, 0},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kVersionsWarning));
}

// The boot loader's build number stands where the hardware's major number would.
TEST_F(IdentificationBlock, WithoutHardwareVersion) {
    set_versions("1.2.3", "4.5.6", ".8.9");
    EXPECT_THAT(fill(joined({text_bytes("MOD"),
                             {1, 2},
                             text_bytes("MODELNAM"),
                             {4, 5},
                             {6, 0},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kVersionsWarning));
}

TEST_F(IdentificationBlock, WithoutAnyVersion) {
    set_versions(".2.3", ".5.6", ".8.9");
    EXPECT_THAT(fill(joined({text_bytes("MODEL"),
                             text_bytes("MODELNAM"),
                             {0, 0},
                             {0, 0},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kVersionsWarning, kVersionsWarning, kVersionsWarning));
}

// Not a failure: the whole output was read.
TEST_F(IdentificationBlock, WithoutVersionsScript) {
    fs::remove(kVersions);
    EXPECT_THAT(fill(joined({text_bytes("MODEL"),
                             text_bytes("MODELNAM"),
                             {0, 0},
                             {0, 0},
                             text_bytes("SERIAL012345"),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                IsEmpty());
}

// The hardware's build number stands where the serial number would begin.
TEST_F(IdentificationBlock, WithoutSerialNumber) {
    fs::remove(kSerial);
    EXPECT_THAT(fill(joined({text_bytes("MOD"),
                             {1, 2},
                             text_bytes("MODELNAM"),
                             {4, 5},
                             {7, 8},
                             {9},
                             Bytes(11),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                ElementsAre(kSerialWarning));
}

TEST_F(IdentificationBlock, WithEmptySerialNumber) {
    write_file(kSerial, "");
    EXPECT_THAT(fill(joined({text_bytes("MOD"),
                             {1, 2},
                             text_bytes("MODELNAM"),
                             {4, 5},
                             {7, 8},
                             Bytes(12),
                             text_bytes("001a2b3c4d5e"),
                             Bytes(7)})),
                IsEmpty());
}

TEST_F(IdentificationBlock, WithoutMac) {
    fs::remove(kMac);
    EXPECT_THAT(fill(joined({text_bytes("MOD"),
                             {1, 2},
                             text_bytes("MODELNAM"),
                             {4, 5},
                             {7, 8},
                             text_bytes("SERIAL012345"),
                             Bytes(12),
                             Bytes(7)})),
                ElementsAre(kMacWarning));
}

TEST_F(IdentificationBlock, WithoutAnything) {
    fs::remove_all("/quelt/conf");
    fs::remove(kMac);
    set_versions(".", ".", ".");
    EXPECT_THAT(fill(Bytes(48)), ElementsAre(kModelWarning, kVersionsWarning, kVersionsWarning,
                                             kVersionsWarning, kSerialWarning, kMacWarning));
}

TEST_F(IdentificationBlock, FailuresAreLoggedUnderTheGeneralBitAlone) {
    fs::remove_all("/quelt/conf");
    fs::remove(kMac);
    set_versions(".", ".", ".");
    for (const std::uint32_t mask : {0U, 0x40U, 0x20U, 0x6FU, 0xFFFFFFEFU}) {
        SCOPED_TRACE(mask);
        conf_log = mask;
        EXPECT_THAT(fill(Bytes(48)), IsEmpty());
    }
    conf_log = 0x7F;
    EXPECT_EQ(fill(Bytes(48)).size(), 6U);
}

TEST_F(IdentificationBlock, StaysAsItWasFilled) {
    fill_identification();
    fs::remove_all("/quelt/conf");
    mensaje answer{};
    put_identification(answer);
    EXPECT_EQ(to_hex(Bytes(answer.info, answer.info + 3)), to_hex(text_bytes("MOD")));
}

}  // namespace
