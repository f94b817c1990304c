// The requests that are not about a single parameter: what a module is asked and told.
#pragma once

#include <cstdint>
#include <string_view>

#include "master/request.h"

namespace master {

// Sub-commands of the write command that do more than store a parameter.
constexpr std::uint8_t kTimeCode = 72;
constexpr std::uint8_t kDateCode = 73;
constexpr std::uint8_t kFactoryResetCode = 80;
constexpr std::uint8_t kPendingStateCode = 105;
constexpr std::uint8_t kEncoderCode = 106;
constexpr std::uint8_t kClearPendingCode = 107;
constexpr std::uint8_t kConfirmPendingCode = 108;
constexpr std::uint8_t kEncoderStatusCode = 109;
constexpr std::uint8_t kRegisterCode = 110;
constexpr std::uint8_t kUpgradeCode = 111;
constexpr std::uint8_t kSlaveStateCode = 112;

Request identification_request();
Request status_request();

// `time` is "HH.MM", `date` is "DD.MM.YYYY", in the module's local time.
Request time_request(std::string_view time);
Request date_request(std::string_view date);
Request factory_reset_request();

// What slave modules ask and tell. `mac` is 12 hexadecimal digits, `channel` counts from 0. All but
// the two about pending states of a channel give the module a row for a slave when it has none.
Request pending_state_request(std::string_view mac, std::uint8_t channel);
Request encoder_request(std::string_view mac, std::uint8_t channel);
Request clear_pending_request(std::uint8_t channel);
Request confirm_pending_request(std::uint8_t channel);
Request encoder_status_request(std::string_view mac, std::string_view status);  // 8 bytes at most
Request upgrade_request(std::string_view mac);
Request slave_state_request(std::string_view mac, std::uint8_t state);

// Who a slave is; the numbers are the lengths in bytes that a module stores.
struct Slave {
    std::string_view mac;       // 12
    std::string_view hostname;  // 17
    std::string_view serial;    // 12
    std::string_view model;     // 9
    std::string_view ip;        // 15
    std::uint8_t version[3];    // of the software: major, minor, build
};
Request registration_request(const Slave& slave);

}  // namespace master
