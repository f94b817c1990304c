#include "master/answers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "master/parameters.h"
#include "master/requests.h"
#include "processor/configuration.h"
#include "processor/parameter_names.h"
#include "processor/slaves.h"

namespace master {

namespace {

using Kind = Place::Kind;
using Info = std::span<const std::uint8_t>;

constexpr Place kIdentification[] = {
    {"model", 0, 3, Kind::text},            //
    {"software", 3, 2, Kind::version},      //
    {"name", 5, 8, Kind::text},             //
    {"boot_loader", 13, 2, Kind::version},  //
    {"hardware", 15, 2, Kind::version},     //
    {"serial", 17, 12, Kind::text},         //
    {"mac", 29, 12, Kind::text},            //
};

// The alarms bear their names in the database. Of the output bitrates only those of the module's
// kind of output are not 0.
constexpr Place kStatus[] = {
    {"input_sync", 0, 1, Kind::number},        //
    {"alarma_hw", 1, 1, Kind::bit, 0},         //
    {"alarma_in", 1, 1, Kind::bit, 1},         //
    {"alarma_cod", 1, 1, Kind::bit, 2},        //
    {"alarma_si", 1, 1, Kind::bit, 3},         //
    {"alarma_mod", 1, 1, Kind::bit, 4},        //
    {"alarma_ip", 1, 1, Kind::bit, 5},         //
    {"output_sync", 6, 1, Kind::bit, 0},       //
    {"tv_system_1", 7, 1, Kind::number},       //
    {"tv_system_2", 8, 1, Kind::number},       //
    {"hdmi_1", 9, 1, Kind::number},            //
    {"hdsdi_1", 10, 1, Kind::number},          //
    {"hdmi_2", 13, 1, Kind::number},           //
    {"hdsdi_2", 14, 1, Kind::number},          //
    {"null_level", 15, 1, Kind::level},        //
    {"multiplex_1", 16, 1, Kind::number},      //
    {"multiplex_total", 17, 1, Kind::number},  //
    {"multiplex_2", 18, 1, Kind::number},      //
    {"multiplex_net", 19, 2, Kind::number},    //
    {"ip_total", 21, 2, Kind::number},         //
    {"ip_0", 23, 2, Kind::number},             //
    {"ip_1", 25, 2, Kind::number},             //
    {"player", 27, 1, Kind::number},           //
};

constexpr Place kClock[] = {
    {"time", 0, 5, Kind::text},   //
    {"date", 5, 10, Kind::text},  //
};

constexpr Place kPendingState[] = {
    {"channel", 1, 1, Kind::number},
    {"pending_state", 2, 1, Kind::number},
};
constexpr Place kChannel[] = {{"channel", 1, 1, Kind::number}};
constexpr Place kEncoderStatus[] = {{"result", 1, 1, Kind::number}};
constexpr Place kRegistration[] = {
    {"mac", 1, 12, Kind::text},          //
    {"hostname", 14, 18, Kind::text},    //
    {"serial", 32, 12, Kind::text},      //
    {"model", 45, 10, Kind::text},       //
    {"ip", 55, 16, Kind::line},          //
    {"software", 71, 3, Kind::version},  //
    {"registered", 74, 1, Kind::zero},   //
};
constexpr Place kUpgrade[] = {
    {"upgrade", 1, 1, Kind::number},
    {"mac", 2, 12, Kind::text},
};
constexpr Place kNoSlave[] = {{"mac", 1, 12, Kind::text}};
constexpr std::size_t kUpgradeLength = 15;

bool is_within(const Place& place, Info info) {
    return std::size_t{place.position} + place.width <= info.size();
}

// The sign is the high bit, the magnitude the others.
std::int64_t level(std::uint8_t byte) {
    constexpr unsigned kSign = 0x80;
    const std::int64_t magnitude = byte & (kSign - 1);
    return (byte & kSign) != 0 ? -magnitude : magnitude;
}

Item item_at(const Place& place, Info info) {
    const Info field = info.subspan(place.position, place.width);
    switch (place.kind) {
        case Kind::text:
            return {place.name, text_in(field)};
        case Kind::line: {
            const std::string text = text_in(field);
            return {place.name, text.substr(0, text.find('\n'))};
        }
        case Kind::number:
            return {place.name, std::int64_t{number_in(field)}};
        case Kind::level:
            return {place.name, level(field[0])};
        case Kind::version:
            return {place.name, fmt::format("{}", fmt::join(field.begin(), field.end(), "."))};
        case Kind::bit:
            return {place.name, (field[0] >> place.bit & 1U) != 0};
        case Kind::zero:
            return {place.name, field[0] == 0};
    }
    return {};
}

Items items_at(std::span<const Place> places, Info info) {
    Items items;
    for (const Place& place : places) {
        if (is_within(place, info))
            items.push_back(item_at(place, info));
    }
    return items;
}

// Fields of the daemon's own tables.
Items items_at(std::span<const Field> fields, Info info) {
    Items items;
    for (const Field& field : fields) {
        // The clock: an answer that breaks off behind the time tells that.
        if (std::holds_alternative<Filled>(field.source)) {
            const std::size_t first = std::min<std::size_t>(field.position, info.size());
            std::ranges::move(items_at(kClock, info.subspan(first)), std::back_inserter(items));
            continue;
        }
        if (std::size_t{field.position} + field.width > info.size())
            continue;
        const Info bytes = info.subspan(field.position, field.width);
        if (const auto* const number = std::get_if<Number>(&field.source))
            items.push_back({name_of(*number), std::int64_t{number_in(bytes)}});
        else if (const auto* const text = std::get_if<Text>(&field.source))
            items.push_back({name_of(*text), text_in(bytes)});
    }
    return items;
}

// The settings are named as those of channel 0 in the table, whatever the channel.
Items encoder(Info info) {
    Items items = items_at(kChannel, info);
    for (Item& item : items_at(encoder_settings(), info)) {
        item.name.erase(0, std::strlen("EntradaAV.0."));
        items.push_back(std::move(item));
    }
    return items;
}

Meaning meaning_of_write(Info info) {
    const auto all = subcommands();
    const auto row = std::ranges::find(all, info[0], &Subcommand::code);
    if (row == all.end())
        return {fmt::format("request: write, unknown sub-command {}", info[0]), {}};
    std::string text = fmt::format("request: write, sub-command {} {}", row->code,
                                   row->name == nullptr ? "" : row->name);
    text.erase(text.find_last_not_of(' ') + 1);
    Meaning meaning{text, {}};
    const auto known = std::ranges::find(
        parameters(), &*row, [](const Parameter& parameter) { return parameter.write; });
    if (known == parameters().end())
        return meaning;
    const Info value = info.subspan(1);
    if (known->is_text())
        meaning.items.push_back({known->name, text_in(value)});
    else if (value.size() >= row->width)
        meaning.items.push_back({known->name, std::int64_t{number_in(value.first(row->width))}});
    return meaning;
}

// Requests with these codes have other lengths.
bool is_slave_answer(Info info) {
    switch (info[0]) {
        case kPendingStateCode:
            return info.size() == 3;
        case kEncoderCode:
            return info.size() == 28;
        case kEncoderStatusCode:
            return info.size() == 2;
        case kRegisterCode:
            return info.size() == 75;
        case kUpgradeCode:
            return info.size() == kUpgradeLength;
        default:
            return false;
    }
}

}  // namespace

std::span<const Place> clock_places() {
    return kClock;
}

std::span<const Place> identification_places() {
    return kIdentification;
}

std::span<const Place> status_places() {
    return kStatus;
}

Items identification(Info info) {
    return items_at(kIdentification, info);
}

Items status(Info info) {
    return items_at(kStatus, info);
}

Items configuration(Info info) {
    return info.empty() ? Items() : items_at(configuration_block(info[0]), info);
}

std::span<const Place> slave_answer_places(std::uint8_t code) {
    switch (code) {
        case kPendingStateCode:
            return kPendingState;
        case kEncoderCode:
            return kChannel;
        case kEncoderStatusCode:
            return kEncoderStatus;
        case kRegisterCode:
            return kRegistration;
        case kUpgradeCode:
            return kUpgrade;
        default:
            return {};
    }
}

Items slave_answer(Info info) {
    if (info.empty())
        return {};
    if (info[0] == kEncoderCode)
        return encoder(info);
    if (info[0] == kUpgradeCode && info.size() != kUpgradeLength)
        return items_at(kNoSlave, info);
    return items_at(slave_answer_places(info[0]), info);
}

Meaning meaning_of(const mensaje& frame) {
    const Info info(frame.info, frame.longitud);
    switch (frame.comando) {
        case kStatusCommand:
        case kStatusCommand2:
            return info.empty() ? Meaning{"request: status", {}}
                                : Meaning{"answer: status", status(info)};
        case kConfigurationCommand:
            if (info.size() == 1)
                return {fmt::format("request: configuration, block {}", info[0] == 2 ? 2 : 1), {}};
            if (info.empty())
                return {"answer: no configuration, the request had a wrong length", {}};
            return {fmt::format("answer: configuration, block {}", info[0]), configuration(info)};
        case kWriteCommand:
            if (info.empty())
                return {"answer: written or not", {}};
            if (info.size() == kRefusedLength && std::ranges::count(info, 0) == kRefusedLength)
                return {"answer: refused", {}};
            if (is_slave_answer(info))
                return {fmt::format("answer: sub-command {}", info[0]), slave_answer(info)};
            return meaning_of_write(info);
        case kIdentificationCommand:
            return info.empty() ? Meaning{"request: identification", {}}
                                : Meaning{"answer: identification", identification(info)};
        default:
            return {fmt::format("unknown command {}", frame.comando), {}};
    }
}

}  // namespace master
