#include "master/configuration.h"

#include <algorithm>
#include <cstddef>

#include "master/layout.h"
#include "protocol/countries.h"

namespace master {

namespace {

using protocol::Effect;
using protocol::Selector;

std::size_t index_of(const Parameter& parameter) {
    return static_cast<std::size_t>(&parameter - parameters().data());
}

const Parameter& stored_by(Selector selector, std::uint8_t row) {
    return *std::ranges::find_if(parameters(), [&](const Parameter& parameter) {
        return parameter.write->selector == selector && parameter.write->row == row;
    });
}

int number_of(const Value& value) {
    return static_cast<int>(std::get<std::uint32_t>(value));
}

std::optional<Value> value_of(const std::string& name, std::span<const Setting> list) {
    const auto found = std::ranges::find(list.rbegin(), list.rend(), name, &Setting::name);
    return found == list.rend() ? std::nullopt : std::optional(found->value);
}

}  // namespace

Configuration::Configuration(std::span<const std::uint8_t> block_1,
                             std::span<const std::uint8_t> block_2) {
    for (const Parameter& parameter : parameters()) {
        values_.emplace_back();
        if (parameter.block != 0)
            values_.back() = value_in(parameter, parameter.block == 1 ? block_1 : block_2);
    }
}

const Value& Configuration::at(const Parameter& parameter) const {
    return values_[index_of(parameter)];
}

const std::string& Configuration::country() const {
    return std::get<std::string>(at(stored_by(Selector::CGS_COUNTRY, 0)));
}

SettingList Configuration::settings() const {
    SettingList list;
    for (const Parameter& parameter : parameters()) {
        if (parameter.block != 0)
            list.push_back({parameter.name, at(parameter)});
    }
    return list;
}

void Configuration::apply(const Parameter& parameter, const Value& sent) {
    for (const Parameter* each = &parameter; each != nullptr; each = each->also())
        carry_out(*each, sent);
}

void Configuration::carry_out(const Parameter& parameter, const Value& sent) {
    if (parameter.write->effect == Effect::changes_country)
        change_country(std::get<std::string>(sent));
    else if (parameter.write->effect != Effect::tunes)
        put(parameter, sent);
    else if (parameter.write->selector == Selector::RFO_CANAL_SALIDA)
        tune(number_of(sent), protocol::channel_frequency(number_of(sent), country()));
    else
        tune(protocol::frequency_channel(number_of(sent), country()), number_of(sent));
}

void Configuration::put(const Parameter& parameter, const Value& value) {
    if (parameter.block != 0)
        values_[index_of(parameter)] = read_back_of(parameter, value);
}

// The blocks show the low bytes.
void Configuration::put(Selector selector, std::uint8_t row, int number) {
    const Parameter& parameter = stored_by(selector, row);
    put(parameter, static_cast<std::uint32_t>(number) & parameter.limit());
}

void Configuration::tune(int channel, int frequency) {
    put(Selector::RFO_CANAL_SALIDA, 0, channel);
    put(Selector::RFO_FRECUENCIA, 0, frequency);
}

void Configuration::change_country(const std::string& name) {
    if (name == country())
        return;
    const protocol::Country& chosen = protocol::find_country(name);
    const bool with_plan = protocol::has_7mhz_plan(country()) || protocol::has_7mhz_plan(name);
    const Value mode = at(stored_by(Selector::CG_MODO_ENTRADA, 0));
    const bool one_input = number_of(mode) >= protocol::kFirstModeOfOneVideoBitrate;
    put(stored_by(Selector::CGS_COUNTRY, 0), name);
#define COUNTRY_NUMBER(selector, member) put(Selector::selector, 0, chosen.member);
#define PLAN_NUMBER(selector, member) \
    if (with_plan)                    \
        put(Selector::selector, 0, chosen.member);
#define VIDEO_BITRATE(selector, row) \
    if (!one_input || (row) == 0)    \
        put(Selector::selector, row, \
            one_input ? protocol::kVideoBitrateOfOneInput : chosen.video_bitrate);
#define LINES "protocol/country.def"
#include "protocol/lines.inc"
}

std::vector<Difference> differences(std::span<const Setting> one, std::span<const Setting> other) {
    std::vector<Difference> all;
    for (const std::span<const Setting> list : {one, other}) {
        for (const Setting& each : list) {
            const auto before = value_of(each.name, one);
            const auto behind = value_of(each.name, other);
            if (before != behind &&
                std::ranges::find(all, each.name, &Difference::name) == all.end())
                all.push_back({each.name, before, behind});
        }
    }
    return all;
}

}  // namespace master
