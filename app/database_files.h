// The database files are opened and closed here.
#pragma once

#include <cstdint>
#include <string>

struct sqlite3;

// How long a statement waits for the locks of other processes.
inline constexpr int kBusyTimeout_ms = 5000;

// Opens an existing database, never creates one. Logs and ends the process with status 1 when the
// file is missing or cannot be opened.
sqlite3* openDb(const std::string& path);

// Lets what is written over this connection from now on outlast a power cut as soon as it is
// written: SQLite syncs the folder, too, from which the rollback journal was removed
// (synchronous=EXTRA). It reads the schema for that; nothing in the file changes. Returns false
// when the database cannot be read, which another process may have locked for longer than is
// waited.
bool keep_over_power_cuts(sqlite3* database, int wait_ms);

// Returns 1, or -1 when the database could not be closed.
std::int32_t closeDb(sqlite3* database);
