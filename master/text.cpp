#include "master/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <clocale>
#include <cwchar>

namespace master {

namespace {

// The first character of a text in UTF-8.
struct Character {
    std::size_t length;  // in bytes; 0 when the text begins with none
    wchar_t code;
};

Character first_character(std::string_view text) {
    static const locale_t kUtf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = uselocale(kUtf8);
    std::mbstate_t state{};
    wchar_t code = 0;
    const std::size_t length = std::mbrtowc(&code, text.data(), text.size(), &state);
    uselocale(before);
    constexpr auto kNone = static_cast<std::size_t>(-2);
    // The library takes the longer sequences of old, too.
    constexpr wchar_t kLast = 0x10FFFF;
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    if (length >= kNone || surrogate || code > kLast)
        return {0, 0};
    return {std::max<std::size_t>(length, 1), code};  // a NUL has the length 0
}

// Of ASCII and of the block behind it.
bool is_control(wchar_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

}  // namespace

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = first_character(text).length;
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character character = first_character(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(character.length, 1));
        if (character.length == 0 || is_control(character.code)) {
            for (const char byte : bytes)
                shown += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
        } else {
            shown += bytes;
        }
        text.remove_prefix(bytes.size());
    }
    return shown;
}

}  // namespace master
