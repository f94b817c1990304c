// Opening and closing the database files: which are taken, which end the process, and that none is
// ever made.
#include "app/database_files.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/log_system.h"
#include "tests/app/in_child.h"
#include "tests/support/database.h"
#include "tests/support/files.h"

namespace {

using testing::ElementsAre;

constexpr int kFatal = 130;  // local0, critical
constexpr int kExtra = 3;    // of synchronous

int first_number(sqlite3* database, const char* sql) {
    int number = -1;
    const auto take = [](void* into, int, char** texts, char**) {
        *static_cast<int*>(into) = std::atoi(texts[0]);
        return 0;
    };
    sqlite3_exec(database, sql, take, &number, nullptr);
    return number;
}

TEST(DatabaseFiles, OpensAnExistingFileForWriting) {
    write_file("/tmp/a.sqlite", "");
    sqlite3* const database = openDb("/tmp/a.sqlite");
    ASSERT_NE(database, nullptr);
    EXPECT_EQ(sqlite3_exec(database, "CREATE TABLE T (c); INSERT INTO T VALUES (1);", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    EXPECT_EQ(closeDb(database), 1);
    EXPECT_GT(std::filesystem::file_size("/tmp/a.sqlite"), 0U);
}

TEST(DatabaseFiles, LeavesTheMemoryUncounted) {
    write_file("/tmp/a.sqlite", "");
    sqlite3* const database = openDb("/tmp/a.sqlite");
    EXPECT_EQ(sqlite3_exec(database, "CREATE TABLE T (c)", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(sqlite3_memory_used(), 0);
    EXPECT_EQ(closeDb(database), 1);
}

TEST(DatabaseFiles, ReportsThatAUsedOneCannotBeClosed) {
    write_file("/tmp/a.sqlite", "");
    sqlite3* const database = openDb("/tmp/a.sqlite");
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(database, "SELECT 1", -1, &statement, nullptr), SQLITE_OK);
    EXPECT_EQ(closeDb(database), -1);
    sqlite3_finalize(statement);
    EXPECT_EQ(closeDb(database), 1);
}

TEST(DatabaseFiles, EndsTheProcessWhenOneCannotBeUsed) {
    struct Unusable {
        std::string path;
        std::string text;
    };
    const Unusable cases[] = {
        {"/tmp/missing.sqlite", "No existe la base de datos. Saliendo..."},
        {"/tmp/shut.sqlite", "No existe la base de datos. Saliendo..."},
        {"", "No existe la base de datos. Saliendo..."},
        {"/tmp", "Error abriendo base de datos: /tmp : Is a directory. Saliendo..."},
    };
    write_file("/tmp/shut.sqlite", "");
    std::filesystem::permissions("/tmp/shut.sqlite", std::filesystem::perms::none);
    for (const Unusable& unusable : cases) {
        SCOPED_TRACE(unusable.path);
        const ChildEnd end = in_child([&] {
            AbrirLogSistema("T", 5, false);
            openDb(unusable.path);
        });
        EXPECT_EQ(end.status, 1);
        EXPECT_THAT(end.log, ElementsAre(LogLine{kFatal, "T", unusable.text}));
        EXPECT_EQ(end.out + end.err, "");
        EXPECT_FALSE(std::filesystem::exists("/tmp/missing.sqlite"));
    }
}

TEST(DatabaseFiles, KeepsWritesOverPowerCutsWithoutAChangeOfTheFile) {
    for (const std::string journal : {"delete", "wal"}) {
        SCOPED_TRACE(journal);
        const std::string path = "/tmp/" + journal + ".sqlite";
        write_file(path, "");
        Database(path).run("PRAGMA journal_mode=" + journal + "; CREATE TABLE T (c)");
        const std::string before = read_file(path);
        sqlite3* const database = openDb(path);
        EXPECT_TRUE(keep_over_power_cuts(database, 0));
        EXPECT_EQ(first_number(database, "PRAGMA synchronous"), kExtra);
        EXPECT_EQ(closeDb(database), 1);
        EXPECT_EQ(read_file(path), before);
        EXPECT_EQ(Database(path).value("PRAGMA journal_mode"), journal);
    }
}

TEST(DatabaseFiles, DoesNotWaitForALockToKeepWritesOverPowerCuts) {
    write_file("/tmp/a.sqlite", "");
    Database("/tmp/a.sqlite").run("CREATE TABLE T (c)");
    sqlite3* const database = openDb("/tmp/a.sqlite");
    ForeignLock lock("/tmp/a.sqlite");
    EXPECT_FALSE(keep_over_power_cuts(database, 0));
    EXPECT_NE(first_number(database, "PRAGMA busy_timeout"), 0);
    lock.release();
    EXPECT_TRUE(keep_over_power_cuts(database, 0));
    EXPECT_EQ(first_number(database, "PRAGMA synchronous"), kExtra);
    EXPECT_EQ(closeDb(database), 1);
}

TEST(DatabaseFiles, CannotKeepWhatIsNoDatabase) {
    write_file("/tmp/a.sqlite", "neither this nor that, but long enough to have a head of its own");
    sqlite3* const database = openDb("/tmp/a.sqlite");
    EXPECT_FALSE(keep_over_power_cuts(database, 0));
    EXPECT_EQ(closeDb(database), 1);
}

}  // namespace
