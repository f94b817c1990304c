#include "master/resync.h"

#include <fmt/format.h>
#include <poll.h>

#include <cerrno>
#include <cstring>
#include <list>
#include <vector>

#include "link/mensaje.h"
#include "master/failure.h"
#include "master/line.h"
#include "transport/tcp_transport.h"

namespace master {

namespace {

// Failed reads that end a reception.
constexpr unsigned kNeeded = read_attempts(kRequestTimeout);

// The module's queue holds one more.
constexpr std::size_t kUnderWay = 5;

// More left-over answers than a module that reads can have.
constexpr unsigned kReplayed = 3;

using Clock = std::chrono::steady_clock;

struct Empty {
    Empty(const sockaddr_in& address, unsigned in) : socket(address), reception(in) {}

    Socket socket;
    unsigned reception;
    Clock::time_point opened = Clock::now();
    bool connected = false;
    Bytes received = {};
};

class Resync {
  public:
    Resync(const sockaddr_in& address, const Deadline& deadline, TargetLock& lock,
           unsigned& left_over)
        : address_(address), deadline_(deadline), lock_(lock), left_over_(left_over) {
        if (!lock.unsettled() || lock.failed_reads() >= kNeeded)
            lock.set_failed_reads(0);
        failed_reads_ = before_ = lock.failed_reads();
    }

    void run() {
        while (failed_reads_ < kNeeded || !under_way_.empty()) {
            if (left_over_ >= kReplayed)
                throw Replay();
            open();
            wait();
            under_way_.remove_if([this](Empty& empty) { return has_ended(empty); });
        }
        lock_.settle();
    }
    [[nodiscard]] Clock::duration took() const { return took_; }

  private:
    // One alone until the module is seen to read: one that carries out old requests does so for
    // each.
    void open() {
        const std::size_t most = reads_ ? kUnderWay : 1;
        while (under_way_.size() < most && failed_reads_ + under_way_.size() < kNeeded)
            under_way_.emplace_back(address_, reception_);
    }

    void wait() {
        states_.clear();
        for (const Empty& empty : under_way_)
            states_.push_back({empty.socket.descriptor(),
                               static_cast<short>(empty.connected ? POLLIN : POLLOUT), 0});
        if (poll(states_.data(), states_.size(), static_cast<int>(deadline_.left().count())) == 0)
            give_up();
    }

    bool has_ended(Empty& empty) {
        if (!empty.connected) {
            empty.connected = empty.socket.connects();
            if (empty.connected)
                empty.socket.end_sending();
            return false;
        }
        const bool goes_on = empty.socket.read_some(empty.received);
        if (!empty.received.empty() && empty.received.front() != kStartByte)
            throw NoModule(empty.received);
        if (empty.received.size() > kFlood)
            give_up();
        if (goes_on)
            return false;
        if (empty.socket.broken() && empty.received.empty())
            throw NoConnection(std::strerror(ECONNRESET));
        took_ = Clock::now() - empty.opened;
        count(empty);
        return true;
    }

    // A new reception begins behind an answer. How the module had those in order that were under
    // way then is not known, so none of them counts.
    void count(const Empty& empty) {
        if (!empty.received.empty()) {
            ++left_over_;
            ++reception_;
            reads_ = false;
            failed_reads_ = before_ = 0;
        } else if (empty.reception == reception_) {
            reads_ = true;
            ++failed_reads_;
        }
        lock_.set_failed_reads(failed_reads_);
    }

    [[noreturn]] void give_up() const {
        if (failed_reads_ != before_)
            throw Failure(Stage::resync,
                          fmt::format("the module is still being re-synchronised, by {} of {} "
                                      "connections so far; the next call goes on",
                                      failed_reads_, kNeeded));
        if (!under_way_.front().connected)
            throw NoConnection("time-out");
        throw Failure(Stage::resync,
                      "the module could not be re-synchronised in time: it is busy, or another "
                      "master holds it");
    }

    sockaddr_in address_;
    Deadline deadline_;
    TargetLock& lock_;
    unsigned& left_over_;
    unsigned failed_reads_ = 0;
    unsigned before_ = 0;  // of them, those of an earlier call
    std::list<Empty> under_way_;
    std::vector<pollfd> states_;
    unsigned reception_ = 0;
    bool reads_ = false;  // the module does, in this reception
    Clock::duration took_{};
};

}  // namespace

std::chrono::milliseconds resynchronise(const sockaddr_in& address, const Deadline& deadline,
                                        TargetLock& lock, unsigned& left_over) {
    Resync resync(address, deadline, lock, left_over);
    resync.run();
    return std::chrono::ceil<std::chrono::milliseconds>(resync.took());
}

}  // namespace master
