#include "master/layout.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>

namespace master {

namespace {

using protocol::Field;
using protocol::Kind;
using Info = std::span<const std::uint8_t>;

// The sign is the high bit, the magnitude the others.
std::int64_t level(std::uint8_t byte) {
    constexpr unsigned kSign = 0x80;
    const std::int64_t magnitude = byte & (kSign - 1);
    return (byte & kSign) != 0 ? -magnitude : magnitude;
}

Item item_at(const Field& field, Info bytes) {
    const std::string name = name_of(field);
    switch (field.kind) {
        case Kind::text:
        case Kind::text_to_end:
        case Kind::address:
        case Kind::digits:
            return {name, text_in(bytes)};
        case Kind::line: {
            const std::string text = text_in(bytes);
            return {name, text.substr(0, text.find('\n'))};
        }
        case Kind::level:
            return {name, level(bytes[0])};
        case Kind::version:
            return {name, fmt::format("{}", fmt::join(bytes.begin(), bytes.end(), "."))};
        case Kind::bit:
            return {name, (bytes[0] >> field.extra & 1U) != 0};
        case Kind::true_if_zero:
            return {name, bytes[0] == 0};
        case Kind::number:
        case Kind::remainder:
        case Kind::code:
        case Kind::toggle:
        case Kind::sub_command:
        case Kind::value:
        case Kind::fixed:
        case Kind::zeros:
            break;
    }
    return {name, std::int64_t{number_in(bytes)}};
}

// The numbers of a version: "1.2.3".
void put_version(Bytes& info, std::string_view text, std::size_t parts) {
    for (std::size_t i = 0; i < parts; ++i) {
        const std::size_t dot = std::min(text.find('.'), text.size());
        put_number(info, to_number(text.substr(0, dot)).value_or(0), 1);
        text.remove_prefix(std::min(dot + 1, text.size()));
    }
}

void put_text(Bytes& info, std::string_view text, const Field& field, bool last) {
    const std::size_t room = field.kind == Kind::text ? field.width - 1U : field.width;
    text = text.substr(0, room);
    info.insert(info.end(), text.begin(), text.end());
    const std::size_t behind = last ? field.width - room : field.width - text.size();
    info.resize(info.size() + behind);
}

void put_item(Bytes& info, const Item* item, const Field& field, bool last) {
    const auto* const text = item == nullptr ? nullptr : std::get_if<std::string>(&item->value);
    const auto* const number = item == nullptr ? nullptr : std::get_if<std::int64_t>(&item->value);
    if (is_text(field.kind))
        put_text(info, text == nullptr ? "" : *text, field, last);
    else if (field.kind == Kind::version)
        put_version(info, text == nullptr ? "" : *text, field.width);
    else
        put_number(info, number == nullptr ? 0 : static_cast<std::uint32_t>(*number), field.width);
}

}  // namespace

// The letter stands alone between two full stops.
std::string name_of(protocol::Selector selector, std::uint8_t row) {
    std::string name = protocol::parameter(selector).name;
    for (const char* const letter : {".c.", ".s."}) {
        if (const std::size_t at = name.find(letter); at != std::string::npos)
            name.replace(at + 1, 1, std::to_string(row));
    }
    return name;
}

std::string name_of(const Field& field) {
    if (!field.is_parameter)
        return field.name;
    const std::string name = name_of(field.selector, field.extra);
    return field.layout == Layout::encoder ? name.substr(name.rfind('.') + 1) : name;
}

std::uint32_t number_in(Info field) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : field)
        number = number << 8U | byte;
    return number;
}

std::string text_in(Info field) {
    return {field.begin(), std::ranges::find(field, 0)};
}

void put_number(Bytes& info, std::uint32_t number, std::size_t width) {
    for (std::size_t i = width; i-- > 0;)
        info.push_back(static_cast<std::uint8_t>(number >> 8U * i));
}

bool has_item(const Field& field) {
    return field.kind != Kind::sub_command && field.kind != Kind::value &&
           field.kind != Kind::fixed && field.kind != Kind::zeros;
}

Items items_of(Layout layout, Info info) {
    Items items;
    for (const Field& field : protocol::fields(layout)) {
        if (has_item(field) && std::size_t{field.position} + field.width <= info.size())
            items.push_back(item_at(field, info.subspan(field.position, field.width)));
    }
    return items;
}

Bytes info_of(Layout layout, std::uint8_t sub_command, const Items& items) {
    Bytes info;
    const std::span<const Field> fields = protocol::fields(layout);
    for (const Field& field : fields) {
        if (field.kind == Kind::sub_command) {
            info.push_back(sub_command);
            continue;
        }
        const auto item = std::ranges::find(items, name_of(field), &Item::name);
        put_item(info, item == items.end() ? nullptr : &*item, field, &field == &fields.back());
    }
    return info;
}

}  // namespace master
