// The status request to the real daemon: whole frames, and what the board's other processes do to
// its databases while it is served.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <filesystem>
#include <memory>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/syslog_reader.h"
#include "tests/support/traced_daemon.h"
#include "tests/support/wait.h"

namespace fs = std::filesystem;

namespace {

using testing::AnyOf;
using testing::ElementsAre;

const std::string kSampleBoard = document::answer(frame(0));
const Bytes kSampleInfo = info_of(hex(kSampleBoard), 0);

// The sample board's answer, but for these places.
std::string answer_with(const std::vector<document::Part>& parts, Bytes info = kSampleInfo) {
    document::put(parts, "Status", info);
    return to_hex(frame(0, info));
}

const std::string kSampleBoard2 = to_hex(frame(2, kSampleInfo));

std::string status() {
    return to_hex(exchange(frame(0)));
}

class Status : public testing::Test {
  protected:
    Status() { make_board(); }
};

struct Form {
    const char* name;
    Bytes request;
    std::string answer;
};

const Form kForms[] = {
    {"status", frame(0), kSampleBoard},
    {"alarms", frame(2), kSampleBoard2},
    // not copied into the answer
    {"header bytes", hex("A5 00 01 02 03 00 FA"), kSampleBoard},
    // not looked at
    {"info", frame(0, "02 01"), kSampleBoard},
    {"alarms, info", frame(2, "FF"), kSampleBoard2},
    // The answer is in normal mode.
    {"CRC8 mode", frame(0x80), kSampleBoard},
    {"CRC8 mode, alarms", frame(0x82), kSampleBoard2},
    {"CRC8 mode, info", frame(0x80, "02 01"), kSampleBoard},
};

TEST_F(Status, OfTheSampleBoardByteByByte) {
    const Daemon daemon;
    for (const Form& form : kForms) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(to_hex(exchange(form.request)), form.answer);
    }
    EXPECT_EQ(daemon.err(), "");
}

struct Change {
    const char* name;
    std::string path;
    const char* sql;
    std::vector<document::Part> answer;  // what differs from the one before
};

// By another process, each on top of the ones before it.
const Change kChanges[] = {
    // hardware, inputs, IP: bits 0, 1 and 5
    {"alarms",
     kTempDb,
     "UPDATE alarmasEstado SET valor='1' WHERE nombre IN ('alarma_hw', 'alarma_ip')",
     {{"alarma_hw", {0x23}}}},
    // level 300, which is 256 + 2C; total 10000, half of it 1388 hexadecimal, 9000 * 188 / 204000
    // is 8
    {"null-packet figures",
     kTempDb,
     "UPDATE Bitrate_Nulos SET Nivel='300', Total='10000'",
     {{"null_level", {0x2C}}, {"multiplex_1", hex("A0 88 B2 00 08 00 00 00 00 00 00")}}},
    // two streams, 2008 and 1A2C, and their sum
    {"output mode",
     kConfDb,
     "UPDATE ConfiguracionGen SET Modo_Salida=1",
     {{"multiplex_1", hex("00 00 00 00 00 3A 34 20 08 1A 2C")}}},
    // one stream
    {"input mode",
     kConfDb,
     "UPDATE ConfiguracionGen SET Modo_Entrada=10",
     {{"multiplex_1", hex("00 00 00 00 00 20 08 20 08 00 00")}}},
    // 2008 + 6000, which is 1770 hexadecimal
    {"player",
     kTempDb,
     "UPDATE alarmasEstado SET valor='1' WHERE nombre='estado_player'",
     {{"multiplex_1", hex("00 00 00 00 00 37 78 20 08 17 70")}, {"player", {1}}}},
    // nine characters count as 0
    {"too long a value",
     kTempDb,
     "UPDATE alarmasEstado SET valor='012100000' WHERE nombre='estado_entradaAV_hdmi'",
     {{"hdmi_1", {0}}, {"hdmi_2", {0}}}},
    // start bytes, of which each is doubled; the length stays
    {"start bytes",
     kTempDb,
     "UPDATE alarmasEstado SET valor='A5A500A5' WHERE nombre LIKE 'estado_entradaAV_%'",
     {{"input_sync", {3}},
      {"tv_system_1", {0xA5}},
      {"tv_system_2", {0xA5}},
      {"hdmi_1", {0xA5}},
      {"hdsdi_1", {0xA5}},
      {"hdmi_2", {0xA5}},
      {"hdsdi_2", {0xA5}}}},
};

TEST_F(Status, HoldsWhatAnotherProcessHasJustWritten) {
    const Daemon daemon;
    EXPECT_EQ(status(), kSampleBoard);
    Bytes info = kSampleInfo;
    for (const Change& change : kChanges) {
        SCOPED_TRACE(change.name);
        run_elsewhere(change.path, change.sql);
        document::put(change.answer, "Status", info);
        EXPECT_EQ(status(), to_hex(frame(0, info)));
    }
    EXPECT_EQ(daemon.err(), "");
}

// Locks of other processes

// The board sends one IP stream, whose layout is not the one without a configuration.
constexpr char kOneStreamSql[] = "UPDATE ConfiguracionGen SET Modo_Salida=1, Modo_Entrada=10";
const std::string kOneStream =
    answer_with({{"multiplex_1", hex("00 00 00 00 00 20 08 20 08 00 00")}});

// How often the main thread of a process has gone to wait for something.
long waits_of(pid_t process) {
    std::istringstream status(read_file("/proc/" + std::to_string(process) + "/status"));
    const std::string key = "voluntary_ctxt_switches:";
    for (std::string word; status >> word;) {
        long waits = 0;
        if (word == key && status >> waits)
            return waits;
    }
    return -1;
}

class StatusOfALocked : public Status, public testing::WithParamInterface<std::string> {};

// SQLite waits for the other process, so nobody notices: neither the master nor the error stream.
TEST_P(StatusOfALocked, DatabaseWaitsForTheOtherProcess) {
    run_elsewhere(kConfDb, kOneStreamSql);
    const SyslogReader log;
    const Daemon daemon({.options = {"-l", "64", "-s", "5"}});
    for (int request = 1; request <= 3; ++request) {
        SCOPED_TRACE(request);
        ForeignLock lock(GetParam());
        send_request(frame(0));
        ASSERT_TRUE(log.wait_for("CMD: Peticion de estado o alarmas", request));
        const long before = waits_of(daemon.pid());
        ASSERT_GE(before, 0);
        // SQLite waits in many short steps.
        ASSERT_TRUE(eventually([&] { return waits_of(daemon.pid()) >= before + 5; }));
        EXPECT_EQ(log.count("Response to received frame:"), request - 1);
        lock.release();
        EXPECT_EQ(to_hex(collect_answer()), kOneStream);
        EXPECT_EQ(daemon.err(), "");
    }
}

INSTANTIATE_TEST_SUITE_P(, StatusOfALocked, testing::Values(kConfDb, kTempDb),
                         [](const auto& test) {
                             return test.param == kConfDb ? "Configuration" : "State";
                         });

// The pauses that the main thread would have made, in milliseconds. Those below a second, which are
// SQLite's, are added up as far as they follow each other.
std::vector<long> pauses() {
    static const std::regex kPause("tv_sec=([0-9]+), tv_nsec=([0-9]+)");
    std::vector<long> pauses = {0};
    std::istringstream calls(TracedDaemon::calls());
    for (std::string call; std::getline(calls, call);) {
        std::smatch pause;
        if (!std::regex_search(call, pause, kPause))
            continue;
        const long seconds = std::stol(pause[1]);
        if (seconds == 0)
            pauses.back() += std::stol(pause[2]) / 1'000'000;
        else
            pauses.insert(pauses.end(), {1000 * seconds, 0});
    }
    return pauses;
}

// SQLite gives the other process five seconds, and each of the three attempts is followed by a
// pause: 21 seconds at most for a statement.
TEST_P(StatusOfALocked, DatabaseIsTriedThreeTimesForFiveSecondsEach) {
    const TracedDaemon daemon(without_pauses());
    {
        const ForeignLock lock(GetParam());
        status();
    }
    const std::vector<long> made = pauses();
    ASSERT_GE(made.size(), 7U);
    for (std::size_t i = 0; i + 6 < made.size(); i += 6) {
        SCOPED_TRACE(i);
        const std::vector<long> of_a_statement(made.begin() + static_cast<std::ptrdiff_t>(i),
                                               made.begin() + static_cast<std::ptrdiff_t>(i) + 6);
        EXPECT_THAT(of_a_statement, ElementsAre(5000, 1000, 5000, 2000, 5000, 3000));
    }
}

// Databases that cannot be read

// Does harm for the length of its life.
using Harm = std::shared_ptr<void>;

class OtherContent {
  public:
    OtherContent(std::string path, const std::string& content)
        : path_(std::move(path)), before_(read_file(path_)) {
        write_file(path_, content);
    }
    // SQLite may hold on to what it saw of a file until somebody writes to it.
    ~OtherContent() {
        write_file(path_, before_);
        run_elsewhere(path_, "VACUUM");
    }
    OtherContent(const OtherContent&) = delete;
    OtherContent& operator=(const OtherContent&) = delete;

  private:
    std::string path_;  // the file itself stays, so that it is still the one the daemon has open
    std::string before_;
};

class HiddenTable {
  public:
    HiddenTable(std::string path, std::string table)
        : path_(std::move(path)), table_(std::move(table)) {
        run_elsewhere(path_, "ALTER TABLE " + table_ + " RENAME TO hidden");
    }
    ~HiddenTable() { run_elsewhere(path_, "ALTER TABLE hidden RENAME TO " + table_); }
    HiddenTable(const HiddenTable&) = delete;
    HiddenTable& operator=(const HiddenTable&) = delete;

  private:
    std::string path_;
    std::string table_;
};

// Garbage from a place on, up to the length of the file.
Harm garbage(const std::string& path, std::size_t from) {
    constexpr std::size_t kChangeCounter = 24;
    std::string content = read_file(path);
    ++content[kChangeCounter];
    for (std::size_t i = from; i < content.size(); ++i)
        content[i] = "garbage "[i % 8];
    return std::make_shared<OtherContent>(path, content);
}

constexpr std::size_t kPageSize = 4096;

struct Unreadable {
    const char* name;
    Harm (*harm)();
    const char* tables;   // that cannot be read, as a regular expression
    const char* message;  // SQLite's
    std::string answer;
};

constexpr char kStateTables[] = "alarmasEstado|Bitrate_Nulos";
constexpr char kAllTables[] = "alarmasEstado|Bitrate_Nulos|ConfiguracionGen";

const document::Part kFirst = {"3, the first", {3}};
const document::Part kSecond = {"3, the second", {3}};
const std::string kNothing = answer_with({kFirst, kSecond}, Bytes(kSampleInfo.size()));
const std::string kNoStates =
    answer_with({kFirst, kSecond, {"null_level", {0x85}}}, Bytes(kSampleInfo.size()));
const std::string kNoLevel =
    answer_with({{"null_level", {0}}, {"multiplex_1", hex("00 00 00 00 00 20 08 20 08 00 00")}});

// The board sends one IP stream; without a configuration it counts as a multiplex of two, which
// the sample board is.
const Unreadable kUnreadable[] = {
    {.name = "StateLocked",
     .harm = [] { return Harm(std::make_shared<ForeignLock>(kTempDb)); },
     .tables = kStateTables,
     .message = "database is locked",
     .answer = kNothing},
    {.name = "ConfigurationLocked",
     .harm = [] { return Harm(std::make_shared<ForeignLock>(kConfDb)); },
     .tables = "ConfiguracionGen",
     .message = "database is locked",
     .answer = kSampleBoard},
    {.name = "BothLocked",
     .harm =
         [] {
             using Locks = std::pair<ForeignLock, ForeignLock>;
             return Harm(std::make_shared<Locks>(kConfDb, kTempDb));
         },
     .tables = kAllTables,
     .message = "database is locked",
     .answer = kNothing},
    {.name = "StatesMissing",
     .harm = [] { return Harm(std::make_shared<HiddenTable>(kTempDb, "alarmasEstado")); },
     .tables = "alarmasEstado",
     .message = "no such table: alarmasEstado",
     .answer = kNoStates},
    {.name = "FiguresMissing",
     .harm = [] { return Harm(std::make_shared<HiddenTable>(kTempDb, "Bitrate_Nulos")); },
     .tables = "Bitrate_Nulos",
     .message = "no such table: Bitrate_Nulos",
     .answer = kNoLevel},
    {.name = "ConfigurationMissing",
     .harm = [] { return Harm(std::make_shared<HiddenTable>(kConfDb, "ConfiguracionGen")); },
     .tables = "ConfiguracionGen",
     .message = "no such table: ConfiguracionGen",
     .answer = kSampleBoard},
    {.name = "StateEmpty",
     .harm = [] { return Harm(std::make_shared<OtherContent>(kTempDb, "")); },
     .tables = kStateTables,
     .message = "no such table: .*",
     .answer = kNothing},
    {.name = "ConfigurationEmpty",
     .harm = [] { return Harm(std::make_shared<OtherContent>(kConfDb, "")); },
     .tables = "ConfiguracionGen",
     .message = "no such table: .*",
     .answer = kSampleBoard},
    {.name = "StateGarbage",
     .harm = [] { return garbage(kTempDb, 0); },
     .tables = kStateTables,
     .message = "file is not a database",
     .answer = kNothing},
    {.name = "ConfigurationGarbage",
     .harm = [] { return garbage(kConfDb, 0); },
     .tables = "ConfiguracionGen",
     .message = "file is not a database",
     .answer = kSampleBoard},
    // The header and the names of the tables are as they were.
    {.name = "StateGarbageInItsTables",
     .harm = [] { return garbage(kTempDb, kPageSize); },
     .tables = kStateTables,
     .message = "database disk image is malformed",
     .answer = kNothing},
    {.name = "ConfigurationGarbageInItsTables",
     .harm = [] { return garbage(kConfDb, kPageSize); },
     .tables = "ConfiguracionGen",
     .message = "database disk image is malformed",
     .answer = kSampleBoard},
};

void PrintTo(const Unreadable& unreadable, std::ostream* out) {
    *out << unreadable.name;
}

// For each statement three attempts of three lines, the last being the system's.
void expect_three_attempts_each(const std::string& printed, const Unreadable& unreadable) {
    std::istringstream lines(printed);
    int statements = 0;
    for (std::string line; std::getline(lines, line); ++statements) {
        for (int n = 0; n < 3; ++n) {
            const std::string failure = "\\[ERROR_DB\\]doSelect: Error leyendo datos tabla (" +
                                        std::string(unreadable.tables) +
                                        ") \\. intento: " + std::to_string(n);
            EXPECT_TRUE(std::regex_match(line, std::regex(failure))) << line;
            std::getline(lines, line);
            const std::string message =
                std::string("\\[ERROR_DB\\]doSelect: ") + unreadable.message;
            EXPECT_TRUE(std::regex_match(line, std::regex(message))) << line;
            std::getline(lines, line);
            EXPECT_TRUE(
                std::regex_match(line, std::regex(std::string(unreadable.message) + ": .+")))
                << line;
            if (n < 2)
                std::getline(lines, line);
        }
    }
    EXPECT_GT(statements, 0);
}

class StatusOfUnreadable : public Status, public testing::WithParamInterface<Unreadable> {};

// Also when it could be read before, and for both commands.
TEST_P(StatusOfUnreadable, DatabasesHoldsZerosUntilTheyCanBeRead) {
    run_elsewhere(kConfDb, kOneStreamSql);
    const TracedDaemon daemon(without_pauses());
    std::string printed;
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        {
            const Harm harm = GetParam().harm();
            EXPECT_EQ(status(), GetParam().answer);
        }
        const std::string all = daemon.err();
        expect_three_attempts_each(all.substr(printed.size()), GetParam());
        printed = all;
        EXPECT_EQ(status(), kOneStream);
        EXPECT_EQ(daemon.err(), printed);
    }
}

INSTANTIATE_TEST_SUITE_P(, StatusOfUnreadable, testing::ValuesIn(kUnreadable),
                         [](const auto& test) { return std::string(test.param.name); });

// Files

TEST_F(Status, NeedsNoRightToWrite) {
    for (const std::string& path : {kConfDb, kTempDb})
        fs::permissions(path, fs::perms::owner_read);
    fs::permissions("/quelt/db", fs::perms::owner_read | fs::perms::owner_exec);
    const Daemon daemon;
    EXPECT_EQ(status(), kSampleBoard);
    EXPECT_EQ(to_hex(exchange(frame(2))), kSampleBoard2);
    EXPECT_EQ(daemon.err(), "");
    fs::permissions("/quelt/db", fs::perms::owner_all);
}

// Its journal is left behind: whoever reads next takes the unfinished change back.
TEST_F(Status, HoldsNothingOfAChangeWhoseProcessDied) {
    const Daemon daemon;
    EXPECT_EQ(status(), kSampleBoard);
    // All of the change is in the database; the journal's end would have made it count.
    const std::string killed =
        "strace -o /dev/null -e trace=pwrite64,unlink -e inject=unlink:signal=KILL sqlite3 " +
        kTempDb + " \"UPDATE alarmasEstado SET valor='1'\"";
    EXPECT_NE(std::system(killed.c_str()), 0);
    ASSERT_TRUE(fs::exists(kTempDb + "-journal"));
    EXPECT_EQ(status(), kSampleBoard);
    EXPECT_FALSE(fs::exists(kTempDb + "-journal"));
    EXPECT_EQ(daemon.err(), "");
}

// Only a file of the machine's /tmp tells, and it can come and go at any time.
TEST_F(Status, LooksForThePlayersFileAtEachRequest) {
    run_elsewhere(kConfDb, kOneStreamSql);
    run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor='1' WHERE nombre='estado_player'");
    // 2008 + 6000, 2008 and 6000, which is 1770 hexadecimal; then 10000, which is 2710
    const std::string without =
        answer_with({{"multiplex_1", hex("00 00 00 00 00 37 78 20 08 17 70")}, {"player", {1}}});
    const std::string with =
        answer_with({{"multiplex_1", hex("00 00 00 00 00 47 18 20 08 27 10")}, {"player", {1}}});
    const Daemon daemon;
    EXPECT_EQ(status(), without);
    write_file("/tmp/to_play/video-final_HD.ts", "video");
    EXPECT_EQ(status(), with);
    fs::remove("/tmp/to_play/video-final_HD.ts");
    EXPECT_EQ(status(), without);
}

// Counts the changes of a database, in its header.
std::string change_counter(const std::string& path) {
    return read_file(path).substr(24, 4);
}

// Another process that changes a database without end.
class Writer {
  public:
    // On return it is at work.
    Writer(const std::string& path, const std::string& sql) {
        const std::string before = change_counter(path);
        process_ = fork();
        if (process_ != 0) {
            EXPECT_TRUE(eventually([&] { return change_counter(path) != before; }));
            return;
        }
        try {
            const Database database(path);
            sqlite3_busy_timeout(database.handle(), kPatience / std::chrono::milliseconds(1));
            for (;;) {
                database.run(sql);
                usleep(1000);  // others are to have their turn
            }
        } catch (const std::exception&) {
            _exit(1);
        }
    }
    ~Writer() {
        kill(process_, SIGKILL);
        int status = 0;
        waitpid(process_, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the writer gave up";
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

  private:
    pid_t process_ = -1;
};

TEST_F(Status, HoldsOldOrNewValuesWhileOthersWrite) {
    const Writer state(kTempDb,
                       "UPDATE alarmasEstado SET valor = 1 - valor WHERE nombre = 'alarma_hw'");
    const Writer conf(kConfDb, "UPDATE ConfiguracionGen SET Modo_Salida = 1 - Modo_Salida");
    // Alarms 02 or 03, and a multiplex or two streams.
    const document::Part alarms = {"alarma_hw", {3}};
    const document::Part streams = {"multiplex_1", hex("00 00 00 00 00 3A 34 20 08 1A 2C")};
    const auto one_of_four = AnyOf(kSampleBoard, answer_with({alarms}), answer_with({streams}),
                                   answer_with({alarms, streams}));
    const Daemon daemon;
    for (int i = 0; i < 100; ++i)
        EXPECT_THAT(status(), one_of_four);
    EXPECT_EQ(daemon.err(), "");
}

}  // namespace
