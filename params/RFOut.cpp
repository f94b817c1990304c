#include "params/RFOut.h"

#include "params/family.h"

namespace {

using Record = queltdb::tRFOut;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {RFO_COFDM_OFF, Cofdm_Off},
    {RFO_CANAL_SALIDA, Canal_Salida},
    {RFO_FRECUENCIA, Frecuencia},
    {RFO_MODO_OFDM, Modo_OFDM},
    {RFO_ANCHO_BANDA, Ancho_Banda},
    {RFO_INTERVALO_GUARDA, Intervalo_Guarda},
    {RFO_CONSTELACION, Constelacion},
    {RFO_CODE_RATE, Code_Rate},
};
static_assert(complete(kIntegers, RFO_CODE_RATE) && writable(kIntegers));
// clang-format on

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
