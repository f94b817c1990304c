#include "params/Red.h"

#include "params/family.h"

namespace {

using Record = queltdb::tRed;

constexpr IntegerColumn<Record> kIntegers[] = {
    {RED_NID, COLUMN(NID)},                    //
    {1, nullptr, nullptr},                     // none
    {2, nullptr, nullptr},                     // none
    {RED_NIT_PATRON, COLUMN(NIT_Patron)},      //
    {RED_LCN_MODE, COLUMN(LCN_Mode)},          //
    {RED_INSERTAR_TDT, COLUMN(Insertar_TDT)},  //
};
static_assert(complete<IntegerColumn<Record>>(kIntegers, RED_INSERTAR_TDT));

constexpr TextColumn<Record> kTexts[] = {
    {REDS_NETWORKNAME, COLUMN(NetworkName), Copy::terminated},  //
    {REDS_PROVEEDOR, COLUMN(Proveedor), Copy::terminated},      //
};
static_assert(complete<TextColumn<Record>>(kTexts, REDS_PROVEEDOR));

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

ColumnName column_name(e_Red selector) {
    return kFamily.integer_name(selector);
}

ColumnName column_name(e_str_Red selector) {
    return kFamily.text_name(selector);
}
