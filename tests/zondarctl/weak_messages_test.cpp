// What somebody gets to read who mistypes, or meets something that is no module: what was wrong,
// and what would be right.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/frames.h"
#include "tests/support/peer.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char kLock[] = "/tmp/zondar-127.0.0.1-8001.lock";

struct Row {
    std::vector<std::string> words;
    int status;
    const char* says;  // a regular expression
};

void expect_said(const Row& row, const std::string& input = "") {
    SCOPED_TRACE(testing::PrintToString(row.words));
    const ProgramRun run = run_zondarctl(row.words, input);
    EXPECT_EQ(run.status, row.status);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, MatchesRegex(std::string("zondarctl: ") + row.says + "\n"));
}

const Row kWithoutModule[] = {
    // Values, before a module is asked.
    {{"set", "RFOut.Canal_Salida", "abc"}, 2, "RFOut.Canal_Salida takes 0 to 255, not 'abc'"},
    {{"set", "RFOut.Canal_Salida", "-1"}, 2, "RFOut.Canal_Salida takes 0 to 255, not '-1'"},
    {{"set", "RFOut.Canal_Salida", "21.0"}, 2, "RFOut.Canal_Salida takes 0 to 255, not '21.0'"},
    {{"set", "RFOut.Canal_Salida", ""}, 2, "RFOut.Canal_Salida takes 0 to 255, not ''"},
    {{"set", "RFOut.Frecuencia=16777216"},
     2,
     "RFOut.Frecuencia takes 0 to 16777215 kHz, not '16777216'"},
    {{"encode", "RFOut.Canal_Salida", "abc"}, 2, "RFOut.Canal_Salida takes 0 to 255, not 'abc'"},
    {{"set", "ServiciosSalida.0.Nombre", "Canal", "Uno"}, 2, "[^\n]*quote a text with blanks"},
    {{"country", "Great", "Britain"},
     2,
     "'Britain' is one word too many: quote a text with blanks"},
    // Commands and options.
    {{"statsu"}, 2, "no command statsu; did you mean status\\?"},
    {{"STATSU"}, 2, "no command STATSU; did you mean status\\?"},
    {{"slave", "regster"}, 2, "no command regster; did you mean register\\?"},
    {{"db", "chek"}, 2, "no command chek; did you mean check\\?"},
    {{"help", "statsu"}, 2, "no command statsu; did you mean status\\?"},
    {{"help", "slave", "regster"}, 2, "no command regster; did you mean register\\?"},
    {{"status", "--jsno"}, 2, "no option --jsno; did you mean --json\\?"},
    {{"--tiemout=5", "status"}, 2, "no option --tiemout; did you mean --timeout\\?"},
    {{"slave", "register", "0a1b2c3d4e5f", "--serail", "x"},
     2,
     "no option --serail; did you mean --serial\\?"},
    {{"get", "--quite", "Red.NID"}, 2, "no option --quite; did you mean --quiet\\?"},
    {{"--port", "abc", "status"}, 2, "--port: 'abc' is no number; 1 to 65535"},
    {{"-t", "5s", "status"}, 2, "--timeout: '5s' is no number; 0.001 to 86400"},
    {{"-t", "0", "status"}, 2, "--timeout: '0' is out of range; 0.001 to 86400"},
    // Names.
    {{"get", "RFOut.Canal_salid"},
     2,
     "no parameter RFOut.Canal_salid; did you mean RFOut.Canal_Salida\\?"},
    {{"get", "Bitrat"},
     2,
     "no parameter Bitrat; did you mean EntradaAV.0.Bitrate or EntradaAV.1.Bitrate\\?"},
    {{"describe", "Red.NDI"}, 2, "no parameter Red.NDI; did you mean Red.NID\\?"},
    {{"get", "xyz.abcdef"}, 2, "no parameter xyz.abcdef; `zondarctl list` has them all"},
    {{"list", "brigthness"},
     2,
     "no parameter has 'brigthness' in its name or meaning; did you mean brightness\\?"},
    {{"--host", "::1", "status"}, 2, "::1: IPv4 only, HOST or HOST:PORT"},
    // Files.
    {{"decode", "/nonexistent"}, 2, "/nonexistent: No such file or directory"},
    {{"decode", "capture.pcap"}, 2, "capture.pcap: No such file or directory"},
    {{"decode", "capture"}, 2, "capture: No such file or directory"},
    {{"decode", "/tmp"}, 2, "/tmp: Is a directory"},
};

TEST(WeakMessage, SaysWhatWouldBeRight) {
    for (const Row& row : kWithoutModule)
        expect_said(row);
}

TEST(WeakMessage, IsHelp) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"help"}, {"help", "SET"}, {"help", "slave", "register"}}) {
        std::vector<std::string> asked(words.begin() + 1, words.end());
        asked.emplace_back("--help");
        const ProgramRun help = run_zondarctl(words);
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.out, run_zondarctl(asked).out);
        EXPECT_THAT(help.out, HasSubstr("Usage: "));
    }
}

// What never ends is read so far and no farther.
TEST(WeakMessage, EndsOnInputThatDoesNot) {
    const std::pair<const char*, const char*> cases[] = {
        {"decode < /dev/zero",
         "zondarctl: standard input: no capture file, and more than 4 MiB of digits\n"},
        {"decode /dev/zero",
         "zondarctl: /dev/zero: no capture file, and more than 4 MiB of digits\n"},
    };
    for (const auto& [line, says] : cases) {
        const ProgramRun run = run_program({"/bin/sh", "-c", zondarctl_path() + " " + line});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, says);
    }
}

TEST(WeakMessage, IsNoneAboutHexadecimalDigitsInAnyWriting) {
    const std::string frame = "A5 03 00 00 00 02 3F 3C 80\n";
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"encode", "3", "0x3F", "0x3C"},
          {"encode", "3", "0x3F3C"},
          {"encode", "3", "0x3F, 0x3C"},
          {"encode", "3", "3F,3C"}})
        EXPECT_EQ(run_zondarctl(words).out, frame) << testing::PrintToString(words);
    EXPECT_THAT(run_zondarctl({"decode", "0xA503000000023F3C80"}).out,
                HasSubstr("  IPOut.SAP_Time  60\n"));
    const RunningDaemon daemon;
    EXPECT_EQ(run_zondarctl({"raw", "3", "0x3F", "0x3C"}).status, 0);
    EXPECT_EQ(run_zondarctl({"get", "IPOut.SAP_Time"}).out, "IPOut.SAP_Time  60\n");
}

TEST(WeakMessage, SaysThatAValueIsNeverStored) {
    const RunningDaemon daemon;
    const ProgramRun run = run_zondarctl({"set", "Red.TSID_Out", "5"});
    EXPECT_THAT(run.out + run.err, HasSubstr("takes it and never stores it"));
}

TEST(WeakMessage, SaysThatItIsNoModule) {
    for (const char* const banner :
         {"SSH-2.0-OpenSSH_9.2p1\r\n", "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n"}) {
        std::filesystem::remove(kLock);  // with its mark that the module is to be re-synchronised
        const Peer peer([&](const Peer::Accept& accept) {
            while (const auto visitor = accept())
                visitor->send(text_bytes(banner));
        });
        expect_said(
            {{"status", "-r", "0"}, 4, "127.0.0.1:8001: what answers there is no module: [^\n]*"});
    }
}

TEST(WeakMessage, SaysWhoIsAskingTheModule) {
    const int lock = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const std::string says =
        "127.0.0.1:8001: another program is asking this module: [^\n]*, process " +
        std::to_string(getpid());
    expect_said({{"status", "-t", "0.1"}, 8, says.c_str()});
    close(lock);
}

}  // namespace
