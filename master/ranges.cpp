#include "master/ranges.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <utility>
#include <vector>

#include "protocol/countries.h"

namespace master {

namespace {

using protocol::Kind;
using protocol::Selector;

std::string written(const Value& value) {
    if (const auto* const text = std::get_if<std::string>(&value))
        return fmt::format("'{}'", *text);
    return std::to_string(std::get<std::uint32_t>(value));
}

// Four decimal numbers without leading zeros; most significant byte first.
std::optional<std::uint32_t> address_in(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

bool is_mask(const std::string& text) {
    const std::uint32_t bits = address_in(text).value_or(0);
    return bits != 0 && std::countl_one(bits) == std::popcount(bits);
}

// Without its own address nobody reaches a module any more, nor with one that no host can have; all
// others may be left empty.
bool is_address(const Parameter& parameter, const std::string& text) {
    constexpr std::uint32_t kMulticast = 0xE0000000;
    const auto number = address_in(text);
    if (parameter.write->selector == Selector::CGS_IP_ADDRESS)
        return number && *number != 0 && *number < kMulticast;
    const bool is_own = parameter.write->effect == protocol::Effect::resets_network;
    return number.has_value() || (text.empty() && !is_own);
}

using Spans = std::vector<std::pair<int, int>>;

bool is_in(const Spans& spans, const Value& value) {
    return std::ranges::any_of(spans, [&](const auto& span) {
        return std::cmp_greater_equal(std::get<std::uint32_t>(value), span.first) &&
               std::cmp_less_equal(std::get<std::uint32_t>(value), span.second);
    });
}

// "6 to 12, 28 to 69": those that follow each other are one.
std::string written(const Spans& spans) {
    Spans joined;
    for (const auto& span : spans) {
        if (!joined.empty() && span.first <= joined.back().second + 1)
            joined.back().second = span.second;
        else
            joined.push_back(span);
    }
    std::string text;
    for (const auto& [first, last] : joined)
        text += fmt::format("{}{} to {}", text.empty() ? "" : ", ", first, last);
    return text;
}

std::string known_countries() {
    std::string text;
    for (const protocol::Country& each : protocol::countries())
        text += fmt::format("{}{}", text.empty() ? "" : ", ", each.name);
    return text;
}

std::optional<std::string> unless(bool is_meant, const Parameter& parameter, const Value& value,
                                  const std::string& allowed) {
    if (is_meant)
        return std::nullopt;
    return fmt::format("{} takes {}, not {}", parameter.name, allowed, written(value));
}

std::optional<std::string> objection_to_tuning(const Parameter& parameter, const Value& value,
                                               std::string_view stored) {
    const protocol::Country& country = protocol::find_country(stored);
    if (country.plan == nullptr)
        return fmt::format("{} cannot be judged: the module has no channel plan for '{}'",
                           parameter.name, stored);
    const bool is_channel = parameter.write->selector == Selector::RFO_CANAL_SALIDA;
    Spans spans;
    if (is_channel) {
        for (const protocol::Range& range : country.plan->ranges)
            spans.emplace_back(range.first, range.last);
    } else {
        for (const protocol::Band& band : country.plan->bands)
            spans.emplace_back(band.lowest, band.highest);
    }
    const char* const unit = parameter.description().unit;
    return unless(is_in(spans, value), parameter, value,
                  fmt::format("a {} of {}: {}{}{}", is_channel ? "channel" : "frequency",
                              country.name, written(spans), *unit == '\0' ? "" : " ", unit));
}

}  // namespace

std::string range_of(const Parameter& parameter) {
    const protocol::Parameter& known = parameter.description();
    if (known.kind == Kind::toggle)
        return "0 or 1";
    if (known.kind == Kind::address)
        return "an IPv4 address";
    if (parameter.is_text())
        return fmt::format("a text of at most {} bytes", parameter.limit());
    return fmt::format("0 to {}{}{}", parameter.limit(), *known.unit == '\0' ? "" : " ",
                       known.unit);
}

std::string why_never(const Parameter& parameter, const Value& wanted) {
    if (!protocol::is_stored(parameter.write->selector))
        return "the module takes it and never stores it";
    if (parameter.is_text())
        return "the first per cent sign of a text is stored as a blank";
    return fmt::format("it would read back as {}", written(read_back_of(parameter, wanted)));
}

std::optional<std::string> objection(const Parameter& parameter, const Value& value,
                                     std::string_view country) {
    const Selector selector = parameter.write->selector;
    if (parameter.write->effect == protocol::Effect::tunes)
        return objection_to_tuning(parameter, value, country);
    if (parameter.description().kind == Kind::toggle)
        return unless(std::get<std::uint32_t>(value) <= 1, parameter, value, range_of(parameter));
    const bool is_lost = read_back_of(parameter, value) != value_after(parameter, value);
    if (is_lost && !value_to_send(parameter, value))
        return fmt::format("{} cannot become {}: {}", parameter.name, written(value),
                           why_never(parameter, value));
    if (!parameter.is_text())
        return std::nullopt;
    const auto& text = std::get<std::string>(value);
    if (selector == Selector::CGS_COUNTRY)
        return unless(protocol::find_country(text).plan != nullptr, parameter, value,
                      "a country that it has defaults for: " + known_countries());
    if (selector == Selector::CGS_IP_MASK)
        return unless(is_mask(text), parameter, value, "a mask such as 255.255.255.0");
    if (parameter.description().kind == Kind::address)
        return unless(is_address(parameter, text), parameter, value, range_of(parameter));
    return std::nullopt;
}

}  // namespace master
