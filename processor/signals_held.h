// What a signal must not interrupt.
#pragma once

#include <csignal>

// Holds all signals of this thread back during its life. The handler of a fatal signal logs, for
// which the C library locks its log and its time zone: on a thread that is just using one of these
// it would wait for ever for the lock that this very thread holds.
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
