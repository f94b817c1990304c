// The output services.
#include "params/ServiciosSalida.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/params/selectors.h"

namespace {

const Family kIntegers = {
    .table = "ServiciosSalida",
    .select = "SELECT * FROM ServiciosSalida WHERE IdServicio='1'",
    .keys =
        {{INT_MIN, -2147483648}, {-1, -1}, {0, 0}, {1, 1}, {2, 2}, {7, 7}, {INT_MAX, 2147483647}},
    // clang-format off
    .selectors = {
        {0, SS_LCN, "LCN"},
        {1, SS_SID, "SID"},
        {2, SS_IP_PORT_SOURCE, "IP_port_source"},
    },
    // clang-format on
    .get =
        [](int selector, int key) {
            return get_ServiciosSalida(static_cast<e_ServiciosSalida>(selector), key);
        },
    .set =
        [](int selector, int key, int value) {
            return set_ServiciosSalida(static_cast<e_ServiciosSalida>(selector), key, value);
        },
};

const Family kTexts = {
    .table = "ServiciosSalida",
    .select = "SELECT * FROM ServiciosSalida WHERE IdServicio='1'",
    .keys =
        {{INT_MIN, -2147483648}, {-1, -1}, {0, 0}, {1, 1}, {2, 2}, {7, 7}, {INT_MAX, 2147483647}},
    // clang-format off
    .selectors = {
        {0, SSS_NOMBRE, "Nombre"},
        {1, SSS_NOMBRE_SAP, "Nombre_SAP"},
        {2, SSS_IP_ADDRESS_SOURCE, "IP_address_source", kBounded},
    },
    // clang-format on
    .getstr =
        [](int selector, int key, std::uint8_t* buffer, int size) {
            getstr_ServiciosSalida(static_cast<e_str_ServiciosSalida>(selector), key, buffer, size);
        },
    .setstr =
        [](int selector, int key, const char* text, unsigned size) {
            return setstr_ServiciosSalida(static_cast<e_str_ServiciosSalida>(selector), key, text,
                                          size);
        },
};

INSTANTIATE_TEST_SUITE_P(ServiciosSalida, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(ServiciosSalida, IntegerWrites, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(ServiciosSalida, TextReads, testing::Values(kTexts));
INSTANTIATE_TEST_SUITE_P(ServiciosSalida, TextWrites, testing::Values(kTexts));

}  // namespace
