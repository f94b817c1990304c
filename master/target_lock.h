// One of our programs at a time asks a module: a file per target, locked as long as one does. The
// file also remembers that a program went away before its answer came.
#pragma once

#include <netinet/in.h>

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
    [[nodiscard]] bool unsettled() const;
    void set_unsettled(bool unsettled) const;

  private:
    int descriptor_;
};

}  // namespace master
