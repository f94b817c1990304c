#include "master/targets.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "master/text_file.h"

namespace master {

namespace {

using Json = nlohmann::json;

// Names and labels of targets.
using Seen = std::set<std::pair<std::string, std::map<std::string, std::string>>>;

// So many of a list are named in a message.
constexpr std::size_t kNamed = 20;

constexpr std::string_view kOfLabels =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789";
constexpr std::string_view kOfHosts =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789-.";

bool consists_of(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

template <typename... Arguments>
[[noreturn]] void refuse(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    throw std::invalid_argument(fmt::format(text, std::forward<Arguments>(arguments)...));
}

std::uint16_t parse_port(std::string_view word) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(word.begin(), word.end(), port);
    if (error != std::errc() || end != word.end() || port == 0)
        refuse("{} is no port: 1 to 65535", word.empty() ? "an empty word" : word);
    return port;
}

// Of a value in the file, as the path to it: "[0].targets[1]".
[[noreturn]] void refuse_at(const std::string& place, const std::string& why) {
    refuse("{} {}", place, why);
}

const std::string& text_at(const std::string& place, const Json& value) {
    if (!value.is_string())
        refuse_at(place, "is no text");
    return value.get_ref<const std::string&>();
}

// A label without a value is none, as for Prometheus, and has such a name.
std::map<std::string, std::string> parse_labels(const std::string& place, const Json& object) {
    if (!object.is_object())
        refuse_at(place, R"(is no object: {"label": "value", ...})");
    std::map<std::string, std::string> labels;
    for (const auto& [label, value] : object.items()) {
        if (!consists_of(label, kOfLabels) || (label.front() >= '0' && label.front() <= '9'))
            refuse_at(place, fmt::format("has no label's name: '{}', letters, digits and _ do, no "
                                         "digit first",
                                         label));
        if (const std::string& text = text_at(fmt::format("{}.{}", place, label), value);
            !text.empty())
            labels[label] = text;
    }
    return labels;
}

std::vector<Target> parse_group(const std::string& place, const Json& group) {
    if (!group.is_object())
        refuse_at(place, R"(is no group: {"targets": ["HOST:PORT", ...], "labels": {...}})");
    Json addresses = Json::array();
    std::map<std::string, std::string> labels;
    for (const auto& [member, value] : group.items()) {
        if (member == "targets")
            addresses = value;
        else if (member == "labels")
            labels = parse_labels(place + ".labels", value);
        else
            refuse_at(place, fmt::format("has a member '{}': targets and labels are all", member));
    }
    if (!addresses.is_array())
        refuse_at(place + ".targets", "is no list");
    std::vector<Target> targets;
    for (const auto& [index, address] : addresses.items()) {
        const std::string at = fmt::format("{}.targets[{}]", place, index);
        const std::string& word = text_at(at, address);
        try {
            targets.push_back(parse_target(word));
        } catch (const std::invalid_argument& problem) {
            refuse("{}: {}", at, problem.what());
        }
        targets.back().labels = labels;
        if (const auto name = labels.find("name"); name != labels.end())
            targets.back().name = name->second;
    }
    return targets;
}

void append_new(const std::vector<Target>& more, std::vector<Target>& targets, Seen& seen) {
    for (const Target& target : more) {
        if (seen.emplace(name_of(target), target.labels).second)
            targets.push_back(target);
    }
}

// Of the byte at which reading stopped, counted from 1.
std::string place_in(std::string_view text, std::size_t byte) {
    const std::string_view before = text.substr(0, byte - 1);
    return fmt::format("line {}, column {}", std::ranges::count(before, '\n') + 1,
                       before.size() - (before.rfind('\n') + 1) + 1);
}

Json parse_json(std::string_view text) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        refuse("no JSON: {}", place_in(text, error.byte));
    } catch (const Json::out_of_range&) {
        refuse("no list of groups: a number in it is too large");
    }
}

std::vector<Target> parse_file(const std::string& path, std::string_view text) {
    try {
        return parse_targets(text);
    } catch (const std::invalid_argument& problem) {
        refuse("{}: {}", path, problem.what());
    }
}

// A word that is no name, whatever the files hold.
bool is_address(const std::string& word) {
    in_addr address{};
    return word.find(':') != std::string::npos || inet_pton(AF_INET, word.c_str(), &address) == 1;
}

struct Condition {
    std::string label;
    std::string value;
    bool unequal;

    // A target without the label has it with an empty value.
    [[nodiscard]] bool is_met_by(const Target& target) const {
        const auto found = target.labels.find(label);
        return (found != target.labels.end() ? found->second == value : value.empty()) != unequal;
    }
};

Condition parse_condition(const std::string& text) {
    const std::size_t sign = text.find('=');
    const bool unequal = sign != std::string::npos && sign > 0 && text[sign - 1] == '!';
    const std::string label = text.substr(0, unequal ? sign - 1 : sign);
    if (sign == std::string::npos || label.empty())
        refuse("{} is no condition: LABEL=VALUE or LABEL!=VALUE", text);
    return {label, text.substr(sign + 1), unequal};
}

// Names what there is instead: the values of the label, or the labels.
[[noreturn]] void refuse_unmet(const std::string& text, const Condition& condition,
                               const std::vector<Target>& targets) {
    std::set<std::string> labels;
    std::set<std::string> values;
    for (const Target& target : targets) {
        for (const auto& [label, value] : target.labels) {
            labels.insert(label);
            if (label == condition.label)
                values.insert(fmt::format("{}={}", label, value));
        }
    }
    const std::set<std::string>& there = values.empty() ? labels : values;
    const auto shown = static_cast<std::ptrdiff_t>(std::min(there.size(), kNamed));
    refuse("no target has {}; {} {}{}", text, values.empty() ? "the labels are:" : "there is",
           there.empty()
               ? "none"
               : fmt::format("{}", fmt::join(there.begin(), std::next(there.begin(), shown), ", ")),
           there.size() > kNamed ? ", ..." : "");
}

}  // namespace

std::string name_of(const Target& target) {
    const std::string address = fmt::format("{}:{}", target.host, target.port);
    return target.name.empty() ? address : fmt::format("{} ({})", target.name, address);
}

Target parse_target(std::string_view word, std::uint16_t default_port) {
    const std::size_t colon = word.find(':');
    if (colon != word.rfind(':'))
        refuse("{}: IPv4 only, HOST or HOST:PORT", word);
    const std::string_view host = word.substr(0, colon);
    if (host.empty())
        refuse("{}: no host", word.empty() ? "an empty word" : word);
    if (!consists_of(host, kOfHosts))
        refuse("{} is no host: letters, digits, '-' and '.'", host);
    return {.host = std::string(host),
            .port = colon == std::string_view::npos ? default_port
                                                    : parse_port(word.substr(colon + 1))};
}

std::vector<Target> parse_targets(std::string_view json) {
    const Json groups = parse_json(json);
    if (!groups.is_array())
        refuse("no list of groups: [{{\"targets\": ...}}, ...]");
    std::vector<Target> targets;
    Seen seen;
    for (const auto& [index, group] : groups.items())
        append_new(parse_group(fmt::format("[{}]", index), group), targets, seen);
    return targets;
}

std::vector<Target> read_targets_file(const std::string& path) {
    const std::optional<std::string> text = read_if_there(path);
    if (!text)
        refuse("{}: {}", path, std::strerror(ENOENT));
    return parse_file(path, *text);
}

std::vector<std::string> targets_files() {
    std::vector<std::string> paths = {"/etc/zondar/targets.json"};
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    if (config != nullptr && *config == '/')
        paths.push_back(std::string(config) + "/zondar/targets.json");
    else if (home != nullptr && *home != '\0')
        paths.push_back(std::string(home) + "/.config/zondar/targets.json");
    return paths;
}

// A broken one ends the reading: what it holds could have changed the meaning of any word.
Inventory::Inventory(std::vector<std::string> paths) : paths_(std::move(paths)) {
    Seen seen;
    try {
        for (const std::string& path : paths_) {
            if (const std::optional<std::string> text = read_if_there(path))
                append_new(parse_file(path, *text), targets_, seen);
        }
    } catch (const std::invalid_argument& problem) {
        error_ = problem.what();
    }
}

const std::vector<Target>& Inventory::targets() const {
    if (!error_.empty())
        refuse("{}", error_);
    return targets_;
}

std::vector<Target> Inventory::select(const Selection& selection,
                                      std::uint16_t default_port) const {
    std::vector<Target> chosen;
    if (selection.all || (selection.words.empty() && !selection.where.empty())) {
        chosen = targets();
        if (chosen.empty())
            refuse("no targets: they are looked for in {}", fmt::join(paths_, " and "));
    }
    for (const std::string& word : selection.words)
        std::ranges::move(meant_by(word, default_port), std::back_inserter(chosen));
    for (const std::string& text : selection.where) {
        const Condition condition = parse_condition(text);
        std::vector<Target> left;
        std::ranges::copy_if(chosen, std::back_inserter(left),
                             [&](const Target& target) { return condition.is_met_by(target); });
        if (left.empty())
            refuse_unmet(text, condition, chosen);
        chosen = std::move(left);
    }
    std::set<std::pair<std::string, std::uint16_t>> modules;
    std::erase_if(chosen, [&](const Target& target) {
        return !modules.emplace(target.host, target.port).second;
    });
    return chosen;
}

std::vector<Target> Inventory::named(const std::string& name) const {
    std::vector<Target> named;
    std::ranges::copy_if(targets_, std::back_inserter(named), [&](const Target& target) {
        return !name.empty() && strcasecmp(target.name.c_str(), name.c_str()) == 0;
    });
    return named;
}

// A name may hold commas, and whatever else.
std::vector<Target> Inventory::meant_by(const std::string& word, std::uint16_t default_port) const {
    std::vector<Target> meant = named(word);
    if (!meant.empty())
        return meant;
    for (std::size_t begin = 0; begin <= word.size();) {
        const std::size_t end = std::min(word.find(',', begin), word.size());
        const std::string part = word.substr(begin, end - begin);
        const std::vector<Target> found = named(part);
        std::ranges::copy(found, std::back_inserter(meant));
        if (found.empty() && !is_address(part))
            static_cast<void>(targets());
        if (found.empty())
            meant.push_back(parse_target(part, default_port));
        begin = end + 1;
    }
    return meant;
}

}  // namespace master
