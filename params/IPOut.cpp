#include "params/IPOut.h"

#include "params/family.h"

namespace {

using Record = queltdb::tIPOut;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {IPO_IP_OFF, Ip_Off},
    {IPO_PROTOCOLO, Protocolo},
    {IPO_QOS, Qos},
    {IPO_TTL, Ttl},
    {IPO_SAP_MODE, SAP_Mode},
    {IPO_SAP_TIME, SAP_Time},
    {IPO_VLAN_MODE, Vlan_Mode},
    {IPO_VLAN_ID, Vlan_Id},
    {IPO_VLAN_TPID, Vlan_Tpid},
    {IPO_MPTS_MODE, Mpts_Mode},
};
static_assert(complete(kIntegers, IPO_MPTS_MODE) && writable(kIntegers));

constexpr TextColumn<Record> kTexts[] = {
    {IPOS_SAP_IP, SAP_Ip, Copy::bounded},
    {IPOS_SAP_USER, SAP_User, Copy::terminated},
};
static_assert(complete(kTexts, IPOS_SAP_USER) && writable(kTexts));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = nullptr,
    .integers = {kIntegers, Outside::ignored},
    .texts = {kTexts, Outside::first},
};

}  // namespace

int get_IPOut(e_IPOut selector) {
    return kFamily.get(selector);
}

int set_IPOut(e_IPOut selector, int value) {
    return kFamily.set(selector, value);
}

void getstr_IPOut(e_str_IPOut selector, std::uint8_t* buffer, int size) {
    kFamily.getstr(selector, buffer, size);
}

int setstr_IPOut(e_str_IPOut selector, const char* text, unsigned size) {
    return kFamily.setstr(selector, text, size);
}
