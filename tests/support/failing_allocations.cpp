#include "tests/support/failing_allocations.h"

#include <cstdlib>

long allocations_left = -1;
long live_allocations = 0;

namespace {

void* allocate(std::size_t size) {
    if (allocations_left-- == 0)
        throw std::bad_alloc();
    void* const memory = std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    ++live_allocations;
    return memory;
}

void release(void* memory) {
    live_allocations -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
