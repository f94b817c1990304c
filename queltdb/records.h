// The ten record classes, one per table: a record is one row. record.inc has their shape, the
// .def files their columns.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "queltdb/cells.h"
#include "queltdb/statements.h"
#include "queltdb/values.h"

namespace queltdb {

#define RECORD_QUOTED(text) #text
#define RECORD_TEXT(text) RECORD_QUOTED(text)

// Writes the modified values back to the record's row: 1, also when there was nothing to write; 0
// when it failed, with the flags as they were.
#define UPDATE                                       \
    int update(sqlite3* db) {                        \
        return queltdb::update(db, kTable, cells()); \
    }
// Adds the record as a new row and takes over the key that the row got: 1, or 0 when it failed.
#define INSERT                                       \
    int insert(sqlite3* db) {                        \
        return queltdb::insert(db, kTable, cells()); \
    }

#define RECORD tAlarmasEstado
#define TABLE alarmasEstado
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tBitrate_Nulos
#define TABLE Bitrate_Nulos
#define OPERATIONS
#include "queltdb/record.inc"

#define RECORD tConfiguracionGen
#define TABLE ConfiguracionGen
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tEntradaAV
#define TABLE EntradaAV
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tRFOut
#define TABLE RFOut
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tServiciosSalida
#define TABLE ServiciosSalida
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tRed
#define TABLE Red
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tIPOut
#define TABLE IPOut
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tPIDsSalida
#define TABLE PIDsSalida
#define OPERATIONS UPDATE
#include "queltdb/record.inc"

#define RECORD tEsclavosModulo
#define TABLE EsclavosModulo
#define OPERATIONS UPDATE INSERT
#include "queltdb/record.inc"

#undef INSERT
#undef UPDATE
#undef RECORD_TEXT
#undef RECORD_QUOTED

}  // namespace queltdb
