// The sample board with both its databases open, as the daemon has them.
#pragma once

#include <sqlite3.h>

#include "params/databases.h"
#include "tests/support/files.h"

// Without the time that the daemon gives to the locks of others: a locked database fails at once.
struct OpenBoard {
    OpenBoard() {
        make_board();
        sqlite3_open(kConfDb.c_str(), &ConfDB);
        sqlite3_open(kTempDb.c_str(), &TempDB);
    }
    ~OpenBoard() {
        sqlite3_close(ConfDB);
        sqlite3_close(TempDB);
    }
    OpenBoard(const OpenBoard&) = delete;
    OpenBoard& operator=(const OpenBoard&) = delete;
};
