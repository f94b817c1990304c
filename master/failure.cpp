#include "master/failure.h"

#include <fmt/format.h>

#include <algorithm>

namespace master {

namespace {

// Servers of other protocols introduce themselves in their first line: ": "SSH-2.0-OpenSSH_9.2"".
// Empty when it does not look like that.
std::string introduction(const Bytes& received) {
    constexpr std::size_t kLongest = 60;
    const auto ends_line = [](std::uint8_t byte) { return byte == '\r' || byte == '\n'; };
    const auto is_plain = [](char c) { return c >= ' ' && c <= '~'; };
    const std::string line(received.begin(), std::ranges::find_if(received, ends_line));
    const bool shown =
        !line.empty() && line.size() <= kLongest && std::ranges::all_of(line, is_plain);
    return shown ? fmt::format(": \"{}\"", line) : "";
}

}  // namespace

// Without an introduction it may be a module's answer, bent on the way.
NoModule::NoModule(const Bytes& received)
    : Lasting(Stage::answer, "what answers there is no module" + introduction(received),
              introduction(received).empty() ? Outcome::unknown : Outcome::not_taken) {}

}  // namespace master
