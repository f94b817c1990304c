// The named alarms and states: three ways to read a value, names of all kinds, the mark of a
// change.
#include "params/alarmasEstado.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/open_board.h"
#include "tests/support/trace.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AlarmasEstado : public testing::Test {
  protected:
    static void store(const std::string& valor) {
        run_elsewhere(kTempDb, "UPDATE alarmasEstado SET valor = " + valor +
                                   ", EstadoPendienteRE = 0 WHERE nombre = 'alarma_in'");
    }
    // Adds a row with the key 99.
    static void add(const std::string& name, const std::string& valor) {
        run_elsewhere(kTempDb,
                      "INSERT INTO alarmasEstado VALUES (99, " + name + ", '" + valor + "', 0, 0)");
    }

    OpenBoard board_;
};

TEST_F(AlarmasEstado, AreReadInThreeWays) {
    struct Case {
        const char* stored;
        int binary;
        int hexadecimal;
        int decimal;
    };
    constexpr Case kCases[] = {
        {"'0'", 0, 0, 0},
        {"'1'", 1, 1, 1},
        {"'101'", 5, 257, 101},
        {"'00000101'", 5, 257, 101},
        {"'10000000'", 128, 268435456, 10000000},
        {"'11111111'", 255, 286331153, 11111111},
        {"'1x1'", 7, 257, 1},
        {"'1G'", 3, 16, 1},
        {"'G1'", 3, 1, 0},
        {"'FF'", 3, 255, 0},
        {"'aBcDeF'", 63, 11259375, 0},
        {"'0019afAF'", 63, 1683375, 19},
        {"'@`/:gG'", 63, 0, 0},  // the neighbours of the digits
        {"'7FFFFFFF'", 255, 2147483647, 7},
        {"'80000000'", 128, INT_MIN, 80000000},
        {"'FFFFFFFF'", 255, -1, 0},
        {"'12345678'", 255, 305419896, 12345678},
        {"'99999999'", 255, -1717986919, 99999999},
        {"'12ab'", 15, 4779, 12},
        {"'-5'", 3, 5, -5},
        {"' 42'", 7, 66, 42},
        {"'\xC3\xB1'", 3, 0, 0},
        {"42", 3, 66, 42},  // stored as a number, read as its text
        {"''", 0, 0, 0},
        {"NULL", 0, 0, 0},
        // Too long.
        {"'000000001'", 0, 0, 0},
        {"'123456789'", 0, 0, 0},
        {"'0000000000000001'", 0, 0, 0},
    };
    for (const Case& value : kCases) {
        SCOPED_TRACE(value.stored);
        store(value.stored);
        EXPECT_EQ(get_alarmas_estado_valor("alarma_in", MODO_BINARIO), value.binary);
        EXPECT_EQ(get_alarmas_estado_valor("alarma_in", MODO_HEXADECIMAL), value.hexadecimal);
        EXPECT_EQ(get_alarmas_estado_valor("alarma_in", MODO_DECIMAL), value.decimal);
        for (const int mode : {3, -1, 255, INT_MIN, INT_MAX})
            EXPECT_EQ(get_alarmas_estado_valor("alarma_in", static_cast<e_modo>(mode)), 0);
    }
}

TEST_F(AlarmasEstado, HaveTheModesUnderTheirNumbers) {
    EXPECT_EQ(static_cast<int>(MODO_BINARIO), 0);
    EXPECT_EQ(static_cast<int>(MODO_HEXADECIMAL), 1);
    EXPECT_EQ(static_cast<int>(MODO_DECIMAL), 2);
}

TEST_F(AlarmasEstado, AreReadByOneSelectAndPrintNothing) {
    Trace trace;
    EXPECT_EQ(printed_by([] { get_alarmas_estado_valor("alarma_in", MODO_BINARIO); }), Printed());
    EXPECT_THAT(trace.take(), ElementsAre("SELECT * FROM alarmasEstado WHERE nombre='alarma_in'"));
}

// The name is what the caller means by it, whatever it holds.
TEST_F(AlarmasEstado, AreFoundByNamesOfAllKinds) {
    for (const char* const name : {"O'Hara", "''", "a''b", "100%", "%d%s%n%Q", "\xC3\xB1\xFF", " ",
                                   "", "x' OR '1'='1", "a\\", "\"", "; --"}) {
        SCOPED_TRACE(name);
        std::string literal;
        for (const char* character = name; *character != '\0'; ++character)
            literal += *character == '\'' ? std::string("''") : std::string(1, *character);
        EXPECT_EQ(get_alarmas_estado_valor(name, MODO_DECIMAL), 0);
        EXPECT_EQ(setstr_alarmas_estado_valor(name, "7", 8), -1);
        add("'" + literal + "'", "42");
        const Contents before = contents();
        EXPECT_EQ(get_alarmas_estado_valor(name, MODO_DECIMAL), 42);
        EXPECT_EQ(setstr_alarmas_estado_valor(name, "7", 8), 0);
        EXPECT_THAT(changes(before, contents()),
                    ElementsAre("alarmasEstado " + std::string(name) + " EstadoPendienteRE: 0 -> 2",
                                "alarmasEstado " + std::string(name) + " valor: '42' -> '7'"));
        run_elsewhere(kTempDb, "DELETE FROM alarmasEstado WHERE idalarmasEstado = 99");
    }
}

TEST_F(AlarmasEstado, AreNotFoundByAnyOtherName) {
    add("NULL", "1");
    const Contents before = contents();
    for (const char* const name :
         {"no_existe", "ALARMA_IN", "alarma_i", "alarma_inn", " alarma_in", "alarma%",
          "alarma_in' OR '1'='1", "alarma_in'; --", "2", "", "NULL"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(get_alarmas_estado_valor(name, MODO_BINARIO), 0);
        EXPECT_EQ(setstr_alarmas_estado_valor(name, "7", 8), -1);
    }
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_F(AlarmasEstado, AreNotFoundWhenTwoHaveTheName) {
    add("'alarma_in'", "1");
    const Contents before = contents();
    EXPECT_EQ(get_alarmas_estado_valor("alarma_in", MODO_BINARIO), 0);
    EXPECT_EQ(setstr_alarmas_estado_valor("alarma_in", "7", 8), -1);
    EXPECT_THAT(changes(before, contents()), IsEmpty());
}

TEST_F(AlarmasEstado, AreWrittenAndMarkedInOneStatement) {
    const Contents before = contents();
    Trace trace;
    EXPECT_EQ(printed_by([] { EXPECT_EQ(setstr_alarmas_estado_valor("alarma_in", "1101", 9), 0); }),
              Printed());
    EXPECT_THAT(trace.take(),
                ElementsAre("SELECT * FROM alarmasEstado WHERE nombre='alarma_in'",
                            "UPDATE alarmasEstado SET  valor = '1101' , EstadoPendienteRE = '2'  "
                            "WHERE idalarmasEstado = '" +
                                id_of_state("alarma_in") + "'"));
    EXPECT_THAT(changes(before, contents()),
                ElementsAre("alarmasEstado alarma_in EstadoPendienteRE: 0 -> 2",
                            "alarmasEstado alarma_in valor: '1' -> '1101'"));
}

TEST_F(AlarmasEstado, AreMarkedWithTheSameValueToo) {
    store("'1101'");
    Trace trace;
    EXPECT_EQ(setstr_alarmas_estado_valor("alarma_in", "1101", 9), 0);
    EXPECT_THAT(trace.take(), ElementsAre("SELECT * FROM alarmasEstado WHERE nombre='alarma_in'",
                                          "UPDATE alarmasEstado SET  EstadoPendienteRE = '2'  "
                                          "WHERE idalarmasEstado = '" +
                                              id_of_state("alarma_in") + "'"));
    // Marked already: there is nothing to write.
    EXPECT_EQ(setstr_alarmas_estado_valor("alarma_in", "1101", 9), 0);
    EXPECT_THAT(trace.take(), ElementsAre("SELECT * FROM alarmasEstado WHERE nombre='alarma_in'"));
}

TEST_F(AlarmasEstado, TakeWhatFitsTheSize) {
    struct Case {
        std::vector<char> text;  // as long as it may be read
        unsigned size;
        const char* stored;
    };
    const Case cases[] = {
        {{'1', '1', '0', '1', '\0'}, 5, "'1101'"},
        {{'1', '1', '0', '1', '\0'}, 4, "'110'"},
        {{'1', '1', '0', '1'}, 4, "'110'"},
        {{'1', '1', '0', '1'}, 2, "'1'"},
        {{'1', '1', '0', '1', '\0'}, 1, "''"},
        {{'1'}, 1, "''"},
        {{'1', '1', '\0'}, 0, "''"},
        {{'1', '1', '\0', '1', '1', '1'}, 6, "'11'"},
        {{'1', '\'', '%', '%', '\0'}, 5, "'1'' %'"},
        {{'1', '2', '3', '4', '5', '6', '7', '8', '9', 'A', '\0'}, 11, "'123456789A'"},
    };
    for (const Case& text : cases) {
        SCOPED_TRACE(text.stored);
        store("'old'");
        printed_by([&] {
            EXPECT_EQ(setstr_alarmas_estado_valor("alarma_in", text.text.data(), text.size), 0);
        });
        EXPECT_EQ(contents().at("alarmasEstado alarma_in valor"), text.stored);
        EXPECT_EQ(contents().at("alarmasEstado alarma_in EstadoPendienteRE"), "2");
    }
}

}  // namespace
