// Ctrl-C, for commands that finish what they are doing first.
#pragma once

namespace zondarctl {

// From now on Ctrl-C, SIGTERM and the end of the terminal are noted once. A second one ends the
// program at once, whatever it waits for, unless it must not be disturbed.
void heed_interrupts();
bool interrupted();

// Nothing ends the program during its life.
class Undisturbed {
  public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;
};

}  // namespace zondarctl
