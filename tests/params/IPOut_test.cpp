// The IP output.
#include "params/IPOut.h"

#include <gtest/gtest.h>

#include "tests/params/selectors.h"

namespace {

const Family kIntegers = {
    .table = "IPOut",
    .select = "SELECT * FROM IPOut ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, IPO_IP_OFF, "Ip_Off"},
        {1, IPO_PROTOCOLO, "Protocolo"},
        {2, IPO_QOS, "Qos"},
        {3, IPO_TTL, "Ttl"},
        {4, IPO_SAP_MODE, "SAP_Mode"},
        {5, IPO_SAP_TIME, "SAP_Time"},
        {6, IPO_VLAN_MODE, "Vlan_Mode"},
        {7, IPO_VLAN_ID, "Vlan_Id"},
        {8, IPO_VLAN_TPID, "Vlan_Tpid"},
        {9, IPO_MPTS_MODE, "Mpts_Mode"},
    },
    // clang-format on
    .get = [](int selector, int /*key*/) { return get_IPOut(static_cast<e_IPOut>(selector)); },
    .set = [](int selector, int /*key*/,
              int value) { return set_IPOut(static_cast<e_IPOut>(selector), value); },
};

const Family kTexts = {
    .table = "IPOut",
    .select = "SELECT * FROM IPOut ",
    .keys = {{0, 1}},
    // clang-format off
    .selectors = {
        {0, IPOS_SAP_IP, "SAP_Ip", kBounded},
        {1, IPOS_SAP_USER, "SAP_User"},
    },
    // clang-format on
    .outside_is_first = true,
    .getstr = [](int selector, int /*key*/, std::uint8_t* buffer,
                 int size) { getstr_IPOut(static_cast<e_str_IPOut>(selector), buffer, size); },
    .setstr =
        [](int selector, int /*key*/, const char* text, unsigned size) {
            return setstr_IPOut(static_cast<e_str_IPOut>(selector), text, size);
        },
};

INSTANTIATE_TEST_SUITE_P(IPOut, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(IPOut, IntegerWrites, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(IPOut, TextReads, testing::Values(kTexts));
INSTANTIATE_TEST_SUITE_P(IPOut, TextWrites, testing::Values(kTexts));

}  // namespace
