// Texts on their way into a database and out again. The first byte of the input is the length of a
// name, which follows; the rest is the value to be stored under that name.
#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "params/alarmasEstado.h"
#include "params/databases.h"

namespace {

void open_database() {
    REQUIRE(sqlite3_open(":memory:", &TempDB) == SQLITE_OK);
    REQUIRE(sqlite3_exec(
                TempDB,
                "CREATE TABLE alarmasEstado (idalarmasEstado INTEGER PRIMARY KEY, "
                "nombre TEXT, valor TEXT, EstadoPendienteWR INTEGER, EstadoPendienteRE INTEGER)",
                nullptr, nullptr, nullptr) == SQLITE_OK);
}

sqlite3_stmt* prepared(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    REQUIRE(sqlite3_prepare_v2(TempDB, sql, -1, &statement, nullptr) == SQLITE_OK);
    return statement;
}

void bind(sqlite3_stmt* statement, int index, const std::string& text) {
    REQUIRE(sqlite3_bind_text(statement, index, text.c_str(), -1, SQLITE_TRANSIENT) == SQLITE_OK);
}

// Two rows, one of them of another name.
void store_rows(const std::string& name) {
    static sqlite3_stmt* const store =
        prepared("REPLACE INTO alarmasEstado VALUES (1, ?1, 'x', 0, 0), (2, ?1 || '!', 'x', 0, 0)");
    bind(store, 1, name);
    REQUIRE(sqlite3_step(store) == SQLITE_DONE);
    sqlite3_reset(store);
}

bool row_is(int key, const std::string& name, const std::string& value, int pending) {
    static sqlite3_stmt* const count = prepared(
        "SELECT count(*) FROM alarmasEstado WHERE idalarmasEstado = ?1 AND nombre = ?2 "
        "AND valor = ?3 AND EstadoPendienteWR = 0 AND EstadoPendienteRE = ?4");
    REQUIRE(sqlite3_bind_int(count, 1, key) == SQLITE_OK);
    bind(count, 2, name);
    bind(count, 3, value);
    REQUIRE(sqlite3_bind_int(count, 4, pending) == SQLITE_OK);
    REQUIRE(sqlite3_step(count) == SQLITE_ROW);
    const bool is = sqlite3_column_int(count, 0) == 1;
    sqlite3_reset(count);
    return is;
}

std::string up_to_nul(const std::uint8_t* from, const std::uint8_t* to) {
    return {from, std::find(from, to, 0)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (TempDB == nullptr)
        open_database();
    if (size == 0)
        return 0;
    const std::uint8_t* const value_at = data + 1 + std::min<std::size_t>(data[0], size - 1);
    const std::string name = up_to_nul(data + 1, value_at);
    const std::string value = up_to_nul(value_at, data + size);
    store_rows(name);

    REQUIRE(setstr_alarmas_estado_valor(name.c_str(), value.c_str(),
                                        static_cast<unsigned>(value.size()) + 1) == 0);
    std::string stored = value;
    const std::size_t percent = stored.find('%');
    if (percent != std::string::npos)
        stored[percent] = ' ';
    REQUIRE(row_is(1, name, stored, 2));
    REQUIRE(row_is(2, name + "!", "x", 0));

    const int binary = get_alarmas_estado_valor(name.c_str(), MODO_BINARIO);
    REQUIRE(binary >= 0 && binary <= 255);
    const int hexadecimal = get_alarmas_estado_valor(name.c_str(), MODO_HEXADECIMAL);
    if (stored.size() > 8)
        REQUIRE(binary == 0 && hexadecimal == 0);
    return 0;
}
