// The real daemon on the sample board, listening.
#pragma once

#include <optional>

#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/master.h"

class RunningDaemon {
  public:
    explicit RunningDaemon(const Daemon::Setup& setup = {}) {
        make_board();
        daemon_.emplace(setup);
        empty_connection();
    }

    Daemon& operator*() { return *daemon_; }

  private:
    std::optional<Daemon> daemon_;
};
