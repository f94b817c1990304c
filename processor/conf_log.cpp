#include "processor/conf_log.h"

#include <syslog.h>

#include <cstdarg>

#include "processor/end_put_off.h"

std::uint32_t conf_log = 0;

void log_line(int priority, const char* format, ...) {
    const EndPutOff end_put_off;
    std::va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

void log_category(std::uint32_t category, int priority, const char* text) {
    if ((conf_log & category) != 0)
        log_line(priority, "%s", text);
}
