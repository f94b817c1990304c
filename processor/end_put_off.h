// What the handler of a fatal signal must not interrupt.
#pragma once

#include <csignal>

// During its life the handler of a fatal signal that comes to this thread puts its work off. It
// logs, for which the C library locks its log and its time zone: on a thread that is just using one
// of these it would wait for ever for the lock that this very thread holds. The signal itself comes
// through, so that the handler can limit the time until the end: whoever reads the log may never
// come back.
class EndPutOff {
  public:
    using End = void (*)();

    EndPutOff() { depth_ = depth_ + 1; }
    ~EndPutOff() {
        depth_ = depth_ - 1;
        const End end = end_;
        if (depth_ != 0 || end == nullptr)
            return;
        end_ = nullptr;  // it logs, too
        end();
    }
    EndPutOff(const EndPutOff&) = delete;
    EndPutOff& operator=(const EndPutOff&) = delete;

    // For the handler: runs `end` now, or when no object of this thread is left.
    static void run(End end) {
        if (depth_ == 0)
            end();
        else
            end_ = end;
    }

  private:
    static inline constinit thread_local volatile std::sig_atomic_t depth_ = 0;
    static inline constinit thread_local volatile End end_ = nullptr;
};
