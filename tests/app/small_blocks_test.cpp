// The program's operator new and delete, in whose place this test program has them too.
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <vector>

namespace {

// As the compiler may not assume of a new expression.
void* made(std::size_t size) {
    return ::operator new(size);
}

void given_back(void* block) {
    ::operator delete(block);
}

TEST(SmallBlocks, AreUsedAgainForAllThatIsAsSmall) {
    for (const std::size_t size : {0U, 1U, 16U, 24U}) {
        void* const block = made(size);
        given_back(block);
        void* const next = made(24);
        EXPECT_EQ(next, block) << size;
        std::memset(next, 0xFF, 24);
        given_back(next);
    }
}

TEST(SmallBlocks, GoOutInTheReverseOrderOfTheirReturn) {
    void* const first = made(8);
    void* const second = made(8);
    ASSERT_NE(first, second);
    given_back(first);
    given_back(second);
    EXPECT_EQ(made(8), second);
    EXPECT_EQ(made(8), first);
    given_back(first);
    given_back(second);
}

TEST(SmallBlocks, AreNotMadeOfLargeOnes) {
    void* const small = made(24);
    void* const large = made(64);
    given_back(small);
    given_back(large);
    EXPECT_EQ(made(24), small);
    EXPECT_NE(made(24), large);
}

TEST(SmallBlocks, HoldWhatIsWrittenToThem) {
    constexpr std::size_t kBlocks = 500;
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<char[]>> blocks;
        for (std::size_t i = 0; i < kBlocks; ++i) {
            const std::size_t size = i % 40 + 1;
            blocks.push_back(std::make_unique<char[]>(size));
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i].get()) %
                          __STDCPP_DEFAULT_NEW_ALIGNMENT__,
                      0U);
            std::memset(blocks[i].get(), static_cast<int>(i % 100), size);
        }
        for (std::size_t i = 0; i < kBlocks; ++i) {
            for (std::size_t k = 0; k < i % 40 + 1; ++k)
                ASSERT_EQ(blocks[i][k], static_cast<char>(i % 100));
        }
    }
}

TEST(SmallBlocks, BelongToTheThreadThatGaveThemBack) {
    void* const block = made(24);
    given_back(block);
    // Not a std::thread, which makes a small block itself.
    pthread_t thread{};
    const auto make_another = [](void* others) -> void* {
        void* const own = made(24);
        EXPECT_NE(own, others);
        given_back(own);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, make_another, block), 0);
    pthread_join(thread, nullptr);
    void* const again = made(24);
    EXPECT_EQ(again, block);
    given_back(again);
}

// As many are kept as a select of a few rows needs. The others go back to where they came from:
// what one answer took for a large table does not stay for ever.
TEST(SmallBlocks, AreKeptUpToABound) {
    constexpr std::size_t kBlocks = 200'000;
    std::vector<void*> blocks(kBlocks);
    for (void*& block : blocks)
        block = made(24);
    const std::size_t taken = mallinfo2().uordblks;
    for (void* const block : blocks)
        given_back(block);
    const std::size_t kept = mallinfo2().uordblks;
    EXPECT_GE(taken - kept, (kBlocks - 2100) * 32);
    EXPECT_LE(taken - kept, (kBlocks - 2000) * 32);
    for (void*& block : blocks)
        block = made(24);
    EXPECT_EQ(mallinfo2().uordblks, taken);
    for (void* const block : blocks)
        given_back(block);
    EXPECT_EQ(mallinfo2().uordblks, kept);
}

std::size_t resident_pages() {
    std::ifstream file("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    file >> all >> resident;
    return resident;
}

// Although they are small, and although one above them is still in use.
TEST(SmallBlocks, GoBackToTheSystemWhenTheyAreMany) {
    constexpr std::size_t kBlocks = 500'000;
    std::vector<void*> blocks(kBlocks);
    const std::size_t before = resident_pages();
    for (void*& block : blocks)
        block = made(24);
    void* const last = made(24);
    const std::size_t with_all = resident_pages();
    EXPECT_GE(with_all - before, kBlocks * 32 / 4096);
    for (void* const block : blocks)
        given_back(block);
    EXPECT_LE(resident_pages() - before, (with_all - before) / 4);
    given_back(last);
}

TEST(SmallBlocks, TakeNullBack) {
    given_back(nullptr);
}

TEST(SmallBlocks, ThrowWhenThereIsNoMemory) {
    std::vector<void*> blocks;
    blocks.reserve(1U << 20U);
    const rlimit limit{std::size_t{64} << 20U, std::size_t{64} << 20U};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    EXPECT_THROW(made(std::size_t{1} << 30U), std::bad_alloc);
    bool thrown = false;
    try {
        while (blocks.size() < blocks.capacity() * 4)
            blocks.push_back(made(24));
    } catch (const std::bad_alloc&) {
        thrown = true;
    }
    EXPECT_TRUE(thrown);
    for (void* const block : blocks)
        given_back(block);
}

}  // namespace
