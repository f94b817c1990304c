// The master's side of the wire: bare connections to port 8001, no frame knowledge.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tests/support/bytes.h"

// A connection to the daemon, closed normally at the end of its life.
class Connection {
  public:
    // Waits until the port takes connections; throws when it does not.
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void send(std::span<const std::uint8_t> bytes) const;
    // Everything that comes until the daemon closes; what came so far when it does not close.
    [[nodiscard]] Bytes read_to_end() const;
    // True when nothing comes and nothing is closed within a moment.
    [[nodiscard]] bool stays_silent() const;
    // The end of life as a reset instead: leaves no trace of the connection in the kernel, so the
    // port can be bound again at once.
    void reset_at_end() const;

  private:
    int socket_ = -1;
};

// Sends a request on a connection of its own and closes it.
void send_request(std::span<const std::uint8_t> request);

// Collects an answer on a connection of its own, ended by reset.
Bytes collect_answer();

// Both.
Bytes exchange(std::span<const std::uint8_t> request);
