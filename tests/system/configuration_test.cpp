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
#include "tests/support/syslog_reader.h"
#include "tests/support/traced_daemon.h"

namespace {

using testing::AnyOf;
using testing::AnyOfArray;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// start, control, header, length 114
// 0: block, input mode
// 2, 12: the inputs: brightness, contrast, saturation, sharpness, standard, aspect ratio, bitrate
// 8000 and 6500, audio bitrate, latency
// 22: RF on, channel 21, 474000 kHz, attenuation 10, mode, bandwidth, guard interval, constellation
// 3 less 1, code rate
// 33, 54: the services: video and audio on, LCN, SID 101 and 102, "Canal Uno" and "Canal Dos"
// 75: "Red Local", "Proveedor"
// 105: NID 1, no TSID, no ONID, NIT, LCN mode, TDT
// checksum
const std::string kFrame1 =
    "A5 01 00 00 00 72 "
    "01 00 "
    "33 34 32 03 01 01 1F 40 03 00 "
    "3D 3E 3C 04 01 00 19 64 04 01 "
    "00 15 07 3B 90 0A 01 00 00 02 04 "
    "01 01 00 01 00 65 43 61 6E 61 6C 20 55 6E 6F 00 00 00 00 00 00 "
    "01 01 00 02 00 66 43 61 6E 61 6C 20 44 6F 73 00 00 00 00 00 00 "
    "52 65 64 20 4C 6F 63 61 6C 00 00 00 00 00 00 "
    "50 72 6F 76 65 65 64 6F 72 00 00 00 00 00 00 "
    "00 01 00 00 00 00 00 01 01 "
    "4F";

// start, control, header, length 185
// 0: block, IP on, protocol, QoS, TTL, VLAN mode, VLAN 100, TPID 33024
// 10, 42: the services: "239.1.1.1" and "239.1.1.2", 5000 and 5002, "SAP Uno" and "SAP Dos"
// 74: announced, "224.2.127.254", "cabecera", every 5 seconds
// 106: player mode, DHCP
// 108: "192.168.1.50", "255.255.255.0", "192.168.1.1"
// 153: "Spain"
// 168: the clock, not here
const std::string kFrame2UpToTheClock =
    "A5 01 00 00 00 B9 "
    "02 00 01 04 10 00 00 64 81 00 "
    "32 33 39 2E 31 2E 31 2E 31 00 00 00 00 00 00 13 88 "
    "53 41 50 20 55 6E 6F 00 00 00 00 00 00 00 00 "
    "32 33 39 2E 31 2E 31 2E 32 00 00 00 00 00 00 13 8A "
    "53 41 50 20 44 6F 73 00 00 00 00 00 00 00 00 "
    "01 32 32 34 2E 32 2E 31 32 37 2E 32 35 34 00 00 "
    "63 61 62 65 63 65 72 61 00 00 00 00 00 00 00 05 "
    "00 00 "
    "31 39 32 2E 31 36 38 2E 31 2E 35 30 00 00 00 "
    "32 35 35 2E 32 35 35 2E 32 35 35 2E 30 00 00 "
    "31 39 32 2E 31 36 38 2E 31 2E 31 00 00 00 00 "
    "53 70 61 69 6E 00 00 00 00 00 00 00 00 00 00";

const std::string kNothing = "A5 01 00 00 00 00 FF";

constexpr std::uint8_t kRead = 1;
constexpr std::size_t kHead = 6;
constexpr std::ptrdiff_t kClock = 168;
constexpr std::ptrdiff_t kBehindClock = 183;

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
    static void expect_block2(const std::string& request) {
        const std::time_t before = std::time(nullptr);
        const Bytes answer = exchange(hex(request));
        const std::time_t after = std::time(nullptr);
        const Bytes info = info_of(answer, kRead);
        ASSERT_EQ(info.size(), 185U);
        EXPECT_EQ(to_hex(Bytes(answer.begin(), answer.begin() + kHead + kClock)),
                  kFrame2UpToTheClock);
        const std::string clock(info.begin() + kClock, info.begin() + kBehindClock);
        EXPECT_TRUE(std::regex_match(
            clock, std::regex("[0-2][0-9]\\.[0-5][0-9][0-3][0-9]\\.[01][0-9]\\.[0-9]{4}")))
            << clock;
        EXPECT_THAT(clock, AnyOf(local_text(before), local_text(after)));
        EXPECT_EQ(to_hex(Bytes(info.begin() + kBehindClock, info.end())), "00 00");
    }
};

struct Form {
    const char* name;
    const char* request;
};

// The answer is in normal mode, its header bytes are 0.
const Form kAskFor1[] = {
    {"1", "A5 01 00 00 00 01 01 FD"},
    {"0", "A5 01 00 00 00 01 00 FE"},
    {"7", "A5 01 00 00 00 01 07 F7"},
    {"255", "A5 01 00 00 00 01 FF FF"},
    {"header bytes", "A5 01 01 02 03 01 01 F7"},
    // 1, 7 and 0, XORed with 55
    {"CRC8 mode", "A5 81 00 00 00 01 54 2A A3"},
    {"CRC8 mode, 7", "A5 81 00 00 00 01 52 2C 7E"},
    {"CRC8 mode, 0", "A5 81 00 00 00 01 55 29 FD"},
};

const Form kAskFor2[] = {
    {"2", "A5 01 00 00 00 01 02 FC"},
    {"CRC8 mode", "A5 81 00 00 00 01 57 27 41"},
};

const Form kAskForNothing[] = {
    {"no block", "A5 01 00 00 00 00 FF"},
    {"block 1 and more", "A5 01 00 00 00 02 01 01 FB"},
    {"block 2 and more", "A5 01 00 00 00 02 02 02 F9"},
    {"CRC8 mode, no block", "A5 81 00 00 00 00 7F 06"},
    {"CRC8 mode, block 1 and more", "A5 81 00 00 00 02 54 54 D5 13"},
};

TEST_F(BoardConfiguration, OfTheSampleBoardByteByByte) {
    const Daemon daemon;
    for (const Form& form : kAskFor1) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(to_hex(exchange(hex(form.request))), kFrame1);
    }
    for (const Form& form : kAskFor2) {
        SCOPED_TRACE(form.name);
        expect_block2(form.request);
    }
    for (const Form& form : kAskForNothing) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(to_hex(exchange(hex(form.request))), kNothing);
    }
    EXPECT_EQ(to_hex(exchange(frame(kRead, Bytes(255, 2)))), kNothing);
    EXPECT_EQ(daemon.err(), "");
}

// Not that of whoever started it.
TEST_F(BoardConfiguration, HasTheClockInTheSystemsZone) {
    const Daemon daemon({.prepare = [] { setenv("TZ", "<+14>-14", 1); }});
    expect_block2("A5 01 00 00 00 01 02 FC");
}

// Changes by another process

struct Part {
    std::ptrdiff_t position;
    Bytes bytes;
};

struct Change {
    const char* sql;
    std::vector<Part> block1 = {};
    std::vector<Part> block2 = {};
};

// Each on top of the ones before it.
const Change kChanges[] = {
    // start bytes, which are doubled on the wire
    {.sql = "UPDATE EntradaAV SET Brillo = 165 WHERE IdEntradaAV = 0", .block1 = {{2, hex("A5")}}},
    {.sql = "UPDATE EntradaAV SET Bitrate = 42405 WHERE IdEntradaAV = 1",
     .block1 = {{18, hex("A5 A5")}}},
    {.sql = "UPDATE RFOut SET Frecuencia = 599500, Constelacion = 1",
     .block1 = {{24, hex("09 25 CC")}, {31, hex("00")}}},
    {.sql = "UPDATE PIDsSalida SET Seleccionado = 2 WHERE Tipo = 2",
     .block1 = {{34, hex("00")}, {55, hex("00")}}},
    {.sql = "UPDATE ServiciosSalida SET Nombre = 'A name of twenty ch.' WHERE IdServicio = 1",
     .block1 = {{60, hex("41206E616D65206F66207477656E 00")}}},
    {.sql = "UPDATE Red SET NID = 12345, TSID_Out = 5, ONID_Out = 6",
     .block1 = {{105, hex("30 39 00 00 00 00")}}},
    {.sql = "UPDATE IPOut SET Vlan_Id = 4095, SAP_Time = -1",
     .block2 = {{6, hex("0F FF")}, {105, hex("FF")}}},
    // fifteen characters leave no room for a NUL
    {.sql = "UPDATE ConfiguracionGen SET Ip_Address = '192.168.100.200', "
            "Ip_Mask = '255.255.255.255', Modo_Entrada = 10, Subtimezone = 7",
     .block1 = {{1, hex("0A")}},
     .block2 = {{108, hex("3139322E3136382E3130302E323030 3235352E3235352E3235352E323535")},
                {183, hex("07")}}},
    {.sql = "DELETE FROM ConfiguracionGen",
     .block1 = {{1, hex("00")}, {27, hex("00")}},
     .block2 = {{106, Bytes(62)}, {183, hex("00")}}},
};

// Zeros in place of the clock.
Bytes block2_without_clock() {
    Bytes info = ask(kRead, {2});
    std::fill(info.begin() + kClock, info.begin() + kBehindClock, std::uint8_t{0});
    return info;
}

void put(const std::vector<Part>& parts, Bytes& info) {
    for (const Part& part : parts)
        std::copy(part.bytes.begin(), part.bytes.end(), info.begin() + part.position);
}

TEST_F(BoardConfiguration, HoldsWhatAnotherProcessHasJustWritten) {
    const Daemon daemon;
    Bytes block1 = ask(kRead, {1});
    Bytes block2 = block2_without_clock();
    for (const Change& change : kChanges) {
        SCOPED_TRACE(change.sql);
        run_elsewhere(kConfDb, change.sql);
        put(change.block1, block1);
        put(change.block2, block2);
        EXPECT_EQ(to_hex(ask(kRead, {1})), to_hex(block1));
        EXPECT_EQ(to_hex(block2_without_clock()), to_hex(block2));
    }
    EXPECT_EQ(daemon.err(), "");
}

// Databases that cannot be read

int times(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Nothing but the block, and one below 0 for the constellation.
void expect_zeros() {
    Bytes block1(114);
    block1[0] = 1;
    block1[31] = 0xFF;
    EXPECT_EQ(to_hex(ask(kRead, {1})), to_hex(block1));
    Bytes block2(185);
    block2[0] = 2;
    EXPECT_EQ(to_hex(block2_without_clock()), to_hex(block2));
}

TEST_F(BoardConfiguration, OfALockedDatabaseIsZerosUntilItIsFree) {
    const TracedDaemon daemon(without_pauses());
    EXPECT_EQ(to_hex(exchange(hex("A5 01 00 00 00 01 01 FD"))), kFrame1);
    {
        const ForeignLock lock(kConfDb);
        expect_zeros();
    }
    // three attempts for each of the 46 and 25 values
    EXPECT_EQ(times(daemon.err(), "doSelect: database is locked"), 3 * (46 + 25));
    EXPECT_EQ(to_hex(exchange(hex("A5 01 00 00 00 01 01 FD"))), kFrame1);
    expect_block2("A5 01 00 00 00 01 02 FC");
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
    EXPECT_EQ(times(err, "doSelect: no such table: "), 3 * (46 + 25));
    run_elsewhere(kConfDb, restore);
    EXPECT_EQ(to_hex(exchange(hex("A5 01 00 00 00 01 01 FD"))), kFrame1);
    expect_block2("A5 01 00 00 00 01 02 FC");
    EXPECT_EQ(daemon.err(), err);
}

TEST_F(BoardConfiguration, NeedsNoStateDatabase) {
    const Daemon daemon;
    const ForeignLock lock(kTempDb);
    EXPECT_EQ(to_hex(exchange(hex("A5 01 00 00 00 01 01 FD"))), kFrame1);
    expect_block2("A5 01 00 00 00 01 02 FC");
    EXPECT_EQ(daemon.err(), "");
}

// The clock

const std::string kWritten = "A5 03 00 00 00 00 FD";

// 72 "09.05" and 73 "03.02.2024"; in CRC8 mode each byte of them XORed with 55.
constexpr char kSetTime[] = "A5 03 00 00 00 06 48 30 39 2E 30 35 B3";
constexpr char kSetDate[] = "A5 03 00 00 00 0B 49 30 33 2E 30 32 2E 32 30 32 34 C0";
constexpr char kSetTimeCrc8[] = "A5 83 00 00 00 06 1D 65 6C 7B 65 60 49 31";
constexpr char kSetDateCrc8[] = "A5 83 00 00 00 0B 1C 65 66 7B 65 67 7B 67 65 67 61 35 3B";

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
    EXPECT_EQ(to_hex(exchange(hex(kSetTime))), kWritten);
    EXPECT_EQ(to_hex(exchange(hex(kSetDate))), kWritten);
    EXPECT_EQ(to_hex(exchange(hex(kSetTimeCrc8))), kWritten);
    EXPECT_EQ(to_hex(exchange(hex(kSetDateCrc8))), kWritten);
    EXPECT_THAT(request_lines(log),
                ElementsAre(kTimeLines[0], kTimeLines[1], kTimeRefused, kDateLines[0],
                            kDateLines[1], kDateRefused, kTimeLines[0], kTimeLines[1], kTimeRefused,
                            kDateLines[0], kDateLines[1], kDateRefused));
    expect_block2("A5 01 00 00 00 01 02 FC");
    EXPECT_EQ(daemon.err(), "");
}

TEST_F(BoardConfiguration, ClockThatIsNotSetIsNotLoggedWithoutTheProtocolBit) {
    const SyslogReader log;
    const Daemon daemon({.options = {"-l", "31", "-s", "5"}});
    EXPECT_EQ(to_hex(exchange(hex(kSetTime))), kWritten);
    EXPECT_EQ(to_hex(exchange(hex(kSetDate))), kWritten);
    EXPECT_THAT(request_lines(log), IsEmpty());
}

struct Setting {
    const char* name;
    const char* request;
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
        EXPECT_EQ(to_hex(exchange(hex(setting.request))), kWritten);
        const std::time_t after = std::time(nullptr);
        EXPECT_THAT(request_lines(log), ElementsAreArray(setting.lines));
        // the machine's clock goes on
        expect_block2("A5 01 00 00 00 01 02 FC");
        daemon.stop();
        EXPECT_EQ(daemon.err(), "");
        EXPECT_THAT(calls_of_requests(),
                    ElementsAre(AnyOfArray(settings_between(before, after, setting.change))));
    }
}

}  // namespace
