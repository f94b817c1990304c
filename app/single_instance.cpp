#include "app/single_instance.h"

#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

namespace {

// Whoever may not be signalled (EPERM) counts as gone too.
bool is_running(pid_t pid) {
    return kill(pid, 0) == 0;
}

void check_previous_instance(const std::string& pidfile) {
    std::ifstream file(pidfile);
    if (!file)
        return;
    pid_t pid = 0;
    if (!(file >> pid) || pid < 1) {
        syslog(LOG_LOCAL0 | LOG_ERR,
               "Unexpected pidfile contents. Cannot detect multiple process instances.");
    } else if (is_running(pid)) {
        syslog(LOG_LOCAL0 | LOG_CRIT, "Program already running, exiting...");
        std::exit(1);
    }
}

void write_own_pid(const std::string& pidfile) {
    std::ofstream file(pidfile, std::ios::trunc);
    if (file)
        file << getpid() << '\n';
    else
        syslog(LOG_LOCAL0 | LOG_ERR, "Unable to create pidfile: %s, continuing...",
               pidfile.c_str());
}

}  // namespace

void EvitarMultiplesInstancias(const std::string& pidfile) {
    if (pidfile.empty())
        return;
    check_previous_instance(pidfile);
    write_own_pid(pidfile);
    syslog(LOG_LOCAL0 | LOG_INFO, "Program running with pid: %d", getpid());
}
