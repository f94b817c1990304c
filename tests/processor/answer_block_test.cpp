// Which bytes of an answer a table of fields writes.
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

constexpr protocol::Layout kAny = protocol::Layout::status;

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
    {.name = "one byte",
     .field = {kAny, 0, 1, 0, pattern},
     .first_bytes = "78 EE EE EE EE EE EE EE"},
    {.name = "two", .field = {kAny, 0, 2, 0, pattern}, .first_bytes = "56 78 EE EE EE EE EE EE"},
    {.name = "three", .field = {kAny, 0, 3, 0, pattern}, .first_bytes = "34 56 78 EE EE EE EE EE"},
    {.name = "four", .field = {kAny, 0, 4, 0, pattern}, .first_bytes = "12 34 56 78 EE EE EE EE"},
    {.name = "elsewhere",
     .field = {kAny, 3, 2, 0, pattern},
     .first_bytes = "EE EE EE 56 78 EE EE EE"},
    {.name = "highest bit",
     .field = {kAny, 4, 4, 0, [] { return 0x80000001U; }},
     .first_bytes = "EE EE EE EE 80 00 00 01"},
    // Zero already, as answers begin.
    {.name = "no value", .field = {kAny, 0, 8, 0}, .first_bytes = "EE EE EE EE EE EE EE EE"},
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
    constexpr Field kLast[] = {{kAny, 253, 2, 0, pattern}};
    mensaje answer = marked_answer();
    put_fields(kLast, answer);
    EXPECT_EQ(to_hex(std::span(answer.info).last(3)), "EE 56 78");
    EXPECT_EQ(answer.checksum_rx, 0xEE);
    EXPECT_EQ(answer.longitud, 255);
}

TEST(AnswerBlock, PutsBitsBesideEachOther) {
    constexpr auto kSet = [] { return 1U; };
    constexpr auto kClear = [] { return 0U; };
    constexpr Field kFields[] = {{kAny, 0, 1, 0, kSet},
                                 {kAny, 0, 1, 3, kSet},
                                 {kAny, 0, 1, 4, kClear},
                                 {kAny, 0, 1, 7, kSet},
                                 {kAny, 1, 1, 1, kSet}};
    mensaje answer{};
    put_fields(kFields, answer);
    EXPECT_EQ(to_hex(std::span(answer.info).first(3)), "89 02 00");
    EXPECT_EQ(answer.longitud, 2);
}

TEST(AnswerBlock, GivesTheAnswerTheLengthOfItsFields) {
    constexpr Field kFields[] = {{kAny, 0, 1, 0, pattern}, {kAny, 1, 9, 0}};
    mensaje answer{};
    put_fields(kFields, answer);
    EXPECT_EQ(answer.longitud, 10);
}

// Values of one answer that depend on each other in time are read in the order of the table.
TEST(AnswerBlock, ReadsEachValueOnceAndInOrder) {
    static std::uint32_t reads = 0;
    constexpr auto kCount = [] { return ++reads; };
    constexpr Field kFields[] = {
        {kAny, 0, 1, 0, kCount}, {kAny, 1, 2, 0, kCount}, {kAny, 3, 1, 0}, {kAny, 4, 1, 0, kCount}};

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
