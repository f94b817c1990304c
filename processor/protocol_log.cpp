#include "processor/protocol_log.h"

#include <syslog.h>

#include "processor/conf_log.h"

void log_request(const char* text) {
    log_category(kLogZondar, LOG_DEBUG, text);
}

void log_problem(const char* text) {
    log_category(kLogZondar, LOG_WARNING, text);
}

void log_if_failed(int result) {
    if (result < 0)
        log_problem("ERROR: Peticion de escritura no exitosa.\n");
}
