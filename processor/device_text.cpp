#include "processor/device_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

namespace {

constexpr std::size_t kMacLength = 17;

// A script may print anything: a word longer than this is cut, which makes no label of it and
// leaves any sensible version whole.
using Word = std::array<char, 64>;
using Version = std::array<std::uint8_t, 3>;

// Null for a selector that names nothing.
const char* label_of(int selector) {
    switch (selector) {
        case 1:
            return "Software:";
        case 2:
            return "U-Boot:";
        case 3:
            return "Hardware:";
        default:
            return nullptr;
    }
}

// The next word between white space; false when the output ends before one begins.
bool next_word(std::FILE* output, Word& word) {
    int next = std::getc(output);
    while (next != EOF && std::isspace(next) != 0)
        next = std::getc(output);
    if (next == EOF)
        return false;
    std::size_t length = 0;
    for (; next != EOF && std::isspace(next) == 0; next = std::getc(output)) {
        if (length < word.size() - 1)
            word[length++] = static_cast<char>(next);
    }
    word[length] = '\0';
    return true;
}

// The text behind the next full stop, empty when there is none.
const char* behind_full_stop(const char* text) {
    const char* const stop = std::strchr(text, '.');
    return stop != nullptr ? stop + 1 : "";
}

std::uint8_t number(const char* text) {
    return static_cast<std::uint8_t>(std::strtol(text, nullptr, 10));
}

// Nothing when the part before the first full stop is empty.
std::optional<Version> parse_version(const char* text) {
    if (*text == '.' || *text == '\0')
        return std::nullopt;
    const char* const minor = behind_full_stop(text);
    const char* const build = behind_full_stop(minor);
    return Version{number(text), number(minor), number(build)};
}

}  // namespace

int parse_mac(const char* line, std::uint8_t* digits) {
    const std::string_view text(line);
    if (text.size() != kMacLength || text.find(':') != 2)
        return -1;
    for (std::size_t pair = 0; pair < kMacLength; pair += 3)
        digits = std::copy_n(line + pair, 2, digits);
    return 0;
}

int scan_versions(std::FILE* output, int selector, std::uint8_t* version) {
    const char* const wanted = label_of(selector);
    Word skipped;
    Word label;
    Word text;
    std::optional<Version> found;
    while (next_word(output, skipped) && next_word(output, label) && next_word(output, text)) {
        if (wanted == nullptr || std::strcmp(label.data(), wanted) != 0)
            continue;
        found = parse_version(text.data());
        if (!found)
            return -1;
    }
    if (std::ferror(output) != 0)
        return -1;
    if (found)
        std::copy(found->begin(), found->end(), version);
    return 0;
}
