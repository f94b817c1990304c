// Requests to the command processor, on the sample board's databases.
//
// Input: what the board's scripts print, then up to 3 requests.
//   1 byte P, P bytes   printed by every script and by `hostname`; P 0: what the sample board's
//                       print; P 255 without any bytes: none of them can be started
//   the requests        as fuzz/requests.h has them
// Each input has the sample board as it was delivered.
#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/board.h"
#include "fuzz/input.h"
#include "fuzz/outside.h"
#include "fuzz/requests.h"
#include "fuzz/require.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "processor/identification.h"

namespace {

// A table, the key of a row, a column; "" is any column.
struct Place {
    std::string_view table;
    sqlite3_int64 key;
    std::string_view column;
};

struct Row {
    sqlite3_int64 key;
    std::vector<std::string> cells;  // each with the letter of its type

    bool operator==(const Row&) const = default;
};

struct Table {
    std::string name;
    std::vector<std::string> columns;
    sqlite3_stmt* all;  // rows
    sqlite3_stmt* one;  // of a key
    std::vector<Row> rows = {};
};

std::string cell(sqlite3_stmt* row, int column) {
    std::string text(1, "?IFTBN"[sqlite3_column_type(row, column)]);
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
    if (bytes != nullptr)
        text.append(bytes, static_cast<std::size_t>(sqlite3_column_bytes(row, column)));
    return text;
}

// What a statement selects: the key, then the columns.
std::vector<Row> rows_of(sqlite3_stmt* select) {
    std::vector<Row> rows;
    while (sqlite3_step(select) == SQLITE_ROW) {
        Row& row = rows.emplace_back(Row{sqlite3_column_int64(select, 0), {}});
        for (int column = 1; column < sqlite3_column_count(select); ++column)
            row.cells.push_back(cell(select, column));
    }
    REQUIRE(sqlite3_reset(select) == SQLITE_OK);
    return rows;
}

// Where a request may write.
struct Reach {
    std::vector<Place> places = {};
    std::size_t most = 0;  // cells
    bool first_slave = false;
};

// A parameter's cell, by its name: "EntradaAV.c.Brillo", "PIDsSalida.s.1.Seleccionado", "Red.NID".
Place place_of(protocol::Selector selector, std::uint8_t row) {
    const std::string_view name = protocol::parameter(selector).name;
    const std::string_view table = name.substr(0, name.find('.'));
    const std::string_view column = name.substr(name.rfind('.') + 1);
    if (table == "PIDsSalida")
        return {table, row * 2 + (name[name.rfind('.') - 1] - '0'), column};
    if (table == "EntradaAV" || table == "ServiciosSalida")
        return {table, row, column};
    return {table, 1, column};
}

sqlite3_int64 key_of_encoder() {
    static const sqlite3_int64 key = [] {
        sqlite3_stmt* const select = prepared(
            TempDB, "SELECT rowid FROM alarmasEstado WHERE nombre = 'estado_remote_encoder'");
        REQUIRE(sqlite3_step(select) == SQLITE_ROW);
        const sqlite3_int64 found = sqlite3_column_int64(select, 0);
        sqlite3_finalize(select);
        return found;
    }();
    return key;
}

// `channel` of the two that name it in their second byte.
Reach reach_of_handler(std::uint8_t code, std::uint8_t channel) {
    switch (code) {
        case 105:
        case 106:
        case 111:
            return {.first_slave = true};
        case 107:
        case 108:
            return {.places = {{"EntradaAV", channel, "EstadoPendienteRE"}}, .most = 1};
        case 109:
            return {.places = {{"alarmasEstado", key_of_encoder(), "valor"},
                               {"alarmasEstado", key_of_encoder(), "EstadoPendienteRE"}},
                    .most = 2,
                    .first_slave = true};
        case 110:
            return {.places = {{"EsclavosModulo", 1, ""}}, .most = 10, .first_slave = true};
        case 112:
            return {.places = {{"EsclavosModulo", 1, "Estado"}}, .most = 1, .first_slave = true};
        default:  // the clock and the factory reset
            return {};
    }
}

// Its own parameter, and what its effect names.
Reach reach_of_write(const protocol::Subcommand& row) {
    Reach reach{.places = {place_of(row.selector, row.row)}};
    protocol::for_each_also_written(
        row, [&](protocol::Selector selector, std::uint8_t index, protocol::When /*when*/) {
            reach.places.push_back(place_of(selector, index));
        });
    reach.most = reach.places.size();
    return reach;
}

Reach reach_of(const mensaje& request) {
    const protocol::Subcommand* const row = subcommand_of(request);
    if (row == nullptr)
        return {};
    return row->width != 0 ? reach_of_write(*row) : reach_of_handler(row->code, request.info[1]);
}

bool within(const Reach& reach, const Place& place) {
    return std::any_of(reach.places.begin(), reach.places.end(), [&](const Place& allowed) {
        return allowed.table == place.table && allowed.key == place.key &&
               (allowed.column.empty() || allowed.column == place.column);
    });
}

// What the databases hold, kept up by SQLite's own word of each row that is written.
class Contents {
  public:
    Contents() {
        open_board();
        for (sqlite3* const database : {ConfDB, TempDB}) {
            add_tables(database);
            sqlite3_update_hook(database, note, this);
        }
        REQUIRE(tables_.size() == 10);
        delivered_ = tables_;
    }

    // Takes in what was written since the last time: no more than the reach allows.
    void follow(const Reach& reach) {
        std::sort(written_.begin(), written_.end());
        written_.erase(std::unique(written_.begin(), written_.end()), written_.end());
        std::size_t changed = 0;
        for (const auto& [table, key] : written_)
            changed += follow(*table, key, reach);
        REQUIRE(changed <= reach.most);
        touched_.insert(touched_.end(), written_.begin(), written_.end());
        written_.clear();
    }

    // Every row, whether SQLite told of it or not.
    void compare() const {
        for (const Table& table : tables_)
            REQUIRE(rows_of(table.all) == table.rows);
    }

    void forget() {
        for (const auto& [table, key] : touched_)
            table->rows = delivered_[static_cast<std::size_t>(table - tables_.data())].rows;
        touched_.clear();
        written_.clear();
    }

  private:
    using Written = std::pair<Table*, sqlite3_int64>;

    void add_tables(sqlite3* database) {
        sqlite3_stmt* const names =
            prepared(database, "SELECT name FROM sqlite_master WHERE type = 'table'");
        while (sqlite3_step(names) == SQLITE_ROW) {
            const std::string name = reinterpret_cast<const char*>(sqlite3_column_text(names, 0));
            const std::string select = "SELECT rowid, * FROM " + name;
            Table table{.name = name,
                        .columns = {},
                        .all = prepared(database, select),
                        .one = prepared(database, select + " WHERE rowid = ?")};
            for (int i = 1; i < sqlite3_column_count(table.all); ++i)
                table.columns.emplace_back(sqlite3_column_name(table.all, i));
            table.rows = rows_of(table.all);
            tables_.push_back(std::move(table));
        }
        sqlite3_finalize(names);
    }

    static void note(void* self, int /*operation*/, const char* /*database*/, const char* name,
                     sqlite3_int64 key) {
        auto& contents = *static_cast<Contents*>(self);
        const auto table = std::ranges::find(contents.tables_, name, &Table::name);
        REQUIRE(table != contents.tables_.end());
        contents.written_.emplace_back(&*table, key);
    }

    // Returns how many cells have changed.
    static std::size_t follow(Table& table, sqlite3_int64 key, const Reach& reach) {
        REQUIRE(sqlite3_bind_int64(table.one, 1, key) == SQLITE_OK);
        std::vector<Row> now = rows_of(table.one);
        REQUIRE(now.size() == 1);
        const auto row = std::ranges::find(table.rows, key, &Row::key);
        if (row == table.rows.end()) {
            // The one row that may come: of the first slave, into an empty table.
            REQUIRE(reach.first_slave && key == 1);
            REQUIRE(table.name == "EsclavosModulo" && table.rows.empty());
            table.rows.push_back(std::move(now[0]));
            return 0;
        }
        std::size_t changed = 0;
        for (std::size_t i = 0; i < table.columns.size(); ++i) {
            if (row->cells[i] == now[0].cells[i])
                continue;
            REQUIRE(i > 0);  // never a key
            REQUIRE(within(reach, {table.name, key, table.columns[i]}));
            ++changed;
        }
        *row = std::move(now[0]);
        return changed;
    }

    std::vector<Table> tables_;
    std::vector<Table> delivered_;
    std::vector<Written> written_;  // since the last follow()
    std::vector<Written> touched_;  // since the last forget()
};

void read_outside(Input& input) {
    constexpr std::uint8_t kNothingStarts = 255;
    static bool as_delivered = false;
    const std::uint8_t count = input.byte();
    outside = {.scripts_start = count != kNothingStarts};
    if (outside.scripts_start) {
        const auto printed = input.bytes(count);
        outside.printed.assign(printed.begin(), printed.end());
        outside.printed.resize(count);
    }
    if (count == 0 && as_delivered)
        return;
    fill_identification();
    as_delivered = count == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned kInputsBetweenChecks = 32;
    constexpr unsigned kMostRequests = 3;
    static Contents contents;
    static unsigned inputs = 0;
    conf_log = 0x7F;
    Input input(data, size);
    read_outside(input);
    for (unsigned i = 0; i < kMostRequests && !input.at_end(); ++i) {
        const auto request = read_request(input);
        const auto answer = carry_out(*request);
        REQUIRE(outside.pauses == 0);  // the databases refuse nothing here
        if (request->comando == 3 && answer->longitud == 75)
            REQUIRE(answer->info[74] == 0);  // slave 1 is always there
        contents.follow(reach_of(*request));
    }
    if (inputs++ % kInputsBetweenChecks == 0) {
        contents.compare();
        check_integrity();
    }
    undo_changes();
    contents.forget();
    return 0;
}
