#include "fuzz/board.h"

#include <sqlite3.h>

#include <fstream>
#include <iterator>
#include <string_view>

#include "fuzz/require.h"
#include "params/databases.h"

sqlite3* sample_database(const std::string& name, const char* first) {
    // One thread uses them, and nobody asks how much memory they take.
    static const bool configured = sqlite3_config(SQLITE_CONFIG_SINGLETHREAD) == SQLITE_OK &&
                                   sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) == SQLITE_OK;
    REQUIRE(configured);
    std::ifstream file(ZONDAR_SOURCE_DIR "/board/" + name + ".sql");
    const std::string sql{std::istreambuf_iterator<char>(file), {}};
    REQUIRE(!sql.empty());
    sqlite3* database = nullptr;
    REQUIRE(sqlite3_open(":memory:", &database) == SQLITE_OK);
    run(database, first);
    run(database, sql.c_str());
    return database;
}

void open_board() {
    ConfDB = sample_database(kConfiguration, "");
    TempDB = sample_database(kState, "");
    for (sqlite3* const database : {ConfDB, TempDB})
        run(database, "BEGIN");
}

void undo_changes() {
    for (sqlite3* const database : {ConfDB, TempDB}) {
        REQUIRE(sqlite3_get_autocommit(database) == 0);
        run(database, "ROLLBACK; BEGIN");
    }
}

void check_integrity() {
    for (sqlite3* const database : {ConfDB, TempDB}) {
        sqlite3_stmt* const check = prepared(database, "PRAGMA integrity_check");
        REQUIRE(sqlite3_step(check) == SQLITE_ROW);
        REQUIRE(std::string_view("ok") ==
                reinterpret_cast<const char*>(sqlite3_column_text(check, 0)));
        sqlite3_finalize(check);
    }
}

void run(sqlite3* database, const char* sql) {
    REQUIRE(sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

sqlite3_stmt* prepared(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    REQUIRE(sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK);
    return statement;
}
