#include "app/watchdog.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "app/identity.h"
#include "processor/conf_log.h"

bool message_received = false;

namespace {

std::time_t monotonic_seconds() {
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

void* watch_reception(void* argument) {
    const auto* const limit = static_cast<const std::timespec*>(argument);
    log_line(LOG_INFO, "%s: comprobando recepcion de mensajes...", kIdentity);
    const std::time_t deadline = monotonic_seconds() + limit->tv_sec;
    while (deadline >= monotonic_seconds())
        sleep(1);
    if (!std::atomic_ref(message_received).load(std::memory_order_relaxed)) {
        log_line(LOG_INFO, "%s: No message received from client, restarting server", kIdentity);
        std::exit(1);
    }
    return nullptr;
}

}  // namespace

void start_reception_watchdog(const std::timespec* limit) {
    pthread_t thread{};
    pthread_create(&thread, nullptr, watch_reception, const_cast<std::timespec*>(limit));
}
