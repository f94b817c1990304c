// What goes wrong between a master and a module, by the stage at which it did.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace master {

enum class Stage : std::uint8_t {
    lock,      // another program asks this module, for longer than the call may take
    connect,   // no connection
    answer,    // no answer in time, or not a whole one
    code,      // checksum or CRC of the answer wrong
    sequence,  // sequence number of the answer not 0
    command,   // an answer to something else
    refused,   // the module refused the request
};

class Failure : public std::runtime_error {
  public:
    Failure(Stage stage, const std::string& message) : std::runtime_error(message), stage_(stage) {}

    [[nodiscard]] Stage stage() const { return stage_; }

  private:
    Stage stage_;
};

// The module gives answers that nobody asked for: behind an accept that failed it reads nothing,
// and carries out again what it received before, one request for each connection. So nothing more
// is asked of it.
class Replay : public Failure {
  public:
    Replay()
        : Failure(Stage::command,
                  "the module carries out old requests again, one for each connection: its daemon "
                  "must be restarted, not re-synchronised") {}
};

}  // namespace master
