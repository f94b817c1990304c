#include "params/Bitrate_Nulos.h"

#include "params/family.h"

namespace {

using Record = queltdb::tBitrate_Nulos;

constexpr IntegerColumn<Record> kIntegers[] = {
    {BN_SEL_0, &Record::Nivel, nullptr},       //
    {BN_SEL_1, &Record::Porcentaje, nullptr},  //
    {BN_SEL_2, &Record::Canal_2, nullptr},     //
    {BN_SEL_3, &Record::Total, nullptr},       //
    {BN_SEL_4, &Record::Canal_1, nullptr},     //
};
static_assert(complete<IntegerColumn<Record>>(kIntegers, BN_SEL_4));

constexpr Family<Record> kFamily = {
    .database = TempDB,
    .clause = nullptr,
    .integers = {kIntegers, Outside::ignored},
};

}  // namespace

int get_Bitrate_Nulos(e_bitrate_nulos selector) {
    return kFamily.get(selector);
}
