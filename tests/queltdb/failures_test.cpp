// Failing statements: attempts, pauses, messages, and what can be done again afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "queltdb/records.h"
#include "tests/queltdb/fields.h"
#include "tests/queltdb/statements.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/pauses.h"

namespace {

namespace fs = std::filesystem;

using queltdb::tAlarmasEstado;
using queltdb::tEsclavosModulo;
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kBig(100'000, 'v');

// The three operations on the table of slave modules, and how each tells of a failed attempt; the
// insert alone gives SQLite's result.
struct Operation {
    const char* name;
    std::string failure;
    std::string failure_behind_result;
    bool writes;
    bool (*succeeds)(sqlite3* db);  // checks the record, too
};

const Operation kOperations[] = {
    {.name = "doSelect",
     .failure = "[ERROR_DB]doSelect: Error leyendo datos tabla EsclavosModulo . intento: ",
     .failure_behind_result = "",
     .writes = false,
     .succeeds =
         [](sqlite3* db) {
             const auto list = select<tEsclavosModulo>(db, nullptr);
             EXPECT_NE(list, nullptr);
             return !list->empty();
         }},
    {.name = "update",
     .failure =
         "[ERROR_DB]update: Error actualizando datos registro en tabla EsclavosModulo . intento: ",
     .failure_behind_result = "",
     .writes = true,
     .succeeds =
         [](sqlite3* db) {
             auto record = std::make_from_tuple<tEsclavosModulo>(
                 tEsclavosModulo::Texts{"4", "00:11", "before"});
             record.setHostname(tSqlite3parent(kBig.c_str()));
             const int result = record.update(db);
             EXPECT_EQ(modified(record), result == 1 ? Row{} : Row{"Hostname"});
             EXPECT_EQ(record.Hostname->getString(), kBig);
             EXPECT_EQ(record.IdEsclavosModulo->getString(), "4");
             EXPECT_TRUE(result == 0 || result == 1) << result;
             return result == 1;
         }},
    {.name = "insert",
     .failure = "[ERROR_DB]insert: Error (",
     .failure_behind_result = ") inserting register in table EsclavosModulo . Attempt: ",
     .writes = true,
     .succeeds =
         [](sqlite3* db) {
             auto record = std::make_from_tuple<tEsclavosModulo>(tEsclavosModulo::Texts{"05"});
             record.setHostname(tSqlite3parent(kBig.c_str()));
             const int result = record.insert(db);
             EXPECT_EQ(modified(record), Row{"Hostname"});
             EXPECT_EQ(record.IdEsclavosModulo->getString(), result == 1 ? "5" : "05");
             EXPECT_TRUE(result == 0 || result == 1) << result;
             return result == 1;
         }},
};

// What is printed of the failed attempts `numbers`.
std::string told(const Operation& operation, const std::string& result, const std::string& message,
                 const std::string& error, const std::vector<std::string>& numbers) {
    std::string all;
    for (const std::string& n : numbers) {
        all += operation.failure;
        if (!operation.failure_behind_result.empty())
            all += result + operation.failure_behind_result;
        all += n + "\n";
        if (!message.empty()) {
            all += std::string("[ERROR_DB]") + operation.name + ": " + message + "\n" + message +
                   ": " + error + "\n";
        }
    }
    return all;
}

const std::string kSlaves =
    "INSERT INTO EsclavosModulo (IdEsclavosModulo, MAC, Hostname) VALUES (4, '00:11', 'before')";

// Something that makes statements fail.
struct Fault {
    const char* name;
    const char* result;
    std::string message;
    void (*before_opening)() = [] {};
    const char* sql = "";  // run on the connection
    bool on_reading = true;
};

void overwrite(const std::string& path, std::size_t from) {
    std::string file = read_file(path);
    for (std::size_t i = from; i < file.size(); ++i)
        file[i] = '\xA5';
    write_file(path, file);
}

const Fault kFaults[] = {
    {.name = "no table",
     .result = "1",
     .message = "no such table: EsclavosModulo",
     .sql = "DROP TABLE EsclavosModulo"},
    {.name = "a read-only file",
     .result = "8",
     .message = "attempt to write a readonly database",
     .before_opening = [] { fs::permissions(kConfDb, fs::perms::owner_read); },
     .on_reading = false},
    {.name = "garbage behind the first page",
     .result = "11",
     .message = "database disk image is malformed",
     .before_opening = [] { overwrite(kConfDb, 4096); }},
    {.name = "garbage",
     .result = "26",
     .message = "file is not a database",
     .before_opening = [] { overwrite(kConfDb, 0); }},
    {.name = "an empty file",
     .result = "1",
     .message = "no such table: EsclavosModulo",
     .before_opening = [] { write_file(kConfDb, ""); }},
    {.name = "no more room",
     .result = "13",
     .message = "database or disk is full",
     .sql = "PRAGMA max_page_count=1",
     .on_reading = false},
    // SQLite's message is no format.
    {.name = "refused by the database",
     .result = "19",
     .message = "no %s%n for 100%",
     .sql = "CREATE TRIGGER on_insert BEFORE INSERT ON EsclavosModulo"
            " BEGIN SELECT RAISE(ABORT, 'no %s%n for 100%'); END;"
            "CREATE TRIGGER on_update BEFORE UPDATE ON EsclavosModulo"
            " BEGIN SELECT RAISE(ABORT, 'no %s%n for 100%'); END",
     .on_reading = false},
};

// The text behind the message is that of whatever went wrong last in the process.
std::string without_error(const std::string& text, const std::string& message) {
    std::string all;
    const std::string line = "\n" + message + ": ";
    std::size_t from = 0;
    for (std::size_t at = 0; (at = text.find(line, from)) != std::string::npos;) {
        all += text.substr(from, at - from) + line + "ERROR";
        from = text.find('\n', at + 1);
    }
    return all + text.substr(from);
}

TEST_F(Statements, AreTriedThreeTimesWhateverFails) {
    for (const Fault& fault : kFaults) {
        SCOPED_TRACE(fault.name);
        for (const Operation& operation : kOperations) {
            SCOPED_TRACE(operation.name);
            fs::remove_all("/quelt/db");
            make_board();
            Database(kConfDb).run(kSlaves);
            fault.before_opening();
            const Database database(kConfDb);
            database.run(fault.sql);
            const bool fails = fault.on_reading || operation.writes;
            Printed printed =
                printed_by([&] { EXPECT_EQ(operation.succeeds(database.handle()), !fails); });
            printed.err = without_error(printed.err, fault.message);
            Printed expected;
            if (fails)
                expected.err =
                    told(operation, fault.result, fault.message, "ERROR", {"0", "1", "2"});
            EXPECT_EQ(printed, expected);
            EXPECT_EQ(take_pauses(), (fails ? std::vector{1U, 2U, 3U} : std::vector<unsigned>{}));
            if (!fault.on_reading) {
                EXPECT_EQ(database.rows("SELECT IdEsclavosModulo, Hostname FROM EsclavosModulo"),
                          (Rows{{"4", "before"}}));
            }
        }
    }
}

// SQLite has no message for it.
TEST_F(Statements, FailWithoutADatabase) {
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(printed_by([&] { EXPECT_FALSE(operation.succeeds(nullptr)); }),
                  (Printed{"", told(operation, "21", "", "", {"0", "1", "2"})}));
        EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
    }
}

// A lock of another process, and in which pause it ends.
struct Locking {
    std::size_t released_in;  // 0: never
    std::vector<std::string> failed;
    std::vector<unsigned> pauses;
    bool success;
};

TEST_F(Statements, AreTriedAgainUntilALockIsGone) {
    for (const Locking& locking : {
             Locking{0, {"0", "1", "2"}, {1, 2, 3}, false}, Locking{1, {"0"}, {1}, true},
             Locking{2, {"0", "1"}, {1, 2}, true},
             Locking{3, {"0", "1", "2"}, {1, 2, 3}, false},  // nothing is tried after the last
         }) {
        SCOPED_TRACE(locking.released_in);
        for (const Operation& operation : kOperations) {
            SCOPED_TRACE(operation.name);
            make_board();
            Database(kConfDb).run(kSlaves);
            const Database database(kConfDb);
            ForeignLock lock(kConfDb);
            std::size_t pause = 0;
            during_pauses([&] {
                if (++pause == locking.released_in)
                    lock.release();
            });
            EXPECT_EQ(printed_by([&] {
                          EXPECT_EQ(operation.succeeds(database.handle()), locking.success);
                      }),
                      (Printed{"", told(operation, "5", "database is locked",
                                        "Resource temporarily unavailable", locking.failed)}));
            EXPECT_EQ(take_pauses(), locking.pauses);
            during_pauses(nullptr);
            lock.release();
            Rows expected{{"4", "before"}};
            if (locking.success && std::string(operation.name) == "update")
                expected = {{"4", kBig}};
            if (locking.success && std::string(operation.name) == "insert")
                expected = {{"4", "before"}, {"5", kBig}};
            EXPECT_EQ(database.rows("SELECT IdEsclavosModulo, Hostname FROM EsclavosModulo"),
                      expected);
        }
    }
}

// Clauses that fail, partly after rows were read already.
struct BadClause {
    const char* clause;
    std::string message;
};

TEST_F(Statements, SelectsThatFailYieldNoRow) {
    const Database database(kTempDb);
    const Operation in_state{
        .name = "doSelect",
        .failure = "[ERROR_DB]doSelect: Error leyendo datos tabla alarmasEstado . intento: ",
        .failure_behind_result = "",
        .writes = false,
        .succeeds = nullptr};
    for (const BadClause& bad : {
             BadClause{"WHERE", "incomplete input"},
             BadClause{"WHERE nombre='it's'", "near \"s\": syntax error"},
             BadClause{"WHERE Nombre_SAP='1'", "no such column: Nombre_SAP"},
             BadClause{"WHERE idalarmasEstado<4 OR abs(-9223372036854775807-1)",
                       "integer overflow"},
             BadClause{"; SELECT 1",
                       "sqlite3_get_table() called with two or more incompatible queries"},
         }) {
        SCOPED_TRACE(bad.clause);
        Printed printed = printed_by(
            [&] { EXPECT_TRUE(select<tAlarmasEstado>(database.handle(), bad.clause)->empty()); });
        printed.err = without_error(printed.err, bad.message);
        EXPECT_EQ(printed,
                  (Printed{"", told(in_state, "", bad.message, "ERROR", {"0", "1", "2"})}));
        EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
    }
}

TEST_F(Statements, UpdatesThatFailCanBeRepeated) {
    const Database database(kTempDb);
    const auto list = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
    tAlarmasEstado& record = *list->front();
    record.setvalor(tSqlite3parent("a%b%c%d"));
    record.setEstadoPendienteRE(tSqlite3int(2));
    {
        const ForeignLock lock(kTempDb);
        // One substitution, not one for each attempt.
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 0); }).out,
                  kSubstituted);
    }
    EXPECT_STREQ(record.valor->texto(), "a b%c%d");
    EXPECT_THAT(modified(record), ElementsAre("valor", "EstadoPendienteRE"));
    EXPECT_EQ(database.rows(
                  "SELECT valor, EstadoPendienteRE FROM alarmasEstado WHERE nombre='alarma_in'"),
              (Rows{{"1", "0"}}));
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));

    // What is the first percent sign by now is replaced this time.
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.update(database.handle()), 1); }),
              (Printed{kSubstituted, ""}));
    EXPECT_STREQ(record.valor->texto(), "a b c%d");
    EXPECT_THAT(modified(record), IsEmpty());
    EXPECT_EQ(database.rows(
                  "SELECT valor, EstadoPendienteRE FROM alarmasEstado WHERE nombre='alarma_in'"),
              (Rows{{"a b c%d", "2"}}));
    EXPECT_THAT(take_pauses(), IsEmpty());
}

TEST_F(Statements, InsertsThatFailCanBeRepeated) {
    const Database database(kConfDb);
    tEsclavosModulo record;
    record.setMAC(tSqlite3parent("50%"));
    {
        const ForeignLock lock(kConfDb);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(record.insert(database.handle()), 0); }).out, "");
    }
    EXPECT_EQ(record.IdEsclavosModulo, nullptr);
    EXPECT_EQ(record.insert(database.handle()), 1);
    EXPECT_EQ(record.IdEsclavosModulo->getString(), "1");
    EXPECT_EQ(database.rows("SELECT IdEsclavosModulo, MAC FROM EsclavosModulo"),
              (Rows{{"1", "50%"}}));
}

// The key cannot be stored: twice the same one, or no number.
TEST_F(Statements, InsertsThatFailKeepTheKey) {
    struct Refused {
        const char* key;
        const char* result;
        std::string message;
    };
    const Database database(kConfDb);
    database.run(kSlaves);
    for (const Refused& refused : {
             Refused{"4", "19", "UNIQUE constraint failed: EsclavosModulo.IdEsclavosModulo"},
             Refused{"four", "20", "datatype mismatch"},
         }) {
        SCOPED_TRACE(refused.key);
        auto record = std::make_from_tuple<tEsclavosModulo>(tEsclavosModulo::Texts{refused.key});
        const tSqlite3parent* const key = record.IdEsclavosModulo;
        Printed printed = printed_by([&] { EXPECT_EQ(record.insert(database.handle()), 0); });
        printed.err = without_error(printed.err, refused.message);
        EXPECT_EQ(printed, (Printed{"", told(kOperations[2], refused.result, refused.message,
                                             "ERROR", {"0", "1", "2"})}));
        EXPECT_EQ(record.IdEsclavosModulo, key);
        EXPECT_STREQ(key->texto(), refused.key);
    }
}

// As perror() has it. SQLite finds this mistake without asking the system for anything.
TEST_F(Statements, FailuresEndWithTheErrorOfTheProcess) {
    const Database database(kTempDb);
    select<tAlarmasEstado>(database.handle(), nullptr);
    const Printed printed = printed_by([&] {
        errno = EXDEV;
        select<tAlarmasEstado>(database.handle(), "WHERE");
    });
    EXPECT_NE(printed.err.find("\nincomplete input: Invalid cross-device link\n"),
              std::string::npos)
        << printed.err;
}

TEST_F(Statements, WithoutMemoryThrow) {
    const Database database(kTempDb);
    const auto list = select<tAlarmasEstado>(database.handle(), "WHERE nombre='alarma_in'");
    tAlarmasEstado& record = *list->front();
    record.setvalor(tSqlite3parent(kBig.c_str()));
    const auto limit = sqlite3_hard_heap_limit64(sqlite3_memory_used() + 50'000);
    EXPECT_THROW(record.update(database.handle()), std::bad_alloc);
    EXPECT_THROW(select<tAlarmasEstado>(database.handle(), "WHERE nombre='%q'", kBig.c_str()),
                 std::bad_alloc);
    sqlite3_hard_heap_limit64(limit);
    EXPECT_THAT(modified(record), ElementsAre("valor"));
    EXPECT_EQ(record.update(database.handle()), 1);
}

}  // namespace
