#include "tests/support/pauses.h"

#include <unistd.h>

#include <utility>

namespace {

std::vector<unsigned> pauses;
std::function<void()> during_pause;

}  // namespace

// Takes the C library's place in the program it is linked into.
extern "C" unsigned sleep(unsigned seconds) {
    pauses.push_back(seconds);
    if (during_pause)
        during_pause();
    return 0;
}

std::vector<unsigned> take_pauses() {
    return std::exchange(pauses, {});
}

void during_pauses(std::function<void()> action) {
    during_pause = std::move(action);
}
