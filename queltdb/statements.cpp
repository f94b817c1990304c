#include "queltdb/statements.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace queltdb {

namespace {

constexpr unsigned kAttempts = 3;

using SqliteText = std::unique_ptr<char, decltype(&sqlite3_free)>;

SqliteText checked(char* text) {
    if (text == nullptr)
        throw std::bad_alloc();
    return {text, sqlite3_free};
}

// Formats with SQLite's conversions: %Q is the text in quotes, inner ones doubled, or NULL for a
// null one.
template <typename... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
    return checked(sqlite3_mprintf(format, arguments...)).get();
}

char* text_of(const Cell& cell) {
    return cell.value == nullptr ? nullptr : cell.value->texto();
}

// `run` makes one attempt, given where to put SQLite's message; `tell` prints of a failed one its
// result code and number, as far as the operation wants them.
template <typename Run, typename Tell>
bool attempt(const char* operation, Run run, Tell tell) {
    for (unsigned n = 0; n < kAttempts; ++n) {
        char* text = nullptr;
        const int result = run(&text);
        const SqliteText message(text, sqlite3_free);
        if (result == SQLITE_OK)
            return true;
        tell(result, n);
        if (message != nullptr) {
            std::fprintf(stderr, "[ERROR_DB]%s: %s\n%s: %s\n", operation, message.get(),
                         message.get(), std::strerror(errno));
        }
        sleep(n + 1);
    }
    return false;
}

auto execution(sqlite3* db, const std::string& statement) {
    return [db, &statement](char** message) {
        return sqlite3_exec(db, statement.c_str(), nullptr, nullptr, message);
    };
}

// Blanks the first one alone, deliberately. What is stored then, the record holds too.
void blank_first_percent(char* text) {
    char* const percent = text == nullptr ? nullptr : std::strchr(text, '%');
    if (percent == nullptr)
        return;
    *percent = ' ';
    std::printf("[DEBUG_DB]update: sustituido caracter %% por espacio\n");
}

}  // namespace

Rows::Rows(sqlite3* db, const char* table, const char* clause, std::va_list arguments) {
    const std::string format = std::string("SELECT * FROM ")
                                   .append(table)
                                   .append(" ")
                                   .append(clause == nullptr ? "" : clause);
    const SqliteText statement = checked(sqlite3_vmprintf(format.c_str(), arguments));
    attempt(
        "doSelect",
        [&](char** message) {
            const int result =
                sqlite3_get_table(db, statement.get(), &texts_, &count_, &width_, message);
            if (result != SQLITE_OK)
                sqlite3_free_table(std::exchange(texts_, nullptr));
            return result;
        },
        [table](int, unsigned n) {
            std::fprintf(stderr, "[ERROR_DB]doSelect: Error leyendo datos tabla %s . intento: %u\n",
                         table, n);
        });
}

Rows::~Rows() {
    sqlite3_free_table(texts_);
}

void Rows::take(int row, std::span<const char*> texts) const {
    const auto width = static_cast<std::size_t>(width_);
    const std::size_t end = (static_cast<std::size_t>(count_) + 1) * width;
    std::size_t position = (static_cast<std::size_t>(row) + 1) * width;
    for (const char*& text : texts) {
        text = position < end ? texts_[position] : nullptr;
        ++position;
    }
}

int update(sqlite3* db, const Table& table, std::span<const Cell> cells) {
    std::string items;
    for (std::size_t k = 0; k < cells.size(); ++k) {
        if (!cells[k].modified)
            continue;
        blank_first_percent(text_of(cells[k]));
        if (!items.empty())
            items += ',';
        items += formatted(" %s = %Q ", table.columns[k].name, text_of(cells[k]));
    }
    if (items.empty())
        return 1;
    const std::string statement =
        formatted("UPDATE %s SET ", table.name) + items +
        formatted(" WHERE %s = %Q", table.columns[0].name, text_of(cells[0]));
    const bool done = attempt("update", execution(db, statement), [&table](int, unsigned n) {
        std::fprintf(
            stderr,
            "[ERROR_DB]update: Error actualizando datos registro en tabla %s . intento: %u\n",
            table.name, n);
    });
    if (!done)
        return 0;
    for (const Cell& cell : cells)
        cell.modified = false;
    return 1;
}

int insert(sqlite3* db, const Table& table, std::span<const Cell> cells) {
    std::string names;
    std::string values;
    for (std::size_t k = 0; k < cells.size(); ++k) {
        const char* const separator = k == 0 ? "" : ", ";
        names += formatted("%s%s", separator, table.columns[k].name);
        values += formatted("%s%Q", separator, text_of(cells[k]));
    }
    const std::string statement =
        formatted("INSERT INTO %s (", table.name) + names + ")  VALUES (" + values + " )";
    const bool done = attempt("insert", execution(db, statement), [&table](int result, unsigned n) {
        std::fprintf(stderr,
                     "[ERROR_DB]insert: Error (%d) inserting register in table %s . Attempt: %u\n",
                     result, table.name, n);
    });
    if (!done)
        return 0;
    delete std::exchange(cells[0].value, nullptr);
    cells[0].value = new tSqlite3int(static_cast<long>(sqlite3_last_insert_rowid(db)));
    return 1;
}

}  // namespace queltdb
