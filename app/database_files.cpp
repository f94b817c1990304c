#include "app/database_files.h"

#include <sqlite3.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

bool exists(const std::string& path) {
    return std::ifstream(path).is_open();
}

}  // namespace

sqlite3* openDb(const std::string& path) {
    if (!exists(path)) {
        syslog(LOG_LOCAL0 | LOG_CRIT, "No existe la base de datos. Saliendo...");
        std::exit(1);
    }
    // Nobody asks for the memory statistics, and they cost nearly a quarter of a configuration
    // read. Does nothing once SQLite is in use.
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3* database = nullptr;
    if (sqlite3_open(path.c_str(), &database) != SQLITE_OK) {
        syslog(LOG_LOCAL0 | LOG_CRIT, "Error abriendo base de datos: %s : %s. Saliendo...",
               path.c_str(), std::strerror(errno));
        std::exit(1);
    }
    return database;
}

bool keep_over_power_cuts(sqlite3* database, int wait_ms) {
    sqlite3_busy_timeout(database, wait_ms);
    const int result =
        sqlite3_exec(database, "PRAGMA synchronous=EXTRA", nullptr, nullptr, nullptr);
    sqlite3_busy_timeout(database, kBusyTimeout_ms);
    return result == SQLITE_OK;
}

std::int32_t closeDb(sqlite3* database) {
    return sqlite3_close(database) == SQLITE_OK ? 1 : -1;
}
