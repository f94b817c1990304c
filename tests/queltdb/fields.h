// The record classes seen from outside: per column its member, its flag and its setter, so that a
// test can walk them all.
#pragma once

#include <gtest/gtest.h>

#include <concepts>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "queltdb/records.h"

template <typename Record>
struct Field {
    const char* name;
    bool integer;
    queltdb::tSqlite3parent* Record::*value;
    bool Record::*modified;
    const char* setter_name;
    // Null when the class has no such setter, taking the column's kind by value.
    void (*set)(Record& record, const char* text);
};

// `call` is only callable when the class has the setter.
template <typename Record, typename Kind, typename Call>
Field<Record> field(const char* name, queltdb::tSqlite3parent* Record::*value,
                    bool Record::*modified, const char* setter_name, Call /*call*/) {
    void (*set)(Record&, const char*) = nullptr;
    if constexpr (std::is_invocable_v<Call, Record&, Kind>)
        set = [](Record& record, const char* text) { Call{}(record, Kind(text)); };
    return {name, std::is_same_v<Kind, queltdb::tSqlite3int>, value, modified, setter_name, set};
}

template <typename Record>
inline const char* const kClassName = nullptr;
template <typename Record>
inline const std::vector<Field<Record>> kFields = {};

#define RECORD tAlarmasEstado
#define TABLE alarmasEstado
#include "tests/queltdb/fields.inc"

#define RECORD tBitrate_Nulos
#define TABLE Bitrate_Nulos
#include "tests/queltdb/fields.inc"

#define RECORD tConfiguracionGen
#define TABLE ConfiguracionGen
#include "tests/queltdb/fields.inc"

#define RECORD tEntradaAV
#define TABLE EntradaAV
#include "tests/queltdb/fields.inc"

#define RECORD tRFOut
#define TABLE RFOut
#include "tests/queltdb/fields.inc"

#define RECORD tServiciosSalida
#define TABLE ServiciosSalida
#include "tests/queltdb/fields.inc"

#define RECORD tRed
#define TABLE Red
#include "tests/queltdb/fields.inc"

#define RECORD tIPOut
#define TABLE IPOut
#include "tests/queltdb/fields.inc"

#define RECORD tPIDsSalida
#define TABLE PIDsSalida
#include "tests/queltdb/fields.inc"

#define RECORD tEsclavosModulo
#define TABLE EsclavosModulo
#include "tests/queltdb/fields.inc"

using AllRecords =
    testing::Types<queltdb::tAlarmasEstado, queltdb::tBitrate_Nulos, queltdb::tConfiguracionGen,
                   queltdb::tEntradaAV, queltdb::tRFOut, queltdb::tServiciosSalida, queltdb::tRed,
                   queltdb::tIPOut, queltdb::tPIDsSalida, queltdb::tEsclavosModulo>;

struct ClassName {
    template <typename Record>
    static std::string GetName(int /*index*/) {
        return kClassName<Record>;
    }
};

template <typename Record>
constexpr bool kUpdates = requires(Record record, sqlite3* db) {
    { record.update(db) } -> std::same_as<int>;
};
template <typename Record>
constexpr bool kInserts = requires(Record record, sqlite3* db) {
    { record.insert(db) } -> std::same_as<int>;
};

// The names of the raised flags.
template <typename Record>
std::vector<std::string> modified(const Record& record) {
    std::vector<std::string> names;
    for (const Field<Record>& field : kFields<Record>) {
        if (record.*field.modified)
            names.emplace_back(field.name);
    }
    return names;
}
