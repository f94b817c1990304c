#include "bench/requests.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "params/databases.h"
#include "processor/commands.h"

namespace {

mensaje request_of(std::uint8_t command, std::initializer_list<std::uint8_t> info) {
    mensaje request{};
    request.comando = command;
    request.longitud = static_cast<std::uint8_t>(info.size());
    std::copy(info.begin(), info.end(), request.info);
    return request;
}

// The writes of one number: another value each round, and always the one that the board has.
const mensaje kStatus = request_of(0, {});
const mensaje kBlock1 = request_of(1, {1});
const mensaje kBlock2 = request_of(1, {2});
const mensaje kWrites[] = {request_of(3, {2, 60}), request_of(3, {2, 61})};
const mensaje kUnchanged = request_of(3, {3, 52});
const mensaje kIdentification = request_of(4, {});

struct Row {
    std::string_view name;
    const mensaje* even;
    const mensaje* odd;
};

// clang-format off
constexpr Row kRequests[] = {
    {"status", &kStatus, &kStatus},
    {"block1", &kBlock1, &kBlock1},
    {"block2", &kBlock2, &kBlock2},
    {"write", &kWrites[0], &kWrites[1]},
    {"write_unchanged", &kUnchanged, &kUnchanged},
    {"identification", &kIdentification, &kIdentification},
};
// clang-format on

int record(unsigned /*kind*/, void* statements, void* statement, void* /*text*/) {
    auto* const handle = static_cast<sqlite3_stmt*>(statement);
    static_cast<std::vector<Statement>*>(statements)
        ->push_back({sqlite3_db_handle(handle), sqlite3_sql(handle)});
    return 0;
}

}  // namespace

bool open_databases(const char* configuration, const char* state) {
    return sqlite3_open_v2(configuration, &ConfDB, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
           sqlite3_open_v2(state, &TempDB, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK;
}

const mensaje* request(std::string_view name, int round) {
    for (const Row& row : kRequests) {
        if (row.name == name)
            return round % 2 == 0 ? row.even : row.odd;
    }
    return nullptr;
}

std::unique_ptr<mensaje> carry_out(const mensaje& request) {
    std::unique_ptr<mensaje> answer = procesar_comando(request);
    if (answer->comando != request.comando)
        std::abort();
    return answer;
}

BareStatements::BareStatements(std::string_view name) {
    carry_out(*request(name, 1));  // so that the first round changes what it writes
    for (const int round : {0, 1}) {
        for (sqlite3* const database : {ConfDB, TempDB})
            sqlite3_trace_v2(database, SQLITE_TRACE_STMT, record, &rounds_[round]);
        carry_out(*request(name, round));
    }
    for (sqlite3* const database : {ConfDB, TempDB})
        sqlite3_trace_v2(database, 0, nullptr, nullptr);
}

void BareStatements::run(int round) const {
    for (const Statement& statement : rounds_[round % 2]) {
        if (statement.text.starts_with("SELECT")) {
            char** table = nullptr;
            int rows = 0;
            int columns = 0;
            sqlite3_get_table(statement.database, statement.text.c_str(), &table, &rows, &columns,
                              nullptr);
            sqlite3_free_table(table);
        } else {
            sqlite3_exec(statement.database, statement.text.c_str(), nullptr, nullptr, nullptr);
        }
    }
}
