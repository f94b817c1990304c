// Where the frames of link/ come from and go to in a master: wire.cpp stands in for the daemon's
// transport and trace, and keeps the link's messages off the standard streams.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "master/bytes.h"

namespace master {

class Wire {
  public:
    Wire() = default;
    virtual ~Wire() = default;
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    // Takes a whole stuffed frame.
    virtual void send(std::span<const std::uint8_t> frame) = 0;
    // The next byte; nothing when there will not be one.
    virtual std::optional<std::uint8_t> next() = 0;
    // Is shown each frame as link/trace_file.h has it.
    virtual void trace(const std::uint8_t* /*frame*/, unsigned /*direction*/) {}
};

// Makes a wire the one that link/ uses in this thread, for its life.
class UseWire {
  public:
    explicit UseWire(Wire& wire);
    ~UseWire();
    UseWire(const UseWire&) = delete;
    UseWire& operator=(const UseWire&) = delete;

  private:
    Wire* before_;
};

// Bytes at rest: keeps the frame that is sent, hands out bytes that are there already.
class Tape : public Wire {
  public:
    Tape() = default;
    // Borrows the bytes.
    explicit Tape(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

    void send(std::span<const std::uint8_t> frame) override {
        sent_.assign(frame.begin(), frame.end());
    }
    std::optional<std::uint8_t> next() override {
        if (rest_.empty())
            return std::nullopt;
        const std::uint8_t byte = rest_.front();
        rest_ = rest_.subspan(1);
        return byte;
    }

    [[nodiscard]] const Bytes& sent() const { return sent_; }
    // What was not handed out yet.
    [[nodiscard]] std::span<const std::uint8_t> rest() const { return rest_; }

  private:
    std::span<const std::uint8_t> rest_;
    Bytes sent_;
};

}  // namespace master
