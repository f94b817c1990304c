#include "params/Red.h"

#include "params/family.h"

namespace {

using Record = queltdb::tRed;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {RED_NID, NID},
    {kNoTsidOut, std::nullopt},
    {kNoOnidOut, std::nullopt},
    {RED_NIT_PATRON, NIT_Patron},
    {RED_LCN_MODE, LCN_Mode},
    {RED_INSERTAR_TDT, Insertar_TDT},
};
static_assert(complete(kIntegers, RED_INSERTAR_TDT) && writable(kIntegers));

constexpr TextColumn<Record> kTexts[] = {
    {REDS_NETWORKNAME, NetworkName, Copy::terminated},
    {REDS_PROVEEDOR, Proveedor, Copy::terminated},
};
static_assert(complete(kTexts, REDS_PROVEEDOR) && writable(kTexts));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = nullptr,
    .integers = {kIntegers, Outside::ignored},
    .texts = {kTexts, Outside::first},
};

}  // namespace

int get_Red(e_Red selector) {
    return kFamily.get(selector);
}

int set_Red(e_Red selector, int value) {
    return kFamily.set(selector, value);
}

void getstr_Red(e_str_Red selector, std::uint8_t* buffer, int size) {
    kFamily.getstr(selector, buffer, size);
}

int setstr_Red(e_str_Red selector, const char* text, unsigned size) {
    return kFamily.setstr(selector, text, size);
}
