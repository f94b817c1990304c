// The slaves' sub-commands with a look-up that says what the test wants it to: of the real one
// there always is slave 1. The linker puts this one in its place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "processor/conf_log.h"
#include "processor/slaves.h"
#include "tests/processor/own_log.h"
#include "tests/processor/requests.h"
#include "tests/processor/slave_requests.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/open_board.h"

namespace {

int found = 0;
std::string mac_looked_up;

}  // namespace

int look_up(const char* mac) asm("__wrap__Z25get_EsclavosModuloIdByMACPKc");
int look_up(const char* mac) {
    mac_looked_up = mac;
    return found;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

constexpr std::uint8_t kWrite = 3;

const std::string kCommandLine = "<31>CMD: Comando escritura parametros.\n";
const std::string kErrorLine = "<28>ERROR: Peticion de escritura no exitosa.\n";

// The master's MAC address, host name, serial number, model, address and version.
constexpr char kIdentity[] =
    "6E "
    "30 30 31 61 32 62 33 63 34 64 35 65 00 "
    "63 61 62 65 63 65 72 61 2D 31 00 00 00 00 00 00 00 00 "
    "5A 4E 32 30 32 34 30 30 30 31 32 33 00 "
    "5A 4E 44 32 41 56 2D 54 00 00 "
    "31 36 39 2E 32 35 34 2E 33 34 2E 32 31 0A 00 00 "
    "02 04 01 ";
const std::string kRegistered = std::string(kIdentity) + "00";
const std::string kRefused = std::string(kIdentity) + "01";

const Bytes kRegistration =
    registration({"0a1b2c3d4e5f", "esclavo-1", "SN0001", "ZND1", "169.254.34.22", {1, 2, 3}});

class SlaveFound : public testing::Test {
  protected:
    SlaveFound() {
        conf_log = 0x40;
        for (const long long key :
             {-2147483648LL, -1LL, 0LL, 1LL, 2LL, 3LL, 254LL, 255LL, 256LL, 300LL, 2147483647LL})
            Database(kConfDb).run("INSERT INTO EsclavosModulo VALUES (" + std::to_string(key) +
                                  ", '-', '-', '-', '-', '-', '-', 5, 6, 7, 8)");
    }

    static std::string answer(const Bytes& info) { return to_hex(answer_to(kWrite, info)); }

    // What the request changes.
    static Lines changed_by(const Bytes& info, const std::string& expected_answer) {
        const Contents before = contents();
        EXPECT_EQ(answer(info), expected_answer);
        return changes(before, contents());
    }

    OwnLog log_;
    OpenBoard board_;
};

TEST_F(SlaveFound, NoneIsRefusedAndNothingWritten) {
    for (const int none : {0, -1, -2147483647, INT_MIN}) {
        SCOPED_TRACE(none);
        found = none;
        EXPECT_THAT(changed_by(kRegistration, kRefused), IsEmpty());
        EXPECT_EQ(mac_looked_up, "0a1b2c3d4e5f");
        EXPECT_THAT(log_.take(),
                    ElementsAre(kCommandLine,
                                "<28>ERROR: No se ha podido detectar ni crear nuevo esclavo.\n"));
        for (int slave = -1; slave <= 300; ++slave)
            EXPECT_FALSE(slave_seen(slave)) << slave;
        EXPECT_FALSE(slave_seen(none));

        // shorter, by the upgrade flag
        EXPECT_THAT(changed_by(of_slave(111, "aa"), "6F 30 30 31 61 32 62 33 63 34 64 35 65 00"),
                    IsEmpty());
        EXPECT_EQ(mac_looked_up, "aa");
        EXPECT_THAT(changed_by(of_slave(112, "bb", {9}), ""), IsEmpty());
        EXPECT_EQ(mac_looked_up, "bb");
        EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kCommandLine));
    }
}

TEST_F(SlaveFound, NoneIsToldOfItsChannelAllTheSame) {
    found = 0;
    EXPECT_THAT(changed_by(of_slave(105, "aa", {1}), "69 01 00"), IsEmpty());
    EXPECT_THAT(
        changed_by(
            of_slave(106, "aa", {1}),
            "6A 01 04 01 19 64 01 04 00 00 02 00 02 01 02 00 01 01 01 03 AC 44 00 11 00 01 01 00"),
        IsEmpty());
    EXPECT_THAT(changed_by(of_slave(109, "aa", hex("41 00")), "6D 00"),
                ElementsAre("alarmasEstado estado_remote_encoder EstadoPendienteRE: 0 -> 2",
                            "alarmasEstado estado_remote_encoder valor: '00000000' -> 'A'"));
}

struct Found {
    int slave;
    bool seen;  // there is a flag of its own
};

// The flags end with 255, the rows do not.
constexpr Found kFound[] = {
    {1, true}, {2, true}, {254, true}, {255, true}, {256, false}, {300, false}, {INT_MAX, false},
};

TEST_F(SlaveFound, IsTheOneThatIsWrittenReadAndSeen) {
    for (const Found& c : kFound) {
        const std::string key = std::to_string(c.slave);
        SCOPED_TRACE(key);
        found = c.slave;
        EXPECT_FALSE(slave_seen(c.slave));
        const std::string row = "EsclavosModulo " + key;
        EXPECT_THAT(changed_by(of_slave(111, "aa"), "6F 07 30 30 31 61 32 62 33 63 34 64 35 65 00"),
                    IsEmpty());
        EXPECT_THAT(changed_by(of_slave(112, "aa", {9}), ""), ElementsAre(row + " Estado: 5 -> 9"));
        EXPECT_FALSE(slave_seen(c.slave));
        log_.take();
        EXPECT_THAT(
            changed_by(kRegistration, kRegistered),
            ElementsAre(row + " Estado: 9 -> 1", row + " Hostname: '-' -> 'esclavo-1'",
                        row + " IP: '-' -> '169.254.34.22'", row + " MAC: '-' -> '0a1b2c3d4e5f'",
                        row + " Master: 8 -> 0", row + " Modelo: '-' -> 'ZND1'",
                        row + " Reset_Factory: 6 -> 0", row + " SWVersion: '-' -> '1.2.3'",
                        row + " Serial: '-' -> 'SN0001'", row + " Upgrade: 7 -> 0"));
        EXPECT_THAT(log_.take(), ElementsAre(kCommandLine));
        EXPECT_EQ(slave_seen(c.slave), c.seen);
        // and no other, such as the low byte of 256 or of 300
        for (const int other : {-1, 0, 3, 44, 253})
            EXPECT_FALSE(slave_seen(other)) << other;
    }
}

TEST_F(SlaveFound, WithoutARowIsToldSo) {
    Database(kConfDb).run("DELETE FROM EsclavosModulo WHERE IdEsclavosModulo = 300");
    found = 300;
    EXPECT_THAT(changed_by(kRegistration, kRefused), IsEmpty());
    Lines expected(10, kErrorLine);
    expected.insert(expected.begin(), kCommandLine);
    EXPECT_EQ(log_.take(), expected);
    EXPECT_THAT(changed_by(of_slave(111, "aa"), "6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00"),
                IsEmpty());
    EXPECT_THAT(changed_by(of_slave(112, "aa", {9}), ""), IsEmpty());
    EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kCommandLine));
}

}  // namespace
