// The rules by which texts get into and out of fixed buffers.
#include "params/family.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tests/support/bytes.h"

namespace {

TEST(PutText, FillsTheBufferByItsRuleAndTouchesNothingElse) {
    struct Case {
        std::string_view text;
        int size;
        Bytes bounded;
        Bytes terminated;
    };
    const Case cases[] = {
        {"abc", INT_MIN, {}, {}},
        {"abc", -1, {}, {}},
        {"abc", 0, {}, {}},
        {"abc", 1, {'a'}, {0}},
        {"abc", 2, {'a', 'b'}, {'a', 0}},
        {"abc", 3, {'a', 'b', 'c'}, {'a', 'b', 0}},
        {"abc", 4, {'a', 'b', 'c', 0}, {'a', 'b', 'c', 0}},
        {"abc", 6, {'a', 'b', 'c', 0, 0, 0}, {'a', 'b', 'c', 0, 0, 0}},
        {"", 0, {}, {}},
        {"", 1, {0}, {0}},
        {"", 3, {0, 0, 0}, {0, 0, 0}},
        {std::string_view(), 3, {0, 0, 0}, {0, 0, 0}},  // no text, not even an address
    };
    for (const Case& put : cases) {
        for (const Copy rule : {Copy::bounded, Copy::terminated}) {
            SCOPED_TRACE(testing::Message() << "'" << put.text << "', size " << put.size);
            SCOPED_TRACE(rule == Copy::bounded ? "bounded" : "terminated");
            const Bytes& expected = rule == Copy::bounded ? put.bounded : put.terminated;
            Bytes memory(expected.size() + 2, 0xEE);
            put_text(put.text, rule, memory.data() + 1, put.size);
            EXPECT_EQ(to_hex(memory), to_hex(joined({{0xEE}, expected, {0xEE}})));
        }
    }
}

TEST(PutText, TakesAllZerosOfATextForText) {
    Bytes memory(5, 0xEE);
    put_text(std::string_view("a\0b", 3), Copy::terminated, memory.data(), 5);
    EXPECT_EQ(to_hex(memory), "61 00 62 00 00");
}

TEST(TextWithin, IsWhatLeavesRoomForANul) {
    struct Case {
        const char* text;
        unsigned size;
        const char* expected;
    };
    constexpr Case kCases[] = {
        {"Portugal", 0, ""},
        {"Portugal", 1, ""},
        {"Portugal", 2, "P"},
        {"Portugal", 5, "Port"},
        {"Portugal", 8, "Portuga"},
        {"Portugal", 9, "Portugal"},
        {"Portugal", 10, "Portugal"},
        {"Portugal", UINT_MAX, "Portugal"},
        {"", 0, ""},
        {"", 1, ""},
        {"", 9, ""},
    };
    for (const Case& text : kCases) {
        SCOPED_TRACE(text.size);
        EXPECT_EQ(text_within(text.text, text.size), text.expected);
    }
}

TEST(Complete, FindsColumnsThatDoNotStandAtTheirSelector) {
    struct Column {
        int selector;
    };
    constexpr Column kInOrder[] = {{0}, {1}, {2}};
    constexpr Column kSwapped[] = {{0}, {2}, {1}};
    constexpr Column kShifted[] = {{1}, {2}, {3}};
    EXPECT_TRUE(complete(kInOrder, 2));
    EXPECT_FALSE(complete(kInOrder, 3));
    EXPECT_FALSE(complete(kInOrder, 1));
    EXPECT_FALSE(complete(kSwapped, 1));
    EXPECT_FALSE(complete(kSwapped, 2));
    EXPECT_FALSE(complete(kShifted, 3));
    EXPECT_FALSE(complete(kShifted, 2));
}

TEST(Writable, FindsColumnsWithoutASetterOfTheirKind) {
    using Record = queltdb::tAlarmasEstado;
    using enum Record::Place;
    EXPECT_TRUE(writable<IntegerColumn<Record>>({{0, EstadoPendienteRE}, {1, std::nullopt}}));
    EXPECT_FALSE(writable<IntegerColumn<Record>>({{0, EstadoPendienteRE}, {1, EstadoPendienteWR}}));
    EXPECT_FALSE(writable<IntegerColumn<Record>>({{0, valor}}));
    EXPECT_TRUE(writable<TextColumn<Record>>({{0, valor}}));
    EXPECT_FALSE(writable<TextColumn<Record>>({{0, nombre}}));
    EXPECT_FALSE(writable<TextColumn<Record>>({{0, EstadoPendienteRE}}));
}

}  // namespace
