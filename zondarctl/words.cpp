#include "zondarctl/words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>

#include "link/mensaje.h"

namespace zondarctl {

std::uint8_t byte_of(const std::string& word, unsigned largest, const char* what) {
    const std::optional<std::uint32_t> number = to_number(word);
    if (!number || *number > largest)
        throw UsageError(fmt::format("'{}' is no {}: it is 0 to {}", word, what, largest));
    return static_cast<std::uint8_t>(*number);
}

Bytes bytes_of(const std::vector<std::string>& words) {
    const std::string text = fmt::format("{}", fmt::join(words, " "));
    const std::optional<Bytes> bytes = from_hex(text);
    if (!bytes)
        throw UsageError(fmt::format("'{}' are no bytes in hexadecimal digits", text));
    if (bytes->size() > kMaxInfo)
        throw UsageError(
            fmt::format("{} bytes are more than the {} of a frame", bytes->size(), kMaxInfo));
    return *bytes;
}

std::string did_you_mean(std::span<const std::string> words) {
    if (words.empty())
        return "";
    const auto but_last = words.first(words.size() - 1);
    return fmt::format("; did you mean {}{}{}?", fmt::join(but_last, ", "),
                       but_last.empty() ? "" : " or ", words.back());
}

bool is_file(const std::string& word) {
    struct stat status {};
    return stat(word.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

void put_hex_lines(Report& report, const Bytes& bytes) {
    constexpr std::size_t kPerLine = 16;
    for (std::size_t i = 0; i < bytes.size(); i += kPerLine)
        report.line(
            {hex_digits(std::span(bytes).subspan(i, std::min(kPerLine, bytes.size() - i)))});
}

}  // namespace zondarctl
