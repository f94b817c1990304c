// `db check`: the sample board, and every kind of damage to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/wait.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

class DatabaseCheck : public testing::Test {
  protected:
    DatabaseCheck() { make_board(); }

    static std::string rows_of_states() {
        return Database(kTempDb).value("SELECT count(*) FROM alarmasEstado");
    }
    static ProgramRun check() { return run_zondarctl({"db", "check", kConfDb, kTempDb}); }
    static ProgramRun check_all() {
        return run_zondarctl({"db", "check", kConfDb, kTempDb, "--all"});
    }
};

TEST_F(DatabaseCheck, FitsAScreenForSoundFiles) {
    const ProgramRun run = check();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "/quelt/db/config_local.sqlite\n"
              "ConfiguracionGen: 1 row\n"
              "EntradaAV: 2 rows\n"
              "RFOut: 1 row\n"
              "ServiciosSalida: 2 rows\n"
              "PIDsSalida: 4 rows\n"
              "Red: 1 row\n"
              "IPOut: 1 row\n"
              "EsclavosModulo: 0 rows\n"
              "/quelt/db/temp_local.sqlite\n"
              "alarmasEstado: " +
                  rows_of_states() +
                  " rows\n"
                  "Bitrate_Nulos: 1 row\n"
                  "sound: both databases are what the daemon reads\n");
}

TEST_F(DatabaseCheck, ShowsPeopleTheRows) {
    const ProgramRun run = check_all();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(
        run.out.starts_with("/quelt/db/config_local.sqlite\n"
                            "ConfiguracionGen: 1 row\n"
                            "  -  IdConfiguracion              1\n"
                            "     Identificacion_Equipo        Cabecera 1\n"
                            "     Identificacion_Localizacion  Sala tecnica\n"))
        << run.out;
    EXPECT_THAT(run.out, HasSubstr("Red: 1 row\n"
                                   "  -  idRed              1\n"
                                   "     NID                1\n"
                                   "     NetworkName        Red Local\n"
                                   "     TSID_Out           21\n"
                                   "     ONID_Out           8916\n"
                                   "     LCN_Mode           1\n"
                                   "     Insertar_TDT       1\n"
                                   "     NIT_Patron         0\n"
                                   "     NIT_File\n"
                                   "     Proveedor          Proveedor\n"
                                   "     EstadoPendienteWR  0\n"
                                   "IPOut: 1 row\n"));
    EXPECT_THAT(run.out, HasSubstr("EsclavosModulo: 0 rows\n"
                                   "/quelt/db/temp_local.sqlite\n"
                                   "alarmasEstado: " +
                                   rows_of_states() +
                                   " rows\n"
                                   "  -  idalarmasEstado    1\n"
                                   "     nombre             alarma_hw\n"
                                   "     valor              0\n"
                                   "     EstadoPendienteWR  0\n"
                                   "     EstadoPendienteRE  0\n"
                                   "  -  idalarmasEstado    2\n"));
    EXPECT_THAT(run.out, HasSubstr("     Nivel            -5\n"
                                   "     Fecha            2024-02-03 09:05:00\n"
                                   "sound: both databases are what the daemon reads\n"));
}

TEST_F(DatabaseCheck, ShowsScriptsTheRows) {
    const Json answer = json_of({"db", "check", kConfDb, kTempDb});
    EXPECT_EQ(answer["command"], "db check");
    EXPECT_EQ(answer["target"], nullptr);
    const Json& databases = answer["data"]["databases"];
    EXPECT_EQ(answer["data"]["faults"], 0);
    ASSERT_EQ(databases.size(), 2);
    std::vector<std::string> tables;
    for (const Json& database : databases) {
        EXPECT_EQ(database["problems"], Json::array());
        for (const Json& table : database["tables"]) {
            tables.push_back(table["name"].get<std::string>() + " " +
                             std::to_string(table["rows"].size()));
            EXPECT_EQ(table["problems"], Json::array());
        }
    }
    EXPECT_EQ(databases[0]["path"], kConfDb);
    EXPECT_EQ(databases[1]["path"], kTempDb);
    EXPECT_THAT(tables, testing::ElementsAre(
                            "ConfiguracionGen 1", "EntradaAV 2", "RFOut 1", "ServiciosSalida 2",
                            "PIDsSalida 4", "Red 1", "IPOut 1", "EsclavosModulo 0",
                            "alarmasEstado " + rows_of_states(), "Bitrate_Nulos 1"));
    EXPECT_EQ(databases[0]["tables"][4]["rows"][3], Json::parse(R"({
        "idPID": "4", "PID": "513", "SID": "102", "Tipo": "2", "fk_idServicio": "1",
        "NumEntrada": "1", "Bitrate": "192", "Seleccionado": "1", "EstadoPendienteWR": "0"})"));
    EXPECT_EQ(databases[1]["tables"][1]["rows"][0], Json::parse(R"({
        "idBitrate_Nulos": "1", "Porcentaje": "10", "Canal_2": "6500", "Total": "20000",
        "Canal_1": "8000", "Nivel": "-5", "Fecha": "2024-02-03 09:05:00"})"));
}

TEST_F(DatabaseCheck, ShowsTextsOfAnyKind) {
    Database(kConfDb).run(
        "UPDATE Red SET NetworkName = CAST(x'45737061F161' AS TEXT), NIT_File = NULL, "
        "Proveedor = 'uno' || char(27) || 'dos'");
    const ProgramRun run = check_all();
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("     NetworkName        Espa\\xF1a\n"));
    EXPECT_THAT(run.out, HasSubstr("     NIT_File           NULL\n"
                                   "     Proveedor          uno\\x1Bdos\n"));
    const Json row =
        json_of({"db", "check", kConfDb, kTempDb})["data"]["databases"][0]["tables"][5]["rows"][0];
    EXPECT_EQ(row["NetworkName"],
              "Espa\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(row["NetworkName_hex"], "45 73 70 61 F1 61");
    EXPECT_EQ(row["NIT_File"], nullptr);
    EXPECT_EQ(row["Proveedor"],
              "uno\x1B"
              "dos");
    EXPECT_FALSE(row.contains("Proveedor_hex"));
}

// The inode with its times, and the bytes.
struct FileState {
    explicit FileState(const std::string& path) : bytes(read_file(path)) {
        stat(path.c_str(), &inode);
    }
    bool operator==(const FileState& other) const {
        const auto same = [](const timespec& a, const timespec& b) {
            return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
        };
        return bytes == other.bytes && inode.st_ino == other.inode.st_ino &&
               same(inode.st_mtim, other.inode.st_mtim) && same(inode.st_ctim, other.inode.st_ctim);
    }

    std::string bytes;
    struct stat inode {};
};

TEST_F(DatabaseCheck, LooksOnly) {
    namespace fs = std::filesystem;
    for (const std::string& path : {kConfDb, kTempDb})
        fs::permissions(path, fs::perms::owner_read);
    fs::permissions("/quelt/db", fs::perms::owner_read | fs::perms::owner_exec);
    const FileState conf(kConfDb);
    const FileState temp(kTempDb);
    const ProgramRun run = check();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(FileState(kConfDb) == conf);
    EXPECT_TRUE(FileState(kTempDb) == temp);
    EXPECT_EQ(std::distance(fs::directory_iterator("/quelt/db"), fs::directory_iterator()), 2);
}

// Whoever wrote last was killed: the next one who writes takes that back, not who looks.
TEST_F(DatabaseCheck, LeavesAnInterruptedWriteToOthers) {
    const std::string journal = kConfDb + "-journal";
    run_program({"/usr/bin/strace", "-o", "/dev/null", "-e", "trace=unlink", "-e",
                 "inject=unlink:signal=KILL", "sqlite3", kConfDb, "UPDATE Red SET NID = 7"});
    const FileState conf(kConfDb);
    const std::string before = read_file(journal);
    ASSERT_NE(before, "");
    const ProgramRun run = check();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "zondarctl: /quelt/db/config_local.sqlite: attempt to write a readonly database\n");
    EXPECT_TRUE(FileState(kConfDb) == conf);
    EXPECT_TRUE(read_file(journal) == before);
}

struct Damage {
    const char* name;
    bool conf;  // the database that the SQL goes to
    const char* sql;
    const char* problem;
};

// A copy of a table in which its first column has another declaration.
#define WITH_KEY(table, declaration, columns)                                                 \
    "CREATE TABLE copy (" declaration ", " columns "); INSERT INTO copy SELECT * FROM " table \
    "; DROP TABLE " table "; ALTER TABLE copy RENAME TO " table

const Damage kDamages[] = {
    {"a table missing", true, "DROP TABLE IPOut", "IPOut: there is no such table"},
    {"the other database's table", false, "DROP TABLE Bitrate_Nulos",
     "Bitrate_Nulos: there is no such table"},
    {"a column missing", true, "ALTER TABLE Red DROP COLUMN EstadoPendienteWR",
     "Red: 10 columns instead of 11"},
    {"a column missing in the middle", true, "ALTER TABLE Red DROP COLUMN NIT_Patron",
     "Red: 10 columns instead of 11"},
    {"a column too many", true, "ALTER TABLE PIDsSalida ADD COLUMN Nueva INTEGER",
     "PIDsSalida: 10 columns instead of 9"},
    {"a column renamed", true, "ALTER TABLE RFOut RENAME COLUMN Canal_Salida TO Canal",
     "RFOut: column 15 is Canal, and is read as Canal_Salida"},
    {"another order", false,
     WITH_KEY("alarmasEstado", "idalarmasEstado INTEGER PRIMARY KEY",
              "valor, nombre, EstadoPendienteWR, EstadoPendienteRE"),
     "alarmasEstado: column 2 is valor, and is read as nombre"},
    {"a key without a type", true,
     WITH_KEY("EsclavosModulo", "IdEsclavosModulo",
              "MAC, Hostname, Serial, Modelo, IP, SWVersion, Estado, Reset_Factory, Upgrade, "
              "Master"),
     "EsclavosModulo: the key IdEsclavosModulo has no type, so no row is found by it"},
    {"a row missing", true, "DELETE FROM EntradaAV WHERE IdEntradaAV = 1",
     "EntradaAV: 0 rows WHERE IdEntradaAV='1' instead of 1"},
    {"a stream missing", true,
     "UPDATE PIDsSalida SET Tipo = 3 WHERE fk_idServicio = 1 AND Tipo = 2",
     "PIDsSalida: 0 rows WHERE fk_idServicio='1' AND Tipo='2' instead of 1"},
    {"an alarm missing", false, "UPDATE alarmasEstado SET nombre = 'x' WHERE nombre = 'alarma_ip'",
     "alarmasEstado: 0 rows WHERE nombre='alarma_ip' instead of 1"},
    {"a state twice", false,
     "UPDATE alarmasEstado SET nombre = 'estado_player' WHERE nombre = 'estado_sync'",
     "alarmasEstado: 0 rows WHERE nombre='estado_sync' instead of 1"},
    {"a table of one row empty", true, "DELETE FROM ConfiguracionGen",
     "ConfiguracionGen: 0 rows instead of 1"},
    {"two rows instead of one", true, "INSERT INTO Red (NID) VALUES (2)",
     "Red: 2 rows instead of 1"},
    {"two rows of figures", false, "INSERT INTO Bitrate_Nulos SELECT * FROM Bitrate_Nulos",
     "Bitrate_Nulos: 2 rows instead of 1"},
    {"the first of two that are damaged", true, "DROP TABLE Red; DROP TABLE RFOut",
     "RFOut: there is no such table"},
};
#undef WITH_KEY

TEST_F(DatabaseCheck, TellsWhatIsWrongWithATable) {
    for (const Damage& damage : kDamages) {
        SCOPED_TRACE(damage.name);
        make_board();
        Database(damage.conf ? kConfDb : kTempDb).run(damage.sql);
        const ProgramRun run = check();
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, std::string("zondarctl: ") + damage.problem + "\n");
        const std::string problem = damage.problem;
        EXPECT_THAT(run.out, HasSubstr("\n  " + problem.substr(problem.find(": ") + 2) + "\n"));
        EXPECT_THAT(lines_of(run.out).back(), MatchesRegex(std::string("[1-9][0-9]* faults? in ") +
                                                           (damage.conf ? kConfDb : kTempDb)));
    }
}

TEST_F(DatabaseCheck, CountsTheFaultsOfBothFiles) {
    Database(kConfDb).run("DROP TABLE RFOut; DROP TABLE IPOut");
    EXPECT_EQ(lines_of(check().out).back(), "2 faults in " + kConfDb);
    Database(kTempDb).run("DROP TABLE Bitrate_Nulos");
    EXPECT_EQ(lines_of(check().out).back(), "3 faults in " + kConfDb + " and " + kTempDb);
    EXPECT_EQ(lines_of(check_all().out).back(), "3 faults in " + kConfDb + " and " + kTempDb);
    make_board();
    write_file(kTempDb, std::string(5000, 'x'));
    EXPECT_EQ(lines_of(check().out).back(), "1 fault in " + kTempDb);
}

TEST_F(DatabaseCheck, TellsScriptsAllThatIsWrong) {
    Database(kConfDb).run(
        "DROP TABLE IPOut; ALTER TABLE RFOut RENAME COLUMN Canal_Salida TO Canal; "
        "INSERT INTO RFOut (idRFOut) VALUES (7); ALTER TABLE Red DROP COLUMN Proveedor");
    const Json answer = json_of({"db", "check", kConfDb, kTempDb}, 1);
    EXPECT_EQ(answer["error"], Json::parse(R"({"stage": "database", "message":
        "RFOut: column 15 is Canal, and is read as Canal_Salida"})"));
    const Json& tables = answer["data"]["databases"][0]["tables"];
    EXPECT_EQ(answer["data"]["faults"], 4);
    EXPECT_EQ(tables[2]["problems"], Json::parse(R"([
        "column 15 is Canal, and is read as Canal_Salida"])"));
    EXPECT_EQ(tables[2]["rows"].size(), 2);
    EXPECT_EQ(tables[5]["problems"], Json::parse(R"(["10 columns instead of 11",
        "column 10 is EstadoPendienteWR, and is read as Proveedor"])"));
    EXPECT_EQ(tables[6]["problems"], Json::parse(R"(["there is no such table"])"));
    EXPECT_EQ(tables[6]["rows"], Json::array());
}

// The daemon reads this one table by position alone.
TEST_F(DatabaseCheck, TakesAnyNamesInTheTableOfFigures) {
    Database(kTempDb).run("ALTER TABLE Bitrate_Nulos RENAME COLUMN Nivel TO Level");
    const ProgramRun run = check();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
}

// Upper and lower case are the same to the daemon's statements.
TEST_F(DatabaseCheck, TakesNamesOfEitherCase) {
    Database(kConfDb).run("ALTER TABLE Red RENAME COLUMN Proveedor TO PROVEEDOR");
    EXPECT_EQ(check().status, 0);
}

struct BadFile {
    const char* name;
    std::function<void()> spoil;  // config_local.sqlite
    int status;
    const char* error;  // a regular expression
};

void spoil_byte(std::size_t offset, std::uint8_t byte) {
    std::string bytes = read_file(kConfDb);
    bytes.at(offset) = static_cast<char>(byte);
    write_file(kConfDb, bytes);
}

const BadFile kBadFiles[] = {
    {"no file", [] { std::filesystem::remove(kConfDb); }, 2,
     "/quelt/db/config_local.sqlite: unable to open database file"},
    {"a folder",
     [] {
         std::filesystem::remove(kConfDb);
         std::filesystem::create_directory(kConfDb);
     },
     2, "/quelt/db/config_local.sqlite: .+"},
    {"not to be read", [] { std::filesystem::permissions(kConfDb, std::filesystem::perms::none); },
     2, "/quelt/db/config_local.sqlite: unable to open database file"},
    {"no database", [] { write_file(kConfDb, std::string(5000, 'x')); }, 1,
     "/quelt/db/config_local.sqlite: file is not a database"},
    {"an empty file", [] { write_file(kConfDb, ""); }, 1,
     "ConfiguracionGen: there is no such table"},
    {"cut", [] { write_file(kConfDb, read_file(kConfDb).substr(0, 20000)); }, 1,
     "/quelt/db/config_local.sqlite: .*malformed.*"},
    {"cut in its first page", [] { write_file(kConfDb, read_file(kConfDb).substr(0, 1000)); }, 1,
     "/quelt/db/config_local.sqlite: .+"},
    {"a byte of its header", [] { spoil_byte(0, 'X'); }, 1,
     "/quelt/db/config_local.sqlite: file is not a database"},
    {"a byte of its second page", [] { spoil_byte(4096, 0xFF); }, 1,
     "/quelt/db/config_local.sqlite: .+"},
    // The number of cells of the page.
    {"a byte that leaves the page readable", [] { spoil_byte(4096 + 4, 0); }, 1,
     "/quelt/db/config_local.sqlite: .+"},
    {"the other one",
     [] {
         std::filesystem::copy_file(kTempDb, kConfDb,
                                    std::filesystem::copy_options::overwrite_existing);
     },
     1, "ConfiguracionGen: there is no such table"},
};

TEST_F(DatabaseCheck, TellsWhatIsWrongWithAFile) {
    for (const BadFile& each : kBadFiles) {
        SCOPED_TRACE(each.name);
        std::filesystem::remove_all("/quelt/db");
        make_board();
        each.spoil();
        const ProgramRun run = check();
        EXPECT_EQ(run.status, each.status);
        EXPECT_THAT(run.err, MatchesRegex(std::string("zondarctl: ") + each.error + "\n"));
        EXPECT_EQ(std::ranges::count(run.err, '\n'), 1);
        const Json answer = json_of({"db", "check", kConfDb, kTempDb}, each.status);
        EXPECT_EQ(answer["error"]["stage"], each.status == 2 ? "usage" : "database");
    }
}

TEST_F(DatabaseCheck, TellsTheTwoFilesApart) {
    const ProgramRun run = run_zondarctl({"db", "check", kTempDb, kConfDb});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zondarctl: ConfiguracionGen: there is no such table\n");
    EXPECT_THAT(run.out, HasSubstr("alarmasEstado: 0 rows\n  there is no such table\n"));
}

TEST_F(DatabaseCheck, ReadsBesideAnotherReader) {
    const Database other(kConfDb);
    other.run("BEGIN; SELECT * FROM Red");
    EXPECT_EQ(check().status, 0);
}

// Under strace, which writes down its pauses. The leak check does not work there.
std::vector<std::string> check_under_strace(const std::vector<std::string>& options) {
    std::vector<std::string> words = {
        "/usr/bin/env", "ASAN_OPTIONS=detect_leaks=0",    "strace", "-f", "-o", "/tmp/pauses",
        "-e",           "trace=clock_nanosleep,nanosleep"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {zondarctl_path(), "db", "check", kConfDb, kTempDb});
    return words;
}

bool has_paused() {
    return read_file("/tmp/pauses").find("nanosleep") != std::string::npos;
}

// The pauses are skipped, so what it waits between its attempts takes no time here.
TEST_F(DatabaseCheck, GivesUpOnALockedDatabase) {
    const ForeignLock lock(kTempDb);
    const ProgramRun run =
        run_program(check_under_strace({"-e", "inject=clock_nanosleep,nanosleep:retval=0"}));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zondarctl: /quelt/db/temp_local.sqlite: database is locked\n");
    EXPECT_THAT(run.out, HasSubstr("/quelt/db/temp_local.sqlite\ndatabase is locked\n"));
    EXPECT_THAT(run.out, HasSubstr("Red: 1 row\n")) << "the other one is told all the same";
    EXPECT_TRUE(has_paused());
}

TEST_F(DatabaseCheck, WaitsForALockThatIsReleased) {
    ForeignLock lock(kConfDb);
    const ProgramRun run = run_program(check_under_strace({}), "", [&lock](int) {
        EXPECT_TRUE(eventually(has_paused));
        lock.release();
    });
    EXPECT_EQ(run.status, 0) << run.err;
}

}  // namespace
