// The null-packet figures.
#include "params/Bitrate_Nulos.h"

#include <gtest/gtest.h>

#include "tests/params/selectors.h"

namespace {

// Of the seven columns the first and the last are not read.
const Family kIntegers = {
    .table = "Bitrate_Nulos",
    .select = "SELECT * FROM Bitrate_Nulos ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, BN_SEL_0, "Nivel"},
        {1, BN_SEL_1, "Porcentaje"},
        {2, BN_SEL_2, "Canal_2"},
        {3, BN_SEL_3, "Total"},
        {4, BN_SEL_4, "Canal_1"},
    },
    // clang-format on
    .get = [](int selector,
              int /*key*/) { return get_Bitrate_Nulos(static_cast<e_bitrate_nulos>(selector)); },
};

INSTANTIATE_TEST_SUITE_P(Bitrate_Nulos, IntegerReads, testing::Values(kIntegers));

}  // namespace
