// One of our programs at a time asks a module: a file per target, locked by flock() as long as one
// does. Who waits for it queues by a lock on a byte of the file, so that the first that came is
// served first and the place of one that is killed is gone with it. The file's size remembers what
// a program that went away left to be done.
#pragma once

#include <netinet/in.h>

#include <chrono>

#include "master/deadline.h"

namespace master {

class TargetLock {
  public:
    // Waits until the lock is free; throws a Failure when the deadline is sooner.
    TargetLock(const sockaddr_in& address, const Deadline& deadline);
    ~TargetLock();
    TargetLock(const TargetLock&) = delete;
    TargetLock& operator=(const TargetLock&) = delete;

    // The module may be in the middle of something.
    [[nodiscard]] bool unsettled() const { return size() != 0; }
    void settle() const { resize(0); }
    // How many of the reads that bring it back have failed by now; of an unsettled one alone.
    [[nodiscard]] unsigned failed_reads() const { return static_cast<unsigned>(size() - 1); }
    // Makes it unsettled.
    void set_failed_reads(unsigned count) const { resize(off_t{1} + count); }

  private:
    explicit TargetLock(int descriptor) : descriptor_(descriptor) {}

    bool queue();
    bool nobody_takes_it();
    [[nodiscard]] bool first_in_queue() const;
    [[nodiscard]] off_t size() const;
    void resize(off_t size) const;

    int descriptor_;
    std::chrono::steady_clock::time_point free_since_;
    off_t place_ = 0;
};

}  // namespace master
