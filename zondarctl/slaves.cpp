// The commands that slave modules send.
#include <fmt/format.h>

#include <algorithm>

#include "master/requests.h"
#include "zondarctl/commands.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

using protocol::Field;
using protocol::Kind;

constexpr std::string_view kMac = "mac";

// Six pairs of digits, with or without colons.
std::string mac_of(const std::string& word) {
    constexpr std::size_t kMacBytes = 6;
    std::string digits = word;
    std::erase(digits, ':');
    const std::optional<Bytes> bytes = from_hex(digits);
    if (!bytes || bytes->size() != kMacBytes || digits.size() != 2 * kMacBytes)
        throw UsageError(fmt::format("'{}' is no MAC address", word));
    return digits;
}

std::string version_of(const std::string& word, std::size_t parts) {
    if (word.empty())
        return word;
    if (static_cast<std::size_t>(std::ranges::count(word, '.')) >= parts)
        throw UsageError(
            fmt::format("'{}' is no version: it has {} parts, as in 1.2.3", word, parts));
    std::string rest = word;
    for (std::size_t dot = 0; dot != std::string::npos;) {
        dot = rest.find('.');
        byte_of(rest.substr(0, dot), 255, "version");
        rest.erase(0, dot == std::string::npos ? dot : dot + 1);
    }
    return word;
}

Item item_of(const Field& field, const std::string& word) {
    if (field.name == kMac)
        return {field.name, mac_of(word)};
    if (field.kind == Kind::version)
        return {field.name, version_of(word, field.width)};
    if (!is_text(field.kind))
        return {field.name, std::int64_t{byte_of(word, 255, field.name)}};
    if (word.size() >= field.width)
        throw UsageError(fmt::format("'{}' is longer than the {} bytes of the {}", word,
                                     field.width - 1, field.meaning));
    return {field.name, word};
}

}  // namespace

bool is_optional(const Field& field) {
    return field.layout == Layout::slave_identity && field.name != kMac;
}

Run asking_as_slave(const protocol::Subcommand& action,
                    const std::map<std::string, std::string>& arguments) {
    Items told;
    for (const Field& field : protocol::fields(action.request)) {
        if (has_item(field))
            told.push_back(item_of(field, arguments.at(field.name)));
    }
    return [request = action_request(action.name, told)](const Options& options) {
        Session session(options.settings);
        const Items items = action_answer(session.ask(request));
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
    };
}

}  // namespace zondarctl
