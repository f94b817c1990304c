// Something other than a module that listens on port 8001: it does with each connection what the
// test tells it, in a thread of its own.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "tests/support/bytes.h"

class Peer {
  public:
    // A connection that was accepted; closed normally at the end of its life.
    class Visitor {
      public:
        explicit Visitor(int socket) : socket_(socket) {}
        ~Visitor();
        Visitor(const Visitor&) = delete;
        Visitor& operator=(const Visitor&) = delete;

        // Everything up to the other side's end.
        [[nodiscard]] Bytes read_to_end() const;
        // The next bytes; empty at the other side's end.
        [[nodiscard]] Bytes read_some() const;
        void send(std::span<const std::uint8_t> bytes) const;
        // Sends; false when the other side takes no more.
        [[nodiscard]] bool takes(std::span<const std::uint8_t> bytes) const;
        void reset_at_end() const;
        // How the other side has ended it by now: "normal", "reset", or "none" while it has not.
        [[nodiscard]] std::string end() const;

      private:
        int socket_;
    };

    // Accepts the next connection; null once the peer is ending.
    using Accept = std::function<std::unique_ptr<Visitor>()>;

    // Listens from now on; `act` runs in the thread, once, and ends when accept gives null.
    explicit Peer(std::function<void(const Accept& accept)> act, int backlog = 5);
    // Ends it: accepting gives null from now on, and a send or read of a visitor fails.
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

  private:
    int listener_;
    std::thread thread_;
};

// Takes requests and gives each the same bytes as its answer, on a connection of its own, as long
// as there are any.
void answer_with(const Peer::Accept& accept, const Bytes& answer);

// The same with an answer to each request in turn; an empty one is none. Returns behind the last.
void answer_in_turn(const Peer::Accept& accept, const std::vector<Bytes>& answers);
