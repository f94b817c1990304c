// A request for a probe. Input: words, each with a NUL behind it: what Prometheus tells of its
// time-out, then names and values of parameters in turn.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "exporter/probe_request.h"
#include "fuzz/require.h"
#include "master/text.h"

namespace {

using Words = std::vector<std::string>;

Words words_of(const std::uint8_t* data, std::size_t size) {
    Words words;
    const std::uint8_t* const end = data + size;
    while (data < end) {
        const std::uint8_t* const nul = std::find(data, end, 0);
        words.emplace_back(data, nul);
        data = nul == end ? end : nul + 1;
    }
    return words;
}

// The value, which is the only one of that name.
std::string value_of(const std::vector<exporter::Argument>& arguments, const std::string& name) {
    const auto is_it = [&](const exporter::Argument& argument) { return argument.name == name; };
    REQUIRE(std::ranges::count_if(arguments, is_it) <= 1);
    const auto found = std::ranges::find_if(arguments, is_it);
    return found == arguments.end() ? "" : found->value;
}

void check(const std::vector<exporter::Argument>& arguments) {
    try {
        const exporter::ProbeRequest request = exporter::parse_probe(arguments);
        REQUIRE(!request.target.empty() && request.target == value_of(arguments, "target"));
        const std::string collect = value_of(arguments, "collect");
        const bool configuration = request.collect == exporter::Collect::configuration;
        REQUIRE(configuration ? collect == "configuration"
                              : collect.empty() || collect == "status");
        const std::string debug = value_of(arguments, "debug");
        REQUIRE(request.debug ? debug == "true" : debug.empty() || debug == "false");
    } catch (const std::invalid_argument& refusal) {
        REQUIRE(*refusal.what() != '\0');
        REQUIRE(master::printable(refusal.what()) == refusal.what());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using std::chrono::milliseconds;
    const Words words = words_of(data, size);
    if (words.empty())
        return 0;
    const milliseconds time = exporter::time_for_probe(words.front());
    REQUIRE(time >= milliseconds(1) && time < milliseconds(60'000));
    std::vector<exporter::Argument> arguments;
    for (std::size_t i = 1; i < words.size(); i += 2)
        arguments.push_back({words[i], i + 1 < words.size() ? words[i + 1] : ""});
    check(arguments);
    return 0;
}
