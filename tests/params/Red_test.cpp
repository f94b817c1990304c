// The network.
#include "params/Red.h"

#include <gtest/gtest.h>

#include "tests/params/selectors.h"

namespace {

// Nothing stands behind 1 and 2, though masters write them.
const Family kIntegers = {
    .table = "Red",
    .select = "SELECT * FROM Red ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, RED_NID, "NID"},
        {1, 1, nullptr},
        {2, 2, nullptr},
        {3, RED_NIT_PATRON, "NIT_Patron"},
        {4, RED_LCN_MODE, "LCN_Mode"},
        {5, RED_INSERTAR_TDT, "Insertar_TDT"},
    },
    // clang-format on
    .get = [](int selector, int /*key*/) { return get_Red(static_cast<e_Red>(selector)); },
    .set = [](int selector, int /*key*/,
              int value) { return set_Red(static_cast<e_Red>(selector), value); },
};

const Family kTexts = {
    .table = "Red",
    .select = "SELECT * FROM Red ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, REDS_NETWORKNAME, "NetworkName"},
        {1, REDS_PROVEEDOR, "Proveedor"},
    },
    // clang-format on
    .outside_is_first = true,
    .getstr = [](int selector, int /*key*/, std::uint8_t* buffer,
                 int size) { getstr_Red(static_cast<e_str_Red>(selector), buffer, size); },
    .setstr =
        [](int selector, int /*key*/, const char* text, unsigned size) {
            return setstr_Red(static_cast<e_str_Red>(selector), text, size);
        },
};

INSTANTIATE_TEST_SUITE_P(Red, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(Red, IntegerWrites, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(Red, TextReads, testing::Values(kTexts));
INSTANTIATE_TEST_SUITE_P(Red, TextWrites, testing::Values(kTexts));

}  // namespace
