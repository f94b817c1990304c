#include "exporter/metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "master/answers.h"
#include "master/configuration.h"
#include "protocol/description.h"

namespace exporter {

namespace {

using protocol::Field;
using protocol::Kind;
using protocol::Layout;

// Where a metric is not called like the field, or several fields are one metric.
struct Name {
    std::string_view field;
    std::string_view metric;
    std::string_view label = {};
    std::string_view value = {};
};

// "ip_total" has another name, too: only a counter may end in "_total".
// clang-format off
constexpr Name kNames[] = {
    {"tv_system_1",   "tv_system",   "input",  "1"},
    {"tv_system_2",   "tv_system",   "input",  "2"},
    {"hdmi_1",        "hdmi",        "input",  "1"},
    {"hdmi_2",        "hdmi",        "input",  "2"},
    {"hdsdi_1",       "hdsdi",       "input",  "1"},
    {"hdsdi_2",       "hdsdi",       "input",  "2"},
    {"multiplex_net", "multiplex_net_bitrate"},
    {"ip_total",      "ip_bitrate_all"},
    {"ip_0",          "ip_bitrate",  "stream", "0"},
    {"ip_1",          "ip_bitrate",  "stream", "1"},
};
// clang-format on

Name name_of(std::string_view field) {
    if (field.starts_with("alarma_"))
        return {field, "alarm", "alarm", field};
    const auto* const own = std::ranges::find(kNames, field, &Name::field);
    return own == std::end(kNames) ? Name{field, field} : *own;
}

// The target files have a label `name`, too, which Prometheus lets win.
std::string_view label_of(std::string_view field) {
    return field == "name" ? "device_name" : field;
}

bool is_shown(const Field& field) {
    return master::has_item(field) && field.kind != Kind::remainder;
}

double number_in(const master::Items& items, std::string_view name) {
    const auto item = std::ranges::find(items, name, &master::Item::name);
    if (const auto* const truth = std::get_if<bool>(&item->value))
        return *truth ? 1 : 0;
    return static_cast<double>(std::get<std::int64_t>(item->value));
}

std::string meaning_of(const Field& field) {
    return field.meaning + (*field.unit == '\0' ? "" : fmt::format(" in {}", field.unit));
}

// "TV system (tv_system_1, tv_system_2)".
std::string help_of(std::span<const Field> fields) {
    std::string meanings;
    std::string names;
    for (const Field& field : fields) {
        const std::string meaning = meaning_of(field);
        if (meanings.find(meaning) == std::string::npos)
            meanings += (meanings.empty() ? "" : "; ") + meaning;
        names += (names.empty() ? "" : ", ") + std::string(field.name);
    }
    return fmt::format("{} ({})", meanings, names);
}

// The fields of each metric, in the order of the first of them.
std::vector<std::vector<Field>> families() {
    std::vector<std::vector<Field>> families;
    for (const Field& field : protocol::fields(Layout::status)) {
        if (!is_shown(field))
            continue;
        const auto same = std::ranges::find_if(families, [&](const std::vector<Field>& family) {
            return name_of(family.front().name).metric == name_of(field.name).metric;
        });
        if (same == families.end())
            families.push_back({field});
        else
            same->push_back(field);
    }
    return families;
}

// FNV-1a, 32 bits: http://www.isthe.com/chongo/tech/comp/fnv/
class Checksum {
  public:
    void add(std::string_view text) {
        for (const char c : text)
            add_byte(static_cast<unsigned char>(c));
        add_byte(0);
    }
    [[nodiscard]] double value() const { return sum_; }

  private:
    void add_byte(unsigned char byte) { sum_ = (sum_ ^ byte) * 16777619U; }

    std::uint32_t sum_ = 2166136261U;
};

}  // namespace

void put_status(Exposition& exposition, std::span<const std::uint8_t> info) {
    static const std::vector<std::vector<Field>> kFamilies = families();
    const master::Items items = master::status(info);
    for (const std::vector<Field>& family : kFamilies) {
        exposition.family(fmt::format("zondar_{}", name_of(family.front().name).metric), "gauge",
                          help_of(family));
        for (const Field& field : family) {
            const Name name = name_of(field.name);
            exposition.sample(name.label.empty() ? Labels{} : Labels{{name.label, name.value}},
                              number_in(items, field.name));
        }
    }
}

void put_identification(Exposition& exposition, std::span<const std::uint8_t> info) {
    const master::Items items = master::identification(info);
    Labels labels;
    labels.reserve(items.size());
    for (const master::Item& item : items)
        labels.emplace_back(label_of(item.name), std::get<std::string>(item.value));
    exposition.family("zondar_module_info", "gauge", "who the module is, always 1");
    exposition.sample(labels, 1);
}

void put_configuration(Exposition& exposition, std::span<const std::uint8_t> block_1,
                       std::span<const std::uint8_t> block_2) {
    const master::SettingList settings = master::Configuration(block_1, block_2).settings();
    Checksum checksum;
    exposition.family("zondar_parameter", "gauge", "a number of the configuration, by its name");
    for (const auto& [name, value] : settings) {
        const auto* const number = std::get_if<std::uint32_t>(&value);
        if (number != nullptr)
            exposition.sample({{"parameter", name}}, *number);
        checksum.add(name);
        checksum.add(number == nullptr ? std::get<std::string>(value) : number_text(*number));
    }
    exposition.family("zondar_parameter_info", "gauge",
                      "a text of the configuration, by its name, always 1");
    for (const auto& [name, value] : settings) {
        if (const auto* const text = std::get_if<std::string>(&value))
            exposition.sample({{"parameter", name}, {"value", *text}}, 1);
    }
    exposition.gauge("zondar_configuration_checksum",
                     "of all parameters, without the clock: another number after each change",
                     checksum.value());
}

}  // namespace exporter
