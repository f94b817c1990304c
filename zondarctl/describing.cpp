// What can be said without asking a module.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

#include "master/names.h"
#include "master/ranges.h"
#include "protocol/countries.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

bool holds(const std::string& text, const std::string& word) {
    return strcasestr(text.c_str(), word.c_str()) != nullptr;
}

bool is_about(const Parameter& parameter, const std::string& word) {
    const protocol::Parameter& known = parameter.description();
    return holds(parameter.name, word) || holds(known.meaning, word) || holds(known.unit, word);
}

// Of names and meanings.
std::vector<std::string> all_words() {
    std::set<std::string> words;
    for (const Parameter& parameter : parameters()) {
        std::string text = parameter.name + " " + parameter.description().meaning;
        std::ranges::replace_if(
            text, [](unsigned char c) { return std::isalnum(c) == 0; }, ' ');
        std::istringstream stream(text);
        words.insert(std::istream_iterator<std::string>(stream), {});
    }
    return {words.begin(), words.end()};
}

std::string place_of(const Parameter& parameter) {
    return parameter.block == 0
               ? "nowhere"
               : fmt::format("block {}, at {}", parameter.block, parameter.field->position);
}

std::string kind_of(const Parameter& parameter) {
    const auto kind = static_cast<std::size_t>(parameter.description().kind);
    return fmt::format("{}: {}", protocol::kKinds[kind].name, protocol::kKinds[kind].meaning);
}

// What is read back of values that are not stored as they are sent.
Words storage_of(const Json& entry) {
    Words lines;
    if (!entry.value("stored", true))
        lines.emplace_back("never: it always reads back as 0");
    if (entry.contains("database_offset"))
        lines.push_back(fmt::format("in the database as {} more, and read back as it was sent",
                                    entry["database_offset"].dump()));
    const Json stored_as = entry.value("stored_as", Json::object());
    for (const auto& [sent, stored] : stored_as.items())
        lines.push_back(fmt::format("{} as {}", sent, stored.dump()));
    return lines;
}

Words changed_besides(const Json& entry) {
    Words lines;
    const Json also = entry.value("also_writes", Json::object());
    for (const auto& [name, when] : also.items())
        lines.push_back(when == "always" ? name
                                         : fmt::format("{}, {}", name, when.get<std::string>()));
    return lines;
}

// All that are meant, where these are few.
Words values_of(const Parameter& parameter) {
    if (parameter.description().kind == protocol::Kind::toggle)
        return {"0", "1"};
    Words names;
    if (parameter.write->selector == protocol::Selector::CGS_COUNTRY) {
        for (const protocol::Country& country : protocol::countries())
            names.emplace_back(country.name);
    }
    return names;
}

struct Example {
    protocol::Selector selector;
    const char* value;
};

// Where not every value of the kind is meant.
constexpr Example kExamples[] = {
    {protocol::Selector::CGS_COUNTRY, "Spain"},
    {protocol::Selector::CGS_IP_MASK, "255.255.255.0"},
    {protocol::Selector::RFO_CANAL_SALIDA, "21"},
    {protocol::Selector::RFO_FRECUENCIA, "474000"},
};

const char* example_value(const Parameter& parameter) {
    const auto* const own =
        std::ranges::find(kExamples, parameter.write->selector, &Example::selector);
    if (own != std::end(kExamples))
        return own->value;
    if (parameter.description().kind == protocol::Kind::address)
        return "192.168.1.50";
    if (parameter.is_text())
        return parameter.limit() < 9 ? "1234" : "'Canal Uno'";
    return parameter.limit() < 1000 ? "1" : "1000";
}

std::string example_of(const Parameter& parameter) {
    return fmt::format("zondarctl set {} {}", parameter.name, example_value(parameter));
}

// A line for each, behind the label of the first.
void put_labelled(Report& report, std::string label, const Words& lines) {
    for (const std::string& line : lines) {
        if (!line.empty())
            report.line({"  " + std::exchange(label, ""), line});
    }
}

}  // namespace

Report list_parameters(const std::string& word) {
    Report report{.data = {{"parameters", Json::array()}}};
    report.line({"NAME", "SUB-COMMAND", "VALUE", "READ BACK", "MEANING", "REMARK"},
                TextLine::Look::heading);
    for (const Parameter& parameter : parameters()) {
        if (!is_about(parameter, word))
            continue;
        report.data["parameters"].push_back(describe(parameter));
        report.line({parameter.name, std::to_string(parameter.write->code), range_of(parameter),
                     place_of(parameter), parameter.description().meaning, effect_of(parameter)});
    }
    if (report.data["parameters"].empty())
        throw UsageError(fmt::format("no parameter has '{}' in its name or meaning{}", word,
                                     did_you_mean(nearest(word, all_words()))));
    return report;
}

Report describe_parameters(const std::string& name) {
    Report report{.data = {{"parameters", Json::array()}}};
    for (const Parameter* const parameter : known_parameters(name)) {
        const protocol::Parameter& known = parameter->description();
        Json entry = describe(*parameter);
        report.line({parameter->name}, TextLine::Look::heading);
        put_labelled(report, "meaning", {known.meaning});
        put_labelled(report, "unit", {known.unit});
        put_labelled(report, "kind", {kind_of(*parameter)});
        put_labelled(report, "takes", {range_of(*parameter)});
        put_labelled(report, "values", {fmt::format("{}", fmt::join(values_of(*parameter), ", "))});
        put_labelled(report, "sub-command", {std::to_string(parameter->write->code)});
        put_labelled(report, "read back", {place_of(*parameter)});
        put_labelled(report, "stored", storage_of(entry));
        put_labelled(report, "effect", {effect_of(*parameter)});
        put_labelled(report, "changes too", changed_besides(entry));
        put_labelled(report, "example", {example_of(*parameter)});
        entry["kind_meaning"] = protocol::kKinds[static_cast<std::size_t>(known.kind)].meaning;
        entry["takes"] = range_of(*parameter);
        if (const Words values = values_of(*parameter); !values.empty())
            entry["values"] = values;
        if (const std::string effect = effect_of(*parameter); !effect.empty())
            entry["effect"] = effect;
        entry["example"] = example_of(*parameter);
        report.data["parameters"].push_back(std::move(entry));
    }
    return report;
}

Report list_targets(const std::vector<Target>& targets) {
    Report report{.data = {{"targets", Json::array()}}};
    report.line({"NAME", "ADDRESS", "LABELS"}, TextLine::Look::heading);
    for (const Target& target : targets) {
        std::string labels;
        for (const auto& [label, value] : target.labels)
            labels += fmt::format("{}{}={}", labels.empty() ? "" : " ", label, value);
        const std::string address = fmt::format("{}:{}", target.host, target.port);
        report.line({printable(target.name), printable(address), printable(labels)});
        Json entry = {{"name", target.name}, {"address", address}};
        entry["labels"] = target.labels.empty() ? Json::object() : Json(target.labels);
        report.data["targets"].push_back(std::move(entry));
    }
    return report;
}

}  // namespace zondarctl
