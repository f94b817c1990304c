// A file of targets. Input: its bytes. What is taken is right, and the same when it is written and
// read again.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"
#include "master/targets.h"
#include "master/text.h"

namespace {

using Targets = std::vector<master::Target>;

std::optional<Targets> taken(const std::string& text) {
    try {
        return master::parse_targets(text);
    } catch (const std::invalid_argument& refusal) {
        REQUIRE(*refusal.what() != '\0');
        REQUIRE(master::is_utf8(refusal.what()));
        return std::nullopt;
    }
}

bool is_one_of(char c, std::string_view more) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           more.find(c) != std::string_view::npos;
}

void check(const master::Target& target) {
    REQUIRE(!target.host.empty());
    REQUIRE(std::ranges::all_of(target.host, [](char c) { return is_one_of(c, "_-."); }));
    REQUIRE(target.port != 0);
    for (const auto& [label, value] : target.labels) {
        REQUIRE(!label.empty() && std::isdigit(static_cast<unsigned char>(label.front())) == 0);
        REQUIRE(std::ranges::all_of(label, [](char c) { return is_one_of(c, "_"); }));
        REQUIRE(!value.empty() && master::is_utf8(value));
    }
    const auto name = target.labels.find("name");
    REQUIRE(target.name == (name == target.labels.end() ? "" : name->second));
}

std::string written(const Targets& targets) {
    nlohmann::json groups = nlohmann::json::array();
    for (const master::Target& target : targets)
        groups.push_back({{"targets", {target.host + ':' + std::to_string(target.port)}},
                          {"labels", target.labels}});
    return groups.dump();
}

bool same(const master::Target& one, const master::Target& other) {
    return one.host == other.host && one.port == other.port && one.name == other.name &&
           one.labels == other.labels;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::optional<Targets> targets = taken(std::string(data, data + size));
    if (!targets)
        return 0;
    std::ranges::for_each(*targets, check);
    const std::optional<Targets> again = taken(written(*targets));
    REQUIRE(again && std::ranges::equal(*targets, *again, same));
    return 0;
}
