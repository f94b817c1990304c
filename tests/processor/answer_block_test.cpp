// Layouts of answers: what the compile-time checks let through, and which bytes a table writes.
#include "processor/answer_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <span>

#include "link/mensaje.h"
#include "tests/support/bytes.h"

namespace {

std::uint32_t pattern() {
    return 0x12345678;
}

// Two fields behind each other, and a table that differs from it in one thing.
constexpr Field kPair[] = {{2, 1, pattern}, {3, 2, pattern}};
static_assert(ordered(kPair, 2, 5));
static_assert(gapless(kPair, 2, 5));

// A byte of the range before or behind the fields: in order, but a gap.
static_assert(ordered(kPair, 1, 5) && !gapless(kPair, 1, 5));
static_assert(ordered(kPair, 2, 6) && !gapless(kPair, 2, 6));
// A field that begins before the range or ends behind it.
static_assert(!ordered(kPair, 3, 5) && !gapless(kPair, 3, 5));
static_assert(!ordered(kPair, 2, 4) && !gapless(kPair, 2, 4));

constexpr Field kGapBetween[] = {{2, 1, pattern}, {4, 1, pattern}};
static_assert(ordered(kGapBetween, 2, 5) && !gapless(kGapBetween, 2, 5));

constexpr Field kOverlap[] = {{2, 2, pattern}, {3, 2, pattern}};
static_assert(!ordered(kOverlap, 2, 5) && !gapless(kOverlap, 2, 5));

// The widths add up to the range, which is not enough.
constexpr Field kOverlapBesideAGap[] = {{2, 2, pattern}, {3, 1, pattern}};
static_assert(!ordered(kOverlapBesideAGap, 2, 5) && !gapless(kOverlapBesideAGap, 2, 5));

constexpr Field kTwice[] = {{2, 1, pattern}, {2, 1, pattern}};
static_assert(!ordered(kTwice, 2, 4) && !gapless(kTwice, 2, 4));

constexpr Field kBackwards[] = {{3, 2, pattern}, {2, 1, pattern}};
static_assert(!ordered(kBackwards, 2, 5) && !gapless(kBackwards, 2, 5));

// A value has at most four bytes, zeros any number.
constexpr Field kWidest[] = {{0, 4, pattern}, {4, 9}};
static_assert(ordered(kWidest, 0, 13) && gapless(kWidest, 0, 13));
constexpr Field kTooWide[] = {{0, 5, pattern}};
static_assert(!ordered(kTooWide, 0, 5) && !gapless(kTooWide, 0, 5));

// A value without width would still be written as one byte.
constexpr Field kNoWidth[] = {{0, 0, pattern}, {0, 1, pattern}};
static_assert(!ordered(kNoWidth, 0, 1) && !gapless(kNoWidth, 0, 1));

// Zeros overlap as values do.
constexpr Field kZerosOverlap[] = {{0, 3}, {2, 1, pattern}};
static_assert(!ordered(kZerosOverlap, 0, 3) && !gapless(kZerosOverlap, 0, 3));

static_assert(ordered({}, 3, 3) && gapless({}, 3, 3));
static_assert(ordered({}, 3, 4) && !gapless({}, 3, 4));
static_assert(!ordered({}, 4, 3) && !gapless({}, 4, 3));

// An answer whose every byte shows whether it was written.
mensaje marked_answer() {
    mensaje answer{};
    std::fill_n(frame_area(answer), sizeof answer, std::uint8_t{0xEE});
    return answer;
}

struct Written {
    const char* name;
    Field field;
    const char* first_bytes;  // of the info
};

constexpr Written kWritten[] = {
    {.name = "one byte", .field = {0, 1, pattern}, .first_bytes = "78 EE EE EE EE EE EE EE"},
    {.name = "two", .field = {0, 2, pattern}, .first_bytes = "56 78 EE EE EE EE EE EE"},
    {.name = "three", .field = {0, 3, pattern}, .first_bytes = "34 56 78 EE EE EE EE EE"},
    {.name = "four", .field = {0, 4, pattern}, .first_bytes = "12 34 56 78 EE EE EE EE"},
    {.name = "elsewhere", .field = {3, 2, pattern}, .first_bytes = "EE EE EE 56 78 EE EE EE"},
    {.name = "highest bit",
     .field = {4, 4, [] { return 0x80000001U; }},
     .first_bytes = "EE EE EE EE 80 00 00 01"},
    // Zero already, as answers begin.
    {.name = "no value", .field = {0, 8}, .first_bytes = "EE EE EE EE EE EE EE EE"},
};

TEST(AnswerBlock, HoldsTheLowBytesOfAValueBigEndian) {
    for (const Written& c : kWritten) {
        SCOPED_TRACE(c.name);
        mensaje answer = marked_answer();
        put_fields({&c.field, 1}, answer);
        EXPECT_EQ(to_hex(std::span(answer.info).first(8)), c.first_bytes);
    }
}

TEST(AnswerBlock, ReachesTheLastByteOfTheInfoAndNoFurther) {
    constexpr Field kLast[] = {{253, 2, pattern}};
    mensaje answer = marked_answer();
    put_fields(kLast, answer);
    EXPECT_EQ(to_hex(std::span(answer.info).last(3)), "EE 56 78");
    EXPECT_EQ(answer.checksum_rx, 0xEE);
    EXPECT_EQ(answer.longitud, 0xEE);
}

// Values of one answer that depend on each other in time are read in the order of the table.
TEST(AnswerBlock, ReadsEachValueOnceAndInOrder) {
    static std::uint32_t reads = 0;
    constexpr auto kCount = [] { return ++reads; };
    constexpr Field kFields[] = {{0, 1, kCount}, {1, 2, kCount}, {3, 1}, {4, 1, kCount}};
    mensaje answer{};
    put_fields(kFields, answer);
    EXPECT_EQ(to_hex(std::span(answer.info).first(6)), "01 00 02 00 03 00");
    EXPECT_EQ(reads, 3U);
}

TEST(AnswerBlock, OfNoFieldsWritesNothing) {
    mensaje answer = marked_answer();
    put_fields({}, answer);
    EXPECT_EQ(to_hex(answer.info), to_hex(Bytes(255, 0xEE)));
}

}  // namespace
