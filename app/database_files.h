// The database files are opened and closed here.
#pragma once

#include <cstdint>
#include <string>

struct sqlite3;

// Opens an existing database, never creates one. Logs and ends the process with status 1 when the
// file is missing or cannot be opened.
sqlite3* openDb(const std::string& path);

// Returns 1, or -1 when the database could not be closed.
std::int32_t closeDb(sqlite3* database);
