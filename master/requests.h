// The requests that are not about a single parameter: what a module is asked and told.
#pragma once

#include <cstdint>
#include <string_view>

#include "master/layout.h"
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

// What a request does besides changing a value, when that takes a confirmation: "resets the module
// to its factory configuration". Empty for all others.
std::string_view consequence_of(const Request& request);

}  // namespace master
