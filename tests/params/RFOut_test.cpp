// The settings of the radio-frequency outputs.
#include "params/RFOut.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/params/selectors.h"

namespace {

// The outputs count from 0, their rows from 1.
const Family kIntegers = {
    .table = "RFOut",
    .select = "SELECT * FROM RFOut WHERE IdRFOut='1'",
    .keys =
        {{INT_MIN, -2147483647}, {-2, -1}, {-1, 0}, {0, 1}, {1, 2}, {6, 7}, {INT_MAX, 2147483648}},
    // clang-format off
    .selectors = {
        {0, RFO_COFDM_OFF, "Cofdm_Off"},
        {1, RFO_CANAL_SALIDA, "Canal_Salida"},
        {2, RFO_FRECUENCIA, "Frecuencia"},
        {3, RFO_MODO_OFDM, "Modo_OFDM"},
        {4, RFO_ANCHO_BANDA, "Ancho_Banda"},
        {5, RFO_INTERVALO_GUARDA, "Intervalo_Guarda"},
        {6, RFO_CONSTELACION, "Constelacion"},
        {7, RFO_CODE_RATE, "Code_Rate"},
    },
    // clang-format on
    .outside_is_first = true,
    .get = [](int selector, int key) { return get_RFOut(static_cast<e_RFOut>(selector), key); },
    .set = [](int selector, int key,
              int value) { return set_RFOut(static_cast<e_RFOut>(selector), key, value); },
};

INSTANTIATE_TEST_SUITE_P(RFOut, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(RFOut, IntegerWrites, testing::Values(kIntegers));

}  // namespace
