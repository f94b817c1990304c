// Updates: their statements, and what they leave in the record and the database.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

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
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;
using testing::ElementsAre;
using testing::IsEmpty;

// A value given to a setter, and what becomes of it in the statement, the record and the database.
struct Value {
    const char* given;
    std::string quoted;
    const char* kept = nullptr;  // null: as given
    int substitutions = 0;
};

const Value kValues[] = {
    {.given = "0101", .quoted = "'0101'"},
    {.given = "", .quoted = "''"},
    {.given = nullptr, .quoted = "NULL"},
    {.given = "NULL", .quoted = "'NULL'"},
    {.given = "it's", .quoted = "'it''s'"},
    {.given = "''", .quoted = "''''''"},
    {.given = "'; DROP TABLE alarmasEstado; --", .quoted = "'''; DROP TABLE alarmasEstado; --'"},
    {.given = "a\"b`c\\d,e = f", .quoted = "'a\"b`c\\d,e = f'"},
    {.given = "\x01\t\n\r\x1B\x7F", .quoted = "'\x01\t\n\r\x1B\x7F'"},
    {.given = "Espa\303\261a \xE2\x82\xAC", .quoted = "'Espa\303\261a \xE2\x82\xAC'"},
    {.given = "\xE9\xFF", .quoted = "'\xE9\xFF'"},
    {.given = "50%", .quoted = "'50 '", .kept = "50 ", .substitutions = 1},
    {.given = "%", .quoted = "' '", .kept = " ", .substitutions = 1},
    {.given = "%s", .quoted = "' s'", .kept = " s", .substitutions = 1},
    {.given = "%%", .quoted = "' %'", .kept = " %", .substitutions = 1},
    {.given = "%%%", .quoted = "' %%'", .kept = " %%", .substitutions = 1},
    {.given = "100%%", .quoted = "'100 %'", .kept = "100 %", .substitutions = 1},
    {.given = "a%Qb%sc%n%%", .quoted = "'a Qb%sc%n%%'", .kept = "a Qb%sc%n%%", .substitutions = 1},
    {.given = "'%'%q%Q%w%z%*d",
     .quoted = "''' ''%q%Q%w%z%*d'",
     .kept = "' '%q%Q%w%z%*d",
     .substitutions = 1},
};

std::string times(int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST_F(Statements, UpdatesWriteAnyValue) {
    for (const Value& value : kValues) {
        SCOPED_TRACE(value.quoted);
        make_board();
        const Database database(kTempDb);
        database.run("UPDATE alarmasEstado SET valor='before'");
        const char* const kept = value.kept == nullptr ? value.given : value.kept;
        const auto list = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
        tAlarmasEstado& record = *list->front();
        record.setvalor(tSqlite3parent(value.given));
        Trace trace(database);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 1); }),
                  (Printed{times(value.substitutions, kSubstituted), ""}));
        EXPECT_THAT(trace.take(),
                    ElementsAre("UPDATE alarmasEstado SET  valor = " + value.quoted +
                                "  WHERE idalarmasEstado = '" + id_of_state("alarma_in") + "'"));
        EXPECT_STREQ(record.valor->texto(), kept);
        EXPECT_THAT(modified(record), IsEmpty());
        const auto after = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
        EXPECT_STREQ(after->at(0)->valor->texto(), kept);
        EXPECT_EQ(database.value("SELECT count(*) FROM alarmasEstado WHERE valor IS NOT 'before'"),
                  "1");
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

TEST_F(Statements, UpdatesWriteLongValues) {
    const Database database(kTempDb);
    const std::string value(800'000, '\'');
    const auto list = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
    tAlarmasEstado& record = *list->front();
    record.setvalor(tSqlite3parent((value + "%").c_str()));
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 1); }),
              (Printed{kSubstituted, ""}));
    EXPECT_EQ(database.value("SELECT valor FROM alarmasEstado WHERE nombre='alarma_in'"),
              value + " ");
}

TEST_F(Statements, UpdatesWriteSeveralColumnsInTheirOrder) {
    const Database database(kTempDb);
    const auto list = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
    tAlarmasEstado& record = *list->front();
    record.setEstadoPendienteRE(tSqlite3int(2));
    record.setvalor(tSqlite3parent("0101"));
    Trace trace(database);
    EXPECT_EQ(record.update(database.handle()), 1);
    EXPECT_THAT(trace.take(), ElementsAre("UPDATE alarmasEstado SET  valor = '0101' , "
                                          "EstadoPendienteRE = '2'  WHERE idalarmasEstado = '" +
                                          id_of_state("alarma_in") + "'"));
    EXPECT_EQ(database.rows("SELECT * FROM alarmasEstado WHERE valor='0101'"),
              (Rows{{id_of_state("alarma_in"), "alarma_in", "0101", "0", "2"}}));
}

// Each value has a first percent sign of its own.
TEST_F(Statements, UpdatesReplaceThePercentSignOfEachColumn) {
    const Database database(kConfDb);
    const auto list = select<queltdb::tServiciosSalida>(database.handle(), "WHERE IdServicio='1'");
    queltdb::tServiciosSalida& record = *list->front();
    record.setNombre(tSqlite3parent("a%b%c"));
    record.setNombre_SAP(tSqlite3parent("none"));
    record.setSID(tSqlite3int("7%d"));
    Trace trace(database);
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 1); }),
              (Printed{kSubstituted + kSubstituted, ""}));
    EXPECT_THAT(trace.take(),
                ElementsAre("UPDATE ServiciosSalida SET  Nombre = 'a b%c' , Nombre_SAP = 'none' , "
                            "SID = '7 d'  WHERE IdServicio = '1'"));
}

// A value that is not written is not looked at.
TEST_F(Statements, UpdatesKeepThePercentSignsOfOtherColumns) {
    const Database database(kTempDb);
    tAlarmasEstado record("2", "%n%s", "50%", "%", "0");
    record.setEstadoPendienteRE(tSqlite3int(1));
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 1); }), kNothing);
    EXPECT_EQ(texts_of(record), (Row{"2", "%n%s", "50%", "%", "1"}));
}

// A key that a record can be made with, and how the statement names it.
struct Key {
    const char* text;
    const char* quoted;
    int rows;  // that the statement changes
};

TEST_F(Statements, UpdatesWriteTheRowsOfTheKey) {
    for (const Key& key : {
             Key{"2", "'2'", 1},
             Key{"02", "'02'", 1},  // a number to the column
             Key{"99", "'99'", 0},
             Key{"", "''", 0},
             Key{"two", "'two'", 0},
             Key{"2' OR '1'='1", "'2'' OR ''1''=''1'", 0},
             Key{"%Q%n", "'%Q%n'", 0},
             Key{nullptr, "NULL", 0},
         }) {
        SCOPED_TRACE(key.quoted);
        make_board();
        const Database database(kTempDb);
        tAlarmasEstado record(key.text, "alarma_in", "1", "0", "0");
        record.setvalor(tSqlite3parent("changed"));
        Trace trace(database);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 1); }), kNothing);
        EXPECT_THAT(
            trace.take(),
            ElementsAre(
                std::string(
                    "UPDATE alarmasEstado SET  valor = 'changed'  WHERE idalarmasEstado = ") +
                key.quoted));
        EXPECT_THAT(modified(record), IsEmpty());
        EXPECT_EQ(database.value("SELECT count(*) FROM alarmasEstado WHERE valor='changed'"),
                  std::to_string(key.rows));
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

TEST_F(Statements, UpdatesOfAnEmptyRecordMatchNoRow) {
    const Database database(kTempDb);
    tAlarmasEstado record;
    record.setvalor(tSqlite3parent("changed"));
    // Raised without a value, as nobody but a test does.
    record.nombre_modificado = true;
    Trace trace(database);
    EXPECT_EQ(record.update(database.handle()), 1);
    EXPECT_THAT(trace.take(), ElementsAre("UPDATE alarmasEstado SET  nombre = NULL , valor = "
                                          "'changed'  WHERE idalarmasEstado = NULL"));
    EXPECT_THAT(modified(record), IsEmpty());
    EXPECT_EQ(record.idalarmasEstado, nullptr);
}

TEST_F(Statements, UpdatesOfAnUnchangedRecordRunNoStatement) {
    const Database database(kTempDb);
    const auto list = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
    tAlarmasEstado& record = *list->front();
    record.setvalor(tSqlite3parent("1"));
    Trace trace(database);
    EXPECT_EQ(printed_by([&] {
                  EXPECT_EQ(record.update(database.handle()), 1);
                  EXPECT_EQ(record.update(nullptr), 1);
              }),
              kNothing);
    EXPECT_THAT(trace.take(), IsEmpty());
    EXPECT_THAT(take_pauses(), IsEmpty());

    // Nor does one whose changes are written.
    record.setvalor(tSqlite3parent("2"));
    EXPECT_EQ(record.update(database.handle()), 1);
    EXPECT_EQ(trace.take().size(), 1U);
    EXPECT_EQ(record.update(database.handle()), 1);
    EXPECT_THAT(trace.take(), IsEmpty());
}

}  // namespace
