// What goes wrong between a master and a module, by the stage at which it did.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string>

#include "master/bytes.h"

namespace master {

enum class Stage : std::uint8_t {
    resolve,   // no address of the host
    lock,      // another program asks this module, for longer than the call may take
    connect,   // no connection
    resync,    // the module was not brought back to between two frames
    answer,    // no answer in time, or not a whole one
    code,      // checksum or CRC of the answer wrong
    sequence,  // sequence number of the answer not 0
    command,   // an answer to something else
    refused,   // the module refused the request
};

inline constexpr const char* kStageNames[] = {"resolve", "lock",     "connect", "resync", "answer",
                                              "code",    "sequence", "command", "refused"};
static_assert(std::size(kStageNames) == static_cast<std::size_t>(Stage::refused) + 1);

constexpr const char* name_of(Stage stage) {
    return kStageNames[static_cast<std::size_t>(stage)];
}

// What became of a request that changes something.
enum class Outcome : std::uint8_t {
    none,       // the request only reads
    not_sent,   // nothing of it left
    not_taken,  // the module did not carry it out, and will not
    unknown,    // the module may have carried it out, or may do so yet
};

constexpr Outcome outcome_at(Stage stage) {
    if (stage == Stage::refused)
        return Outcome::not_taken;
    return stage <= Stage::resync ? Outcome::not_sent : Outcome::unknown;
}

class Failure : public std::runtime_error {
  public:
    Failure(Stage stage, const std::string& message) : Failure(stage, message, outcome_at(stage)) {}
    Failure(Stage stage, const std::string& message, Outcome outcome)
        : std::runtime_error(message), stage_(stage), outcome_(outcome) {}

    [[nodiscard]] Stage stage() const { return stage_; }
    // A Session that cannot be made tells not_sent, whatever it was meant for.
    [[nodiscard]] Outcome outcome() const { return outcome_; }
    void set_outcome(Outcome outcome) { outcome_ = outcome; }

  private:
    Stage stage_;
    Outcome outcome_;
};

class NoConnection : public Failure {
  public:
    explicit NoConnection(const std::string& why)
        : Failure(Stage::connect, "no connection: " + why) {}
};

// One that asking again would not mend, nor re-synchronising, so neither is done.
class Lasting : public Failure {
  public:
    using Failure::Failure;
};

// The module gives answers that nobody asked for: behind an accept that failed it reads nothing,
// and carries out again what it received before, one request for each connection.
class Replay : public Lasting {
  public:
    Replay()
        : Lasting(Stage::command,
                  "the module carries out old requests again, one for each connection: its daemon "
                  "must be restarted, not re-synchronised",
                  Outcome::not_sent) {}
};

// What came begins no frame.
class NoModule : public Lasting {
  public:
    explicit NoModule(const Bytes& received);
};

}  // namespace master
