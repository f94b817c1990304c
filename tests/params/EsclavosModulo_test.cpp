// The slave modules.
#include "params/EsclavosModulo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/params/selectors.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/pauses.h"
#include "tests/support/trace.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const Family kIntegers = {
    .table = "EsclavosModulo",
    .select = "SELECT * FROM EsclavosModulo WHERE IdEsclavosModulo='1'",
    .keys =
        {{INT_MIN, -2147483648}, {-1, -1}, {0, 0}, {1, 1}, {2, 2}, {7, 7}, {INT_MAX, 2147483647}},
    // clang-format off
    .selectors = {
        {0, EM_ESTADO, "Estado"},
        {1, EM_RESET_FACTORY, "Reset_Factory"},
        {2, EM_UPGRADE, "Upgrade"},
        {3, EM_MASTER, "Master"},
    },
    // clang-format on
    .outside_is_first = true,
    .get = [](int selector,
              int key) { return get_EsclavosModulo(static_cast<e_EsclavosModulo>(selector), key); },
    .set =
        [](int selector, int key, int value) {
            return set_EsclavosModulo(static_cast<e_EsclavosModulo>(selector), key, value);
        },
};

const Family kTexts = {
    .table = "EsclavosModulo",
    .select = "SELECT * FROM EsclavosModulo WHERE IdEsclavosModulo='1'",
    .keys =
        {{INT_MIN, -2147483648}, {-1, -1}, {0, 0}, {1, 1}, {2, 2}, {7, 7}, {INT_MAX, 2147483647}},
    // clang-format off
    .selectors = {
        {0, EMS_MAC, "MAC"},
        {1, EMS_HOSTNAME, "Hostname"},
        {2, EMS_SERIAL, "Serial"},
        {3, EMS_MODELO, "Modelo"},
        {4, EMS_IP, "IP"},
        {5, EMS_SWVERSION, "SWVersion"},
    },
    // clang-format on
    .setstr =
        [](int selector, int key, const char* text, unsigned size) {
            return setstr_EsclavosModulo(static_cast<e_str_EsclavosModulo>(selector), key, text,
                                         size);
        },
};

INSTANTIATE_TEST_SUITE_P(EsclavosModulo, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(EsclavosModulo, IntegerWrites, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(EsclavosModulo, TextWrites, testing::Values(kTexts));

// With the rows of the sample board: none.
class SlaveByMac : public testing::Test {
  protected:
    OpenBoard board_;
};

TEST_F(SlaveByMac, AddsTheFirstSlave) {
    const Contents before = contents();
    Trace trace;
    EXPECT_EQ(get_EsclavosModuloIdByMAC("001a2b3c4d5e"), 1);
    EXPECT_THAT(
        trace.take(),
        ElementsAre("SELECT * FROM EsclavosModulo ",
                    "INSERT INTO EsclavosModulo (IdEsclavosModulo, MAC, Hostname, Serial, Modelo, "
                    "IP, SWVersion, Estado, Reset_Factory, Upgrade, Master)  VALUES (NULL, "
                    "'001a2b3c4d5e', NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL )"));
    EXPECT_THAT(changes(before, contents()),
                ElementsAre("EsclavosModulo 1 Estado: nothing -> NULL",
                            "EsclavosModulo 1 Hostname: nothing -> NULL",
                            "EsclavosModulo 1 IP: nothing -> NULL",
                            "EsclavosModulo 1 IdEsclavosModulo: nothing -> 1",
                            "EsclavosModulo 1 MAC: nothing -> '001a2b3c4d5e'",
                            "EsclavosModulo 1 Master: nothing -> NULL",
                            "EsclavosModulo 1 Modelo: nothing -> NULL",
                            "EsclavosModulo 1 Reset_Factory: nothing -> NULL",
                            "EsclavosModulo 1 SWVersion: nothing -> NULL",
                            "EsclavosModulo 1 Serial: nothing -> NULL",
                            "EsclavosModulo 1 Upgrade: nothing -> NULL"));
}

TEST_F(SlaveByMac, AddsNoSecondOne) {
    EXPECT_EQ(get_EsclavosModuloIdByMAC("001a2b3c4d5e"), 1);
    const Contents before = contents();
    EXPECT_EQ(get_EsclavosModuloIdByMAC("001a2b3c4d5e"), 1);
    EXPECT_EQ(get_EsclavosModuloIdByMAC("ffffffffffff"), 1);
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_F(SlaveByMac, LeavesSlavesOfAnyKeyAlone) {
    for (const char* const rows : {"(5, 'a')", "(6, 'b')"}) {
        run_elsewhere(kConfDb, std::string("INSERT INTO EsclavosModulo (IdEsclavosModulo, MAC) ") +
                                   "VALUES " + rows);
        SCOPED_TRACE(rows);
        const Contents before = contents();
        Trace trace;
        EXPECT_EQ(get_EsclavosModuloIdByMAC("001a2b3c4d5e"), 1);
        EXPECT_THAT(trace.take(), ElementsAre("SELECT * FROM EsclavosModulo "));
        EXPECT_THAT(changes(before, contents()), IsEmpty());
    }
}

TEST_F(SlaveByMac, StoresTwelveCharactersAsTheyAre) {
    struct Case {
        const char* mac;
        const char* stored;
    };
    constexpr Case kCases[] = {
        {"", "''"},
        {"1", "'1'"},
        {"001a2b3c4d5", "'001a2b3c4d5'"},
        {"001a2b3c4d5e", "'001a2b3c4d5e'"},
        {"001a2b3c4d5ef", "'001a2b3c4d5e'"},
        {"00:1a:2b:3c:4d:5e", "'00:1a:2b:3c:'"},
        {"a'b", "'a''b'"},
        {"50%d%n", "'50%d%n'"},  // values of a new row keep their per cent signs
    };
    for (const Case& text : kCases) {
        SCOPED_TRACE(text.mac);
        run_elsewhere(kConfDb, "DELETE FROM EsclavosModulo");
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(get_EsclavosModuloIdByMAC(text.mac), 1); }),
                  Printed());
        EXPECT_EQ(contents().at("EsclavosModulo 1 MAC"), text.stored);
    }
}

TEST_F(SlaveByMac, NeedsNoEndBehindThirteenCharacters) {
    const std::vector<char> text(13, 'a');
    EXPECT_EQ(get_EsclavosModuloIdByMAC(text.data()), 1);
    EXPECT_EQ(contents().at("EsclavosModulo 1 MAC"), "'aaaaaaaaaaaa'");
}

TEST_F(SlaveByMac, IsOneAlsoWhenTheSlaveCannotBeAdded) {
    run_elsewhere(kConfDb,
                  "CREATE TRIGGER refuse BEFORE INSERT ON EsclavosModulo "
                  "BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const Contents before = contents();
    const Printed printed = printed_by([] { EXPECT_EQ(get_EsclavosModuloIdByMAC("00"), 1); });
    EXPECT_THAT(printed.err, HasSubstr("[ERROR_DB]insert: refused\n"));
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_F(SlaveByMac, IsOneAlsoWhenNothingCanBeRead) {
    const Contents before = contents();
    ForeignLock lock(kConfDb);
    const Printed printed = printed_by([] { EXPECT_EQ(get_EsclavosModuloIdByMAC("00"), 1); });
    // An empty table and one that cannot be read are not told apart: it tries to add a slave.
    EXPECT_THAT(printed.err, HasSubstr("[ERROR_DB]insert: database is locked\n"));
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3, 1, 2, 3));
    lock.release();
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    EXPECT_EQ(get_EsclavosModuloIdByMAC("00"), 1);
    EXPECT_EQ(contents().at("EsclavosModulo 1 MAC"), "'00'");
}

// What follows from that.
TEST_F(SlaveByMac, AddsAnotherSlaveWhenThoseThatAreCouldNotBeRead) {
    run_elsewhere(kConfDb, "INSERT INTO EsclavosModulo (IdEsclavosModulo, MAC) VALUES (5, 'a')");
    ForeignLock lock(kConfDb);
    during_pauses([&, pauses = 0]() mutable {
        if (++pauses == 3)
            lock.release();
    });
    printed_by([] { EXPECT_EQ(get_EsclavosModuloIdByMAC("00"), 1); });
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
    EXPECT_EQ(contents().at("EsclavosModulo 5 MAC"), "'a'");
    EXPECT_EQ(contents().at("EsclavosModulo 6 MAC"), "'00'");
}

}  // namespace
