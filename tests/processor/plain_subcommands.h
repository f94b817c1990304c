// The sub-commands that store one value, as masters, log readers and the board's other programs
// know them: from the protocol's description, not from the daemon's table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/protocol_document.h"

using document::Plain;
inline const std::vector<Plain> kPlain = document::plain_subcommands();

// What is logged of a request: that it came, and each sub-command that it is carried out as.
inline std::vector<std::string> log_of(const Plain& row) {
    std::vector<std::string> lines = {"<31>CMD: Comando escritura parametros.\n",
                                      "<31>Subcomando " + row.name + "\n"};
    if (row.code == 17)
        lines.emplace_back("<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n");
    return lines;
}

// The cells that a received number ends up in, and what they hold then. Of a service no other
// stream may be off.
inline Contents stored(const Plain& row, unsigned number) {
    Contents cells;
    if (row.cell.empty())
        return cells;
    const std::string text = std::to_string(number);
    cells[row.cell] = text;
    switch (row.code) {
        case 1:
            if (number == 3)
                cells[row.cell] = "10";
            if (number == 4)
                cells[row.cell] = "11";
            break;
        case 17:
            cells["RFOut 1 Cofdm_Off"] = text;
            break;
        case 25:
            cells[row.cell] = std::to_string(number + 1);
            break;
        case 27:
        case 28:
        case 32:
        case 33: {
            const bool video = row.code == 27 || row.code == 32;
            const std::string off = video ? "2" : "1";
            cells[row.code < 30 ? "EntradaAV 0 Remux_Av" : "EntradaAV 1 Remux_Av"] =
                number == 0 ? off : "0";
            if (number == 0)
                cells[row.cell] = "2";
            break;
        }
        default:
            break;
    }
    return cells;
}

// Fills the board so that no two cells hold the same. Services 0 and 1 have a video (1, 3) and an
// audio stream (2, 4), as on the sample board.
inline void number_cells() {
    number_all_cells();
    run_elsewhere(kConfDb,
                  "UPDATE PIDsSalida SET idPID = 3 WHERE idPID = 7;"
                  "UPDATE PIDsSalida SET idPID = 4 WHERE idPID = 2147483647;"
                  "UPDATE PIDsSalida SET fk_idServicio = (idPID - 1) / 2, Tipo = 2 - idPID % 2 "
                  "WHERE idPID BETWEEN 1 AND 4");
}

// Numbers on the wire, with bytes behind them that do not count.
struct WireNumber {
    const char* bytes;
    unsigned number;
};
inline const std::vector<WireNumber> kOneByte = {
    {"00 FF FF FF", 0},
    {"A7 5A C3 00", 167},
    {"01", 1},
    {"FF 01 02 03", 255},
};
inline const std::vector<WireNumber> kTwoBytes = {
    {"00 00 FF FF", 0},     {"A5 5A C3 00", 42330}, {"00 01", 1},
    {"FF FF 01 02", 65535}, {"00 FF 01", 255},      {"01 00 FF", 256},
};
inline const std::vector<WireNumber>& numbers_for(const Plain& row) {
    return row.bytes == 1 ? kOneByte : kTwoBytes;
}

// A request's info.
inline Bytes write_of(const Plain& row, const Bytes& value) {
    return joined({{row.code}, value});
}
