// What the accessors say to the databases.
#pragma once

#include <string>
#include <vector>

// Collects the statements that run on ConfDB and TempDB during its life.
class Trace {
  public:
    Trace();
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    // Those since the last call.
    std::vector<std::string> take();

  private:
    std::vector<std::string> statements_;
};
