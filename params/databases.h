// The two databases of the board are open for the life of the process: main opens them, the
// parameter accessors use them, the shutdown closes them.
#pragma once

struct sqlite3;

extern sqlite3* ConfDB;  // config_local.sqlite: the configuration
extern sqlite3* TempDB;  // temp_local.sqlite: alarms and states
