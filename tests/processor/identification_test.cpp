// The identification block: which bytes each source leaves when others fail, and what is logged.
#include "processor/identification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "processor/conf_log.h"
#include "tests/processor/own_log.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kModel[] = "/quelt/conf/quelt_modelo";
constexpr char kSerial[] = "/quelt/conf/quelt_numserie";
constexpr char kMac[] = "/quelt/script/MAC";
constexpr char kVersions[] = "/quelt/script/get_board_versions.sh";

const std::string kModelWarning = "<28>FILE: Error al recuperar tipo y modelo del equipo.";
const std::string kVersionsWarning = "<28>FILE: Error al recuperar las versiones del equipo.";
const std::string kSerialWarning = "<28>FILE: Error al recuperar el numero de serie.";
const std::string kMacWarning = "<28>FILE: Error al recuperar la MAC.";

void set_versions(const std::string& software, const std::string& boot_loader,
                  const std::string& hardware) {
    write_script(kVersions, "echo b Software: " + software + "; echo b U-Boot: " + boot_loader +
                                "; echo b Hardware: " + hardware);
}

void remove_all_sources() {
    fs::remove_all("/quelt/conf");
    fs::remove(kMac);
    set_versions(".", ".", ".");
}

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

    // Fills the block, expects these 48 bytes and zeros behind them; the log lines.
    std::vector<std::string> fill(const Bytes& expected) {
        EXPECT_EQ(expected.size(), 48U);
        fill_identification();
        mensaje answer{};
        put_identification(answer);
        EXPECT_EQ(answer.longitud, 48);
        Bytes whole = expected;
        whole.resize(255);
        EXPECT_EQ(to_hex(answer.info), to_hex(whole));
        return log_.take();
    }

    OwnLog log_;
};

// What differs from a complete device, and what the block holds then.
struct Device {
    const char* name;
    void (*change)();
    Bytes type_and_model = text_bytes("MOD");
    Bytes software = {1, 2};
    Bytes device_name = text_bytes("MODELNAM");
    Bytes boot_loader = {4, 5};
    Bytes hardware = {7, 8};
    Bytes serial = text_bytes("SERIAL012345");
    Bytes mac = text_bytes("001a2b3c4d5e");
    std::vector<std::string> warnings = {};
};

void PrintTo(const Device& device, std::ostream* out) {
    *out << device.name;
}

class Devices : public IdentificationBlock, public testing::WithParamInterface<Device> {};

TEST_P(Devices, LeaveInTheBlockWhatTheirSourcesGive) {
    const Device& device = GetParam();
    device.change();
    EXPECT_THAT(
        fill(joined({device.type_and_model, device.software, device.device_name, device.boot_loader,
                     device.hardware, device.serial, device.mac, Bytes(7)})),
        ElementsAreArray(device.warnings));
}

INSTANTIATE_TEST_SUITE_P(
    Sources, Devices,
    testing::Values(
        Device{.name = "Complete", .change = [] {}},
        // A letter and zeros: versions and name leave the first three bytes of the model.
        Device{.name = "ShortModel",
               .change = [] { write_file(kModel, "M\n"); },
               .type_and_model = {'M', 0, 0},
               .device_name = {'M', 0, 0, 0, 0, 0, 0, 0}},
        // The software's build number stands where the name would begin.
        Device{.name = "NoModelFile",
               .change = [] { fs::remove(kModel); },
               .type_and_model = Bytes(3),
               .device_name = {3, 0, 0, 0, 0, 0, 0, 0},
               .warnings = {kModelWarning}},
        // The name of an empty model file is eight zeros, and no failure.
        Device{.name = "EmptyModelFile",
               .change = [] { write_file(kModel, ""); },
               .type_and_model = Bytes(3),
               .device_name = Bytes(8),
               .warnings = {kModelWarning}},
        // The model shows through where the software version would stand.
        Device{.name = "NoSoftwareVersion",
               .change = [] { set_versions(".2.3", "4.5.6", "7.8.9"); },
               .software = {'E', 'L'},
               .warnings = {kVersionsWarning}},
        Device{.name = "NoBootLoaderVersion",
               .change = [] { set_versions("1.2.3", ".5.6", "7.8.9"); },
               .boot_loader = {0, 0},
               .warnings = {kVersionsWarning}},
        // The boot loader's build number stands where the hardware's major number would.
        Device{.name = "NoHardwareVersion",
               .change = [] { set_versions("1.2.3", "4.5.6", ".8.9"); },
               .hardware = {6, 0},
               .warnings = {kVersionsWarning}},
        Device{.name = "NoVersion",
               .change = [] { set_versions(".2.3", ".5.6", ".8.9"); },
               .software = {'E', 'L'},
               .boot_loader = {0, 0},
               .hardware = {0, 0},
               .warnings = {kVersionsWarning, kVersionsWarning, kVersionsWarning}},
        // Not a failure: the whole output was read.
        Device{.name = "NoVersionsScript",
               .change = [] { fs::remove(kVersions); },
               .software = {'E', 'L'},
               .boot_loader = {0, 0},
               .hardware = {0, 0}},
        // The hardware's build number stands where the serial number would begin.
        Device{.name = "NoSerialFile",
               .change = [] { fs::remove(kSerial); },
               .serial = {9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
               .warnings = {kSerialWarning}},
        Device{.name = "EmptySerialFile",
               .change = [] { write_file(kSerial, ""); },
               .serial = Bytes(12)},
        Device{.name = "NoMac",
               .change = [] { fs::remove(kMac); },
               .mac = Bytes(12),
               .warnings = {kMacWarning}},
        Device{.name = "Nothing",
               .change = remove_all_sources,
               .type_and_model = Bytes(3),
               .software = {0, 0},
               .device_name = Bytes(8),
               .boot_loader = {0, 0},
               .hardware = {0, 0},
               .serial = Bytes(12),
               .mac = Bytes(12),
               .warnings = {kModelWarning, kVersionsWarning, kVersionsWarning, kVersionsWarning,
                            kSerialWarning, kMacWarning}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(IdentificationBlock, FailuresAreLoggedUnderTheGeneralBitAlone) {
    remove_all_sources();
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
