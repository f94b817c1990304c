// docs/protocol.md against the daemon: every frame by sending it, every column by looking for it.
#include "tests/support/protocol_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/processor/requests.h"
#include "tests/support/board_clock.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/open_board.h"
#include "tests/support/traced_daemon.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAreArray;

using document::layout;
using document::lines;
using document::Place;
using document::quoted;
using document::Row;
using document::table;

std::vector<Row> subcommand_rows() {
    return table("| Code | Name in the log");
}

std::vector<Row> rows_of_slaves() {
    return table("| Code | Name in the log", "Slave modules");
}

// The board as it is delivered, without opening its databases anew.
void restore_board() {
    const std::pair<const std::string&, std::string> kFiles[] = {
        {kConfDb, "/quelt/factory/config_local.sqlite"},
        {kTempDb, "/tmp/temp_local.sqlite"},
    };
    for (const auto& [path, original] : kFiles) {
        if (!std::filesystem::exists(original))
            std::filesystem::copy(path, original);
        const Database database(path);
        database.run("ATTACH '" + original + "' AS original; BEGIN");
        for (const Row& name : database.rows("SELECT name FROM original.sqlite_master WHERE "
                                             "type = 'table' AND name NOT LIKE 'sqlite%'")) {
            database.run("DELETE FROM main." + name[0] + "; INSERT INTO main." + name[0] +
                         " SELECT * FROM original." + name[0]);
        }
        database.run("COMMIT");
    }
}

// Names of the cells that differ.
std::vector<std::string> changed_cells(const Contents& before, const Contents& after) {
    std::vector<std::string> names;
    for (const std::string& change : changes(before, after))
        names.push_back(change.substr(0, change.find(':')));
    return names;
}

class DocumentedDaemon : public testing::Test {
  private:
    struct Board {
        Board() { make_board(); }
    } board_;
    Daemon daemon_;
};

constexpr char kCountry[] = "see [Country](#country)";  // in place of its columns

TEST_F(DocumentedDaemon, ChangesTheColumnsThatASubcommandsRowNames) {
    const std::vector<Row> of_slaves = rows_of_slaves();
    for (const Row& row : subcommand_rows()) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        restore_board();
        const Contents before = contents();
        exchange(hex(quoted(row[5]).at(0)));
        const std::vector<std::string> changed = changed_cells(before, contents());
        std::vector<std::string> named;
        for (const std::string& name : quoted(row[3]))
            named.push_back(document::cell(name));
        if (row[3] == kCountry)
            continue;
        if (std::ranges::find(of_slaves, row) == of_slaves.end()) {
            EXPECT_THAT(changed, UnorderedElementsAreArray(named));
        } else {
            // Besides the row that the first slave makes.
            for (const std::string& cell : changed) {
                EXPECT_TRUE(cell.starts_with("EsclavosModulo 1 ") ||
                            std::find(named.begin(), named.end(), cell) != named.end())
                    << cell;
            }
        }
    }
}

TEST_F(DocumentedDaemon, AnswersPlainSubcommandsWithoutInfo) {
    const std::vector<Row> of_slaves = rows_of_slaves();
    for (const Row& row : subcommand_rows()) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        const Bytes answer = exchange(hex(quoted(row[5]).at(0)));
        const bool of_a_slave = std::ranges::find(of_slaves, row) != of_slaves.end();
        if (!of_a_slave || row[0] == "107" || row[0] == "108" || row[0] == "112") {
            EXPECT_EQ(to_hex(answer), to_hex(frame(3)));
        } else {
            EXPECT_GT(answer[5], 0);
        }
    }
}

const Bytes kIdentify = frame(4);

TEST_F(DocumentedDaemon, AnswersTheFramesAsShown) {
    const Bytes identification = exchange(kIdentify);
    const std::vector<document::Exchange> all = document::exchanges();
    ASSERT_GT(all.size(), 15U);
    for (const document::Exchange& each : all) {
        SCOPED_TRACE(each.request);
        restore_board();
        if (each.answer == "nothing") {
            send_request(hex(each.request));
            EXPECT_EQ(to_hex(exchange(kIdentify)), to_hex(identification));
            continue;
        }
        EXPECT_EQ(document::as_shown(exchange(hex(each.request)), each.answer), each.answer);
    }
}

TEST(ProtocolDocument, LeavesNoByteOfAnAnswerOut) {
    const std::pair<const char*, const char*> kRequests[] = {
        {"Identification", "A5 04"},
        {"Status", "A5 00"},
        {"Block 1", "A5 01 00 00 00 01 01"},
        {"Block 2", "A5 01 00 00 00 01 02"},
        {"Slave modules", "A5 03 00 00 00 0F 6A"},
    };
    for (const auto& [heading, request] : kRequests) {
        SCOPED_TRACE(heading);
        std::size_t end = 0;
        std::size_t before = 0;
        for (const Place& place : layout(heading)) {
            const bool shares = place.kind.starts_with("bit ") && place.position == before;
            EXPECT_EQ(place.position, shares ? before : end);
            before = place.position;
            end = place.position + place.width;
        }
        const std::string head = document::answer(request).substr(0, 17);
        EXPECT_EQ(end, hex(head).back());
    }
}

// Positions of the bytes that differ.
std::set<std::size_t> different(const Bytes& one, const Bytes& other) {
    std::set<std::size_t> all;
    for (std::size_t i = 0; i < one.size(); ++i) {
        if (one[i] != other.at(i))
            all.insert(i);
    }
    return all;
}

// A value that differs from the old one of a cell in each byte that is sent.
std::string another_value(const std::string& cell, bool text) {
    const std::string column = cell.substr(cell.rfind(' ') + 1);
    return text ? "'" + std::string(15, '~') + "'"
                : "(" + column + " | 0x1010101) - (" + column + " & 0x1010101)";
}

struct Block {
    const char* heading;
    Bytes request;
    std::uint8_t command;
};

// Between two answers the clock must not change anything.
TEST(ProtocolDocument, NamesTheColumnsThatTheBlocksShow) {
    clock_shows(0);
    const Block kBlocks[] = {
        {"Block 1", {1}, 1},
        {"Block 2", {2}, 1},
        {"Slave modules", hex("6A 30 61 31 62 32 63 33 64 34 65 35 66 00 01"), 3},
    };
    for (const Block& block : kBlocks) {
        for (const Place& place : layout(block.heading, "1")) {
            // Those of a table; streams have a test of their own, two identifiers no column.
            const bool is_column = place.name.find('.') != std::string::npos &&
                                   !place.name.starts_with("PIDs") &&
                                   !place.content.ends_with("always 0");
            if (!is_column)
                continue;
            SCOPED_TRACE(place.name);
            const OpenBoard board;
            const Bytes before = answer_to(block.command, block.request);
            const std::string cell = document::cell(place.name);
            set_cell(cell, another_value(cell, place.kind == "text" || place.kind == "address"));
            const std::set<std::size_t> changed =
                different(before, answer_to(block.command, block.request));
            EXPECT_THAT(changed, Not(IsEmpty()));
            for (const std::size_t position : changed) {
                EXPECT_GE(position, place.position);
                EXPECT_LT(position, place.position + place.width);
            }
        }
    }
}

TEST(ProtocolDocument, NamesTheStreamsThatBlock1Shows) {
    std::vector<std::size_t> seen;
    for (const Place& place : layout("Block 1")) {
        if (!place.name.starts_with("PIDs"))
            continue;
        SCOPED_TRACE(place.name);
        const OpenBoard board;
        EXPECT_EQ(answer_to(1, {1})[place.position], 1);
        set_cell(document::cell(place.name), "2");
        EXPECT_EQ(answer_to(1, {1})[place.position], 0);
        seen.push_back(place.position);
    }
    EXPECT_THAT(seen, ElementsAre(33, 34, 54, 55));
}

// A state and what it is: as hexadecimal digits, its low four binary ones, the lowest of them.
struct State {
    std::string text;
    std::uint32_t hexadecimal;
    int binary;
    int lowest;
};

std::size_t states_of_the_board() {
    return std::stoul(Database(kTempDb).value("SELECT count(*) FROM alarmasEstado"));
}

TEST(ProtocolDocument, TellsHowTheStatesAreRead) {
    const State kStates[] = {
        {"12345678", 0x12345678, 15, 1},
        {"1x10", 0x1010, 14, 0},
        {"00000000", 0, 0, 0},
        {"123456789", 0, 0, 0},
    };
    const OpenBoard board;
    std::set<std::string> seen;
    for (const Place& place : layout("Status")) {
        const std::string& content = place.content;
        const bool binary = content.find("binary") != std::string::npos;
        const bool lowest = content.find("lowest") != std::string::npos;
        const std::size_t bits = content.find("bits ");
        for (const std::string& name : quoted(content)) {
            seen.insert(name);
            for (const State& state : kStates) {
                SCOPED_TRACE(name + " " + state.text);
                Database(kTempDb).run("UPDATE alarmasEstado SET valor = '" + state.text +
                                      "' WHERE nombre = '" + name + "'");
                const std::uint32_t sent = answer_to(0, {}).at(place.position);
                if (!binary) {
                    const unsigned long first = std::stoul(content.substr(bits + 5));
                    EXPECT_EQ(sent, state.hexadecimal >> first & 0xFFU);
                } else if (lowest) {
                    const unsigned long digit = std::stoul(place.kind.substr(sizeof "bit"));
                    EXPECT_EQ(sent >> digit & 1U, state.lowest);
                } else {
                    EXPECT_EQ(sent, state.binary);
                }
            }
        }
    }
    // The bitrates have a table of their own.
    EXPECT_EQ(seen.size(), states_of_the_board() - 3);
}

TEST(ProtocolDocument, TellsHowTheLevelIsSent) {
    const OpenBoard board;
    const std::vector<Row> levels = table("| B6 | Position 15 |");
    EXPECT_EQ(levels.size(), 8U);
    for (const Row& row : levels) {
        SCOPED_TRACE(row[0]);
        Database(kTempDb).run("UPDATE Bitrate_Nulos SET Nivel = '" + row[0] + "'");
        EXPECT_EQ(std::to_string(answer_to(0, {}).at(15)), row[1]);
    }
}

// What is missing, and the byte that stands there then, with the versions 2.4.7, 1.3.8 and 3.1.9.
struct Missing {
    std::string row;
    std::function<void()> remove;
    std::uint8_t byte;
};

void set_versions(const std::string& software, const std::string& hardware) {
    write_script("/quelt/script/get_board_versions.sh",
                 software + "; echo b U-Boot: 1.3.8; " + hardware);
}

TEST(ProtocolDocument, TellsWhatStandsWhereTheIdentificationHasNothing) {
    const std::string software = "echo b Software: 2.4.7";
    const std::string hardware = "echo b Hardware: 3.1.9";
    const auto without_software = [&] { set_versions(":", hardware); };
    const Missing kMissing[] = {
        {"3 software version: character 4 of the name", without_software, '2'},
        {"4 software version: character 5 of the name", without_software, 'A'},
        {"5 name: third number of the software version",
         [] { std::filesystem::remove("/quelt/conf/quelt_modelo"); }, 7},
        {"15 hardware version: third number of the boot loader version",
         [&] { set_versions(software, ":"); }, 8},
        {"17 serial number: third number of the hardware version",
         [] { std::filesystem::remove("/quelt/conf/quelt_numserie"); }, 9},
    };
    std::vector<std::string> known;
    for (const Missing& missing : kMissing) {
        SCOPED_TRACE(missing.row);
        known.push_back(missing.row);
        make_board();
        set_versions(software, hardware);
        missing.remove();
        const Daemon daemon;
        EXPECT_EQ(exchange(kIdentify).at(6 + std::stoul(missing.row)), missing.byte);
    }
    std::vector<std::string> documented;
    for (const Row& row : table("| Missing | Position |"))
        documented.push_back(row[1] + " " + row[0] + ": " + row[2]);
    EXPECT_THAT(documented, ElementsAreArray(known));
}

// Statements that failed three times.
long failed_statements(const std::string& err) {
    long count = 0;
    for (const std::string last : {"intento: 2\n", "Attempt: 2\n"}) {
        for (std::size_t at = err.find(last); at != std::string::npos; at = err.find(last, at + 1))
            ++count;
    }
    return count;
}

TEST(ProtocolDocument, CountsTheStatementsThatFail) {
    const std::string mac = "30 61 31 62 32 63 33 64 34 65 35 66 00";
    const auto write = [](std::uint8_t code, const std::string& value) {
        return frame(3, joined({{code}, hex(value)}));
    };
    // Not the factory reset, which brings the tables back.
    struct Requests {
        std::string row;
        std::vector<Bytes> requests;
    };
    const std::string country = "41 75 73 74 72 61 6C 69 61 00";
    const Requests kRequests[] = {
        {"identification, time, date, factory reset",
         {kIdentify, write(72, "30 39 2E 30 35"), write(73, "30 33 2E 30 32 2E 32 30 32 34")}},
        {"status", {frame(0)}},
        {"configuration, block 1", {frame(1, "01")}},
        {"configuration, block 2", {frame(1, "02")}},
        {"27, 28, 32, 33", {write(27, "01"), write(28, "00"), write(32, "01"), write(33, "01")}},
        {"17, 19, 20", {write(17, "01"), write(19, "1E"), write(20, "07 3B 90")}},
        {"71", {write(71, country)}},
        {"the others up to 79, 107, 108",
         {write(1, "01"), write(2, "34"), write(18, "01"), write(31, "41 00"), write(39, "00 01"),
          write(68, "31 00"), write(79, "01"), write(107, "01"), write(108, "01")}},
        {"105, 109, 111, 112",
         {write(105, mac + " 01"), write(109, mac + " 31 00"), write(111, mac),
          write(112, mac + " 02")}},
        {"106", {write(106, mac + " 01")}},
        {"110", {frame(3, joined({hex("6E " + mac), Bytes(60)}))}},
    };
    make_board();
    const TracedDaemon daemon(without_pauses());
    exchange(kIdentify);
    // Fails each statement as a lock does, without its waiting.
    for (const std::string& path : {kConfDb, kTempDb}) {
        const Database database(path);
        for (const Row& name : database.rows("SELECT name FROM sqlite_master WHERE type = 'table' "
                                             "AND name NOT LIKE 'sqlite%'"))
            database.run("ALTER TABLE " + name[0] + " RENAME TO no_" + name[0]);
    }
    const std::vector<Row> rows = table("| Request | Statements");
    for (const Row& row : rows)
        EXPECT_EQ(row[2], std::to_string(21 * std::stol(row[1]))) << row[0];
    ASSERT_EQ(rows.size(), std::size(kRequests));
    for (const auto& [name, requests] : kRequests) {
        SCOPED_TRACE(name);
        const auto row = std::ranges::find(rows, name, [](const Row& each) { return each[0]; });
        ASSERT_NE(row, rows.end());
        for (const Bytes& request : requests) {
            SCOPED_TRACE(to_hex(request));
            const long before = failed_statements(daemon.err());
            exchange(request);
            EXPECT_EQ(std::to_string(failed_statements(daemon.err()) - before), (*row)[1]);
        }
    }
}

}  // namespace
