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
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
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

// Where a request may write. A plain sub-command writes one cell.
struct Reach {
    std::vector<Place> places = {};
    std::size_t most = 0;  // cells
    bool first_slave = false;
};

Place place_of(const Number& number) {
    switch (number.of) {
        case Number::Of::general:
            return {"ConfiguracionGen", 1, ""};
        case Number::Of::input:
            return {"EntradaAV", number.index, ""};
        case Number::Of::rf_output:
            return {"RFOut", number.index + 1, ""};
        case Number::Of::service:
            return {"ServiciosSalida", number.index, ""};
        case Number::Of::stream:  // video and audio of either service
            return {"PIDsSalida", number.index * 2 + number.selector, "Seleccionado"};
        case Number::Of::network:
            return {"Red", 1, ""};
        case Number::Of::ip_output:
            return {"IPOut", 1, ""};
    }
    std::abort();
}

Place place_of(const Text& text) {
    switch (text.of) {
        case Text::Of::general:
            return {"ConfiguracionGen", 1, ""};
        case Text::Of::service:
            return {"ServiciosSalida", text.index, ""};
        case Text::Of::network:
            return {"Red", 1, ""};
        case Text::Of::ip_output:
            return {"IPOut", 1, ""};
    }
    std::abort();
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

Reach reach_of_country() {
    return {.places = {{"ConfiguracionGen", 1, "Country"},
                       {"ConfiguracionGen", 1, "Language"},
                       {"ConfiguracionGen", 1, "Subtimezone"},
                       {"ConfiguracionGen", 1, "Idtimezone"},
                       {"ConfiguracionGen", 1, "Codtimezone"},
                       {"Red", 1, "NID"},
                       {"Red", 1, "NIT_Patron"},
                       {"Red", 1, "LCN_Mode"},
                       {"RFOut", 1, "Modo_OFDM"},
                       {"RFOut", 1, "Intervalo_Guarda"},
                       {"RFOut", 1, "Code_Rate"},
                       {"RFOut", 1, "Canal_Salida"},
                       {"RFOut", 1, "Frecuencia"},
                       {"RFOut", 1, "Ancho_Banda"},
                       {"EntradaAV", 0, "Bitrate"},
                       {"EntradaAV", 1, "Bitrate"}},
            .most = 16};
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

Reach reach_of(const Subcommand& row, std::uint8_t value) {
    if (const auto* const number = std::get_if<Number>(&row.target)) {
        Reach reach{.places = {place_of(*number)}, .most = 1};
        if (number->of == Number::Of::stream)
            reach = {.places = {reach.places[0], {"EntradaAV", number->index, "Remux_Av"}},
                     .most = 2};
        return reach;
    }
    if (const auto* const text = std::get_if<Text>(&row.target))
        return {.places = {place_of(*text)}, .most = 1};
    if (std::holds_alternative<NumberSetter>(row.target))
        return {.places = {{"RFOut", 1, "Canal_Salida"}, {"RFOut", 1, "Frecuencia"}}, .most = 2};
    if (std::holds_alternative<TextSetter>(row.target))
        return reach_of_country();
    return reach_of_handler(row.code, value);
}

Reach reach_of(const mensaje& request) {
    const Subcommand* const row = subcommand_of(request);
    if (row == nullptr)
        return {};
    Reach reach = reach_of(*row, request.info[1]);
    if (row->then == Then::next_row) {
        const Reach next = reach_of(row[1], request.info[1]);
        reach.places.insert(reach.places.end(), next.places.begin(), next.places.end());
        reach.most += next.most;
    }
    return reach;
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
