// Requests to the command processor, on the sample board's databases.
//
// Input: what the board's scripts print, then up to 16 requests.
//   1 byte P, P bytes   printed by every script and by `hostname`; P 0: what the sample board's
//                       print; P 255 without any bytes: none of them can be started
//   of each request:
//   1 byte              the command; bit 7: bytes behind the info follow
//   1 byte N, N bytes   the info
//   1 byte B, B bytes   with bit 7 only: what stands behind the info in the record, codes first
// What an input lacks at its end is zeros. Each input has the sample board as it was delivered.
//
// Nothing leaves this process: the clock, the shell, the pauses and the log are its own.
#include <sqlite3.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "fuzz/require.h"
#include "link/mensaje.h"
#include "params/databases.h"
#include "processor/commands.h"
#include "processor/conf_log.h"
#include "processor/identification.h"
#include "processor/subcommands.h"

namespace {

struct Outside {
    bool scripts_start = true;
    std::string printed;  // by each script; empty for what the sample board's print
    int shells = 0;       // commands run
    int clocks = 0;       // attempts to set the clock
};
Outside outside;

thread_local bool in_a_request = false;

std::string_view printed_by(std::string_view command) {
    if (!outside.printed.empty())
        return outside.printed;
    if (command == "/quelt/script/MAC")
        return "00:1a:2b:3c:4d:5e\n";
    if (command == "/quelt/script/get_slave_ip.sh")
        return "169.254.34.21\n";
    if (command == "/quelt/script/get_board_versions.sh")
        return "b Software: 2.4.1\nb U-Boot: 1.3.0\nb Hardware: 3.1.0\n";
    return "cabecera-1";
}

}  // namespace

// In the place of the C library's.

extern "C" FILE* popen(const char* command, const char* /*mode*/) {
    if (!outside.scripts_start)
        return nullptr;
    static std::string text;
    text = printed_by(command);
    FILE* const file = fmemopen(text.data(), text.size(), "r");
    REQUIRE(file != nullptr);
    return file;
}

extern "C" int pclose(FILE* stream) {
    return std::fclose(stream);
}

extern "C" int system(const char* command) {
    REQUIRE(command != nullptr);
    ++outside.shells;
    return 0;
}

extern "C" int clock_settime(clockid_t /*clock*/, const std::timespec* /*moment*/) noexcept {
    ++outside.clocks;
    errno = EPERM;
    return -1;
}

// The databases refuse nothing here, so that there is nothing to wait for. The fuzzer has a thread
// that does wait.
extern "C" unsigned sleep(unsigned seconds) {
    REQUIRE(!in_a_request);
    std::timespec pause{.tv_sec = static_cast<std::time_t>(seconds), .tv_nsec = 0};
    return static_cast<unsigned>(nanosleep(&pause, nullptr));
}

extern "C" void vsyslog(int /*priority*/, const char* fmt, std::va_list ap) {
    std::array<char, 256> line{};
    REQUIRE(std::vsnprintf(line.data(), line.size(), fmt, ap) > 0);
}

namespace {

void run(sqlite3* database, const char* sql) {
    REQUIRE(sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

sqlite3_stmt* prepared(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    REQUIRE(sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK);
    return statement;
}

// A table, the key of a row, a column; "" is any column.
struct Place {
    std::string_view table;
    sqlite3_int64 key;
    std::string_view column;
};

struct Row {
    std::size_t table;  // its index in Board
    sqlite3_int64 key;
    std::vector<std::string> cells;  // each with the letter of its type

    bool operator==(const Row&) const = default;
};
using Rows = std::vector<Row>;

// The two databases of the board in memory.
class Board {
  public:
    Board() {
        open(ConfDB, "config_local");
        open(TempDB, "temp_local");
    }

    static void begin() {
        for (sqlite3* const database : {ConfDB, TempDB})
            run(database, "BEGIN");
    }

    // Back to the delivered board.
    static void roll_back() {
        for (sqlite3* const database : {ConfDB, TempDB}) {
            REQUIRE(sqlite3_get_autocommit(database) == 0);
            run(database, "ROLLBACK");
        }
    }

    // So far, in both.
    static int rows_written() {
        return sqlite3_total_changes(ConfDB) + sqlite3_total_changes(TempDB);
    }

    [[nodiscard]] Rows rows() const {
        Rows all;
        for (std::size_t i = 0; i < tables_.size(); ++i) {
            sqlite3_stmt* const select = tables_[i].select;
            while (sqlite3_step(select) == SQLITE_ROW) {
                Row& row = all.emplace_back(Row{i, sqlite3_column_int64(select, 0), {}});
                for (int column = 1; column < sqlite3_column_count(select); ++column)
                    row.cells.push_back(cell(select, column));
            }
            REQUIRE(sqlite3_reset(select) == SQLITE_OK);
        }
        return all;
    }

    [[nodiscard]] Place place(const Row& row, std::size_t cell) const {
        const Table& table = tables_[row.table];
        return {table.name, row.key, sqlite3_column_name(table.select, static_cast<int>(cell) + 1)};
    }

    static void check_integrity() {
        for (sqlite3* const database : {ConfDB, TempDB}) {
            sqlite3_stmt* const check = prepared(database, "PRAGMA integrity_check");
            REQUIRE(sqlite3_step(check) == SQLITE_ROW);
            REQUIRE(std::string_view("ok") ==
                    reinterpret_cast<const char*>(sqlite3_column_text(check, 0)));
            sqlite3_finalize(check);
        }
    }

  private:
    struct Table {
        std::string name;
        sqlite3_stmt* select;
    };

    static std::string cell(sqlite3_stmt* row, int column) {
        std::string text(1, "?IFTBN"[sqlite3_column_type(row, column)]);
        const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
        if (bytes != nullptr)
            text.append(bytes, static_cast<std::size_t>(sqlite3_column_bytes(row, column)));
        return text;
    }

    void open(sqlite3*& database, const std::string& name) {
        std::ifstream file(ZONDAR_SOURCE_DIR "/board/" + name + ".sql");
        const std::string sql{std::istreambuf_iterator<char>(file), {}};
        REQUIRE(!sql.empty());
        REQUIRE(sqlite3_open(":memory:", &database) == SQLITE_OK);
        run(database, sql.c_str());
        sqlite3_stmt* const names =
            prepared(database, "SELECT name FROM sqlite_master WHERE type = 'table'");
        while (sqlite3_step(names) == SQLITE_ROW) {
            const std::string table = reinterpret_cast<const char*>(sqlite3_column_text(names, 0));
            tables_.push_back({table, prepared(database, "SELECT rowid, * FROM " + table)});
        }
        sqlite3_finalize(names);
        REQUIRE(!tables_.empty());
    }

    std::vector<Table> tables_;
};

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
            return {.places = {{"alarmasEstado", 15, "valor"},
                               {"alarmasEstado", 15, "EstadoPendienteRE"}},
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

const Subcommand* find_subcommand(std::uint8_t code) {
    for (const Subcommand& row : subcommands()) {
        if (row.code == code)
            return &row;
    }
    return nullptr;
}

// The sub-command of a request; null for any other command and for what is refused.
const Subcommand* subcommand_of(const mensaje& request) {
    constexpr std::uint8_t kWrite = 3;
    if (request.comando != kWrite || request.longitud < 2)
        return nullptr;
    return find_subcommand(request.info[0]);
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

void check_changes(const Board& board, const Rows& before, const Rows& after, const Reach& reach) {
    std::size_t changed = 0;
    auto old_row = before.begin();
    for (const Row& row : after) {
        if (old_row == before.end() || old_row->table != row.table || old_row->key != row.key) {
            // The one row that may come: of the first slave, into an empty table.
            REQUIRE(reach.first_slave && row.key == 1);
            REQUIRE(board.place(row, 0).table == "EsclavosModulo");
            continue;
        }
        REQUIRE(old_row->cells.size() == row.cells.size());
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            if (old_row->cells[i] == row.cells[i])
                continue;
            REQUIRE(i > 0);  // never a key
            REQUIRE(within(reach, board.place(row, i)));
            ++changed;
        }
        ++old_row;
    }
    REQUIRE(old_row == before.end());
    REQUIRE(changed <= reach.most);
}

// Of the answers to a parameter write.
std::size_t written_length(const mensaje& request) {
    if (subcommand_of(request) == nullptr)
        return 255;
    switch (request.info[0]) {
        case 105:
            return 3;
        case 106:
            return 28;
        case 109:
            return 2;
        case 110:
            return 75;
        case 111:
            return 15;
        default:
            return 0;
    }
}

std::size_t length_of_answer(const mensaje& request) {
    switch (request.comando) {
        case 1:
            if (request.longitud != 1)
                return 0;
            return request.info[0] == 2 ? 185 : 114;
        case 3:
            return written_length(request);
        case 4:
            return 48;
        default:
            return 28;
    }
}

void check_answer(const mensaje& request, const mensaje* answer) {
    REQUIRE((answer == nullptr) == (request.comando >= 5));
    if (answer == nullptr)
        return;
    REQUIRE(answer->comando == request.comando);
    REQUIRE(answer->secuencia == 0);
    REQUIRE(answer->control == 0);
    REQUIRE(answer->longitud == length_of_answer(request));
    const std::size_t used = answer->longitud == 255 ? 0 : answer->longitud;
    REQUIRE(std::all_of(answer->info + used, std::end(answer->info),
                        [](std::uint8_t byte) { return byte == 0; }));
    const Subcommand* const row = subcommand_of(request);
    if (row != nullptr && used > 0)
        REQUIRE(answer->info[0] == row->code);
    if (row != nullptr && row->code == 110)
        REQUIRE(answer->info[74] == 0);  // slave 1 is always there
}

// One shell for each reset of the network or the board, one attempt for each time and date.
void check_outside(const mensaje& request) {
    const Subcommand* const row = subcommand_of(request);
    const int code = row == nullptr ? 0 : row->code;
    const bool resets = code == 68 || code == 69 || code == 70 || code == 80;
    REQUIRE(outside.shells == (resets ? 1 : 0));
    REQUIRE(outside.clocks == (code == 72 || code == 73 ? 1 : 0));
    outside.shells = 0;
    outside.clocks = 0;
}

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    [[nodiscard]] bool at_end() const { return size_ == 0; }
    std::uint8_t byte() {
        std::uint8_t value = 0;
        copy(&value, 1);
        return value;
    }
    // `count` bytes, of which there is room for `room`.
    void copy(std::uint8_t* to, std::size_t count, std::size_t room) {
        const std::size_t fit = std::min(count, room);
        copy(to, fit);
        skip(count - fit);
    }

  private:
    void copy(std::uint8_t* to, std::size_t count) {
        const std::size_t there = std::min(count, size_);
        std::copy_n(data_, there, to);
        skip(there);
    }
    void skip(std::size_t count) {
        const std::size_t there = std::min(count, size_);
        data_ += there;
        size_ -= there;
    }

    const std::uint8_t* data_;
    std::size_t size_;
};

void read_outside(Input& input) {
    constexpr std::uint8_t kNothingStarts = 255;
    const std::uint8_t count = input.byte();
    outside = {};
    outside.scripts_start = count != kNothingStarts;
    if (!outside.scripts_start)
        return;
    outside.printed.resize(count);
    input.copy(reinterpret_cast<std::uint8_t*>(outside.printed.data()), count, count);
}

// On the heap, so that a sanitizer sees a read beyond its end.
std::unique_ptr<const mensaje> read_request(Input& input) {
    constexpr std::uint8_t kBehind = 0x80;
    auto request = std::make_unique<mensaje>();
    const std::uint8_t command = input.byte();
    request->longitud = input.byte();
    std::uint8_t* const info = frame_area(*request) + kInfoOffset;
    input.copy(info, request->longitud, request->longitud);
    if ((command & kBehind) != 0) {
        const std::size_t room = sizeof(mensaje) - kInfoOffset - request->longitud;
        const std::uint8_t count = input.byte();
        input.copy(info + request->longitud, count, room);
    }
    request->comando = command & ~kBehind & 0xFF;
    return request;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned kInputsBetweenChecks = 32;
    constexpr unsigned kMostRequests = 16;
    static const Board board;
    static unsigned inputs = 0;
    if (inputs == 0) {
        // The code under test tells of each per cent sign.
        REQUIRE(std::freopen("/dev/null", "w", stdout) != nullptr);
        conf_log = 0x7F;
    }
    Input input(data, size);
    read_outside(input);
    fill_identification();
    Board::begin();
    Rows before = board.rows();
    int written = Board::rows_written();
    for (unsigned i = 0; i < kMostRequests && !input.at_end(); ++i) {
        const std::unique_ptr<const mensaje> request = read_request(input);
        in_a_request = true;
        const std::unique_ptr<const mensaje> answer = procesar_comando(*request);
        in_a_request = false;
        check_answer(*request, answer.get());
        check_outside(*request);
        if (Board::rows_written() == written)
            continue;
        written = Board::rows_written();
        Rows after = board.rows();
        check_changes(board, before, after, reach_of(*request));
        before = std::move(after);
    }
    REQUIRE(board.rows() == before);
    if (inputs++ % kInputsBetweenChecks == 0)
        Board::check_integrity();
    Board::roll_back();
    return 0;
}
