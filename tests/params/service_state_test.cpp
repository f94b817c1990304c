// Whether a service carries its streams: the state over two tables.
#include "params/service_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"
#include "tests/support/trace.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

e_serv_type type_of(int type) {
    return static_cast<e_serv_type>(type);
}

// The board has services 0 and 1 with a stream of each type. The tests look at service 1, whose
// channel is 1.
class ServiceState : public testing::Test {
  protected:
    ServiceState() {
        run_elsewhere(kConfDb,
                      "UPDATE EntradaAV SET Remux_Av = 99; UPDATE PIDsSalida SET Seleccionado = 5");
    }

    // Stores what a stream of service 1 has as its selection; "missing" and "doubled" are its row.
    static void store(int type, const std::string& selection) {
        const std::string where =
            " WHERE fk_idServicio = 1 AND Tipo = " + std::to_string(type) + ";";
        if (selection == "missing")
            run_elsewhere(kConfDb, "DELETE FROM PIDsSalida" + where);
        else if (selection == "doubled")
            run_elsewhere(kConfDb, "UPDATE PIDsSalida SET Seleccionado = 2" + where +
                                       "INSERT INTO PIDsSalida SELECT idPID + 100, PID, SID, Tipo, "
                                       "fk_idServicio, NumEntrada, Bitrate, Seleccionado, "
                                       "EstadoPendienteWR FROM PIDsSalida" +
                                       where);
        else
            run_elsewhere(kConfDb, "UPDATE PIDsSalida SET Seleccionado = " + selection + where);
    }

    OpenBoard board_;
};

TEST_F(ServiceState, HasTheTypesUnderTheNumbersThatAreStored) {
    EXPECT_EQ(static_cast<int>(ST_TIPO_1), 1);
    EXPECT_EQ(static_cast<int>(ST_TIPO_2), 2);
}

TEST_F(ServiceState, IsTheStoredSelectionLessOne) {
    struct Case {
        const char* stored;
        int state;
    };
    constexpr Case kCases[] = {
        {"1", 0},
        {"2", 1},
        {"0", -1},
        {"3", 2},
        {"-5", -6},
        {"NULL", -1},
        {"'2x'", 1},
        {"'x'", -1},
        {"2147483647", 2147483646},
        {"-2147483648", 2147483647},  // wraps
        {"doubled", -1},
        {"missing", -1},
    };
    for (const Case& selection : kCases) {
        SCOPED_TRACE(selection.stored);
        store(1, selection.stored);
        EXPECT_EQ(get_service_state(ST_TIPO_1, 1), selection.state);
        EXPECT_EQ(get_service_state(ST_TIPO_2, 1), 4);
        EXPECT_EQ(get_service_state(ST_TIPO_1, 0), 4);
    }
}

TEST_F(ServiceState, IsReadByOneSelectAndPrintsNothing) {
    Trace trace;
    EXPECT_EQ(printed_by([] { get_service_state(ST_TIPO_2, 1); }), Printed());
    EXPECT_THAT(trace.take(),
                ElementsAre("SELECT * FROM PIDsSalida WHERE fk_idServicio='1' AND Tipo='2'"));
}

// What is written, given what the stream of the other type has stored.
TEST_F(ServiceState, IsWrittenWithABitForEachTypeThatIsOff) {
    struct Case {
        int type;
        int value;
        const char* other;
        int remux;
        int selection;
    };
    constexpr Case kCases[] = {
        {1, 0, "1", 2, 2},
        {1, 0, "2", 3, 2},
        {1, 0, "missing", 2, 2},
        {1, 1, "1", 0, 1},
        {1, 1, "2", 1, 1},
        {1, 1, "missing", 0, 1},
        {1, 2, "1", 0, 2},  // off in PIDsSalida alone
        {1, 2, "2", 1, 2},
        {1, 2, "missing", 0, 2},
        {1, 7, "1", 0, 7},
        {1, 7, "2", 1, 7},
        {1, -3, "2", 1, -3},
        {2, 0, "1", 1, 2},
        {2, 0, "2", 3, 2},
        {2, 0, "missing", 1, 2},
        {2, 1, "1", 0, 1},
        {2, 1, "2", 2, 1},
        {2, 1, "missing", 0, 1},
        {2, 2, "1", 0, 2},
        {2, 2, "2", 2, 2},
        {2, 2, "missing", 0, 2},
        {2, 7, "1", 0, 7},
        {2, 7, "2", 2, 7},
        {2, -3, "2", 2, -3},
        // Off is only the stored 2.
        {1, 0, "0", 2, 2},
        {1, 0, "3", 2, 2},
        {1, 0, "NULL", 2, 2},
        {1, 0, "doubled", 2, 2},
        {1, 1, "-2147483648", 0, 1},
        {2, 0, "0", 1, 2},
        {2, 0, "3", 1, 2},
        {2, 0, "NULL", 1, 2},
        {2, 0, "doubled", 1, 2},
        {2, 1, "-2147483648", 0, 1},
    };
    for (const Case& state : kCases) {
        SCOPED_TRACE("type " + std::to_string(state.type) + ", value " +
                     std::to_string(state.value) + ", other " + state.other);
        run_elsewhere(kConfDb,
                      "BEGIN; UPDATE EntradaAV SET Remux_Av = 99; DELETE FROM "
                      "PIDsSalida; INSERT INTO PIDsSalida VALUES "
                      "(1, 256, 101, 1, 0, 0, 0, 5, 0), (2, 257, 101, 2, 0, 0, 0, 5, 0), "
                      "(3, 512, 102, 1, 1, 1, 0, 5, 0), (4, 513, 102, 2, 1, 1, 0, 5, 0); "
                      "COMMIT");
        store(state.type == 1 ? 2 : 1, state.other);
        const Contents before = contents();
        EXPECT_EQ(printed_by([&] {
                      EXPECT_EQ(set_service_state(type_of(state.type), 1, state.value), 0);
                  }),
                  Printed());
        EXPECT_THAT(changes(before, contents()),
                    ElementsAre("EntradaAV 1 Remux_Av: 99 -> " + std::to_string(state.remux),
                                "PIDsSalida 1." + std::to_string(state.type) +
                                    " Seleccionado: 5 -> " + std::to_string(state.selection)));
    }
}

TEST_F(ServiceState, OfAnotherTypeClearsTheBits) {
    store(1, "2");
    store(2, "2");
    for (const int type : {0, 3, 5, -1, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(type);
        run_elsewhere(kConfDb, "UPDATE EntradaAV SET Remux_Av = 99");
        Contents before = contents();
        EXPECT_EQ(set_service_state(type_of(type), 1, 0), -1);
        EXPECT_THAT(changes(before, contents()), ElementsAre("EntradaAV 1 Remux_Av: 99 -> 0"));

        run_elsewhere(kConfDb,
                      "UPDATE EntradaAV SET Remux_Av = 99; INSERT INTO PIDsSalida VALUES "
                      "(50, 0, 0, " +
                          std::to_string(type) + ", 1, 0, 0, 9, 0)");
        before = contents();
        EXPECT_EQ(get_service_state(type_of(type), 1), 8);
        EXPECT_EQ(set_service_state(type_of(type), 1, 1), 0);
        EXPECT_THAT(changes(before, contents()),
                    ElementsAre("EntradaAV 1 Remux_Av: 99 -> 0",
                                "PIDsSalida 1." + std::to_string(type) + " Seleccionado: 9 -> 1"));
        run_elsewhere(kConfDb, "DELETE FROM PIDsSalida WHERE idPID = 50");
    }
}

// Each of the two rows is written whether or not the other is there.
struct Rows {
    const char* name;
    void (*spoil)();
    std::vector<std::string> written;
};

void PrintTo(const Rows& rows, std::ostream* out) {
    *out << rows.name;
}

class SpoiltRows : public ServiceState, public testing::WithParamInterface<Rows> {
  public:
    static void remove_channel() {
        run_elsewhere(kConfDb, "DELETE FROM EntradaAV WHERE IdEntradaAV = 1");
    }
    static void double_channel() { double_row("EntradaAV", 1); }
    static void remove_stream() { store(1, "missing"); }
    static void double_stream() { store(1, "doubled"); }
    static void remove_both() {
        remove_channel();
        remove_stream();
    }
};

TEST_P(SpoiltRows, FailButLetTheOtherRowBeWritten) {
    GetParam().spoil();
    const Contents before = contents();
    EXPECT_EQ(set_service_state(ST_TIPO_1, 1, 0), -1);
    EXPECT_EQ(changes(before, contents()), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(
    ServiceState, SpoiltRows,
    testing::Values(Rows{.name = "MissingChannel",
                         .spoil = SpoiltRows::remove_channel,
                         .written = {"PIDsSalida 1.1 Seleccionado: 5 -> 2"}},
                    Rows{.name = "DoubledChannel",
                         .spoil = SpoiltRows::double_channel,
                         .written = {"PIDsSalida 1.1 Seleccionado: 5 -> 2"}},
                    Rows{.name = "MissingStream",
                         .spoil = SpoiltRows::remove_stream,
                         .written = {"EntradaAV 1 Remux_Av: 99 -> 2"}},
                    Rows{.name = "DoubledStream",
                         .spoil = SpoiltRows::double_stream,
                         .written = {"EntradaAV 1 Remux_Av: 99 -> 2"}},
                    Rows{.name = "NeitherRow", .spoil = SpoiltRows::remove_both, .written = {}}));

TEST_F(ServiceState, IsOfTheServiceAndTheChannelOfThatNumber) {
    constexpr int kServices[] = {INT_MIN, -1, 0, 2, 7, INT_MAX};
    for (const int service : kServices) {
        const std::string number = std::to_string(service);
        run_elsewhere(
            kConfDb, "DELETE FROM PIDsSalida WHERE fk_idServicio = " + number +
                         "; INSERT OR REPLACE INTO EntradaAV (IdEntradaAV, Remux_Av) VALUES (" +
                         number + ", 99); INSERT INTO PIDsSalida VALUES (NULL, 0, 0, 1, " + number +
                         ", 0, 0, 1, 0), (NULL, 0, 0, 2, " + number + ", 0, 0, 2, 0)");
    }
    for (const int service : kServices) {
        SCOPED_TRACE(service);
        EXPECT_EQ(get_service_state(ST_TIPO_1, service), 0);
        EXPECT_EQ(get_service_state(ST_TIPO_2, service), 1);
        const Contents before = contents();
        EXPECT_EQ(set_service_state(ST_TIPO_1, service, 0), 0);
        EXPECT_THAT(
            changes(before, contents()),
            ElementsAre("EntradaAV " + std::to_string(service) + " Remux_Av: 99 -> 3",
                        "PIDsSalida " + std::to_string(service) + ".1 Seleccionado: 1 -> 2"));
    }
    EXPECT_EQ(get_service_state(ST_TIPO_1, 3), -1);
    EXPECT_EQ(set_service_state(ST_TIPO_1, 3, 1), -1);
}

TEST_F(ServiceState, WritesTheChannelFirstAndNothingTwice) {
    Trace trace;
    const auto updates = [&trace] {
        std::vector<std::string> found;
        for (const std::string& statement : trace.take()) {
            if (statement.starts_with("UPDATE"))
                found.push_back(statement);
        }
        return found;
    };
    EXPECT_EQ(set_service_state(ST_TIPO_2, 1, 0), 0);
    EXPECT_THAT(updates(),
                ElementsAre("UPDATE EntradaAV SET  Remux_Av = '1'  WHERE IdEntradaAV = '1'",
                            "UPDATE PIDsSalida SET  Seleccionado = '2'  WHERE idPID = '4'"));
    EXPECT_EQ(set_service_state(ST_TIPO_2, 1, 0), 0);
    EXPECT_THAT(updates(), IsEmpty());
}

// A stream that is not off is read again, whatever it says then.
TEST_F(ServiceState, ReadsTheOtherTypeTwiceUnlessItIsOff) {
    struct Case {
        const char* stored;  // of the other type
        int type;
        int reads;
    };
    constexpr Case kCases[] = {
        {"1", 1, 2}, {"2", 1, 1}, {"0", 1, 2}, {"3", 1, 2}, {"1", 2, 2}, {"2", 2, 1}, {"1", 3, 0},
    };
    Trace trace;
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string(c.stored) + ", type " + std::to_string(c.type));
        run_elsewhere(kConfDb, std::string("UPDATE PIDsSalida SET Seleccionado = ") + c.stored);
        set_service_state(type_of(c.type), 1, 1);
        const std::string other = "SELECT * FROM PIDsSalida WHERE fk_idServicio='1' AND Tipo='" +
                                  std::to_string(c.type == 1 ? 2 : 1) + "'";
        const auto statements = trace.take();
        EXPECT_EQ(std::count(statements.begin(), statements.end(), other), c.reads);
    }
}

// Three attempts at each of three selects: the other type's two and its own.
TEST_F(ServiceState, WaitsThreeTimesForAMissingTable) {
    run_elsewhere(kConfDb, "ALTER TABLE PIDsSalida RENAME TO gone");
    const Printed printed = printed_by([] { EXPECT_EQ(set_service_state(ST_TIPO_1, 1, 1), -1); });
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3, 1, 2, 3, 1, 2, 3));
    EXPECT_THAT(printed.err, HasSubstr("Error leyendo datos tabla PIDsSalida . intento: 2\n"));
}

TEST_F(ServiceState, KeepsNineCharactersOfTheSelection) {
    EXPECT_EQ(set_service_state(ST_TIPO_1, 1, INT_MAX), 0);
    EXPECT_EQ(contents().at("PIDsSalida 1.1 Seleccionado"), "214748364");
    EXPECT_EQ(set_service_state(ST_TIPO_1, 1, INT_MIN), 0);
    EXPECT_EQ(contents().at("PIDsSalida 1.1 Seleccionado"), "-21474836");
}

// The rows are there, so it is done; one write that fails does not keep the other back.
TEST_F(ServiceState, SucceedsWhenOneRowCannotBeWritten) {
    struct Case {
        const char* refusing;
        const char* written;
    };
    constexpr Case kCases[] = {
        {"EntradaAV", "PIDsSalida 1.1 Seleccionado: 5 -> 2"},
        {"PIDsSalida", "EntradaAV 1 Remux_Av: 99 -> 2"},
    };
    for (const Case& table : kCases) {
        SCOPED_TRACE(table.refusing);
        run_elsewhere(kConfDb,
                      "UPDATE EntradaAV SET Remux_Av = 99; UPDATE PIDsSalida SET Seleccionado = 5; "
                      "CREATE TRIGGER refuse BEFORE UPDATE ON " +
                          std::string(table.refusing) +
                          " BEGIN SELECT RAISE(ABORT, 'refused'); END");
        const Contents before = contents();
        printed_by([] { EXPECT_EQ(set_service_state(ST_TIPO_1, 1, 0), 0); });
        EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
        EXPECT_THAT(changes(before, contents()), ElementsAre(table.written));
        run_elsewhere(kConfDb, "DROP TRIGGER refuse");
    }
}

}  // namespace
