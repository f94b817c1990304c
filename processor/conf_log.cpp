#include "processor/conf_log.h"

#include <syslog.h>

std::uint32_t conf_log = 0;

void log_category(std::uint32_t category, int priority, const char* text) {
    if ((conf_log & category) != 0)
        syslog(priority, "%s", text);
}
