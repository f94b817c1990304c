// docs/commands.json: what a master has to know, for programs in other languages.
#include <algorithm>
#include <iterator>
#include <utility>

#include "master/parameters.h"
#include "protocol/countries.h"
#include "protocol/description.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

using master::name_of;
using protocol::Kind;

const char* word_for(Layout layout) {
    return protocol::kLayoutNames[static_cast<std::size_t>(layout)];
}

Json to_json(const protocol::Field& field) {
    Json entry = Json::object();
    if (const std::string name = name_of(field); !name.empty())
        entry["name"] = name;
    if (field.layout == Layout::encoder && field.is_parameter)
        entry["parameter"] = protocol::parameter(field.selector).name;
    entry["position"] = field.position;
    entry["width"] = field.kind == Kind::value ? Json() : Json(field.width);
    entry["kind"] = protocol::name_of(field.kind);
    if (field.kind == Kind::bit)
        entry["bit"] = field.extra;
    if (field.kind == Kind::fixed)
        entry["value"] = field.extra;
    if (is_text(field.kind))
        entry["ends_in_nul"] = field.kind == Kind::text;
    put_meaning(entry, field.unit, field.meaning);
    return entry;
}

Json layouts() {
    Json all = Json::object();
    for (const protocol::Field& field : protocol::kFields) {
        Json& layout = all[word_for(field.layout)];
        layout["length"] =
            field.kind == Kind::value ? Json() : Json(protocol::length(field.layout));
        layout["fields"].push_back(to_json(field));
    }
    return all;
}

// Their names, without those that are empty.
Json named(std::initializer_list<Layout> layouts) {
    Json names = Json::array();
    for (const Layout layout : layouts) {
        if (layout != Layout::none)
            names.push_back(word_for(layout));
    }
    return names;
}

Json nullable(Layout layout) {
    return layout == Layout::none ? Json() : Json(word_for(layout));
}

Json commands() {
    Json all = Json::array();
    for (const protocol::Command& command : protocol::kCommands)
        all.push_back({{"command", command.code},
                       {"name", command.name},
                       {"request", nullable(command.request)},
                       {"answers", named({command.answer, command.other_answer})},
                       {"meaning", command.meaning}});
    return all;
}

Json sub_commands() {
    Json all = Json::array();
    for (const protocol::Subcommand& row : protocol::kSubcommands) {
        const auto parameter = std::ranges::find(parameters(), &row, &Parameter::write);
        Json entry;
        if (parameter != parameters().end()) {
            entry = describe(*parameter);
        } else {
            entry = {{"name", row.name}, {"sub_command", row.code}, {"kind", "action"}};
            entry["request"] = nullable(row.request);
            entry["answers"] = named({row.answer, row.other_answer});
            entry["meaning"] = row.meaning;
        }
        if (row.effect != protocol::Effect::alone)
            entry["effect"] = protocol::kEffects[static_cast<std::size_t>(row.effect)].name;
        entry["log_name"] = *row.log_name == '\0' ? Json() : Json(row.log_name);
        all.push_back(std::move(entry));
    }
    return all;
}

Json effects() {
    Json all = Json::object();
    for (const protocol::EffectText& effect : protocol::kEffects) {
        if (*effect.meaning != '\0')
            all[effect.name] = effect.meaning;
    }
    return all;
}

Json to_json(const protocol::Plan& plan) {
    Json bands = Json::array();
    for (const protocol::Band& band : plan.bands)
        bands.push_back({{"first_channel", band.first_channel},
                         {"last_channel", band.last_channel},
                         {"lowest", band.lowest},
                         {"highest", band.highest},
                         {"step", band.step},
                         {"centre", band.offset}});
    Json ranges = Json::array();
    for (const protocol::Range& range : plan.ranges)
        ranges.push_back(
            {{"first_channel", range.first}, {"last_channel", range.last}, {"band", range.band}});
    return {{"bands", bands}, {"band_of_channel", ranges}};
}

template <typename Value>
void put_default(Json& entry, protocol::Selector selector, const Value& value) {
    if (protocol::is_stored(selector))
        entry["defaults"][name_of(selector, 0)] = value;
}

Json to_json(const protocol::Country& country) {
    Json entry = {{"name", country.name}, {"plan", country.plan->name}};
    entry["video_bitrate"] = country.video_bitrate;
#define PUT_DEFAULT(selector, member) \
    put_default(entry, protocol::Selector::selector, country.member);
#define COUNTRY_TEXT(selector, member, size) PUT_DEFAULT(selector, member)
#define COUNTRY_NUMBER PUT_DEFAULT
#define PLAN_NUMBER PUT_DEFAULT
#define LINES "protocol/country.def"
#include "protocol/lines.inc"
#undef PUT_DEFAULT
    return entry;
}

void put_countries(Json& document) {
    for (const protocol::Country& country : protocol::countries()) {
        document["countries"].push_back(to_json(country));
        document["plans"][country.plan->name] = to_json(*country.plan);
    }
}

Json kinds() {
    Json all = Json::object();
    for (const protocol::KindText& kind : protocol::kKinds) {
        if (*kind.meaning != '\0')
            all[kind.name] = kind.meaning;
    }
    return all;
}

// True for what holds lists of structures, which get a line each.
bool is_deep(const Json& value) {
    return std::ranges::any_of(value, [](const Json& part) {
        return part.is_structured() &&
               std::ranges::any_of(part, [](const Json& each) { return each.is_structured(); });
    });
}

// An entry of a list is a line, so that a change of one is.
void print(const Json& value, std::size_t level, std::string& text) {
    const bool is_broken = value.is_structured() && (level < 2 || is_deep(value) || level == 3);
    if (!is_broken || (level == 3 && std::ranges::none_of(value, &Json::is_structured))) {
        text += value.dump();
        return;
    }
    const std::string indent(2 * (level + 1), ' ');
    text += value.is_array() ? "[\n" : "{\n";
    std::size_t left = value.size();
    for (const auto& [key, part] : value.items()) {
        text += indent;
        if (value.is_object())
            text += Json(key).dump() + ": ";
        print(part, level + 1, text);
        text += --left == 0 ? "\n" : ",\n";
    }
    text += indent.substr(2) + (value.is_array() ? "]" : "}");
}

}  // namespace

std::string catalogue() {
    Json document = {{"schema", 2}};
    document["kinds"] = kinds();
    document["commands"] = commands();
    document["layouts"] = layouts();
    document["sub_commands"] = sub_commands();
    document["effects"] = effects();
    put_countries(document);
    std::string text;
    print(document, 0, text);
    return text + "\n";
}

}  // namespace zondarctl
