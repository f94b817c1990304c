// The two guards of the real daemon, waited for. How long their limits are is held by
// times_test.cpp.
#include <gmock/gmock.h>

#include <chrono>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/protocol_document.h"
#include "tests/support/wait.h"
#include "tests/system/program_end.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

const LogLine kNothingCame =
    logged(kInfo, "ZONDAR_NET_RECEIVER: No message received from client, restarting server");

class Guards : public testing::Test {
  protected:
    Guards() { make_board(); }
};

// Start-up supervisor

TEST_F(Guards, EndSilentlyWhenAScriptHangs) {
    write_script("/quelt/script/g_ether_reload.sh", "exec sleep 100");
    const ProgramEnd end = run_to_end({.options = {"-p", "", "-l", "127", "-s", "5"}});
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(end.log, ElementsAre(kStarted));
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_GE(end.lived.count(), 10.0);
}

TEST_F(Guards, EndSilentlyWhenADeviceScriptHangs) {
    write_script("/quelt/script/MAC", "exec sleep 100");
    const ProgramEnd end = run_to_end({.options = {"-p", "", "-l", "127", "-s", "5"}});
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(end.log, ElementsAre(kStarted));
    EXPECT_EQ(end.err, "");
    EXPECT_GE(end.lived.count(), 10.0);
}

TEST_F(Guards, AllowASlowScript) {
    write_script("/quelt/script/g_ether_reload.sh", "exec sleep 4");
    const SyslogReader log;
    const Daemon daemon;
    EXPECT_TRUE(log.wait_for(kReady.text));
}

// Reception watchdog

// Waits for the end of a daemon that got this request, and for `trace` of it on standard error.
void expect_end_in_spite_of(const Bytes& request, const std::string& trace) {
    const SyslogReader log;
    const auto start = std::chrono::steady_clock::now();
    Daemon daemon({.options = {"-p", ""}});
    if (!request.empty())
        send_request(request);
    EXPECT_TRUE(eventually([&] { return daemon.err().find(trace) != std::string::npos; }));
    EXPECT_EQ(daemon.wait(), 1);
    const std::chrono::duration<double> lived = std::chrono::steady_clock::now() - start;
    EXPECT_THAT(log.lines(), Contains(kWatching));
    EXPECT_EQ(log.lines().back(), kNothingCame);
    EXPECT_EQ(log.count(kNothingCame.text), 1);
    EXPECT_GE(lived.count(), 30.0);
}

TEST_F(Guards, EndAfterSilence) {
    expect_end_in_spite_of({}, "");
}

TEST_F(Guards, EndInSpiteOfAWrongChecksum) {
    expect_end_in_spite_of(hex("A5 04 00 00 00 00 FD"), "Checksum NOK in message received");
}

TEST_F(Guards, EndInSpiteOfAWrongSequence) {
    expect_end_in_spite_of(frame(0x14), "SEQUENCE ERROR: Expected: 0 Recieved: 1");
}

TEST_F(Guards, EndInSpiteOfHalfAFrame) {
    expect_end_in_spite_of(hex("A5 04 00 00"), "");
}

// Long after the check it still runs and answers.
void expect_life_after(const Bytes& request, const std::string& answer) {
    const SyslogReader log;
    Daemon daemon;
    send_request(request);
    if (!answer.empty()) {
        EXPECT_EQ(to_hex(collect_answer()), answer);
    }
    EXPECT_FALSE(eventually([&] { return !daemon.running(); }, std::chrono::seconds(36)));
    EXPECT_EQ(log.count(kNothingCame.text), 0);
    EXPECT_EQ(to_hex(exchange(frame(4))), document::answer(frame(4)));
}

TEST_F(Guards, AreContentWithOneRequest) {
    expect_life_after(frame(4), document::answer(frame(4)));
}

// A valid frame, although nobody answers its command.
TEST_F(Guards, AreContentWithAnUnsupportedCommand) {
    expect_life_after(frame(5), "");
}

}  // namespace
