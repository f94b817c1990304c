#include "params/ServiciosSalida.h"

#include "params/family.h"

namespace {

using Record = queltdb::tServiciosSalida;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {SS_LCN, LCN},
    {SS_SID, SID},
    {SS_IP_PORT_SOURCE, IP_port_source},
};
static_assert(complete(kIntegers, SS_IP_PORT_SOURCE) && writable(kIntegers));

constexpr TextColumn<Record> kTexts[] = {
    {SSS_NOMBRE, Nombre, Copy::terminated},
    {SSS_NOMBRE_SAP, Nombre_SAP, Copy::terminated},
    {SSS_IP_ADDRESS_SOURCE, IP_address_source, Copy::bounded},
};
static_assert(complete(kTexts, SSS_IP_ADDRESS_SOURCE) && writable(kTexts));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = "WHERE IdServicio='%lld'",
    .integers = {kIntegers, Outside::ignored},
    .texts = {kTexts, Outside::ignored},
};

}  // namespace

int get_ServiciosSalida(e_ServiciosSalida selector, int service) {
    return kFamily.get(selector, service);
}

int set_ServiciosSalida(e_ServiciosSalida selector, int service, int value) {
    return kFamily.set(selector, value, service);
}

void getstr_ServiciosSalida(e_str_ServiciosSalida selector, int service, std::uint8_t* buffer,
                            int size) {
    kFamily.getstr(selector, buffer, size, service);
}

int setstr_ServiciosSalida(e_str_ServiciosSalida selector, int service, const char* text,
                           unsigned size) {
    return kFamily.setstr(selector, text, size, service);
}
