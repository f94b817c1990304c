// The configuration request and the setting of the clock on the real daemon: whole frames, what
// other processes do to the database, and that the clock is set by its one system call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/syslog_reader.h"
#include "tests/support/traced_daemon.h"

namespace {

using testing::AnyOf;
using testing::AnyOfArray;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr std::uint8_t kRead = 1;

const std::string kFrame1 = document::answer(frame(kRead, {1}));
const std::string kFrame2 = document::answer(frame(kRead, {2}));  // the clock left out
const std::string kNothing = to_hex(frame(kRead));

// Time and date.
const auto kClock = static_cast<std::ptrdiff_t>(document::place("Block 2", "time").position);
constexpr std::ptrdiff_t kClockWidth = 15;

std::string local_text(std::time_t now) {
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%H.%M%d.%m.%Y", std::localtime(&now));
    return text.data();
}

// The daemon's zone is the system's: it has no environment.
class BoardConfiguration : public testing::Test {
  protected:
    BoardConfiguration() {
        make_board();
        unsetenv("TZ");
    }

    // The whole frame, with the clock of this moment in it.
    static void expect_block2(const Bytes& request = frame(kRead, {2})) {
        const std::time_t before = std::time(nullptr);
        const Bytes answer = exchange(request);
        const std::time_t after = std::time(nullptr);
        EXPECT_EQ(document::as_shown(answer, kFrame2), kFrame2);
        const Bytes info = info_of(answer, kRead);
        const std::string clock(info.begin() + kClock, info.begin() + kClock + kClockWidth);
        EXPECT_TRUE(std::regex_match(
            clock, std::regex("[0-2][0-9]\\.[0-5][0-9][0-3][0-9]\\.[01][0-9]\\.[0-9]{4}")))
            << clock;
        EXPECT_THAT(clock, AnyOf(local_text(before), local_text(after)));
    }
};

struct Form {
    const char* name;
    Bytes request;
};

// The answer is in normal mode, its header bytes are 0.
const Form kAskFor1[] = {
    {"1", frame(kRead, {1})},
    {"0", frame(kRead, {0})},
    {"7", frame(kRead, {7})},
    {"255", frame(kRead, {255})},
    {"header bytes", hex("A5 01 01 02 03 01 01 F7")},
    {"CRC8 mode", frame(0x81, {1})},
    {"CRC8 mode, 7", frame(0x81, {7})},
    {"CRC8 mode, 0", frame(0x81, {0})},
};

const Form kAskFor2[] = {
    {"2", frame(kRead, {2})},
    {"CRC8 mode", frame(0x81, {2})},
};

const Form kAskForNothing[] = {
    {"no block", frame(kRead)},
    {"block 1 and more", frame(kRead, {1, 1})},
    {"block 2 and more", frame(kRead, {2, 2})},
    {"all 2", frame(kRead, Bytes(255, 2))},
    {"CRC8 mode, no block", frame(0x81)},
    {"CRC8 mode, block 1 and more", frame(0x81, {1, 1})},
};

TEST_F(BoardConfiguration, OfTheSampleBoardByteByByte) {
    const Daemon daemon;
    for (const Form& form : kAskFor1) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(to_hex(exchange(form.request)), kFrame1);
    }
    for (const Form& form : kAskFor2) {
        SCOPED_TRACE(form.name);
        expect_block2(form.request);
    }
    for (const Form& form : kAskForNothing) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(to_hex(exchange(form.request)), kNothing);
    }
    EXPECT_EQ(daemon.err(), "");
}

// Not that of whoever started it.
TEST_F(BoardConfiguration, HasTheClockInTheSystemsZone) {
    const Daemon daemon({.prepare = [] { setenv("TZ", "<+14>-14", 1); }});
    expect_block2();
}

// Changes by another process

struct Change {
    const char* sql;
    std::vector<document::Part> block1 = {};
    std::vector<document::Part> block2 = {};
};

// Each on top of the ones before it.
const Change kChanges[] = {
    // start bytes, which are doubled on the wire
    {.sql = "UPDATE EntradaAV SET Brillo = 165 WHERE IdEntradaAV = 0",
     .block1 = {{"EntradaAV.0.Brillo", {0xA5}}}},
    {.sql = "UPDATE EntradaAV SET Bitrate = 42405 WHERE IdEntradaAV = 1",
     .block1 = {{"EntradaAV.1.Bitrate", {0xA5, 0xA5}}}},
    {.sql = "UPDATE RFOut SET Frecuencia = 599500, Constelacion = 1",
     .block1 = {{"RFOut.Frecuencia", hex("09 25 CC")}, {"RFOut.Constelacion", {0}}}},
    {.sql = "UPDATE PIDsSalida SET Seleccionado = 2 WHERE Tipo = 2",
     .block1 = {{"PIDsSalida.0.2.Seleccionado", {0}}, {"PIDsSalida.1.2.Seleccionado", {0}}}},
    {.sql = "UPDATE ServiciosSalida SET Nombre = 'A name of twenty ch.' WHERE IdServicio = 1",
     .block1 = {{"ServiciosSalida.1.Nombre", joined({text_bytes("A name of twen"), {0}})}}},
    {.sql = "UPDATE Red SET NID = 12345, TSID_Out = 5, ONID_Out = 6",
     .block1 = {{"Red.NID", hex("30 39")}, {"Red.TSID_Out", {0, 0}}, {"Red.ONID_Out", {0, 0}}}},
    {.sql = "UPDATE IPOut SET Vlan_Id = 4095, SAP_Time = -1",
     .block2 = {{"IPOut.Vlan_Id", hex("0F FF")}, {"IPOut.SAP_Time", {0xFF}}}},
    // fifteen characters leave no room for a NUL
    {.sql = "UPDATE ConfiguracionGen SET Ip_Address = '192.168.100.200', "
            "Ip_Mask = '255.255.255.255', Modo_Entrada = 10, Subtimezone = 7",
     .block1 = {{"ConfiguracionGen.Modo_Entrada", {10}}},
     .block2 = {{"ConfiguracionGen.Ip_Address", text_bytes("192.168.100.200")},
                {"ConfiguracionGen.Ip_Mask", text_bytes("255.255.255.255")},
                {"ConfiguracionGen.Subtimezone", {7}}}},
    {.sql = "DELETE FROM ConfiguracionGen",
     .block1 = {{"ConfiguracionGen.Modo_Entrada", {0}}, {"ConfiguracionGen.Atenuacion", {0}}},
     .block2 = {{"ConfiguracionGen.Player_Mode", {0}},
                {"ConfiguracionGen.Ip_Dhcp", {0}},
                {"ConfiguracionGen.Ip_Address", Bytes(15)},
                {"ConfiguracionGen.Ip_Mask", Bytes(15)},
                {"ConfiguracionGen.Ip_Gateway", Bytes(15)},
                {"ConfiguracionGen.Country", Bytes(15)},
                {"ConfiguracionGen.Subtimezone", {0}}}},
};

// Zeros in place of the clock.
Bytes block2_without_clock() {
    Bytes info = ask(kRead, {2});
    std::fill_n(info.begin() + kClock, kClockWidth, std::uint8_t{0});
    return info;
}

TEST_F(BoardConfiguration, HoldsWhatAnotherProcessHasJustWritten) {
    const Daemon daemon;
    Bytes block1 = ask(kRead, {1});
    Bytes block2 = block2_without_clock();
    for (const Change& change : kChanges) {
        SCOPED_TRACE(change.sql);
        run_elsewhere(kConfDb, change.sql);
        document::put(change.block1, "Block 1", block1);
        document::put(change.block2, "Block 2", block2);
        EXPECT_EQ(to_hex(ask(kRead, {1})), to_hex(block1));
        EXPECT_EQ(to_hex(block2_without_clock()), to_hex(block2));
    }
    EXPECT_EQ(daemon.err(), "");
}

// Databases that cannot be read

std::size_t times(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Three for each value of both blocks.
const std::size_t kAttempts = 3 * (document::statements("configuration, block 1") +
                                   document::statements("configuration, block 2"));

// Nothing but the block, and one below 0 for the constellation.
void expect_zeros() {
    Bytes block1(document::length("Block 1"));
    block1[0] = 1;
    document::put({{"RFOut.Constelacion", {0xFF}}}, "Block 1", block1);
    EXPECT_EQ(to_hex(ask(kRead, {1})), to_hex(block1));
    Bytes block2(document::length("Block 2"));
    block2[0] = 2;
    EXPECT_EQ(to_hex(block2_without_clock()), to_hex(block2));
}

TEST_F(BoardConfiguration, OfALockedDatabaseIsZerosUntilItIsFree) {
    const TracedDaemon daemon(without_pauses());
    EXPECT_EQ(to_hex(exchange(frame(kRead, {1}))), kFrame1);
    {
        const ForeignLock lock(kConfDb);
        expect_zeros();
    }
    EXPECT_EQ(times(daemon.err(), "doSelect: database is locked"), kAttempts);
    EXPECT_EQ(to_hex(exchange(frame(kRead, {1}))), kFrame1);
    expect_block2();
}

TEST_F(BoardConfiguration, OfMissingTablesIsZerosUntilTheyAreThere) {
    const TracedDaemon daemon(without_pauses());
    const std::vector<std::string> tables = {
        "ConfiguracionGen", "EntradaAV", "RFOut", "ServiciosSalida", "PIDsSalida", "Red", "IPOut"};
    std::string hide;
    std::string restore;
    for (const std::string& table : tables) {
        hide += "ALTER TABLE " + table + " RENAME TO hidden_" + table + ";";
        restore += "ALTER TABLE hidden_" + table + " RENAME TO " + table + ";";
    }
    run_elsewhere(kConfDb, hide);
    expect_zeros();
    const std::string err = daemon.err();
    EXPECT_EQ(times(err, "doSelect: no such table: "), kAttempts);
    run_elsewhere(kConfDb, restore);
    EXPECT_EQ(to_hex(exchange(frame(kRead, {1}))), kFrame1);
    expect_block2();
    EXPECT_EQ(daemon.err(), err);
}

TEST_F(BoardConfiguration, NeedsNoStateDatabase) {
    const Daemon daemon;
    const ForeignLock lock(kTempDb);
    EXPECT_EQ(to_hex(exchange(frame(kRead, {1}))), kFrame1);
    expect_block2();
    EXPECT_EQ(daemon.err(), "");
}

// The clock

const std::string kWritten = to_hex(frame(3));

// 72 and 73
const Bytes kTime = joined({{72}, text_bytes("09.05")});
const Bytes kDate = joined({{73}, text_bytes("03.02.2024")});
const Bytes kSetTime = frame(3, kTime);
const Bytes kSetDate = frame(3, kDate);
const Bytes kSetTimeCrc8 = frame(0x83, kTime);
const Bytes kSetDateCrc8 = frame(0x83, kDate);

// Those that the requests have caused.
std::vector<std::string> request_lines(const SyslogReader& log) {
    std::vector<std::string> lines;
    for (const LogLine& line : log.lines()) {
        for (const char* const part : {"CMD:", "Subcomando", "ERROR"}) {
            if (line.text.find(part) == std::string::npos)
                continue;
            lines.push_back(with_priority(line));
            break;
        }
    }
    return lines;
}

const std::vector<std::string> kTimeLines = {"<31>CMD: Comando escritura parametros.\n",
                                             "<31>Subcomando SUBCOMMAND_TIME\n"};
const std::vector<std::string> kDateLines = {"<31>CMD: Comando escritura parametros.\n",
                                             "<31>Subcomando SUBCOMMAND_DATE\n"};
const std::string kTimeRefused = "<28>ERROR: Al escribir la nueva hora. root?\n";
const std::string kDateRefused = "<28>ERROR: Al escribir la nueva fecha. root? trn";

// In the sandbox nobody may set the clock.
TEST_F(BoardConfiguration, ClockIsNotSetWithoutTheRightTo) {
    const SyslogReader log;
    const Daemon daemon({.options = {"-l", "64", "-s", "5"}});
    EXPECT_EQ(to_hex(exchange(kSetTime)), kWritten);
    EXPECT_EQ(to_hex(exchange(kSetDate)), kWritten);
    EXPECT_EQ(to_hex(exchange(kSetTimeCrc8)), kWritten);
    EXPECT_EQ(to_hex(exchange(kSetDateCrc8)), kWritten);
    EXPECT_THAT(request_lines(log),
                ElementsAre(kTimeLines[0], kTimeLines[1], kTimeRefused, kDateLines[0],
                            kDateLines[1], kDateRefused, kTimeLines[0], kTimeLines[1], kTimeRefused,
                            kDateLines[0], kDateLines[1], kDateRefused));
    expect_block2();
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(BoardConfiguration, ClockThatIsNotSetIsNotLoggedWithoutTheProtocolBit) {
    const SyslogReader log;
    const Daemon daemon({.options = {"-l", "31", "-s", "5"}});
    EXPECT_EQ(to_hex(exchange(kSetTime)), kWritten);
    EXPECT_EQ(to_hex(exchange(kSetDate)), kWritten);
    EXPECT_THAT(request_lines(log), IsEmpty());
}

struct Setting {
    const char* name;
    Bytes request;
    const std::vector<std::string>& lines;
    void (*change)(std::tm& local);
};

const auto kNineOhFive = [](std::tm& local) {
    local.tm_hour = 9;
    local.tm_min = 5;
    local.tm_sec = 0;
};
const auto kThirdOfFebruary = [](std::tm& local) {
    local.tm_mday = 3;
    local.tm_mon = 1;
    local.tm_year = 124;
};

const Setting kSettings[] = {
    {"time", kSetTime, kTimeLines, kNineOhFive},
    {"date", kSetDate, kDateLines, kThirdOfFebruary},
    {"CRC8 mode, time", kSetTimeCrc8, kTimeLines, kNineOhFive},
    {"CRC8 mode, date", kSetDateCrc8, kDateLines, kThirdOfFebruary},
};

// What the clock may be set to: the request came at one of these seconds.
std::set<std::string> settings_between(std::time_t before, std::time_t after,
                                       void (*change)(std::tm& local)) {
    std::set<std::string> calls;
    for (std::time_t now = before; now <= after; ++now) {
        std::tm local = *std::localtime(&now);
        change(local);
        local.tm_isdst = -1;
        calls.insert("clock_settime(CLOCK_REALTIME, {tv_sec=" +
                     std::to_string(std::mktime(&local)) + ", tv_nsec=0}");
    }
    return calls;
}

// All that can set a clock, by itself or by another program; and where the start is over. The call
// is not made: strace says that it succeeded.
constexpr char kTraced[] =
    "trace=clock_settime,settimeofday,adjtimex,clock_adjtime,ioctl,execve,execveat,fork,vfork,"
    "accept,accept4";

// The calls from the first wait for a master on, without these waits: name and arguments.
std::vector<std::string> calls_of_requests() {
    std::vector<std::string> made;
    std::istringstream calls(TracedDaemon::calls());
    // "12 clock_settime(CLOCK_REALTIME, {tv_sec=1, tv_nsec=0}) = 0 (INJECTED)". A call during
    // which another thread does something has two lines, both with its name.
    static const std::regex kCall("[0-9]+ +([a-z0-9_]+\\(.*)");
    static const std::regex kEnd(" *(<unfinished \\.\\.\\.>|\\) +=.*)$");
    bool started = false;
    for (std::string line; std::getline(calls, line);) {
        std::smatch call;
        if (!std::regex_match(line, call, kCall))
            continue;
        const bool waits = call[1].str().starts_with("accept");
        started = started || waits;
        if (started && !waits)
            made.push_back(std::regex_replace(call[1].str(), kEnd, ""));
    }
    return made;
}

TEST_F(BoardConfiguration, ClockIsSetByOneCallToTheVeryMoment) {
    for (const Setting& setting : kSettings) {
        SCOPED_TRACE(setting.name);
        const SyslogReader log;
        TracedDaemon daemon({"-f", "-e", kTraced, "-e", "inject=clock_settime:retval=0"},
                            {"-l", "64", "-s", "5"});
        const std::time_t before = std::time(nullptr);
        EXPECT_EQ(to_hex(exchange(setting.request)), kWritten);
        const std::time_t after = std::time(nullptr);
        EXPECT_THAT(request_lines(log), ElementsAreArray(setting.lines));
        // the machine's clock goes on
        expect_block2();
        daemon.stop();
        EXPECT_EQ(daemon.err(), "");
        EXPECT_THAT(calls_of_requests(),
                    ElementsAre(AnyOfArray(settings_between(before, after, setting.change))));
    }
}

}  // namespace
