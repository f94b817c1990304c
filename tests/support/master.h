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
    // Says that nothing more is sent; an answer can still come.
    void end_sending() const;
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

// An empty connection: opened, its sending side ended, whatever comes read to the end. On return
// the daemon is done with it: it saw the end, which is one failed attempt to read, or sent an
// answer.
Bytes empty_connection();

// Connects and closes at once, whether or not somebody listens: ends an accept that waits.
void nudge();

// Brings the daemon back to between two frames, whatever it was sent before: 501 failed attempts
// in a row end a reception. Answers that nobody collected are collected on the way.
void resynchronise();
