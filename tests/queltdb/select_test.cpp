// Selects: their statements, and the records that they read from tables as they are found.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <climits>
#include <functional>
#include <string>

#include "queltdb/records.h"
#include "tests/queltdb/fields.h"
#include "tests/queltdb/statements.h"
#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/pauses.h"

namespace {

using queltdb::tAlarmasEstado;
using testing::ElementsAre;
using testing::IsEmpty;

struct Selection {
    const char* name;
    std::function<queltdb::List<tAlarmasEstado>(sqlite3*)> run;
    std::string statement;
};

const Selection kSelections[] = {
    {.name = "no clause",
     .run = [](sqlite3* db) { return select<tAlarmasEstado>(db, nullptr); },
     .statement = "SELECT * FROM alarmasEstado "},
    {.name = "empty clause",
     .run = [](sqlite3* db) { return select<tAlarmasEstado>(db, ""); },
     .statement = "SELECT * FROM alarmasEstado "},
    {.name = "clause without arguments",
     .run = [](sqlite3* db) { return select<tAlarmasEstado>(db, "WHERE nombre='alarma_in'"); },
     .statement = "SELECT * FROM alarmasEstado WHERE nombre='alarma_in'"},
    {.name = "two numbers",
     .run =
         [](sqlite3* db) {
             return select<tAlarmasEstado>(
                 db, "WHERE idalarmasEstado='%d' AND EstadoPendienteWR='%d'", INT_MIN, INT_MAX);
         },
     .statement = "SELECT * FROM alarmasEstado WHERE idalarmasEstado='-2147483648' AND "
                  "EstadoPendienteWR='2147483647'"},
    {.name = "a long number",
     .run =
         [](sqlite3* db) {
             return select<tAlarmasEstado>(db, "WHERE idalarmasEstado='%lld'", LLONG_MIN);
         },
     .statement = "SELECT * FROM alarmasEstado WHERE idalarmasEstado='-9223372036854775808'"},
    {.name = "a quoted text",
     .run =
         [](sqlite3* db) {
             return select<tAlarmasEstado>(db, "WHERE nombre='%q' OR nombre=%Q", "it's 5%",
                                           "o'clock");
         },
     .statement = "SELECT * FROM alarmasEstado WHERE nombre='it''s 5%' OR nombre='o''clock'"},
    {.name = "a null text",
     .run =
         [](sqlite3* db) {
             return select<tAlarmasEstado>(db, "WHERE nombre=%Q",
                                           static_cast<const char*>(nullptr));
         },
     .statement = "SELECT * FROM alarmasEstado WHERE nombre=NULL"},
    {.name = "a percent sign of its own",
     .run = [](sqlite3* db) { return select<tAlarmasEstado>(db, "WHERE nombre LIKE 'nothing%%'"); },
     .statement = "SELECT * FROM alarmasEstado WHERE nombre LIKE 'nothing%'"},
};

TEST_F(Statements, SelectsRunOneStatement) {
    const Database database(kTempDb);
    Trace trace(database);
    for (const Selection& selection : kSelections) {
        SCOPED_TRACE(selection.name);
        EXPECT_EQ(printed_by([&] { EXPECT_NE(selection.run(database.handle()), nullptr); }),
                  kNothing);
        EXPECT_THAT(trace.take(), ElementsAre(selection.statement));
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

TEST_F(Statements, SelectsAreAsLongAsTheyNeedToBe) {
    const Database database(kTempDb);
    Trace trace(database);
    const std::string name(900'000, 'n');
    EXPECT_TRUE(
        select<tAlarmasEstado>(database.handle(), "WHERE nombre='%q'", name.c_str())->empty());
    EXPECT_THAT(trace.take(),
                ElementsAre("SELECT * FROM alarmasEstado WHERE nombre='" + name + "'"));
}

TEST_F(Statements, SelectsYieldTheRowsThatTheClauseNames) {
    const Database database(kTempDb);
    EXPECT_EQ(texts_of(*select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'")),
              (Rows{{id_of_state("alarma_in"), "alarma_in", "1", "0", "0"}}));
    database.run("INSERT INTO alarmasEstado VALUES (-2, 'two', 'x', 7, 8), (-1, 'one', 'y', 5, 6)");
    EXPECT_EQ(
        texts_of(*select<tAlarmasEstado>(
            database.handle(), "WHERE idalarmasEstado<'%d' ORDER BY idalarmasEstado DESC", 0)),
        (Rows{{"-1", "one", "y", "5", "6"}, {"-2", "two", "x", "7", "8"}}));
    EXPECT_TRUE(select<tAlarmasEstado>(database.handle(), "WHERE nombre='Alarma_in'")->empty());
    EXPECT_EQ(std::to_string(select<tAlarmasEstado>(database.handle(), nullptr)->size()),
              database.value("SELECT count(*) FROM alarmasEstado"));
}

// The accessors rely on it.
TEST_F(Statements, SelectsTakeColumnNamesInAnyCase) {
    const Database database(kConfDb);
    EXPECT_EQ(select<queltdb::tRFOut>(database.handle(), "WHERE IdRFOut='1'")
                  ->at(0)
                  ->Frecuencia->getString(),
              "474000");
}

TEST_F(Statements, SelectsSeeWhatOtherProcessesWrote) {
    const Database database(kTempDb);
    const auto value = [&] {
        return select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'")
            ->at(0)
            ->valor->getString();
    };
    EXPECT_EQ(value(), "1");
    run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor='0101' WHERE nombre='alarma_in'");
    EXPECT_EQ(value(), "0101");
}

// A table of alarmasEstado's name that another program made, and what its class reads from it.
struct Table {
    const char* name;
    const char* sql;
    Rows expected;
};

const std::string kLong(2'000'000, 'v');

const Table kTables[] = {
    {.name = "empty", .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e)", .expected = {}},
    {.name = "NULL everywhere",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e);"
            "INSERT INTO alarmasEstado DEFAULT VALUES",
     .expected = {{"NULL", "NULL", "NULL", "NULL", "NULL"}}},
    {.name = "some NULL",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e);"
            "INSERT INTO alarmasEstado VALUES (NULL, 'n', NULL, '', NULL)",
     .expected = {{"NULL", "n", "NULL", "", "NULL"}}},
    {.name = "values of all types",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e);"
            "INSERT INTO alarmasEstado VALUES"
            " (-9223372036854775808, 1.5, x'616263', '007', 'it''s 5% %Q %s %n')",
     .expected = {{"-9223372036854775808", "1.5", "abc", "007", "it's 5% %Q %s %n"}}},
    {.name = "other characters",
     .sql =
         "CREATE TABLE alarmasEstado (a, b, c, d, e);"
         "INSERT INTO alarmasEstado VALUES (1, char(1, 9, 10, 13, 127), char(241), '\xE9\xFF', 2)",
     .expected = {{"1", "\x01\t\n\r\x7F", "\xC3\xB1", "\xE9\xFF", "2"}}},
    {.name = "a long text",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e);"
            "INSERT INTO alarmasEstado VALUES"
            " (1, 'n', replace(hex(zeroblob(1000000)), '0', 'v'), 2, 3)",
     .expected = {{"1", "n", kLong, "2", "3"}}},
    // Read without an error: the names of the columns do not count.
    {.name = "another order",
     .sql = "CREATE TABLE alarmasEstado"
            " (valor, nombre, idalarmasEstado, EstadoPendienteRE, EstadoPendienteWR);"
            "INSERT INTO alarmasEstado VALUES ('v', 'n', 1, 2, 3)",
     .expected = {{"v", "n", "1", "2", "3"}}},
    {.name = "one column too many",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e, f);"
            "INSERT INTO alarmasEstado VALUES (1, 2, 3, 4, 5, 6), (11, 12, 13, 14, 15, 16)",
     .expected = {{"1", "2", "3", "4", "5"}, {"11", "12", "13", "14", "15"}}},
    {.name = "twice as wide",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d, e, f, g, h, i, j);"
            "INSERT INTO alarmasEstado VALUES (1, 2, 3, 4, 5, 6, 7, 8, 9, 10),"
            " (11, 12, 13, 14, 15, 16, 17, 18, 19, 20)",
     .expected = {{"1", "2", "3", "4", "5"}, {"11", "12", "13", "14", "15"}}},
    // A row goes on in the next one, behind the last one there is nothing.
    {.name = "one column too few",
     .sql = "CREATE TABLE alarmasEstado (a, b, c, d);"
            "INSERT INTO alarmasEstado VALUES (1, 2, 3, 4), (11, 12, 13, 14), (21, 22, 23, 24)",
     .expected = {{"1", "2", "3", "4", "11"},
                  {"11", "12", "13", "14", "21"},
                  {"21", "22", "23", "24", "NULL"}}},
    {.name = "two columns",
     .sql = "CREATE TABLE alarmasEstado (a, b);"
            "INSERT INTO alarmasEstado VALUES (1, 2), (11, 12), (21, NULL)",
     .expected = {{"1", "2", "11", "12", "21"},
                  {"11", "12", "21", "NULL", "NULL"},
                  {"21", "NULL", "NULL", "NULL", "NULL"}}},
    {.name = "one value",
     .sql = "CREATE TABLE alarmasEstado (a); INSERT INTO alarmasEstado VALUES (1)",
     .expected = {{"1", "NULL", "NULL", "NULL", "NULL"}}},
};

TEST_F(Statements, SelectsTakeTheRowsByPosition) {
    const Database database(kTempDb);
    for (const Table& table : kTables) {
        SCOPED_TRACE(table.name);
        database.run("DROP TABLE alarmasEstado");
        database.run(table.sql);
        EXPECT_EQ(printed_by([&] {
                      EXPECT_EQ(texts_of(*select<tAlarmasEstado>(database.handle(), nullptr)),
                                table.expected);
                  }),
                  kNothing);
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

}  // namespace
