// A conversation with a module: requests and their answers, one after the other, with the target
// locked and within one deadline. Any number of threads may have one each.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "master/bytes.h"
#include "master/deadline.h"
#include "master/line.h"
#include "master/request.h"
#include "master/target_lock.h"

namespace master {

struct Settings {
    Target target = {};
    std::chrono::milliseconds timeout{5000};
    // How often a request that reads is repeated when its answer is damaged, missing, or one to
    // something else.
    unsigned retries = 2;
    bool crc8_mode = false;
    std::string trace_path = {};  // of the trace file; empty for none
    // Told the bytes of each exchange, as they went over the wire.
    std::function<void(const Bytes& sent, const Bytes& received)> on_exchange = {};
};

class Session {
  public:
    // Resolves and locks the target. All members throw Failures.
    explicit Session(const Settings& settings);

    // Renews the deadline for all that follows.
    void allow(std::chrono::milliseconds timeout);
    // The answer's info. A request that the module refuses is a Failure.
    Bytes ask(const Request& request);
    // How often the module had to be brought back to between two frames.
    [[nodiscard]] unsigned resyncs() const { return resyncs_; }
    // Brings the module back to between two frames; what a far one takes longer for, the next call
    // goes on with. ask() does so by itself after an exchange, this program's or another's, that
    // did not end well.
    void resync();

  private:
    Bytes ask_repeatedly(const Request& request);
    Bytes ask_once(const Request& request);
    Bytes exchange(const Request& request);
    // How long a connection takes.
    std::chrono::milliseconds bring_back();
    [[noreturn]] void no_answer(const Line& line) const;
    void check(int result, const mensaje& answer, const Request& request, const Line& line) const;
    void tell(const Line& line) const;

    Settings settings_;
    Deadline deadline_;
    sockaddr_in address_;
    TargetLock lock_;
    unsigned resyncs_ = 0;
    unsigned left_over_ = 0;  // answers to somebody else, since all was well
};

}  // namespace master
