// The values of a record: texts, nulls, copies, and the numbers that do not fit.
#include "queltdb/values.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace {

using queltdb::textoAEntero;
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;

static_assert(std::is_polymorphic_v<tSqlite3parent>);
static_assert(std::has_virtual_destructor_v<tSqlite3parent>);
static_assert(std::is_base_of_v<tSqlite3parent, tSqlite3int>);
static_assert(sizeof(tSqlite3parent) == 2 * sizeof(void*), "a virtual table and a text");
static_assert(sizeof(tSqlite3int) == sizeof(tSqlite3parent), "no fields of its own");

template <typename Value>
class Values : public testing::Test {};
using Kinds = testing::Types<tSqlite3parent, tSqlite3int>;
TYPED_TEST_SUITE(Values, Kinds);

TYPED_TEST(Values, HoldACopyOfAnyText) {
    for (const std::string text : {"", "0", "05", "text", "50%", "\x01\t\n\x7F", "\xC3\xB1\xFF"}) {
        SCOPED_TRACE(text);
        std::string given = text;
        const TypeParam value(given.c_str());
        given.assign(given.size(), 'x');
        EXPECT_STREQ(value.texto(), text.c_str());
        EXPECT_EQ(value.getString(), text);
    }
}

TYPED_TEST(Values, HoldTextsOfAnyLength) {
    const std::string text(3'000'000, 'x');
    EXPECT_EQ(TypeParam(text.c_str()).getString(), text);
}

TYPED_TEST(Values, HoldNull) {
    const char* const null = nullptr;
    const TypeParam value(null);
    EXPECT_EQ(value.texto(), nullptr);
    EXPECT_EQ(value.getString(), "");
}

TYPED_TEST(Values, TakeChangesOfTheirOwnText) {
    TypeParam value("50%");
    value.texto()[2] = ' ';
    EXPECT_EQ(value.getString(), "50 ");
}

TYPED_TEST(Values, AreCopiedWithTheirText) {
    auto original = std::make_unique<TypeParam>("abc");
    TypeParam copy(*original);
    EXPECT_NE(copy.texto(), original->texto());
    copy.texto()[0] = 'x';
    EXPECT_EQ(original->getString(), "abc");
    original.reset();
    EXPECT_EQ(copy.getString(), "xbc");

    const char* const null = nullptr;
    const TypeParam nothing(null);
    const TypeParam copy_of_nothing(nothing);
    EXPECT_EQ(copy_of_nothing.texto(), nullptr);
}

TYPED_TEST(Values, AreAssignedWithTheirText) {
    const char* const null = nullptr;
    for (const char* const before : {null, "", "before"}) {
        for (const char* const after : {null, "", "much longer than before"}) {
            SCOPED_TRACE(std::string(before == nullptr ? "NULL" : before) + " to " +
                         (after == nullptr ? "NULL" : after));
            TypeParam value(before);
            {
                const TypeParam source(after);
                value = source;
                if (after != nullptr) {
                    EXPECT_NE(value.texto(), source.texto());
                }
            }
            EXPECT_STREQ(value.texto(), after);
        }
    }
}

TYPED_TEST(Values, CanBeAssignedToThemselves) {
    TypeParam value("abc");
    const TypeParam& same = value;
    value = same;
    EXPECT_STREQ(value.texto(), "abc");
}

TYPED_TEST(Values, AreMovedWithTheirText) {
    TypeParam source("abc");
    const char* const text = source.texto();
    const TypeParam value(std::move(source));
    EXPECT_EQ(value.texto(), text);
    EXPECT_STREQ(value.texto(), "abc");
}

TYPED_TEST(Values, KeepTheirKindBehindAPointerToTheBase) {
    const std::unique_ptr<tSqlite3parent> value = std::make_unique<TypeParam>("12");
    const tSqlite3parent& base = *value;
    EXPECT_EQ(typeid(base), typeid(TypeParam));
    EXPECT_EQ(base.getString(), "12");
}

struct Number {
    long long value;
    const char* as_int;   // null when it is none
    const char* as_long;  // what fits into 19 characters
};

// The widths are the interface's: 9 characters of an int, 19 of a long; the rest is cut.
TEST(IntegerValues, HoldTheDecimalTextAsFarAsItFits) {
    for (const Number& number : {
             Number{0, "0", "0"},
             Number{5, "5", "5"},
             Number{-5, "-5", "-5"},
             Number{999'999'999, "999999999", "999999999"},
             Number{1'000'000'000, "100000000", "1000000000"},
             Number{1'234'567'890, "123456789", "1234567890"},
             Number{-99'999'999, "-99999999", "-99999999"},
             Number{-100'000'000, "-10000000", "-100000000"},
             Number{INT_MAX, "214748364", "2147483647"},
             Number{INT_MIN, "-21474836", "-2147483648"},
             Number{999'999'999'999'999'999, nullptr, "999999999999999999"},
             Number{LLONG_MAX, nullptr, "9223372036854775807"},
             Number{-999'999'999'999'999'999, nullptr, "-999999999999999999"},
             Number{LLONG_MIN, nullptr, "-922337203685477580"},
         }) {
        SCOPED_TRACE(number.value);
        if (!std::in_range<long>(number.value))
            continue;
        const auto value = static_cast<long>(number.value);
        EXPECT_STREQ(tSqlite3int(value).texto(), number.as_long);
        EXPECT_EQ(tSqlite3int(value).getString(), number.as_long);
        if (number.as_int != nullptr) {
            EXPECT_STREQ(tSqlite3int(static_cast<int>(value)).texto(), number.as_int);
        }
    }
}

// Whatever the number, so that a text put there in its place finds the same room.
TEST(IntegerValues, HaveAFixedRoomForTheText) {
    tSqlite3int narrow(0);
    std::strcpy(narrow.texto(), "123456789");
    EXPECT_EQ(narrow.getString(), "123456789");
    tSqlite3int wide(0L);
    std::strcpy(wide.texto(), "1234567890123456789");
    EXPECT_EQ(wide.getString(), "1234567890123456789");
}

TEST(IntegerValues, CopyNumbersToo) {
    const tSqlite3int number(-5);
    tSqlite3int copy(number);
    EXPECT_STREQ(copy.texto(), "-5");
    copy = tSqlite3int(1'234'567'890L);
    EXPECT_STREQ(copy.texto(), "1234567890");
}

TEST(TextoAEntero, TakesTheNumberThatATextBeginsWith) {
    EXPECT_EQ(textoAEntero(nullptr), 0);
    struct Reading {
        const char* text;
        int value;
    };
    for (const Reading& reading : {
             Reading{"", 0},
             Reading{"abc", 0},
             Reading{"a12", 0},
             Reading{"12ab", 12},
             Reading{"12 34", 12},
             Reading{"05", 5},
             Reading{" \t7", 7},
             Reading{"+3", 3},
             Reading{"-5", -5},
             Reading{"--5", 0},
             Reading{"0x1F", 0},
             Reading{"1.9", 1},
             Reading{"2147483647", INT_MAX},
             Reading{"-2147483648", INT_MIN},
         }) {
        SCOPED_TRACE(reading.text);
        EXPECT_EQ(textoAEntero(reading.text), reading.value);
    }
}

}  // namespace
