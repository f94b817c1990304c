// The example for rsyslog, with a real rsyslogd at /dev/log: which lines land in which file.
#include <gmock/gmock.h>
#include <syslog.h>

#include <csignal>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kLines = "/var/log/zondar.log";
const std::string kAlarms = "/var/log/zondar-alarms.log";
const std::string kOthers = "/var/log/syslog";  // what Debian's own rules would take

constexpr char kExamples[] = ZONDAR_SOURCE_DIR "/packaging/rsyslog";

class LogFiles : public testing::Test {
  protected:
    LogFiles() {
        write_file(kOthers, "");
        write_file("/tmp/rsyslog.conf",
                   "module(load=\"imuxsock\")\n"
                   "include(file=\"" +
                       std::string(kExamples) +
                       "/zondar.conf\")\n"
                       "action(type=\"omfile\" file=\"" +
                       kOthers + "\")\n");
        const ProgramRun run = run_program(
            {"/usr/sbin/rsyslogd", "-f", "/tmp/rsyslog.conf", "-i", "/tmp/rsyslogd.pid"});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
    }

    // Logs a line under a name, as another program would.
    static void log(const char* name, int priority, const char* text) {
        openlog(name, 0, LOG_DAEMON);
        syslog(priority, "%s", text);
        closelog();
    }

    // What stands in a file once all that was logged before has been written.
    static std::string written(const std::string& path) {
        log("end", LOG_INFO, "of the test");
        EXPECT_TRUE(
            eventually([] { return read_file(kOthers).find(" end:") != std::string::npos; }));
        return read_file(path);
    }
};

TEST_F(LogFiles, HaveTheLinesOfTheDaemonApartFromOthers) {
    make_board();
    log("neighbour", LOG_INFO, "a line of another program");
    {
        Daemon daemon({.options = {"-l", "112", "-s", "5"}});
        exchange(frame(4));
        EXPECT_EQ(daemon.stop(SIGTERM), 1);
    }
    const std::string lines = written(kLines);
    for (const char* line :
         {"]: Program started by User 0\n", "]: Program running with pid: ",
          "]: CMD: Peticion de identificacion\n", "]: Exiting due to signal Terminated.\n",
          " zondar_net_receiver[", "]: Se cierra quelt_listener por recepcion señal LINUX\n"})
        EXPECT_THAT(lines, HasSubstr(line));
    EXPECT_THAT(lines, Not(HasSubstr("neighbour")));
    EXPECT_EQ(read_file(kAlarms), "");
    EXPECT_THAT(read_file(kOthers), HasSubstr("neighbour"));
    EXPECT_THAT(read_file(kOthers), Not(HasSubstr("Program started")));
}

TEST_F(LogFiles, TellWhatSomebodyShouldLookAt) {
    struct Line {
        const char* name;
        int priority;
        const char* text;
    };
    constexpr char kDaemon[] = "ZONDAR_NET_RECEIVER";
    constexpr char kStream[] = "zondar_net_receiver";  // standard error, by way of a supervisor
    const Line alarms[] = {
        {kDaemon, LOG_LOCAL0 | LOG_CRIT, "No existe la base de datos. Saliendo..."},
        {kDaemon, LOG_LOCAL0 | LOG_CRIT, "Exiting due to signal Segmentation fault."},
        {kDaemon, LOG_LOCAL0 | LOG_ERR, "Unable to create pidfile: /run/x, continuing..."},
        {kDaemon, LOG_INFO, "ZONDAR_NET_RECEIVER: No message received from client, restarting"},
        {kDaemon, LOG_WARNING, "ERROR: Peticion de escritura no exitosa."},
        {kDaemon, LOG_WARNING, "FILE: Error al recuperar la MAC."},
        {kStream, LOG_INFO, "[ERROR_DB]update: database is locked"},
        {kStream, LOG_INFO, "accept error: Too many open files"},
    };
    const Line others[] = {
        {kDaemon, LOG_NOTICE, "Program started by User 0"},
        {kDaemon, LOG_LOCAL0 | LOG_CRIT, "Exiting due to signal Terminated."},
        {kStream, LOG_ERR, "Se cierra quelt_listener por recepcion señal LINUX"},
        {kStream, LOG_INFO, "[ERROR]recibir_mensaje_nenlace: Checksum NOK in message received"},
        {"neighbour", LOG_CRIT, "[ERROR_DB] of another program"},
    };
    for (const Line& line : alarms)
        log(line.name, line.priority, line.text);
    for (const Line& line : others)
        log(line.name, line.priority, line.text);
    const std::string told = written(kAlarms);
    for (const Line& line : alarms)
        EXPECT_THAT(told, HasSubstr(line.text));
    for (const Line& line : others)
        EXPECT_THAT(told, Not(HasSubstr(line.text)));
}

TEST(LogRotation, GoesBySize) {
    write_file(kLines, std::string(2'000'000, 'x'));
    write_file(kAlarms, "few\n");
    write_file("/tmp/logrotate", read_file(std::string(kExamples) + "/logrotate"));
    const ProgramRun run =
        run_program({"/usr/sbin/logrotate", "--state", "/tmp/state", "/tmp/logrotate"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(read_file(kLines + ".1").size(), 2'000'000U);
    EXPECT_EQ(read_file(kAlarms), "few\n");
}

}  // namespace
