#include "params/EsclavosModulo.h"

#include "params/family.h"

namespace {

using Record = queltdb::tEsclavosModulo;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {EM_ESTADO, Estado},
    {EM_RESET_FACTORY, Reset_Factory},
    {EM_UPGRADE, Upgrade},
    {EM_MASTER, Master},
};
static_assert(complete(kIntegers, EM_MASTER) && writable(kIntegers));

constexpr TextColumn<Record> kTexts[] = {
    {EMS_MAC, MAC},
    {EMS_HOSTNAME, Hostname},
    {EMS_SERIAL, Serial},
    {EMS_MODELO, Modelo},
    {EMS_IP, IP},
    {EMS_SWVERSION, SWVersion},
};
static_assert(complete(kTexts, EMS_SWVERSION) && writable(kTexts));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = "WHERE IdEsclavosModulo='%lld'",
    .integers = {kIntegers, Outside::first},
    .texts = {kTexts, Outside::ignored},
};

constexpr unsigned kMacDigits = 12;

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
    const queltdb::List<Record> slaves(Record::doSelect(ConfDB, nullptr));
    if (slaves->empty()) {
        Record slave;
        slave.setMAC(queltdb::tSqlite3parent(text_within(MAC, kMacDigits + 1).c_str()));
        slave.insert(ConfDB);
    }
    return 1;
}
