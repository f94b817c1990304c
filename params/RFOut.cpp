#include "params/RFOut.h"

#include "params/family.h"

namespace {

using Record = queltdb::tRFOut;

constexpr IntegerColumn<Record> kIntegers[] = {
    {RFO_COFDM_OFF, COLUMN(Cofdm_Off)},                //
    {RFO_CANAL_SALIDA, COLUMN(Canal_Salida)},          //
    {RFO_FRECUENCIA, COLUMN(Frecuencia)},              //
    {RFO_MODO_OFDM, COLUMN(Modo_OFDM)},                //
    {RFO_ANCHO_BANDA, COLUMN(Ancho_Banda)},            //
    {RFO_INTERVALO_GUARDA, COLUMN(Intervalo_Guarda)},  //
    {RFO_CONSTELACION, COLUMN(Constelacion)},          //
    {RFO_CODE_RATE, COLUMN(Code_Rate)},                //
};
static_assert(complete<IntegerColumn<Record>>(kIntegers, RFO_CODE_RATE));

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = "WHERE IdRFOut='%lld'",
    .integers = {kIntegers, Outside::first},
};

// The outputs are counted from 0, their rows from 1; the channels of EntradaAV are not.
long long key_of(int output) {
    return output + 1LL;
}

}  // namespace

int get_RFOut(e_RFOut selector, int output) {
    return kFamily.get(selector, key_of(output));
}

int set_RFOut(e_RFOut selector, int output, int value) {
    return kFamily.set(selector, value, key_of(output));
}

ColumnName column_name(e_RFOut selector) {
    return kFamily.integer_name(selector);
}
