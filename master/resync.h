// Brings a module back to between two frames, whatever it was sent before: as many connections
// without a byte as end a reception that was begun.
#pragma once

#include <netinet/in.h>

#include <chrono>

#include "master/deadline.h"
#include "master/target_lock.h"

namespace master {

// Goes on where the lock says, and settles it. What was left uncollected is collected on the way,
// and counted in `left_over`: a module that reads has one answer, or another one to a request whose
// end came late; a third one makes this throw a Replay. Throws a Failure. Returns how long the last
// connection took.
std::chrono::milliseconds resynchronise(const sockaddr_in& address, const Deadline& deadline,
                                        TargetLock& lock, unsigned& left_over);

}  // namespace master
