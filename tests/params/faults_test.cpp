// Databases that other processes write, lock, spoil and forbid, for the accessors of every table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "params/Bitrate_Nulos.h"
#include "params/ConfiguracionGen.h"
#include "params/EntradaAV.h"
#include "params/EsclavosModulo.h"
#include "params/IPOut.h"
#include "params/RFOut.h"
#include "params/Red.h"
#include "params/ServiciosSalida.h"
#include "params/alarmasEstado.h"
#include "params/service_state.h"
#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Buffer = std::array<std::uint8_t, 32>;

// What a getstr leaves in a buffer, less the zeros at its end.
std::string text_of(void (*getstr)(Buffer& buffer)) {
    Buffer buffer;
    buffer.fill('#');
    getstr(buffer);
    std::string text(buffer.begin(), buffer.end());
    text.erase(text.find_last_not_of('\0') + 1);
    return text;
}

constexpr int kSize = sizeof(Buffer);

struct Getter {
    const char* name;
    const std::string& path;
    const char* table;
    std::string (*get)();
    const char* value;   // on the sample board
    const char* change;  // what another process writes
    const char* changed;
    const char* none = "0";  // without the row
};

void PrintTo(const Getter& getter, std::ostream* out) {
    *out << getter.name;
}

const Getter kGetters[] = {
    {.name = "get_ConfiguracionGen",
     .path = kConfDb,
     .table = "ConfiguracionGen",
     .get = [] { return std::to_string(get_ConfiguracionGen(CG_ATENUACION)); },
     .value = "10",
     .change = "UPDATE ConfiguracionGen SET Atenuacion = 12",
     .changed = "12"},
    {.name = "getstr_ConfiguracionGen",
     .path = kConfDb,
     .table = "ConfiguracionGen",
     .get =
         [] {
             return text_of([](Buffer& buffer) {
                 getstr_ConfiguracionGen(CGS_IP_MASK, buffer.data(), kSize);
             });
         },
     .value = "255.255.255.0",
     .change = "UPDATE ConfiguracionGen SET Ip_Mask = '255.0.0.0'",
     .changed = "255.0.0.0",
     .none = ""},
    {.name = "getstr_ConfiguracionGen_Language",
     .path = kConfDb,
     .table = "ConfiguracionGen",
     .get =
         [] {
             return text_of([](Buffer& buffer) {
                 getstr_ConfiguracionGen(CGS_LANGUAGE, buffer.data(), kSize);
             });
         },
     .value = "Spain",
     .change = "UPDATE ConfiguracionGen SET Country = 'Italy'",
     .changed = "Italy",
     .none = ""},
    {.name = "get_EntradaAV",
     .path = kConfDb,
     .table = "EntradaAV",
     .get = [] { return std::to_string(get_EntradaAV(EAV_BITRATE, 1)); },
     .value = "6500",
     .change = "UPDATE EntradaAV SET Bitrate = 7100 WHERE IdEntradaAV = 1",
     .changed = "7100"},
    {.name = "get_RFOut",
     .path = kConfDb,
     .table = "RFOut",
     .get = [] { return std::to_string(get_RFOut(RFO_FRECUENCIA, 0)); },
     .value = "474000",
     .change = "UPDATE RFOut SET Frecuencia = 482000",
     .changed = "482000"},
    {.name = "get_ServiciosSalida",
     .path = kConfDb,
     .table = "ServiciosSalida",
     .get = [] { return std::to_string(get_ServiciosSalida(SS_SID, 1)); },
     .value = "102",
     .change = "UPDATE ServiciosSalida SET SID = 202 WHERE IdServicio = 1",
     .changed = "202"},
    {.name = "getstr_ServiciosSalida",
     .path = kConfDb,
     .table = "ServiciosSalida",
     .get =
         [] {
             return text_of([](Buffer& buffer) {
                 getstr_ServiciosSalida(SSS_NOMBRE, 1, buffer.data(), kSize);
             });
         },
     .value = "Canal Dos",
     .change = "UPDATE ServiciosSalida SET Nombre = 'Dos' WHERE IdServicio = 1",
     .changed = "Dos",
     .none = ""},
    {.name = "get_Red",
     .path = kConfDb,
     .table = "Red",
     .get = [] { return std::to_string(get_Red(RED_NID)); },
     .value = "1",
     .change = "UPDATE Red SET NID = 2",
     .changed = "2"},
    {.name = "getstr_Red",
     .path = kConfDb,
     .table = "Red",
     .get =
         [] {
             return text_of(
                 [](Buffer& buffer) { getstr_Red(REDS_PROVEEDOR, buffer.data(), kSize); });
         },
     .value = "Proveedor",
     .change = "UPDATE Red SET Proveedor = 'Otro'",
     .changed = "Otro",
     .none = ""},
    {.name = "get_IPOut",
     .path = kConfDb,
     .table = "IPOut",
     .get = [] { return std::to_string(get_IPOut(IPO_VLAN_ID)); },
     .value = "100",
     .change = "UPDATE IPOut SET Vlan_Id = 200",
     .changed = "200"},
    {.name = "getstr_IPOut",
     .path = kConfDb,
     .table = "IPOut",
     .get =
         [] {
             return text_of(
                 [](Buffer& buffer) { getstr_IPOut(IPOS_SAP_USER, buffer.data(), kSize); });
         },
     .value = "cabecera",
     .change = "UPDATE IPOut SET SAP_User = 'otra'",
     .changed = "otra",
     .none = ""},
    {.name = "get_service_state",
     .path = kConfDb,
     .table = "PIDsSalida",
     .get = [] { return std::to_string(get_service_state(ST_TIPO_2, 1)); },
     .value = "0",
     .change = "UPDATE PIDsSalida SET Seleccionado = 2 WHERE fk_idServicio = 1 AND Tipo = 2",
     .changed = "1",
     .none = "-1"},
    {.name = "get_alarmas_estado_valor",
     .path = kTempDb,
     .table = "alarmasEstado",
     .get =
         [] {
             return std::to_string(
                 get_alarmas_estado_valor("estado_bitrate_IP_0", MODO_HEXADECIMAL));
         },
     .value = "8200",
     .change = "UPDATE alarmasEstado SET valor = 'FF' WHERE nombre = 'estado_bitrate_IP_0'",
     .changed = "255"},
    {.name = "get_Bitrate_Nulos",
     .path = kTempDb,
     .table = "Bitrate_Nulos",
     .get = [] { return std::to_string(get_Bitrate_Nulos(BN_SEL_1)); },
     .value = "10",
     .change = "UPDATE Bitrate_Nulos SET Porcentaje = '44'",
     .changed = "44"},
    {.name = "get_EsclavosModulo",
     .path = kConfDb,
     .table = "EsclavosModulo",
     .get = [] { return std::to_string(get_EsclavosModulo(EM_UPGRADE, 1)); },
     .value = "3",
     .change = "UPDATE EsclavosModulo SET Upgrade = 4",
     .changed = "4"},
};

struct Setter {
    const char* name;
    const std::string& path;
    const char* table;
    int (*set)();
    std::vector<std::string> changes;
    int selects = 1;  // that it runs even when none of them finds a row
};

void PrintTo(const Setter& setter, std::ostream* out) {
    *out << setter.name;
}

const Setter kSetters[] = {
    {.name = "set_ConfiguracionGen",
     .path = kConfDb,
     .table = "ConfiguracionGen",
     .set = [] { return set_ConfiguracionGen(CG_ATENUACION, 12); },
     .changes = {"ConfiguracionGen 1 Atenuacion: 10 -> 12"}},
    {.name = "setstr_ConfiguracionGen",
     .path = kConfDb,
     .table = "ConfiguracionGen",
     .set = [] { return setstr_ConfiguracionGen(CGS_COUNTRY, "Italy", 6); },
     .changes = {"ConfiguracionGen 1 Country: 'Spain' -> 'Italy'"}},
    {.name = "set_EntradaAV",
     .path = kConfDb,
     .table = "EntradaAV",
     .set = [] { return set_EntradaAV(EAV_BITRATE, 1, 7100); },
     .changes = {"EntradaAV 1 Bitrate: 6500 -> 7100"}},
    {.name = "set_RFOut",
     .path = kConfDb,
     .table = "RFOut",
     .set = [] { return set_RFOut(RFO_FRECUENCIA, 0, 482000); },
     .changes = {"RFOut 1 Frecuencia: 474000 -> 482000"}},
    {.name = "set_ServiciosSalida",
     .path = kConfDb,
     .table = "ServiciosSalida",
     .set = [] { return set_ServiciosSalida(SS_SID, 1, 202); },
     .changes = {"ServiciosSalida 1 SID: 102 -> 202"}},
    {.name = "setstr_ServiciosSalida",
     .path = kConfDb,
     .table = "ServiciosSalida",
     .set = [] { return setstr_ServiciosSalida(SSS_NOMBRE, 1, "Dos", 4); },
     .changes = {"ServiciosSalida 1 Nombre: 'Canal Dos' -> 'Dos'"}},
    {.name = "set_Red",
     .path = kConfDb,
     .table = "Red",
     .set = [] { return set_Red(RED_NID, 2); },
     .changes = {"Red 1 NID: 1 -> 2"}},
    {.name = "setstr_Red",
     .path = kConfDb,
     .table = "Red",
     .set = [] { return setstr_Red(REDS_PROVEEDOR, "Otro", 5); },
     .changes = {"Red 1 Proveedor: 'Proveedor' -> 'Otro'"}},
    {.name = "set_IPOut",
     .path = kConfDb,
     .table = "IPOut",
     .set = [] { return set_IPOut(IPO_VLAN_ID, 200); },
     .changes = {"IPOut 1 Vlan_Id: 100 -> 200"}},
    {.name = "setstr_IPOut",
     .path = kConfDb,
     .table = "IPOut",
     .set = [] { return setstr_IPOut(IPOS_SAP_USER, "otra", 5); },
     .changes = {"IPOut 1 SAP_User: 'cabecera' -> 'otra'"}},
    {.name = "set_service_state",
     .path = kConfDb,
     .table = "PIDsSalida",
     .set = [] { return set_service_state(ST_TIPO_2, 1, 0); },
     .changes = {"EntradaAV 1 Remux_Av: 0 -> 1", "PIDsSalida 1.2 Seleccionado: 1 -> 2"},
     .selects = 4},
    {.name = "setstr_alarmas_estado_valor",
     .path = kTempDb,
     .table = "alarmasEstado",
     .set = [] { return setstr_alarmas_estado_valor("alarma_in", "0", 2); },
     .changes = {"alarmasEstado alarma_in EstadoPendienteRE: 0 -> 2",
                 "alarmasEstado alarma_in valor: '1' -> '0'"}},
    {.name = "set_EsclavosModulo",
     .path = kConfDb,
     .table = "EsclavosModulo",
     .set = [] { return set_EsclavosModulo(EM_UPGRADE, 1, 4); },
     .changes = {"EsclavosModulo 1 Upgrade: 3 -> 4"}},
    {.name = "setstr_EsclavosModulo",
     .path = kConfDb,
     .table = "EsclavosModulo",
     .set = [] { return setstr_EsclavosModulo(EMS_SERIAL, 1, "S2", 3); },
     .changes = {"EsclavosModulo 1 Serial: 'S1' -> 'S2'"}},
};

// The pauses of so many statements that fail at every attempt.
std::vector<unsigned> pauses_of(std::size_t statements) {
    std::vector<unsigned> pauses;
    for (std::size_t i = 0; i < statements; ++i)
        pauses.insert(pauses.end(), {1, 2, 3});
    return pauses;
}

// Every line is one of those that tell of a failed attempt with SQLite's `message`.
void expect_only_failures(const Printed& printed, const std::string& operation,
                          const std::string& message) {
    EXPECT_EQ(printed.out, "");
    EXPECT_THAT(printed.err, HasSubstr("[ERROR_DB]" + operation + ": " + message + "\n"));
    std::istringstream lines(printed.err);
    for (std::string line; std::getline(lines, line);)
        EXPECT_THAT(line,
                    AnyOf(StartsWith("[ERROR_DB]" + operation + ": "), StartsWith(message + ": ")));
}

// The sample board with a slave. SQLite itself does not wait for locks.
class Board {
  public:
    Board() {
        run_elsewhere(kConfDb,
                      "INSERT INTO EsclavosModulo VALUES (1, 'm', 'h', 'S1', 'o', 'i', 'v', 1, 2, "
                      "3, 4)");
    }

  private:
    OpenBoard board_;
};

class Getters : public testing::TestWithParam<Getter> {
  protected:
    static std::string get() { return GetParam().get(); }
    // As get(), while every select fails.
    static std::string get_failing(const std::string& message) {
        std::string value;
        expect_only_failures(printed_by([&value] { value = get(); }), "doSelect", message);
        EXPECT_EQ(take_pauses(), pauses_of(1));
        return value;
    }

    Board board_;
};

TEST_P(Getters, SeeAtOnceWhatAnotherProcessWrote) {
    EXPECT_EQ(get(), GetParam().value);
    run_elsewhere(GetParam().path, GetParam().change);
    EXPECT_EQ(get(), GetParam().changed);
}

TEST_P(Getters, GiveUpOnALockedDatabaseAfterThreeAttempts) {
    ForeignLock lock(GetParam().path);
    EXPECT_EQ(get_failing("database is locked"), GetParam().none);
    lock.release();
    EXPECT_EQ(get(), GetParam().value);
}

TEST_P(Getters, SucceedWhenTheLockGoesBetweenTwoAttempts) {
    ForeignLock lock(GetParam().path);
    during_pauses([&lock, pauses = 0]() mutable {
        if (++pauses == 2)
            lock.release();
    });
    std::string value;
    printed_by([&value] { value = get(); });
    EXPECT_EQ(value, GetParam().value);
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2));
}

TEST_P(Getters, GiveNothingWithoutTheirTable) {
    const std::string table = GetParam().table;
    run_elsewhere(GetParam().path, "ALTER TABLE " + table + " RENAME TO elsewhere");
    EXPECT_EQ(get_failing("no such table: " + table), GetParam().none);
    run_elsewhere(GetParam().path, "ALTER TABLE elsewhere RENAME TO " + table);
    EXPECT_EQ(get(), GetParam().value);
}

TEST_P(Getters, GiveNothingFromASpoiltFile) {
    EXPECT_EQ(get(), GetParam().value);
    const std::string original = read_file(GetParam().path);
    write_file(GetParam().path, std::string(original.size(), '?'));
    EXPECT_EQ(get_failing("file is not a database"), GetParam().none);
    write_file(GetParam().path, original);
    EXPECT_EQ(get(), GetParam().value);
}

TEST_P(Getters, GiveNothingFromAnEmptyFile) {
    write_file(GetParam().path, "");
    EXPECT_EQ(get_failing("no such table: " + std::string(GetParam().table)), GetParam().none);
}

INSTANTIATE_TEST_SUITE_P(Accessors, Getters, testing::ValuesIn(kGetters));

class Setters : public testing::TestWithParam<Setter> {
  protected:
    static void expect_success() {
        const Contents before = contents();
        EXPECT_EQ(printed_by([] { EXPECT_EQ(GetParam().set(), 0); }), Printed());
        EXPECT_EQ(changes(before, contents()), GetParam().changes);
    }

    // All rows are found, and no update is possible.
    static void expect_unnoticed_failure(const std::string& message) {
        const Contents before = contents();
        expect_only_failures(printed_by([] { EXPECT_EQ(GetParam().set(), 0); }), "update", message);
        // The two changes of one row are one statement.
        const bool two_rows = std::string(GetParam().name) == "set_service_state";
        EXPECT_EQ(take_pauses(), pauses_of(two_rows ? 2 : 1));
        EXPECT_THAT(changes(before, contents()), IsEmpty());
    }

    // No row can be read.
    static void expect_failure(const std::string& message) {
        expect_only_failures(printed_by([] { EXPECT_EQ(GetParam().set(), -1); }), "doSelect",
                             message);
    }

    Board board_;
};

TEST_P(Setters, Succeed) {
    expect_success();
}

TEST_P(Setters, GiveUpOnALockedDatabaseAfterThreeAttempts) {
    const Contents before = contents();
    ForeignLock lock(GetParam().path);
    expect_failure("database is locked");
    EXPECT_EQ(take_pauses(), pauses_of(static_cast<std::size_t>(GetParam().selects)));
    lock.release();
    EXPECT_THAT(changes(before, contents()), IsEmpty());
    expect_success();
}

TEST_P(Setters, SucceedWhenTheLockGoesBetweenTwoAttempts) {
    const Contents before = contents();
    ForeignLock lock(GetParam().path);
    during_pauses([&lock, pauses = 0]() mutable {
        if (++pauses == 2)
            lock.release();
    });
    printed_by([] { EXPECT_EQ(GetParam().set(), 0); });
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2));
    EXPECT_EQ(changes(before, contents()), GetParam().changes);
}

TEST_P(Setters, WriteWhatTheyReadAfterTheLockWent) {
    // The other process changes the very row while it has the lock.
    const std::string table = GetParam().table;
    const Database other(GetParam().path);
    other.run("BEGIN EXCLUSIVE; DELETE FROM " + table);
    during_pauses([&other, pauses = 0]() mutable {
        if (++pauses == 1)
            other.run("COMMIT");
    });
    printed_by([] { EXPECT_EQ(GetParam().set(), -1); });
    EXPECT_THAT(take_pauses(), ElementsAre(1));
}

// Another process that is about to write lets others read, but not write.
TEST_P(Setters, SucceedAlsoWhenAnotherWriterKeepsThemFromWriting) {
    const Database other(GetParam().path);
    other.run("BEGIN IMMEDIATE");
    expect_unnoticed_failure("database is locked");
    other.run("ROLLBACK");
    expect_success();
}

TEST_P(Setters, WriteWhenTheOtherWriterIsDoneBetweenTwoAttempts) {
    const Contents before = contents();
    const Database other(GetParam().path);
    other.run("BEGIN IMMEDIATE");
    during_pauses([&other, pauses = 0]() mutable {
        if (++pauses == 2)
            other.run("ROLLBACK");
    });
    printed_by([] { EXPECT_EQ(GetParam().set(), 0); });
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2));
    EXPECT_EQ(changes(before, contents()), GetParam().changes);
}

TEST_P(Setters, SucceedAlsoWhenTheTableRefusesTheUpdate) {
    std::vector<std::string> tables = {GetParam().table};
    if (tables[0] == "PIDsSalida")
        tables.emplace_back("EntradaAV");
    for (const std::string& table : tables)
        run_elsewhere(GetParam().path, "CREATE TRIGGER refuse_" + table + " BEFORE UPDATE ON " +
                                           table + " BEGIN SELECT RAISE(ABORT, 'refused'); END");
    expect_unnoticed_failure("refused");
    for (const std::string& table : tables)
        run_elsewhere(GetParam().path, "DROP TRIGGER refuse_" + table);
    expect_success();
}

TEST_P(Setters, SucceedAlsoOnAFileThatCannotBeWritten) {
    sqlite3*& database = GetParam().path == kConfDb ? ConfDB : TempDB;
    sqlite3_close(database);
    chmod(GetParam().path.c_str(), S_IRUSR);
    ASSERT_EQ(sqlite3_open(GetParam().path.c_str(), &database), SQLITE_OK);
    expect_unnoticed_failure("attempt to write a readonly database");
    chmod(GetParam().path.c_str(), S_IRUSR | S_IWUSR);
    sqlite3_close(database);
    ASSERT_EQ(sqlite3_open(GetParam().path.c_str(), &database), SQLITE_OK);
    expect_success();
}

TEST_P(Setters, FailWithoutTheirTable) {
    const std::string table = GetParam().table;
    run_elsewhere(GetParam().path, "ALTER TABLE " + table + " RENAME TO elsewhere");
    expect_failure("no such table: " + table);
    run_elsewhere(GetParam().path, "ALTER TABLE elsewhere RENAME TO " + table);
}

TEST_P(Setters, FailOnASpoiltFileAndLeaveItAsItIs) {
    const std::string original = read_file(GetParam().path);
    const std::string spoilt(original.size(), '?');
    write_file(GetParam().path, spoilt);
    expect_failure("file is not a database");
    EXPECT_EQ(read_file(GetParam().path), spoilt);
    write_file(GetParam().path, original);
    expect_success();
}

INSTANTIATE_TEST_SUITE_P(Accessors, Setters, testing::ValuesIn(kSetters));

}  // namespace
