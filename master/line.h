// The connections to a module, and the two of an exchange.
//
// A request goes out on one connection, its answer is collected on another one. The module takes
// what it accepts for what it needs next, so the two can be swapped; the request connection tells:
//   - nothing comes on it: the module has read the request, and its end with it;
//   - bytes come on it: it collected an answer that somebody left, and the request was not read;
//   - the module closes it before there is an answer: there will be none, and the collecting
//     connection is the next one that is read. Half closed then, it ends, too.
// The side that closes first keeps the connection in its kernel for a while, and the module's port
// with it. So the request connection is half closed with the request, and one that the module has
// closed is ended by reset.
#pragma once

#include <netinet/in.h>

#include <cstdint>

#include "link/mensaje.h"
#include "master/bytes.h"
#include "master/deadline.h"
#include "master/targets.h"
#include "master/wire.h"

namespace master {

// So many names are looked up at a time; each has a thread and up to two open files meanwhile,
// which may last longer than the deadline of who asked.
constexpr int kLookups = 64;

// Throws a Failure when there is no such host, or when the deadline is sooner.
sockaddr_in address_of(const Target& target, const Deadline& deadline);

// More than an answer can be on the wire, with every byte of it doubled.
constexpr std::size_t kFlood = 4 * kMaxFrame;

// A connection, closed at the end of its life: normally, but by reset once the other side has
// closed it, which then keeps nothing of it.
class Socket {
  public:
    // Begins to connect. This and all that has a deadline throw Failures.
    explicit Socket(const sockaddr_in& address);
    // Connects.
    Socket(const sockaddr_in& address, const Deadline& deadline);
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_; }
    // Whether it is connected by now; throws a Failure when it will not be.
    [[nodiscard]] bool connects() const;
    [[nodiscard]] bool ended() const { return ended_; }
    // It has not ended, but is gone.
    [[nodiscard]] bool broken() const { return broken_; }
    // Sends all, and with the last byte that nothing will follow.
    void send_all(std::span<const std::uint8_t> bytes, const Deadline& deadline);
    // Says that nothing will be sent any more.
    void end_sending();
    // Appends what has come to `bytes`. False when there is nothing and never will be.
    bool read_some(Bytes& bytes);
    // Reads up to the other side's end, and throws away what comes. False when the deadline was
    // sooner or the flood too large; `any` tells whether something came.
    bool read_to_end(const Deadline& deadline, bool& any);
    // The close will be a reset.
    void reset_at_end() { resets_ = true; }

  private:
    int descriptor_;
    bool ended_ = false;  // the other side, as far as it was read
    bool broken_ = false;
    bool resets_ = false;  // at its own end
};

// One exchange with a module.
class Line : public Wire {
  public:
    // The frames go to the trace file, unless the path is empty.
    Line(const sockaddr_in& address, const Deadline& deadline, std::string trace_path)
        : address_(address), deadline_(deadline), trace_path_(std::move(trace_path)) {}
    ~Line() override;

    void send(std::span<const std::uint8_t> frame) override;
    std::optional<std::uint8_t> next() override;
    void trace(const std::uint8_t* frame, unsigned direction) override;

    // Why next() has no byte.
    enum class End : std::uint8_t {
        open,       // it has
        deadline,   // none came in time
        left_over,  // the request connection collected the answer to another request
        stranger,   // bytes came on the request connection that begin no answer
        closed,     // the module closed the collecting connection
        flood,      // more came than an answer can hold
    };
    [[nodiscard]] End end() const { return end_; }
    // How many connections collected an answer that somebody left.
    [[nodiscard]] unsigned left_over() const { return left_over_; }
    // The module may have got something of the request.
    [[nodiscard]] bool connected() const { return request_.has_value(); }
    [[nodiscard]] const Bytes& sent() const { return sent_; }
    [[nodiscard]] const Bytes& received() const { return received_; }

  private:
    void fill();
    void take_from_request(const Bytes& bytes);

    sockaddr_in address_;
    Deadline deadline_;
    std::string trace_path_;
    std::optional<Socket> request_;
    std::optional<Socket> collection_;
    Bytes sent_;
    Bytes received_;
    std::size_t taken_ = 0;
    unsigned left_over_ = 0;
    End end_ = End::open;
};

}  // namespace master
