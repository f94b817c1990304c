// Many real daemons at once, each on a board of its own at an address of its own. One that ends is
// started again, as a supervisor does: one that nobody asks anything ends after half a minute.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/daemon.h"

class Fleet {
  public:
    // All of them listen on return. The sample board, of which theirs are copies, is at /quelt
    // then.
    explicit Fleet(std::size_t size);
    // Ends them; fails the test when a sanitizer had something to say.
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    // Of the module `i`, its port is 8001: 127.1.0.1 for the first one.
    static std::string address(std::size_t i);
    // ZN2024002000 of the first one, the next one's is one higher.
    static std::string serial_number(std::size_t i);
    // What it has as /quelt.
    static std::string board(std::size_t i);
    static std::string conf_db(std::size_t i);
    static std::string temp_db(std::size_t i);
    // Of its daemon, another one after each start; that of a dead one was it.
    [[nodiscard]] pid_t pid(std::size_t i) const;

    // It takes connections and does nothing with them, up to resume().
    void hang(std::size_t i);
    void resume(std::size_t i);
    // Nobody listens there any more, up to revive().
    void kill(std::size_t i);
    void revive(std::size_t i);

  private:
    struct Module {
        std::unique_ptr<Daemon> daemon;
        bool dead = false;
    };

    void start(std::size_t i);
    void keep_alive();

    mutable std::mutex mutex_;
    std::vector<Module> modules_;
    bool ending_ = false;
    std::thread keeper_;
};
