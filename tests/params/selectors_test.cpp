// Sweeps over all selectors of all families, see selectors.h.
#include "tests/params/selectors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/trace.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string& path_of(const Family& family) {
    return std::string_view(family.table) == "Bitrate_Nulos" ? kTempDb : kConfDb;
}

std::string key_column_of(const Family& family) {
    return Database(path_of(family))
        .value("SELECT name FROM pragma_table_info('" + std::string(family.table) + "')");
}

// A selector, in the table or not, and what it stands for.
struct Choice {
    int number;
    const Selector* selector;  // null for no column
};

std::vector<Choice> choices(const Family& family) {
    std::vector<Choice> all;
    for (const Selector& selector : family.selectors)
        all.push_back({selector.number, selector.column == nullptr ? nullptr : &selector});
    const Selector* const outside = family.outside_is_first ? family.selectors.data() : nullptr;
    for (const int number : {-1, INT_MIN, static_cast<int>(family.selectors.size()), 255, INT_MAX})
        all.push_back({number, outside});
    return all;
}

std::string said(const Choice& choice, const Key& key) {
    return "selector " + std::to_string(choice.number) + ", row " + std::to_string(key.given);
}

std::string cell(const Family& family, const Key& key, const char* column) {
    return std::string(family.table) + " " + std::to_string(key.row) + " " + column;
}

// Sets a column of the row with the key 1.
void store(const Family& family, const char* column, const std::string& value) {
    run_elsewhere(path_of(family), std::string("UPDATE ") + family.table + " SET " + column +
                                       " = " + value + " WHERE rowid = 1");
}

// What is given for the row with the key 1.
int given_for_row_1(const Family& family) {
    for (const Key& key : family.keys) {
        if (key.row == 1)
            return key.given;
    }
    throw std::logic_error("no row 1");
}

void remove_row_1(const Family& family) {
    run_elsewhere(path_of(family), std::string("DELETE FROM ") + family.table + " WHERE rowid = 1");
}

// The `size` bytes that a getstr leaves; checks that it touches no other.
std::string got(const Family& family, int selector, int key, int size) {
    constexpr std::size_t kGuard = 16;
    const std::size_t room = size < 0 ? 0 : static_cast<std::size_t>(size);
    std::vector<std::uint8_t> memory(kGuard + room + kGuard, 0xEE);
    family.getstr(selector, key, memory.data() + kGuard, size);
    const std::string bytes(memory.begin(), memory.end());
    EXPECT_EQ(bytes.substr(0, kGuard), std::string(kGuard, '\xEE'));
    EXPECT_EQ(bytes.substr(kGuard + room), std::string(kGuard, '\xEE'));
    return bytes.substr(kGuard, room);
}

std::string padded(std::string text, int size) {
    text.resize(static_cast<std::size_t>(size));
    return text;
}

// A text without NUL whose last byte is the last one that can be read.
class UnreadableBehind {
  public:
    explicit UnreadableBehind(std::string_view text) {
        void* const memory =
            mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::runtime_error("no memory");
        memory_ = static_cast<char*>(memory);
        mprotect(memory_ + page_, page_, PROT_NONE);
        text_ = memory_ + page_ - text.size();
        text.copy(text_, text.size());
    }
    ~UnreadableBehind() { munmap(memory_, 2 * page_); }
    UnreadableBehind(const UnreadableBehind&) = delete;
    UnreadableBehind& operator=(const UnreadableBehind&) = delete;

    [[nodiscard]] const char* text() const { return text_; }

  private:
    std::size_t page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char* memory_ = nullptr;
    char* text_ = nullptr;
};

// Reading integers.

TEST_P(IntegerReads, HaveTheNumbersThatMastersAndProgramsUse) {
    int number = 0;
    for (const Selector& selector : GetParam().selectors) {
        EXPECT_EQ(selector.number, number++);
        EXPECT_EQ(selector.member, selector.number);
    }
}

TEST_P(IntegerReads, TakeTheirColumnOfTheirRow) {
    const Family& family = GetParam();
    const Contents before = contents();
    for (const Choice& choice : choices(family)) {
        for (const Key& key : family.keys) {
            SCOPED_TRACE(said(choice, key));
            std::string expected = "0";
            if (choice.selector != nullptr)
                expected = before.at(cell(family, key, choice.selector->column));
            if (expected.front() == '\'')  // a number held in a text column
                expected = expected.substr(1, expected.size() - 2);
            EXPECT_EQ(std::to_string(family.get(choice.number, key.given)), expected);
        }
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_P(IntegerReads, TakeANullAsZero) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    for (const Choice& choice : choices(family)) {
        if (choice.selector == nullptr)
            continue;
        SCOPED_TRACE(choice.number);
        store(family, choice.selector->column, "NULL");
        EXPECT_EQ(family.get(choice.number, key), 0);
    }
}

TEST_P(IntegerReads, TakeTheDigitsThatATextBeginsWith) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    struct Case {
        const char* stored;
        int number;
    };
    for (const Case& text : {Case{"'12ab'", 12}, {"'-7 8'", -7}, {"'ab12'", 0}, {"''", 0}}) {
        for (const Choice& choice : choices(family)) {
            if (choice.selector == nullptr)
                continue;
            SCOPED_TRACE(std::string(text.stored) + ", selector " + std::to_string(choice.number));
            store(family, choice.selector->column, text.stored);
            EXPECT_EQ(family.get(choice.number, key), text.number);
        }
    }
}

TEST_P(IntegerReads, GiveZeroWithoutTheirRow) {
    const Family& family = GetParam();
    remove_row_1(family);
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.get(choice.number, given_for_row_1(family)), 0);
    }
}

TEST_P(IntegerReads, GiveZeroForADoubledRow) {
    const Family& family = GetParam();
    double_row(family.table, 1);
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.get(choice.number, given_for_row_1(family)), 0);
    }
}

TEST_P(IntegerReads, AreOneSelectEachAndPrintNothing) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    Trace trace;
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(printed_by([&] { family.get(choice.number, key); }), Printed());
        EXPECT_THAT(trace.take(), ElementsAre(family.select));
    }
}

// Writing integers.

TEST_P(IntegerWrites, ChangeTheirColumnOfTheirRowAndNothingElse) {
    const Family& family = GetParam();
    Contents before = contents();
    int value = 424000;  // another one each time, since several selectors may stand for a column
    for (const Choice& choice : choices(family)) {
        for (const Key& key : family.keys) {
            SCOPED_TRACE(said(choice, key));
            EXPECT_EQ(family.set(choice.number, key.given, ++value), 0);
            const Contents after = contents();
            std::vector<std::string> expected;
            if (choice.selector != nullptr) {
                const std::string name = cell(family, key, choice.selector->column);
                expected = {name + ": " + before.at(name) + " -> " + std::to_string(value)};
            }
            EXPECT_EQ(changes(before, after), expected);
            before = after;
        }
    }
}

TEST_P(IntegerWrites, HoldNineCharactersOfANumber) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    struct Case {
        int given;
        int stored;
    };
    constexpr Case kCases[] = {
        {0, 0},
        {1, 1},
        {-1, -1},
        {999999999, 999999999},
        {-99999999, -99999999},
        {1000000000, 100000000},
        {-123456789, -12345678},
        {INT_MAX, 214748364},
        {INT_MIN, -21474836},
    };
    for (const Case& number : kCases) {
        for (const Selector& selector : family.selectors) {
            if (selector.column == nullptr)
                continue;
            SCOPED_TRACE(std::to_string(number.given) + " in " + selector.column);
            EXPECT_EQ(family.set(selector.number, key, number.given), 0);
            EXPECT_EQ(contents().at(cell(family, {key, 1}, selector.column)),
                      std::to_string(number.stored));
            EXPECT_EQ(family.get(selector.number, key), number.stored);
        }
    }
}

TEST_P(IntegerWrites, ReplaceANull) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    for (const Selector& selector : family.selectors) {
        if (selector.column == nullptr)
            continue;
        SCOPED_TRACE(selector.column);
        store(family, selector.column, "NULL");
        EXPECT_EQ(family.set(selector.number, key, 0), 0);
        EXPECT_EQ(contents().at(cell(family, {key, 1}, selector.column)), "0");
    }
}

TEST_P(IntegerWrites, FailWithoutTheirRow) {
    const Family& family = GetParam();
    remove_row_1(family);
    const Contents before = contents();
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.set(choice.number, given_for_row_1(family), 5), -1);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_P(IntegerWrites, FailForADoubledRow) {
    const Family& family = GetParam();
    double_row(family.table, 1);
    const Contents before = contents();
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.set(choice.number, given_for_row_1(family), 5), -1);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_P(IntegerWrites, AreOneSelectAndOneUpdateEachAndPrintNothing) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    const std::string key_column = key_column_of(family);
    Trace trace;
    for (const Selector& selector : family.selectors) {
        if (selector.column == nullptr)
            continue;
        SCOPED_TRACE(selector.column);
        const auto set = [&] { EXPECT_EQ(family.set(selector.number, key, 7), 0); };
        EXPECT_EQ(printed_by(set), Printed());
        const std::string update = std::string("UPDATE ") + family.table + " SET  " +
                                   selector.column + " = '7'  WHERE " + key_column + " = '1'";
        EXPECT_THAT(trace.take(), ElementsAre(family.select, update));
        // What is held already is not written again.
        EXPECT_EQ(printed_by(set), Printed());
        EXPECT_THAT(trace.take(), ElementsAre(family.select));
    }
}

TEST_P(IntegerWrites, OfNoColumnRunNoUpdate) {
    const Family& family = GetParam();
    Trace trace;
    for (const Choice& choice : choices(family)) {
        if (choice.selector != nullptr)
            continue;
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.set(choice.number, given_for_row_1(family), 7), 0);
        EXPECT_THAT(trace.take(), ElementsAre(family.select));
    }
}

// Reading texts.

TEST_P(TextReads, TakeTheirColumnOfTheirRow) {
    const Family& family = GetParam();
    const Contents before = contents();
    for (const Choice& choice : choices(family)) {
        for (const Key& key : family.keys) {
            SCOPED_TRACE(said(choice, key));
            std::string expected;
            if (choice.selector != nullptr) {
                const Selector& selector = *choice.selector;
                const char* const column =
                    selector.read != nullptr ? selector.read : selector.column;
                expected = before.at(cell(family, key, column));
                expected = expected.substr(1, expected.size() - 2);  // without the quotes
                ASSERT_EQ(expected.size(), 6U);
            }
            EXPECT_EQ(got(family, choice.number, key.given, 16), padded(expected, 16));
        }
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_P(TextReads, FitTheTextToTheBuffer) {
    const Family& family = GetParam();
    struct Case {
        int size;
        std::string bounded;
        std::string terminated;
    };
    const Case cases[] = {
        {INT_MIN, "", ""},
        {-1, "", ""},
        {0, "", ""},
        {1, "1", padded("", 1)},
        {2, "19", padded("1", 2)},
        {8, "192.168.", padded("192.168", 8)},
        {10, "192.168.5.", padded("192.168.5", 10)},
        {11, "192.168.5.1", padded("192.168.5.", 11)},
        {12, padded("192.168.5.1", 12), padded("192.168.5.1", 12)},
        {300, padded("192.168.5.1", 300), padded("192.168.5.1", 300)},
    };
    for (const Selector& selector : family.selectors)
        store(family, selector.column, "'192.168.5.1'");
    for (const Choice& choice : choices(family)) {
        if (choice.selector == nullptr)
            continue;
        for (const Case& buffer : cases) {
            SCOPED_TRACE(said(choice, {buffer.size, 1}));
            EXPECT_EQ(got(family, choice.number, given_for_row_1(family), buffer.size),
                      choice.selector->copied == kBounded ? buffer.bounded : buffer.terminated);
        }
    }
}

TEST_P(TextReads, LeaveTheBufferClearedForANull) {
    const Family& family = GetParam();
    for (const Selector& selector : family.selectors)
        store(family, selector.column, "NULL");
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(got(family, choice.number, given_for_row_1(family), 9), padded("", 9));
    }
}

TEST_P(TextReads, LeaveTheBufferClearedWithoutTheirRow) {
    const Family& family = GetParam();
    remove_row_1(family);
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(got(family, choice.number, given_for_row_1(family), 9), padded("", 9));
    }
}

TEST_P(TextReads, LeaveTheBufferClearedForADoubledRow) {
    const Family& family = GetParam();
    double_row(family.table, 1);
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(got(family, choice.number, given_for_row_1(family), 9), padded("", 9));
    }
}

TEST_P(TextReads, AreOneSelectEachAndPrintNothing) {
    const Family& family = GetParam();
    Trace trace;
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(printed_by([&] { got(family, choice.number, given_for_row_1(family), 9); }),
                  Printed());
        EXPECT_THAT(trace.take(), ElementsAre(family.select));
    }
}

// Writing texts.

TEST_P(TextWrites, HaveTheNumbersThatMastersAndProgramsUse) {
    int number = 0;
    for (const Selector& selector : GetParam().selectors) {
        EXPECT_EQ(selector.number, number++);
        EXPECT_EQ(selector.member, selector.number);
    }
}

TEST_P(TextWrites, ChangeTheirColumnOfTheirRowAndNothingElse) {
    const Family& family = GetParam();
    Contents before = contents();
    for (const Choice& choice : choices(family)) {
        const std::string text = "texto " + std::to_string(choice.number);
        for (const Key& key : family.keys) {
            SCOPED_TRACE(said(choice, key));
            EXPECT_EQ(family.setstr(choice.number, key.given, text.c_str(), 32), 0);
            const Contents after = contents();
            std::vector<std::string> expected;
            if (choice.selector != nullptr) {
                const std::string name = cell(family, key, choice.selector->column);
                expected = {name + ": " + before.at(name) + " -> '" + text + "'"};
            }
            EXPECT_EQ(changes(before, after), expected);
            before = after;
        }
    }
}

TEST_P(TextWrites, StoreWhatFitsTheSize) {
    const Family& family = GetParam();
    struct Case {
        unsigned size;
        const char* stored;
    };
    constexpr Case kCases[] = {
        {0, "''"},         {1, "''"},          {2, "'P'"},
        {5, "'Port'"},     {7, "'Portug'"},    {8, "'Portuga'"},
        {9, "'Portugal'"}, {10, "'Portugal'"}, {300, "'Portugal'"},
    };
    for (const Selector& selector : family.selectors) {
        for (const Case& text : kCases) {
            SCOPED_TRACE(std::string(selector.column) + ", size " + std::to_string(text.size));
            const int key = given_for_row_1(family);
            store(family, selector.column, "'old'");
            EXPECT_EQ(family.setstr(selector.number, key, "Portugal", text.size), 0);
            EXPECT_EQ(contents().at(cell(family, {key, 1}, selector.column)), text.stored);
        }
    }
}

TEST_P(TextWrites, DoNotReadBehindTheSize) {
    const Family& family = GetParam();
    const UnreadableBehind text("Portugal");  // eight bytes, no NUL
    for (const Selector& selector : family.selectors) {
        SCOPED_TRACE(selector.column);
        EXPECT_EQ(family.setstr(selector.number, given_for_row_1(family), text.text(), 8), 0);
        EXPECT_EQ(contents().at(cell(family, {0, 1}, selector.column)), "'Portuga'");
    }
}

TEST_P(TextWrites, KeepAllBytesButTheFirstPercentSign) {
    const Family& family = GetParam();
    struct Case {
        const char* text;
        std::string stored;  // as hex
        bool replaced = false;
    };
    const Case cases[] = {
        {"O'Hara \"TV\"", "4F 27 48 61 72 61 20 22 54 56 22"},
        {"'; DROP TABLE Red; --", "27 3B 20 44 52 4F 50 20 54 41 42 4C 45 20 52 65 64 3B 20 2D 2D"},
        {"\x01\t\r\n\x1B\x7F", "01 09 0D 0A 1B 7F"},
        {"Espa\xC3\xB1"
         "a",
         "45 73 70 61 C3 B1 61"},
        {"\xF1\xFF\x80", "F1 FF 80"},
        {" a ", "20 61 20"},
        {"NULL", "4E 55 4C 4C"},
        {"%", "20", true},
        {"50%", "35 30 20", true},
        {"%Q %s%n", "20 51 20 25 73 25 6E", true},
        {"1%%2", "31 20 25 32", true},
    };
    for (const Selector& selector : family.selectors) {
        for (const Case& bytes : cases) {
            SCOPED_TRACE(std::string(bytes.text) + " in " + selector.column);
            const Printed printed = printed_by([&] {
                EXPECT_EQ(family.setstr(selector.number, given_for_row_1(family), bytes.text, 64),
                          0);
            });
            EXPECT_EQ(printed.out, bytes.replaced
                                       ? "[DEBUG_DB]update: sustituido caracter % por espacio\n"
                                       : "");
            EXPECT_EQ(printed.err, "");
            const std::string stored = Database(path_of(family))
                                           .value(std::string("SELECT ") + selector.column +
                                                  " FROM " + family.table + " WHERE rowid = 1");
            EXPECT_EQ(to_hex(text_bytes(stored)), bytes.stored);
        }
    }
}

TEST_P(TextWrites, FailWithoutTheirRow) {
    const Family& family = GetParam();
    remove_row_1(family);
    const Contents before = contents();
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.setstr(choice.number, given_for_row_1(family), "x", 8), -1);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_P(TextWrites, FailForADoubledRow) {
    const Family& family = GetParam();
    double_row(family.table, 1);
    const Contents before = contents();
    for (const Choice& choice : choices(family)) {
        SCOPED_TRACE(choice.number);
        EXPECT_EQ(family.setstr(choice.number, given_for_row_1(family), "x", 8), -1);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_P(TextWrites, AreOneSelectAndOneUpdateEach) {
    const Family& family = GetParam();
    const int key = given_for_row_1(family);
    const std::string key_column = key_column_of(family);
    Trace trace;
    for (const Selector& selector : family.selectors) {
        SCOPED_TRACE(selector.column);
        const std::string update = std::string("UPDATE ") + family.table + " SET  " +
                                   selector.column + " = 'a''b'  WHERE " + key_column + " = '1'";
        EXPECT_EQ(family.setstr(selector.number, key, "a'b", 8), 0);
        EXPECT_THAT(trace.take(), ElementsAre(family.select, update));
        // What is held already is not written again.
        EXPECT_EQ(family.setstr(selector.number, key, "a'b", 8), 0);
        EXPECT_THAT(trace.take(), ElementsAre(family.select));
    }
}

}  // namespace
