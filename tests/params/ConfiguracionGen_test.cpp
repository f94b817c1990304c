// The general configuration.
#include "params/ConfiguracionGen.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/params/selectors.h"
#include "tests/support/bytes.h"
#include "tests/support/database.h"

namespace {

const Family kIntegers = {
    .table = "ConfiguracionGen",
    .select = "SELECT * FROM ConfiguracionGen ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, CG_MODO_ENTRADA, "Modo_Entrada"},
        {1, CG_MODO_SALIDA, "Modo_Salida"},
        {2, CG_ATENUACION, "Atenuacion"},
        {3, CG_PLAYER_MODE, "Player_Mode"},
        {4, CG_IP_DHCP, "Ip_Dhcp"},
        {5, CG_LCD_BLOQUEO, "Lcd_Bloqueo"},
        {6, CG_SUBTIMEZONE, "Subtimezone"},
    },
    // clang-format on
    .get =
        [](int selector, int /*key*/) {
            return get_ConfiguracionGen(static_cast<e_ConfiguracionGen>(selector));
        },
    .set =
        [](int selector, int /*key*/, int value) {
            return set_ConfiguracionGen(static_cast<e_ConfiguracionGen>(selector), value);
        },
};

const Family kTexts = {
    .table = "ConfiguracionGen",
    .select = "SELECT * FROM ConfiguracionGen ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, CGS_IP_ADDRESS, "Ip_Address", kBounded},
        {1, CGS_IP_MASK, "Ip_Mask", kBounded},
        {2, CGS_IP_GATEWAY, "Ip_Gateway", kBounded},
        {3, CGS_COUNTRY, "Country"},
        {4, CGS_LANGUAGE, "Language", kTerminated, "Country"},
        {5, CGS_IDTIMEZONE, "Idtimezone"},
        {6, CGS_CODTIMEZONE, "Codtimezone"},
        {7, CGS_LCD_CODBLOQUEO, "Lcd_Codbloqueo", kBounded},
    },
    // clang-format on
    .outside_is_first = true,
    .getstr =
        [](int selector, int /*key*/, std::uint8_t* buffer, int size) {
            getstr_ConfiguracionGen(static_cast<e_str_ConfiguracionGen>(selector), buffer, size);
        },
    .setstr =
        [](int selector, int /*key*/, const char* text, unsigned size) {
            return setstr_ConfiguracionGen(static_cast<e_str_ConfiguracionGen>(selector), text,
                                           size);
        },
};

INSTANTIATE_TEST_SUITE_P(ConfiguracionGen, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(ConfiguracionGen, IntegerWrites, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(ConfiguracionGen, TextReads, testing::Values(kTexts));
INSTANTIATE_TEST_SUITE_P(ConfiguracionGen, TextWrites, testing::Values(kTexts));

TEST(ConfiguracionGen, StoresTwoInputModesUnderAnotherCodeAndDoesNotMapThemBack) {
    const OpenBoard board;
    struct Case {
        int given;
        int stored;
    };
    constexpr Case kCases[] = {
        {0, 0}, {1, 1}, {2, 2}, {3, 10}, {4, 11}, {5, 5}, {10, 10}, {11, 11}, {-3, -3}, {-1, -1},
    };
    for (const Case& mode : kCases) {
        SCOPED_TRACE(mode.given);
        EXPECT_EQ(set_ConfiguracionGen(CG_MODO_ENTRADA, mode.given), 0);
        EXPECT_EQ(contents().at("ConfiguracionGen 1 Modo_Entrada"), std::to_string(mode.stored));
        EXPECT_EQ(get_ConfiguracionGen(CG_MODO_ENTRADA), mode.stored);
    }
}

TEST(ConfiguracionGen, StoresTheseCodesOfAnyOtherSettingAsTheyAre) {
    const OpenBoard board;
    for (const int selector : {1, 2, 3, 4, 5, 6}) {
        for (const int value : {3, 4}) {
            SCOPED_TRACE(selector);
            EXPECT_EQ(set_ConfiguracionGen(static_cast<e_ConfiguracionGen>(selector), value), 0);
            EXPECT_EQ(get_ConfiguracionGen(static_cast<e_ConfiguracionGen>(selector)), value);
        }
    }
}

// The text of the country in the length of the language.
TEST(ConfiguracionGen, GivesTheCountryWhenAskedForTheLanguage) {
    const OpenBoard board;
    struct Case {
        const char* country;
        const char* language;
        int size;
        Bytes expected;
    };
    const Case cases[] = {
        {"'Spain'", "'es_ES'", 8, {'S', 'p', 'a', 'i', 'n', 0, 0, 0}},
        {"'Spain'", "'es'", 8, {'S', 'p', 0, 0, 0, 0, 0, 0}},
        {"'Chad'", "'fr_FR'", 8, {'C', 'h', 'a', 'd', 0, 0, 0, 0}},
        {"'Spain'", "'es_ES'", 5, {'S', 'p', 'a', 'i', 0}},
        {"'Spain'", "'es_ES'", 3, {'S', 'p', 0}},
        {"'Spain'", "'es_ES'", 1, {0}},
        {"'Spain'", "'es_ES'", 0, {}},
        {"'Spain'", "''", 8, Bytes(8)},
        {"''", "'es_ES'", 8, Bytes(8)},
        {"'Spain'", "NULL", 8, Bytes(8)},
        {"NULL", "'es_ES'", 8, Bytes(8)},
    };
    for (const Case& texts : cases) {
        SCOPED_TRACE(std::string(texts.country) + " " + texts.language + " " +
                     std::to_string(texts.size));
        run_elsewhere(kConfDb, std::string("UPDATE ConfiguracionGen SET Country = ") +
                                   texts.country + ", Language = " + texts.language);
        Bytes buffer(texts.expected.size() + 1, 0xEE);
        getstr_ConfiguracionGen(CGS_LANGUAGE, buffer.data(), texts.size);
        Bytes expected = texts.expected;
        expected.push_back(0xEE);  // behind the buffer
        EXPECT_EQ(to_hex(buffer), to_hex(expected));
    }
}

}  // namespace
