// The commands that slave modules send.
#include <fmt/format.h>

#include <algorithm>

#include "master/requests.h"
#include "zondarctl/commands.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

constexpr std::size_t kMacBytes = 6;

// Six pairs of digits, with or without colons.
std::string mac_of(const SlaveArguments& arguments) {
    std::string digits = arguments.mac;
    std::erase(digits, ':');
    const std::optional<Bytes> bytes = from_hex(digits);
    if (!bytes || bytes->size() != kMacBytes || digits.size() != 2 * kMacBytes)
        throw UsageError(fmt::format("'{}' is no MAC address", arguments.mac));
    return digits;
}

std::uint8_t channel_of(const SlaveArguments& arguments) {
    return byte_of(arguments.channel, 255, "channel");
}

const std::string& text_of(const std::string& text, std::size_t longest, const char* what) {
    if (text.size() > longest)
        throw UsageError(
            fmt::format("'{}' is longer than the {} bytes of {}", text, longest, what));
    return text;
}

Request registration(const SlaveArguments& arguments) {
    const std::string mac = mac_of(arguments);
    Slave slave{.mac = mac,
                .hostname = text_of(arguments.hostname, 17, "a host name"),
                .serial = text_of(arguments.serial, 12, "a serial number"),
                .model = text_of(arguments.model, 9, "a model"),
                .ip = text_of(arguments.ip, 15, "an IP address"),
                .version = {}};
    std::string rest = arguments.version.empty() ? "0.0.0" : arguments.version;
    std::size_t dot = 0;
    for (std::uint8_t& part : slave.version) {
        dot = rest.find('.');
        part = byte_of(rest.substr(0, dot), 255, "version");
        rest = dot == std::string::npos ? "0" : rest.substr(dot + 1);
    }
    if (dot != std::string::npos)
        throw UsageError(
            fmt::format("'{}' is no version: it has three parts, as in 1.2.3", arguments.version));
    return registration_request(slave);
}

using Arguments = SlaveArguments;

}  // namespace

const std::vector<SlaveCommand>& slave_commands() {
    static const std::vector<SlaveCommand> kCommands = {
        {"pending",
         "the pending state of a channel (105)",
         {{"MAC", &Arguments::mac}, {"CHANNEL", &Arguments::channel}},
         {},
         [](const Arguments& a) { return pending_state_request(mac_of(a), channel_of(a)); }},
        {"encoder",
         "the encoder settings of a channel (106)",
         {{"MAC", &Arguments::mac}, {"CHANNEL", &Arguments::channel}},
         {},
         [](const Arguments& a) { return encoder_request(mac_of(a), channel_of(a)); }},
        {"clear",
         "set the pending state of a channel to 0 (107)",
         {{"CHANNEL", &Arguments::channel}},
         {},
         [](const Arguments& a) { return clear_pending_request(channel_of(a)); }},
        {"confirm",
         "set the pending state of a channel to 2 (108)",
         {{"CHANNEL", &Arguments::channel}},
         {},
         [](const Arguments& a) { return confirm_pending_request(channel_of(a)); }},
        {"report",
         "store a text as the state of the remote encoder (109)",
         {{"MAC", &Arguments::mac}, {"STATUS", &Arguments::text}},
         {},
         [](const Arguments& a) {
             return encoder_status_request(mac_of(a), text_of(a.text, 8, "a status"));
         }},
        {"register",
         "register a slave (110)",
         {{"MAC", &Arguments::mac}},
         {{"--hostname", &Arguments::hostname},
          {"--serial", &Arguments::serial},
          {"--model", &Arguments::model},
          {"--ip", &Arguments::ip},
          {"--software", &Arguments::version}},
         registration},
        {"upgrade",
         "whether a slave shall upgrade (111)",
         {{"MAC", &Arguments::mac}},
         {},
         [](const Arguments& a) { return upgrade_request(mac_of(a)); }},
        {"state",
         "store a slave's state (112)",
         {{"MAC", &Arguments::mac}, {"STATE", &Arguments::text}},
         {},
         [](const Arguments& a) {
             return slave_state_request(mac_of(a), byte_of(a.text, 255, "state"));
         }},
    };
    return kCommands;
}

Report run_slave_command(const Options& options, const SlaveCommand& command,
                         const SlaveArguments& arguments) {
    const Request request = command.request(arguments);
    Session session(options.settings);
    const Items items = slave_answer(session.ask(request));
    Report report{.data = to_json(items)};
    if (items.empty())
        report.line({"sent; the module does not say whether it was stored"});
    put_lines(report, items);
    const bool refused = std::ranges::any_of(items, [](const Item& item) {
        return item.name == "registered" && !std::get<bool>(item.value);
    });
    if (refused)
        report.fail(kRefusedOrDifferent, "refused", "the module could not register the slave");
    return report;
}

}  // namespace zondarctl
