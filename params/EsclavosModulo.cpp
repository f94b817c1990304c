#include "params/EsclavosModulo.h"

#include "params/family.h"

namespace {

using Record = queltdb::tEsclavosModulo;

constexpr IntegerColumn<Record> kIntegers[] = {
    {EM_ESTADO, COLUMN(Estado)},                //
    {EM_RESET_FACTORY, COLUMN(Reset_Factory)},  //
    {EM_UPGRADE, COLUMN(Upgrade)},              //
    {EM_MASTER, COLUMN(Master)},                //
};
static_assert(complete<IntegerColumn<Record>>(kIntegers, EM_MASTER));

constexpr TextColumn<Record> kTexts[] = {
    {EMS_MAC, COLUMN(MAC)},              //
    {EMS_HOSTNAME, COLUMN(Hostname)},    //
    {EMS_SERIAL, COLUMN(Serial)},        //
    {EMS_MODELO, COLUMN(Modelo)},        //
    {EMS_IP, COLUMN(IP)},                //
    {EMS_SWVERSION, COLUMN(SWVersion)},  //
};
static_assert(complete<TextColumn<Record>>(kTexts, EMS_SWVERSION));

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = "WHERE IdEsclavosModulo='%lld'",
    .integers = {kIntegers, Outside::first},
    .texts = {kTexts, Outside::ignored},
};

constexpr unsigned kMacSize = 13;  // twelve digits and the NUL

}  // namespace

int get_EsclavosModulo(e_EsclavosModulo selector, int slave) {
    return kFamily.get(selector, slave);
}

int set_EsclavosModulo(e_EsclavosModulo selector, int slave, int value) {
    return kFamily.set(selector, value, slave);
}

int setstr_EsclavosModulo(e_str_EsclavosModulo selector, int slave, const char* text,
                          unsigned size) {
    return kFamily.setstr(selector, text, size, slave);
}

int get_EsclavosModuloIdByMAC(const char* MAC) {
    std::vector<Record*>* const slaves = Record::doSelect(ConfDB, nullptr);
    if (slaves->empty()) {
        Record slave;
        slave.setMAC(queltdb::tSqlite3parent(text_within(MAC, kMacSize).c_str()));
        slave.insert(ConfDB);
    }
    Record::eliminaListaResultados(slaves);
    return 1;
}
