// Allocations that fail, one after the other. Whoever links this has another operator new.
#pragma once

#include <gtest/gtest.h>

#include <new>

extern long allocations_left;  // before the one that fails; below zero none does
extern long live_allocations;

// Runs `code` with its first allocation failing, then with its second one and so on, until it gets
// to its end; the number of allocations that it took.
template <typename Code>
long with_each_allocation_failing(Code code) {
    for (long n = 0;; ++n) {
        const long before = live_allocations;
        bool thrown = false;
        allocations_left = n;
        try {
            code();
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
        allocations_left = -1;
        EXPECT_EQ(live_allocations, before) << "left behind when allocation " << n << " failed";
        if (!thrown)
            return n;
    }
}
