// A line on the terminal for those who wait: what for, from the second second on. Without a
// terminal on standard error there is none.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace zondarctl {

class Waiting {
  public:
    // `what` is asked several times a second, in another thread: "10.0.0.5:8001".
    explicit Waiting(std::function<std::string()> what);
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    // Nothing is shown during its life: somebody is asked or told something.
    class Pause {
      public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };

  private:
    void show(const std::stop_token& ended);

    std::function<std::string()> what_;
    std::mutex mutex_;
    std::condition_variable_any ending_;
    std::jthread thread_;
};

}  // namespace zondarctl
