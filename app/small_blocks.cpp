// The program's operator new and delete: small blocks are kept for the next one that is as small.
// A select makes and frees a value and a text for every column of a row; the general allocator
// keeps only seven of a size at hand, and merges and splits the others each time. What is more than
// any select of a sound board needs goes back to the system.
#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kSmall = 24;          // holds a value, a number's text, most other texts
constexpr std::size_t kWaste = 16;          // a block may be so much larger
constexpr unsigned kMostSpares = 2048;      // they take 64 KiB
constexpr unsigned kFreedPerTrim = 65'536;  // they took 2 MiB, worth a walk through the heap

struct Spare {
    Spare* next;
};
constinit thread_local Spare* spares = nullptr;
constinit thread_local unsigned spare_count = 0;
constinit thread_local unsigned freed_count = 0;

// The general allocator neither merges blocks as small as these by itself nor gives up what lies
// below a page that is still in use.
void free_small(void* block) {
    std::free(block);
    if (++freed_count % kFreedPerTrim == 0)
        malloc_trim(0);
}

}  // namespace

void* operator new(std::size_t size) {
    if (size <= kSmall) {
        if (Spare* const block = spares) {
            spares = block->next;
            --spare_count;
            return block;
        }
        size = kSmall;
    }
    void* const block = std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    if (block == nullptr)
        return;
    // None is smaller than kSmall: all are made above.
    if (malloc_usable_size(block) >= kSmall + kWaste)
        return std::free(block);
    if (spare_count == kMostSpares)
        return free_small(block);
    spares = new (block) Spare{spares};
    ++spare_count;
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}
