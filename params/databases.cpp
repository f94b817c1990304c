#include "params/databases.h"

sqlite3* ConfDB = nullptr;
sqlite3* TempDB = nullptr;
