// Texts of a module, which may have any encoding, for those who need UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace master {

bool is_utf8(std::string_view text);

// The text in UTF-8, for people: bytes that are no UTF-8 are escaped, and control characters, which
// a terminal would act on.
std::string printable(std::string_view text);

}  // namespace master
