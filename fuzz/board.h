// The databases of the sample board in memory, where ConfDB and TempDB expect them.
#pragma once

#include <string>

struct sqlite3;
struct sqlite3_stmt;

constexpr char kConfiguration[] = "config_local";
constexpr char kState[] = "temp_local";

// A new copy of the delivered database; `first` is run before all other SQL.
sqlite3* sample_database(const std::string& name, const char* first);

// Opens both, once in a process, ready for changes.
void open_board();
// Takes back all changes, for the next ones.
void undo_changes();
void check_integrity();

void run(sqlite3* database, const char* sql);
sqlite3_stmt* prepared(sqlite3* database, const std::string& sql);
