#include "app/log_system.h"

#include <syslog.h>

#include <array>

namespace {

constexpr std::array<int, 5> kMaskOfLevel = {
    LOG_UPTO(LOG_EMERG),  LOG_UPTO(LOG_ERR),  LOG_UPTO(LOG_WARNING),
    LOG_UPTO(LOG_NOTICE), LOG_UPTO(LOG_INFO),
};

}  // namespace

int AbrirLogSistema(const char* identity, unsigned level, bool log_to_stderr) {
    const int options = LOG_PID | LOG_CONS | LOG_NDELAY;
    openlog(identity, log_to_stderr ? options | LOG_PERROR : options, LOG_DAEMON);
    if (level >= kMaskOfLevel.size())
        return 0;
    return setlogmask(kMaskOfLevel[level]);
}
