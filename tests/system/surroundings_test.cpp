// What the real daemon makes of poor surroundings: streams that are closed, a pid file that is
// somebody else's or finds no room, database files that are taken away, scripts that cannot be
// started.
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/database.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/traced_daemon.h"
#include "tests/support/wait.h"
#include "tests/system/program_end.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const Bytes kIdentify = frame(4);
const Bytes kBrightness = frame(3, "02 34");  // 52
const Bytes kGateway = frame(3, "46 31 39 32 2E 31 36 38 2E 31 2E 32 00");
const Bytes kFactoryReset = frame(3, "50 00");
const std::string kWritten = to_hex(frame(3));

class Surroundings : public testing::Test {
  protected:
    Surroundings() { make_board(); }
};

// Closed streams

Daemon::Setup without(const std::set<int>& streams) {
    return {.options = {"-l", "64"}, .prepare = [streams] {
                for (const int stream : streams)
                    close(stream);
            }};
}

// Where its descriptors lead.
std::vector<std::string> streams_of(const Daemon& daemon) {
    std::vector<std::string> all;
    for (const char* const stream : {"0", "1", "2"}) {
        const std::string link =
            fs::read_symlink("/proc/" + std::to_string(daemon.pid()) + "/fd/" + stream);
        all.push_back(link.substr(0, link.find(':')));
    }
    return all;
}

const std::string kOwn = "/tmp/daemon.out";
const std::string kErr = "/tmp/daemon.err";
const std::string kNull = "/dev/null";
const std::string kLog = "socket";

// The connection to the log is the first that is opened; a database never takes their numbers.
TEST_F(Surroundings, PutTheLogAndTheNullDeviceInPlaceOfClosedStreams) {
    struct Case {
        std::set<int> closed;
        std::vector<std::string> streams;
        std::vector<std::string> without_log;
    };
    const std::string in = fs::read_symlink("/proc/self/fd/0");
    const std::string mine = in.substr(0, in.find(':'));
    const Case cases[] = {
        {{0}, {kLog, kOwn, kErr}, {kNull, kOwn, kErr}},
        {{1}, {mine, kLog, kErr}, {mine, kNull, kErr}},
        {{2}, {mine, kOwn, kLog}, {mine, kOwn, kNull}},
        {{0, 1}, {kLog, kNull, kErr}, {kNull, kNull, kErr}},
        {{0, 1, 2}, {kLog, kNull, kNull}, {kNull, kNull, kNull}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.closed));
        {
            const Daemon daemon(without(each.closed));
            EXPECT_EQ(exchange(kIdentify).size(), 55U);
            EXPECT_EQ(streams_of(daemon), each.without_log);
        }
        const SyslogReader log;
        const Daemon daemon(without(each.closed));
        EXPECT_EQ(exchange(kIdentify).size(), 55U);
        EXPECT_EQ(streams_of(daemon), each.streams);
    }
}

TEST_F(Surroundings, BringPrintedLinesIntoTheLog) {
    const SyslogReader log;
    const Daemon daemon(without({1}));
    exchange(kBrightness);
    EXPECT_TRUE(log.wait_for("WriteSocket\nBuffer: A50300000000FD\n"));
}

TEST_F(Surroundings, LeaveScriptsWithoutTheirOutput) {
    write_script("/quelt/script/set_interfaces_db.sh", "set -e\necho rebuilt\necho > /tmp/rebuilt");
    {
        const Daemon daemon;
        EXPECT_EQ(to_hex(exchange(kGateway)), kWritten);
    }
    EXPECT_TRUE(fs::remove("/tmp/rebuilt"));
    const Daemon daemon(without({1}));
    EXPECT_EQ(to_hex(exchange(kGateway)), kWritten);
    EXPECT_FALSE(fs::exists("/tmp/rebuilt"));
}

// Ends the log, and lets the lines of an exchange fail.
void lose(std::unique_ptr<SyslogReader>& log) {
    exchange(kIdentify);
    ASSERT_TRUE(log->wait_for("Waiting for zondar message", 2));
    log.reset();
    exchange(kIdentify);
}

// Once the log is gone, the next connection has its number.
TEST_F(Surroundings, ShowAMasterWhatIsPrinted) {
    auto log = std::make_unique<SyslogReader>();
    const Daemon daemon(without({1}));
    ASSERT_NO_FATAL_FAILURE(lose(log));
    const Connection request;
    request.send(kBrightness);
    request.end_sending();
    EXPECT_EQ(to_hex(collect_answer()), kWritten);
    const Bytes shown = request.read_to_end();
    EXPECT_THAT(std::string(shown.begin(), shown.end()),
                HasSubstr("WriteSocket\nBuffer: A50300000000FD\n"));
}

TEST_F(Surroundings, LoseARequest) {
    auto log = std::make_unique<SyslogReader>();
    const Daemon daemon(without({0}));
    ASSERT_NO_FATAL_FAILURE(lose(log));
    send_request(kBrightness);
    {
        const Connection collection;
        EXPECT_TRUE(collection.stays_silent());
    }
    resynchronise();
    EXPECT_EQ(exchange(kIdentify).size(), 55U);
    EXPECT_EQ(Database(kConfDb).value("SELECT Brillo FROM EntradaAV WHERE IdEntradaAV = 0"), "51");
}

// The pid file. Without databases the program ends right behind it.

const std::string kPidFile = "/tmp/zondar_net_receiver.pid";

std::vector<std::string> texts_of(const ProgramEnd& end) {
    std::vector<std::string> texts;
    for (const LogLine& line : end.log)
        texts.push_back(line.text.substr(0, line.text.find(':')));
    return texts;
}

TEST_F(Surroundings, LeaveAnEmptyPidFileWhenThereIsNoRoom) {
    write_file(kPidFile, "2147483647\n");
    const ProgramEnd end = run_to_end({
        .paths = {"/quelt/db/missing.sqlite", kTempDb},
        .launcher = {"strace", "-o", "/dev/null", "-P", kPidFile, "-e",
                     "inject=write,writev:error=ENOSPC"},
        .prepare = leave_faults_to_the_program,
    });
    EXPECT_TRUE(fs::exists(kPidFile));
    EXPECT_EQ(read_file(kPidFile), "");
    EXPECT_THAT(texts_of(end), ElementsAre(kStarted.text, "Program running with pid",
                                           "No existe la base de datos. Saliendo..."));
}

TEST_F(Surroundings, HavePutItsNumberIntoWhateverThePidFileLinksTo) {
    write_file("/quelt/important", "much of it\n");
    fs::create_symlink("/quelt/important", "/tmp/link.pid");
    const ProgramEnd end = run_to_end(
        {.options = {"-p", "/tmp/link.pid"}, .paths = {"/quelt/db/missing.sqlite", kTempDb}});
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(read_file("/quelt/important"), testing::MatchesRegex("[1-9][0-9]*\n"));
    EXPECT_TRUE(fs::is_symlink("/tmp/link.pid"));
}

// Database files that are taken away

const std::string kOther = "/quelt/db/other.sqlite";

// A database of the same shape in its place, as a restore by mv would put it there.
void replace_configuration() {
    fs::copy_file("/quelt/factory/config_local.sqlite", kOther);
    Database(kOther).run("UPDATE EntradaAV SET Brillo = 77; UPDATE Red SET NetworkName = 'Nueva'");
    fs::rename(kOther, kConfDb);
}

void delete_configuration() {
    fs::remove(kConfDb);
}

std::string refusals(int number) {
    std::string lines;
    for (int i = 0; i < number; ++i)
        lines +=
            "[ERROR_DB]update: Error actualizando datos registro en tabla EntradaAV . "
            "intento: " +
            std::to_string(i) +
            "\n[ERROR_DB]update: attempt to write a readonly database\n"
            "attempt to write a readonly database: No such file or directory\n";
    return lines;
}

TEST_F(Surroundings, RefuseTheWritesToADatabaseThatWasTakenAway) {
    for (void (*const take)() : {replace_configuration, delete_configuration}) {
        make_board();
        const TracedDaemon daemon(without_pauses());
        exchange(kIdentify);
        take();
        EXPECT_EQ(to_hex(exchange(kBrightness)), kWritten);
        EXPECT_EQ(daemon.err(), refusals(3));
        const std::string calls = TracedDaemon::calls();
        for (const char* const pause :
             {"{tv_sec=1, tv_nsec=0}", "{tv_sec=2, tv_nsec=0}", "{tv_sec=3, tv_nsec=0}"})
            EXPECT_THAT(calls, HasSubstr(pause));
    }
}

// The -wal file beside it is still the one of the old file; its pages cover those of the new one.
TEST_F(Surroundings, MixWithADatabaseThatReplacesTheirsInWalMode) {
    EXPECT_EQ(Database(kConfDb).value("PRAGMA journal_mode = wal"), "wal");
    const Daemon daemon;
    exchange(kBrightness);
    replace_configuration();
    EXPECT_EQ(to_hex(exchange(frame(3, "02 35"))), kWritten);
    EXPECT_EQ(daemon.err(), "");
    const Database mixture(kConfDb);
    const std::vector<std::vector<std::string>> old = {{"53"}, {"61"}};
    EXPECT_EQ(mixture.rows("SELECT Brillo FROM EntradaAV"), old);
    EXPECT_EQ(mixture.value("SELECT NetworkName FROM Red"), "Nueva");
}

// Scripts that cannot be started

// Threads and processes that the daemon's main thread starts until it waits for masters.
int started(const std::string& calls) {
    std::istringstream lines(calls);
    int count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.find(") = ") != std::string::npos ? 1 : 0;
    return count;
}

TEST_F(Surroundings, AnswerForScriptsThatWereNotStarted) {
    write_script("/quelt/script/set_interfaces_db.sh", "echo > /tmp/rebuilt");
    const std::string kStarts = "clone,clone3,fork,vfork";
    int before = 0;
    {
        TracedDaemon daemon({"-e", "trace=" + kStarts, "-e", "signal=none"});
        exchange(kIdentify);
        daemon.stop();
        before = started(TracedDaemon::calls());
    }
    const SyslogReader log;
    TracedDaemon daemon(
        {"-e", "trace=" + kStarts, "-e", "signal=none", "-e",
         "inject=" + kStarts + ":error=EAGAIN:when=" + std::to_string(before + 1) + "+"},
        {"-l", "127", "-s", "2"});
    exchange(kBrightness);
    EXPECT_EQ(to_hex(exchange(kGateway)), kWritten);
    EXPECT_EQ(to_hex(exchange(kFactoryReset)), kWritten);
    daemon.stop();
    EXPECT_THAT(TracedDaemon::calls(), HasSubstr("(INJECTED)"));
    EXPECT_EQ(daemon.err(), "");
    EXPECT_EQ(log.count("ERROR"), 0);
    EXPECT_FALSE(fs::exists("/tmp/rebuilt"));
    EXPECT_EQ(Database(kConfDb).value("SELECT Brillo FROM EntradaAV WHERE IdEntradaAV = 0"), "52");
}

// Power cuts

// The calls on files of what happened behind `word`, in their order: their names alone.
std::vector<std::string> behind_last(const std::string& word, const std::string& calls) {
    std::vector<std::string> names;
    std::istringstream lines(calls.substr(calls.rfind(word)));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t name = line.find_first_not_of("0123456789 ");
        names.push_back(line.substr(name, line.find('(') - name));
    }
    return names;
}

const std::vector<std::string> kTraceSyncs = {"-f", "-e", "trace=unlink,fdatasync,accept,accept4"};

// A journal that comes back would take the write back. The sync of the folder comes first, then the
// accept of the answer's connection.
void expect_synced_before_the_answer() {
    std::vector<std::string> calls =
        behind_last("unlink(\"" + kConfDb + "-journal", TracedDaemon::calls());
    calls.resize(3);
    EXPECT_THAT(calls, testing::ElementsAre("unlink", "fdatasync", testing::StartsWith("accept")));
}

TEST_F(Surroundings, AWriteIsAnsweredBehindTheSyncOfItsJournalsRemoval) {
    TracedDaemon daemon(kTraceSyncs);
    EXPECT_EQ(to_hex(exchange(kBrightness)), kWritten);
    daemon.stop();
    expect_synced_before_the_answer();
}

TEST_F(Surroundings, SoIsOneWhoseDatabaseWasLockedAtTheStart) {
    auto lock = std::make_unique<ForeignLock>(kConfDb);
    TracedDaemon daemon(kTraceSyncs);
    EXPECT_EQ(to_hex(exchange(kIdentify)).substr(0, 5), "A5 04");
    lock.reset();
    EXPECT_EQ(to_hex(exchange(kBrightness)), kWritten);
    daemon.stop();
    expect_synced_before_the_answer();
}

TEST_F(Surroundings, SoIsOneThatHadToWaitForTheLock) {
    auto lock = std::make_unique<ForeignLock>(kConfDb);
    TracedDaemon daemon(kTraceSyncs);
    EXPECT_EQ(to_hex(exchange(kIdentify)).substr(0, 5), "A5 04");
    std::thread other([&lock] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        lock.reset();
    });
    EXPECT_EQ(to_hex(exchange(kBrightness)), kWritten);
    other.join();
    daemon.stop();
    expect_synced_before_the_answer();
}

}  // namespace
