#include "processor/conf_log.h"

#include <syslog.h>

#include <csignal>
#include <cstdarg>

std::uint32_t conf_log = 0;

namespace {

// The handler of a fatal signal logs, too. On a thread that is just logging it would wait for ever
// for the lock that this very thread holds.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace

void log_line(int priority, const char* format, ...) {
    const SignalsHeld held;
    std::va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

void log_category(std::uint32_t category, int priority, const char* text) {
    if ((conf_log & category) != 0)
        log_line(priority, "%s", text);
}
