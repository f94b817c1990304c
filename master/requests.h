// The requests that are not about a single parameter: what a module is asked and told.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "master/layout.h"
#include "master/parameters.h"
#include "master/request.h"

namespace master {

Request identification_request();
Request status_request();
// For block 1 or 2 of the configuration.
Request block_request(std::uint8_t block);

// The action of this name; null when there is none.
const protocol::Subcommand* find_action(std::string_view name);
// A write that acts, with what its layout takes. The name is one that find_action() finds:
// "time", "slave register".
Request action_request(std::string_view name, const Items& items = {});

// What a request does beyond its words, as the end of a question: "resets the module to its factory
// configuration". Empty for all others.
std::string_view consequence_of(const Request& request);
// The same of a write to a parameter.
std::string_view reaches(const Parameter& parameter);

// How long an answer is worth waiting for: longer where the module has much to do first.
std::chrono::milliseconds patience_for(const Request& request);

}  // namespace master
