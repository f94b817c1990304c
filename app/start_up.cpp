#include "app/start_up.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "processor/processor.h"

namespace {

constexpr long kNanosecondsPerSecond = 1'000'000'000;

pthread_mutex_t start_up_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t processor_ready = PTHREAD_COND_INITIALIZER;
std::atomic<bool> processor_up = false;  // hands over what the thread wrote; decides nothing

std::timespec deadline_after(const std::timespec& limit) {
    std::timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += limit.tv_sec;
    deadline.tv_nsec += limit.tv_nsec;
    if (deadline.tv_nsec >= kNanosecondsPerSecond) {
        deadline.tv_nsec -= kNanosecondsPerSecond;
        ++deadline.tv_sec;
    }
    return deadline;
}

void* bring_up_processor(void* /*unused*/) {
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    [[maybe_unused]] const int status = std::system("/quelt/script/g_ether_reload.sh");
    while (zondar_process_init() != 0)
        sleep(1);
    processor_up.store(true);
    // Without the mutex: the supervisor took it before it made this thread, so it is waiting.
    pthread_cond_signal(&processor_ready);
    return nullptr;
}

}  // namespace

int supervise_start_up(const std::timespec& limit) {
    pthread_mutex_lock(&start_up_mutex);
    const std::timespec deadline = deadline_after(limit);
    pthread_t thread{};
    pthread_create(&thread, nullptr, bring_up_processor, nullptr);
    for (;;) {
        const int result = pthread_cond_timedwait(&processor_ready, &start_up_mutex, &deadline);
        if (result == 0)
            break;
        if (result == ETIMEDOUT)
            std::exit(1);
        sleep(1);
    }
    pthread_mutex_unlock(&start_up_mutex);
    processor_up.load();
    return 0;
}
