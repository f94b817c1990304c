#include "master/requests.h"

#include <algorithm>
#include <cstddef>

namespace master {

namespace {

using Info = std::span<const std::uint8_t>;

// Of the texts in a slave's request, their NUL included.
constexpr std::size_t kMacField = 13;
constexpr std::size_t kHostnameField = 18;
constexpr std::size_t kSerialField = 13;
constexpr std::size_t kModelField = 10;
constexpr std::size_t kIpField = 16;

// The NUL that ends the text counts to its field.
void put_field(Bytes& info, std::string_view text, std::size_t width) {
    const std::size_t length = std::min(text.size(), width - 1);
    info.insert(info.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
    info.resize(info.size() + width - length);
}

template <std::size_t length>
bool has_length(const Request& /*request*/, Info info) {
    return info.size() == length;
}

// Slave answers with data begin with the sub-command.
template <std::size_t length>
bool is_of_slave(const Request& request, Info info) {
    return info.size() == length && info[0] == request.info[0];
}

bool tells_upgrade(const Request& request, Info info) {
    return is_of_slave<15>(request, info) || is_of_slave<14>(request, info);
}

Request write(std::uint8_t code, bool (*answered_by)(const Request&, Info) = has_length<0>) {
    return {.command = kWriteCommand, .info = {code}, .answered_by = answered_by};
}

Request of_slave(std::uint8_t code, std::string_view mac,
                 bool (*answered_by)(const Request&, Info)) {
    Request request = write(code, answered_by);
    put_field(request.info, mac, kMacField);
    return request;
}

Request with(Request request, std::uint8_t byte) {
    request.info.push_back(byte);
    return request;
}

Request with(Request request, std::string_view text) {
    request.info.insert(request.info.end(), text.begin(), text.end());
    return request;
}

}  // namespace

Request identification_request() {
    return {.command = kIdentificationCommand, .reads = true, .answered_by = has_length<48>};
}

Request status_request() {
    return {.command = kStatusCommand, .reads = true, .answered_by = has_length<28>};
}

Request time_request(std::string_view time) {
    return with(write(kTimeCode), time);
}

Request date_request(std::string_view date) {
    return with(write(kDateCode), date);
}

// The byte behind the sub-command says nothing; without one the request is refused.
Request factory_reset_request() {
    return with(write(kFactoryResetCode), std::uint8_t{0});
}

Request pending_state_request(std::string_view mac, std::uint8_t channel) {
    return with(of_slave(kPendingStateCode, mac, is_of_slave<3>), channel);
}

Request encoder_request(std::string_view mac, std::uint8_t channel) {
    return with(of_slave(kEncoderCode, mac, is_of_slave<28>), channel);
}

Request clear_pending_request(std::uint8_t channel) {
    return with(write(kClearPendingCode), channel);
}

Request confirm_pending_request(std::uint8_t channel) {
    return with(write(kConfirmPendingCode), channel);
}

Request encoder_status_request(std::string_view mac, std::string_view status) {
    return with(with(of_slave(kEncoderStatusCode, mac, is_of_slave<2>), status), std::uint8_t{0});
}

Request upgrade_request(std::string_view mac) {
    return of_slave(kUpgradeCode, mac, tells_upgrade);
}

Request slave_state_request(std::string_view mac, std::uint8_t state) {
    return with(of_slave(kSlaveStateCode, mac, has_length<0>), state);
}

Request registration_request(const Slave& slave) {
    Request request = of_slave(kRegisterCode, slave.mac, is_of_slave<75>);
    put_field(request.info, slave.hostname, kHostnameField);
    put_field(request.info, slave.serial, kSerialField);
    put_field(request.info, slave.model, kModelField);
    put_field(request.info, slave.ip, kIpField);
    request.info.insert(request.info.end(), std::begin(slave.version), std::end(slave.version));
    return request;
}

}  // namespace master
