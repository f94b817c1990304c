// A long way to port 8001: what comes to a port of the relay arrives there later, and what comes
// back does, too, ends and resets included.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

class Relay {
  public:
    Relay(std::uint16_t port, std::chrono::milliseconds one_way);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

  private:
    void run();

    std::chrono::milliseconds one_way_;
    int listener_;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};
