// `db check`: whether two database files are what the daemon reads, looking at them only.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>

#include "master/layout.h"
#include "protocol/description.h"
#include "queltdb/records.h"
#include "zondarctl/commands.h"

namespace zondarctl {

namespace {

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;
using Rows = std::vector<std::vector<std::optional<std::string>>>;

constexpr int kPatience_ms = 5000;  // with the locks of the board's other processes

Database open_database(const std::string& path) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
    Database database(handle, sqlite3_close);
    if (result != SQLITE_OK)
        throw UsageError(fmt::format("{}: {}", path, sqlite3_errmsg(handle)));
    sqlite3_busy_timeout(handle, kPatience_ms);
    return database;
}

Rows rows_of(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(database, sql.c_str(), -1, &prepared, nullptr);
    const Statement statement(prepared, sqlite3_finalize);
    Rows rows;
    while (result == SQLITE_OK || result == SQLITE_ROW) {
        result = sqlite3_step(statement.get());
        if (result != SQLITE_ROW)
            break;
        auto& row = rows.emplace_back();
        for (int i = 0; i < sqlite3_column_count(statement.get()); ++i) {
            const auto* const text = sqlite3_column_text(statement.get(), i);
            if (text == nullptr)
                row.emplace_back();
            else
                row.emplace_back(reinterpret_cast<const char*>(text));
        }
    }
    if (result != SQLITE_DONE)
        throw std::runtime_error(sqlite3_errmsg(database));
    return rows;
}

// What the daemon looks for: one row by a condition that compares as it does, with quoted numbers.
struct NeededRow {
    std::string table;
    std::string condition;  // empty for the only row of the table

    bool operator==(const NeededRow& other) const = default;
};

std::vector<std::string> parts_of(const std::string& name) {
    std::istringstream stream(name);
    std::vector<std::string> parts;
    for (std::string part; std::getline(stream, part, '.');)
        parts.push_back(part);
    return parts;
}

// The row of a parameter, by its name: "EntradaAV.0.Brillo", "PIDsSalida.0.1.Seleccionado",
// "Red.NID".
NeededRow row_of(const std::string& parameter) {
    const std::vector<std::string> words = parts_of(parameter);
    const std::string& table = words[0];
    if (table == "PIDsSalida")
        return {table, fmt::format("fk_idServicio='{}' AND Tipo='{}'", words[1], words[2])};
    if (table == "RFOut")
        return {table, "IdRFOut='1'"};
    if (words.size() == 2)
        return {table, ""};
    return {table,
            fmt::format("{}='{}'", table == "EntradaAV" ? "IdEntradaAV" : "IdServicio", words[1])};
}

// Those of the parameters, of the null packet figures, and of the states.
std::vector<NeededRow> needed_rows() {
    std::vector<NeededRow> rows;
    for (const protocol::Field& field : protocol::kFields) {
        if (!field.is_parameter)
            continue;
        NeededRow row = row_of(name_of(field.selector, field.extra));
        if (std::ranges::find(rows, row) == rows.end())
            rows.push_back(std::move(row));
    }
    rows.push_back({"Bitrate_Nulos", ""});
    for (const char* const state : protocol::kStates)
        rows.push_back({"alarmasEstado", fmt::format("nombre='{}'", state)});
    return rows;
}

using Problems = std::vector<std::string>;

// The daemon reads by position and writes by name, so both must be right; but this one it only
// reads, and all of it.
constexpr std::string_view kReadByPosition = "Bitrate_Nulos";

void check_columns(const queltdb::Table& table, const Rows& found, Problems& problems) {
    constexpr std::size_t kName = 1;
    constexpr std::size_t kType = 2;
    if (found.empty()) {
        problems.emplace_back("there is no such table");
        return;
    }
    if (found.size() != table.columns.size())
        problems.push_back(
            fmt::format("{} columns instead of {}", found.size(), table.columns.size()));
    if (table.name == kReadByPosition)
        return;
    for (std::size_t i = 0; i < std::min(found.size(), table.columns.size()); ++i) {
        if (sqlite3_stricmp(found[i][kName]->c_str(), table.columns[i].name) != 0)
            problems.push_back(fmt::format("column {} is {}, and is read as {}", i + 1,
                                           *found[i][kName], table.columns[i].name));
    }
    // The daemon compares keys with quoted numbers: without a type they are not the same to SQLite.
    if (found[0][kType]->empty() || sqlite3_strlike("%BLOB%", found[0][kType]->c_str(), 0) == 0)
        problems.push_back(
            fmt::format("the key {} has no type, so no row is found by it", *found[0][kName]));
}

void check_rows(sqlite3* database, const char* table, Problems& problems) {
    static const std::vector<NeededRow> kNeeded = needed_rows();
    for (const NeededRow& needed : kNeeded) {
        if (needed.table != table)
            continue;
        const std::string where =
            needed.condition.empty() ? "" : fmt::format(" WHERE {}", needed.condition);
        const Rows count =
            rows_of(database, fmt::format("SELECT count(*) FROM {}{}", table, where));
        if (count[0][0] != "1")
            problems.push_back(fmt::format("{} rows{} instead of 1", *count[0][0], where));
    }
}

// The rows as the daemon reads them: by position, whatever the columns are called.
Json json_of(const queltdb::Table& table, const Rows& found) {
    Json rows = Json::array();
    for (const auto& texts : found) {
        Json row = Json::object();
        for (std::size_t i = 0; i < std::min(texts.size(), table.columns.size()); ++i) {
            const char* const name = table.columns[i].name;
            if (texts[i])
                put_text(row, name, *texts[i]);
            else
                row[name] = nullptr;
        }
        rows.push_back(row);
    }
    return rows;
}

void put_rows(Report& report, const queltdb::Table& table, const Rows& found) {
    for (const auto& texts : found) {
        for (std::size_t i = 0; i < std::min(texts.size(), table.columns.size()); ++i)
            report.line({i == 0 ? "  -" : "", table.columns[i].name,
                         texts[i] ? printable(*texts[i]) : "NULL"});
    }
}

void check_table(Report& report, sqlite3* database, const queltdb::Table& table, bool all,
                 Json& tables) {
    Problems problems;
    Rows rows;
    try {
        const Rows columns = rows_of(database, fmt::format("PRAGMA table_info({})", table.name));
        check_columns(table, columns, problems);
        if (!columns.empty()) {
            check_rows(database, table.name, problems);
            rows = rows_of(database, fmt::format("SELECT * FROM {}", table.name));
        }
    } catch (const std::runtime_error& problem) {
        problems.emplace_back(problem.what());
    }
    report.line({fmt::format("{}: {} row{}", table.name, rows.size(), rows.size() == 1 ? "" : "s")},
                TextLine::Look::heading);
    for (const std::string& problem : problems)
        report.line({"  " + printable(problem)}, TextLine::Look::alert);
    if (all)
        put_rows(report, table, rows);
    tables.push_back(
        {{"name", table.name}, {"problems", problems}, {"rows", json_of(table, rows)}});
    if (!problems.empty() && !report.error)
        report.fail(kRefusedOrDifferent, "database",
                    fmt::format("{}: {}", table.name, problems[0]));
}

void check_database(Report& report, const std::string& path, bool all,
                    std::initializer_list<const queltdb::Table*> tables) {
    const Database database = open_database(path);
    Json entry = {{"path", path}, {"problems", Json::array()}, {"tables", Json::array()}};
    report.line({path}, TextLine::Look::heading);
    try {
        for (const auto& row : rows_of(database.get(), "PRAGMA integrity_check")) {
            if (row[0] == "ok")
                continue;
            entry["problems"].push_back(*row[0]);
            report.line({printable(*row[0])}, TextLine::Look::alert);
        }
    } catch (const std::runtime_error& problem) {
        entry["problems"].push_back(problem.what());
        report.line({printable(problem.what())}, TextLine::Look::alert);
    }
    // Of a file that is no database nothing more can be said.
    if (entry["problems"].empty()) {
        for (const queltdb::Table* table : tables)
            check_table(report, database.get(), *table, all, entry["tables"]);
    } else if (!report.error) {
        report.fail(kRefusedOrDifferent, "database",
                    fmt::format("{}: {}", path, entry["problems"][0].get<std::string>()));
    }
    report.data["databases"].push_back(entry);
}

std::size_t faults_of(const Json& database) {
    std::size_t faults = database["problems"].size();
    for (const Json& table : database["tables"])
        faults += table["problems"].size();
    return faults;
}

void put_verdict(Report& report) {
    std::size_t faults = 0;
    Words ill;
    for (const Json& database : report.data["databases"]) {
        if (const std::size_t its = faults_of(database); its != 0) {
            faults += its;
            ill.push_back(database["path"]);
        }
    }
    report.data["faults"] = faults;
    if (faults == 0)
        report.line({"sound: both databases are what the daemon reads"});
    else
        report.line({fmt::format("{} fault{} in {}", faults, faults == 1 ? "" : "s",
                                 printable(fmt::format("{}", fmt::join(ill, " and "))))},
                    TextLine::Look::alert);
}

}  // namespace

Report check_databases(const std::string& conf, const std::string& temp, bool all) {
    using namespace queltdb;
    Report report{.data = {{"databases", Json::array()}}};
    check_database(report, conf, all,
                   {&tConfiguracionGen::kTable, &tEntradaAV::kTable, &tRFOut::kTable,
                    &tServiciosSalida::kTable, &tPIDsSalida::kTable, &tRed::kTable, &tIPOut::kTable,
                    &tEsclavosModulo::kTable});
    check_database(report, temp, all, {&tAlarmasEstado::kTable, &tBitrate_Nulos::kTable});
    put_verdict(report);
    return report;
}

}  // namespace zondarctl
