#include "zondarctl/assignments.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>

#include "master/names.h"
#include "protocol/countries.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(first);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// By a name or a pattern, not by a part of names.
std::vector<const Parameter*> writable_parameters(const std::string& name) {
    std::vector<const Parameter*> found = matching(name);
    return found.empty() ? std::vector{&known_parameter(name)} : found;
}

// A country that the module knows, by upper and lower case alike; else the text itself.
std::string as_known(const Parameter& parameter, const std::string& text) {
    if (parameter.write->effect == protocol::Effect::changes_country) {
        for (const protocol::Country& each : protocol::countries()) {
            if (strcasecmp(each.name, text.c_str()) == 0)
                return each.name;
        }
    }
    return text;
}

void put(std::vector<Write>& writes, const std::string& name, const std::string& value) {
    for (const Parameter* const parameter : writable_parameters(name)) {
        if (std::ranges::find(writes, parameter, &Write::parameter) != writes.end())
            throw UsageError(fmt::format("{} is given twice", parameter->name));
        writes.push_back({parameter, parsed_value(*parameter, as_known(*parameter, value))});
    }
}

// "NAME=VALUE", both as they stand.
bool put_assignment(std::vector<Write>& writes, const std::string& word) {
    const std::size_t sign = word.find('=');
    if (sign == std::string::npos)
        return false;
    put(writes, word.substr(0, sign), word.substr(sign + 1));
    return true;
}

std::string text_of(std::istream& input) {
    constexpr std::size_t kMost = std::size_t{1} << 20U;
    std::string text(kMost + 1, '\0');
    input.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(input.gcount()));
    if (input.bad())
        throw UsageError("standard input cannot be read");
    if (text.size() > kMost)
        throw UsageError("more than 1 MiB on standard input");
    return text;
}

void put_line(std::vector<Write>& writes, const std::string& line) {
    const std::string_view text = trimmed(line);
    if (text.empty() || text.starts_with('#'))
        return;
    const std::size_t end = text.find_first_of("= \t");
    if (end == std::string_view::npos)
        throw UsageError(fmt::format("'{}' has no value", text));
    std::string_view value = trimmed(text.substr(end));
    if (value.starts_with('='))
        value = trimmed(value.substr(1));
    put(writes, std::string(text.substr(0, end)), std::string(value));
}

}  // namespace

std::vector<Write> assignments_in(const Words& words, std::istream& input) {
    std::vector<Write> writes;
    if (words.size() == 1 && words[0] == "-") {
        std::istringstream lines(text_of(input));
        for (std::string line; std::getline(lines, line);)
            put_line(writes, line);
        if (writes.empty())
            throw UsageError("no NAME=VALUE on standard input");
        return writes;
    }
    if (words[0].find('=') == std::string::npos) {
        if (words.size() == 1)
            throw UsageError(fmt::format("{} has no value", words[0]));
        if (words.size() > 2)
            throw UsageError(
                fmt::format("'{}' is one word too many: quote a text with blanks", words[2]));
        put(writes, words[0], words[1]);
        return writes;
    }
    for (const std::string& word : words) {
        if (!put_assignment(writes, word))
            throw UsageError(fmt::format("'{}' is no NAME=VALUE: quote a text with blanks", word));
    }
    return writes;
}

}  // namespace zondarctl
