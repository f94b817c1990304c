// Inserts: their statement, and the key that the record takes over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <array>
#include <string>
#include <tuple>
#include <typeinfo>

#include "queltdb/records.h"
#include "tests/queltdb/fields.h"
#include "tests/queltdb/statements.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/pauses.h"

namespace {

using queltdb::tEsclavosModulo;
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kInsert =
    "INSERT INTO EsclavosModulo (IdEsclavosModulo, MAC, Hostname, Serial, Modelo, IP, SWVersion, "
    "Estado, Reset_Factory, Upgrade, Master)  VALUES (";

struct Insertion {
    const char* name;
    std::array<const char*, 11> texts;
    std::string values;
    const char* key;  // afterwards
    Row row;
};

const Insertion kInsertions[] = {
    {.name = "all columns",
     .texts = {"7", "00:1a", "host", "serial", "model", "10.0.0.1", "1.2", "1", "2", "3", "4"},
     .values = "'7', '00:1a', 'host', 'serial', 'model', '10.0.0.1', '1.2', '1', '2', '3', '4' )",
     .key = "7",
     .row = {"7", "00:1a", "host", "serial", "model", "10.0.0.1", "1.2", "1", "2", "3", "4"}},
    {.name = "no key",
     .texts = {nullptr, "00:1a", "", "", "", "", "", "0", "0", "0", "0"},
     .values = "NULL, '00:1a', '', '', '', '', '', '0', '0', '0', '0' )",
     .key = "21",
     .row = {"21", "00:1a", "", "", "", "", "", "0", "0", "0", "0"}},
    {.name = "nothing",
     .texts = {},
     .values = "NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL )",
     .key = "21",
     .row = {"21", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL"}},
    {.name = "a key in another form",
     .texts = {"007"},
     .values = "'007', NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL )",
     .key = "7",
     .row = {"7", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL"}},
    // Of a key the record has what a long holds.
    {.name = "the largest key",
     .texts = {"9223372036854775807"},
     .values =
         "'9223372036854775807', NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL )",
     .key = sizeof(long) == 8 ? "9223372036854775807" : "-1",
     .row = {"9223372036854775807", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL",
             "NULL", "NULL"}},
    // Values are arguments of the statement: a percent sign is nothing special in them.
    {.name = "quotes and percent signs",
     .texts = {nullptr, "50%", "%s%n%Q", "it's", "%%", "'); DROP TABLE EsclavosModulo; --",
               "Espa\303\261a", "\n", "1%", "NULL", "0"},
     .values = "NULL, '50%', '%s%n%Q', 'it''s', '%%', '''); DROP TABLE EsclavosModulo; --', "
               "'Espa\303\261a', '\n', '1%', 'NULL', '0' )",
     .key = "21",
     .row = {"21", "50%", "%s%n%Q", "it's", "%%", "'); DROP TABLE EsclavosModulo; --",
             "Espa\303\261a", "\n", "1%", "NULL", "0"}},
};

TEST_F(Statements, InsertsAddARowAndTakeOverItsKey) {
    for (const Insertion& insertion : kInsertions) {
        SCOPED_TRACE(insertion.name);
        make_board();
        const Database database(kConfDb);
        database.run("INSERT INTO EsclavosModulo (IdEsclavosModulo) VALUES (20)");
        auto record = std::make_from_tuple<tEsclavosModulo>(insertion.texts);
        Trace trace(database);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.insert(database.handle()), 1); }), kNothing);
        EXPECT_THAT(trace.take(), ElementsAre(kInsert + insertion.values));
        EXPECT_STREQ(record.IdEsclavosModulo->texto(), insertion.key);
        const tSqlite3parent& key = *record.IdEsclavosModulo;
        EXPECT_EQ(typeid(key), typeid(tSqlite3int));
        Row texts = insertion.row;
        texts[0] = insertion.key;
        EXPECT_EQ(texts_of(record), texts);
        EXPECT_THAT(modified(record), IsEmpty());
        EXPECT_EQ(database.rows("SELECT * FROM EsclavosModulo WHERE IdEsclavosModulo<>20"),
                  (Rows{insertion.row}));
    }
    EXPECT_THAT(take_pauses(), IsEmpty());
}

TEST_F(Statements, InsertsOfAnEmptyRecordWriteWhatWasSet) {
    const Database database(kConfDb);
    tEsclavosModulo record;
    record.setMAC(tSqlite3parent("00:1a:2b:3c:4d:5e"));
    record.setMaster(tSqlite3int(0));
    Trace trace(database);
    EXPECT_EQ(record.insert(database.handle()), 1);
    EXPECT_THAT(trace.take(), ElementsAre(kInsert + "NULL, '00:1a:2b:3c:4d:5e', NULL, NULL, NULL, "
                                                    "NULL, NULL, NULL, NULL, NULL, '0' )"));
    EXPECT_EQ(record.IdEsclavosModulo->getString(), "1");
    EXPECT_FALSE(record.IdEsclavosModulo_modificado);

    // The flags were left, so an update of what is now a row of the table writes it all again.
    EXPECT_THAT(modified(record), ElementsAre("MAC", "Master"));
    EXPECT_EQ(record.update(database.handle()), 1);
    EXPECT_THAT(trace.take(),
                ElementsAre("UPDATE EsclavosModulo SET  MAC = '00:1a:2b:3c:4d:5e' , Master = '0'  "
                            "WHERE IdEsclavosModulo = '1'"));

    // And the same record once more would be the same row.
    printed_by([&] { EXPECT_EQ(record.insert(database.handle()), 0); });
    EXPECT_EQ(database.value("SELECT count(*) FROM EsclavosModulo"), "1");
}

TEST_F(Statements, InsertsWriteLongValues) {
    const Database database(kConfDb);
    const std::string value(800'000, '%');
    tEsclavosModulo record;
    record.setMAC(tSqlite3parent(value.c_str()));
    EXPECT_EQ(record.insert(database.handle()), 1);
    EXPECT_EQ(database.value("SELECT MAC FROM EsclavosModulo"), value);
}

}  // namespace
