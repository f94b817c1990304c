#include "tests/support/contents.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "tests/support/database.h"
#include "tests/support/files.h"

namespace {

std::vector<std::string> tables_of(const Database& database) {
    std::vector<std::string> tables;
    for (const auto& row : database.rows("SELECT name FROM sqlite_master WHERE type = 'table'"))
        tables.push_back(row[0]);
    return tables;
}

std::vector<std::string> columns_of(const Database& database, const std::string& table) {
    std::vector<std::string> columns;
    for (const auto& row : database.rows("SELECT name FROM pragma_table_info('" + table + "')"))
        columns.push_back(row[0]);
    return columns;
}

bool has_one_row(const std::string& table) {
    constexpr std::array<std::string_view, 4> kTables = {"ConfiguracionGen", "Red", "IPOut",
                                                         "Bitrate_Nulos"};
    return std::find(kTables.begin(), kTables.end(), table) != kTables.end();
}

const std::string& path_of(const std::string& table) {
    return table == "alarmasEstado" || table == "Bitrate_Nulos" ? kTempDb : kConfDb;
}

// The name of the rows of a table, as an SQL expression.
std::string name_of_rows(const std::string& table) {
    std::string name = "NULL";
    if (table == "alarmasEstado")
        name = "nombre";
    if (table == "PIDsSalida")
        name = "fk_idServicio || '.' || Tipo";
    return "iif(count(*) OVER (PARTITION BY " + name + ") = 1, ifnull(" + name + ", rowid), rowid)";
}

Contents cells_by(std::string (*row_name)(const std::string& table)) {
    Contents cells;
    for (const std::string& path : {kConfDb, kTempDb}) {
        const Database database(path);
        for (const std::string& table : tables_of(database)) {
            const std::vector<std::string> columns = columns_of(database, table);
            std::string query = "SELECT " + row_name(table);
            for (const std::string& column : columns)
                query += ", quote(" + column + ")";
            for (const auto& row : database.rows(query + " FROM " + table)) {
                for (std::size_t i = 0; i < columns.size(); ++i)
                    cells.emplace(table + " " + row[0] + " " + columns[i], row[i + 1]);
            }
        }
    }
    return cells;
}

}  // namespace

Contents contents() {
    return cells_by(name_of_rows);
}

Contents contents_by_id() {
    return cells_by([](const std::string& /*table*/) { return std::string("rowid"); });
}

std::string id_of_state(const std::string& name) {
    return Database(kTempDb).value("SELECT rowid FROM alarmasEstado WHERE nombre = '" + name + "'");
}

void set_cell(const std::string& cell, const std::string& value) {
    std::istringstream words(cell);
    std::string table;
    std::string row;
    std::string column;
    words >> table >> row >> column;
    const Database database(path_of(table));
    database.run("UPDATE " + table + " SET " + column + " = " + value +
                 " WHERE rowid IN (SELECT id FROM (SELECT rowid AS id, " + name_of_rows(table) +
                 " AS name FROM " + table + ") WHERE name || '' = '" + row + "')");
    if (database.value("SELECT changes()") != "1")
        throw std::invalid_argument("no cell " + cell);
}

std::vector<std::string> changes(const Contents& before, const Contents& after) {
    Contents all = before;
    all.insert(after.begin(), after.end());
    std::vector<std::string> lines;
    for (const auto& cell : all) {
        const auto was = before.find(cell.first);
        const auto is = after.find(cell.first);
        const std::string old_value = was == before.end() ? "nothing" : was->second;
        const std::string new_value = is == after.end() ? "nothing" : is->second;
        if (old_value != new_value)
            lines.push_back(cell.first + ": " + old_value + " -> " + new_value);
    }
    return lines;
}

void number_all_cells() {
    int next = 100000;
    for (const std::string& path : {kConfDb, kTempDb}) {
        const Database database(path);
        std::string sql = "BEGIN;";
        for (const std::string& table : tables_of(database)) {
            sql += "DELETE FROM " + table + ";";
            const std::size_t columns = columns_of(database, table).size();
            for (const long long key : has_one_row(table) ? std::vector<long long>{1} : kKeys) {
                sql += "INSERT INTO " + table + " VALUES (" + std::to_string(key);
                for (std::size_t i = 1; i < columns; ++i)
                    sql.append(",").append(std::to_string(++next));
                sql += ");";
            }
        }
        database.run(sql + "COMMIT");
    }
}

void double_row(const std::string& table, long long key) {
    const Database database(path_of(table));
    const std::string key_column = columns_of(database, table)[0];
    std::string declaration =
        database.value("SELECT sql FROM sqlite_master WHERE name = '" + table + "'");
    constexpr std::string_view kUnique = " PRIMARY KEY";
    const std::size_t unique = declaration.find(kUnique);
    if (unique != std::string::npos)
        declaration.erase(unique, kUnique.size());
    database.run("BEGIN; CREATE TEMP TABLE kept AS SELECT * FROM " + table + "; DROP TABLE " +
                 table + ";" + declaration + "; INSERT INTO " + table +
                 " SELECT * FROM kept; INSERT INTO " + table + " SELECT * FROM kept WHERE " +
                 key_column + " = " + std::to_string(key) + "; COMMIT");
}
