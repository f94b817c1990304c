#include "params/IPOut.h"

#include "params/family.h"

namespace {

using Record = queltdb::tIPOut;

constexpr IntegerColumn<Record> kIntegers[] = {
    {IPO_IP_OFF, COLUMN(Ip_Off)},        //
    {IPO_PROTOCOLO, COLUMN(Protocolo)},  //
    {IPO_QOS, COLUMN(Qos)},              //
    {IPO_TTL, COLUMN(Ttl)},              //
    {IPO_SAP_MODE, COLUMN(SAP_Mode)},    //
    {IPO_SAP_TIME, COLUMN(SAP_Time)},    //
    {IPO_VLAN_MODE, COLUMN(Vlan_Mode)},  //
    {IPO_VLAN_ID, COLUMN(Vlan_Id)},      //
    {IPO_VLAN_TPID, COLUMN(Vlan_Tpid)},  //
    {IPO_MPTS_MODE, COLUMN(Mpts_Mode)},  //
};
static_assert(complete<IntegerColumn<Record>>(kIntegers, IPO_MPTS_MODE));

constexpr TextColumn<Record> kTexts[] = {
    {IPOS_SAP_IP, COLUMN(SAP_Ip), Copy::bounded},         //
    {IPOS_SAP_USER, COLUMN(SAP_User), Copy::terminated},  //
};
static_assert(complete<TextColumn<Record>>(kTexts, IPOS_SAP_USER));

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

ColumnName column_name(e_IPOut selector) {
    return kFamily.integer_name(selector);
}

ColumnName column_name(e_str_IPOut selector) {
    return kFamily.text_name(selector);
}
