// Opening and closing the database files: which are taken, which end the process, and that none is
// ever made.
#include "app/database_files.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "app/log_system.h"
#include "tests/app/in_child.h"
#include "tests/support/files.h"

namespace {

using testing::ElementsAre;

constexpr int kFatal = 130;  // local0, critical

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

}  // namespace
