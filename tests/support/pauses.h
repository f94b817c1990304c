// The pauses between attempts, taken in no time: a program that links `pauses` has this sleep().
#pragma once

#include <functional>
#include <vector>

// The seconds of each pause since the last call.
std::vector<unsigned> take_pauses();

// What happens during each pause from now on; null for nothing.
void during_pauses(std::function<void()> action);
