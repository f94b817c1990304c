// Waiting for something that another process or thread is about to do.
#pragma once

#include <chrono>
#include <thread>

// Generous: it only bounds a test that is failing anyway.
constexpr std::chrono::seconds kPatience{20};

// True as soon as `condition` holds, false when it still does not after `patience`.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds patience = kPatience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
