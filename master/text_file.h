// Small files as texts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace master {

// What stands in a file; nothing when there is none. Throws std::invalid_argument with the path and
// the reason when it cannot be read, or is larger than 4 MiB.
std::optional<std::string> read_if_there(const std::string& path);

}  // namespace master
