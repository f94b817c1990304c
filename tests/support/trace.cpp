#include "tests/support/trace.h"

#include <sqlite3.h>

#include <utility>

#include "params/databases.h"

namespace {

int collect(unsigned /*event*/, void* to, void* /*statement*/, void* text) {
    static_cast<std::vector<std::string>*>(to)->emplace_back(static_cast<const char*>(text));
    return 0;
}

}  // namespace

Trace::Trace() {
    for (sqlite3* const database : {ConfDB, TempDB})
        sqlite3_trace_v2(database, SQLITE_TRACE_STMT, collect, &statements_);
}

Trace::~Trace() {
    for (sqlite3* const database : {ConfDB, TempDB})
        sqlite3_trace_v2(database, 0, nullptr, nullptr);
}

std::vector<std::string> Trace::take() {
    return std::exchange(statements_, {});
}
