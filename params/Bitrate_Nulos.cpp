#include "params/Bitrate_Nulos.h"

#include "params/family.h"

namespace {

using Record = queltdb::tBitrate_Nulos;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {BN_SEL_0, Nivel},
    {BN_SEL_1, Porcentaje},
    {BN_SEL_2, Canal_2},
    {BN_SEL_3, Total},
    {BN_SEL_4, Canal_1},
};
static_assert(complete(kIntegers, BN_SEL_4));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = TempDB,
    .clause = nullptr,
    .integers = {kIntegers, Outside::ignored},
};

}  // namespace

int get_Bitrate_Nulos(e_bitrate_nulos selector) {
    return kFamily.get(selector);
}
