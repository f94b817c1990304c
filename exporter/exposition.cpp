#include "exporter/exposition.h"

#include <fmt/format.h>

#include "master/text.h"

namespace exporter {

namespace {

std::string quoted(std::string_view value) {
    std::string quoted = "\"";
    for (const char c : master::printable(value)) {
        if (c == '\\' || c == '"')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace

std::string number_text(double number) {
    return fmt::format("{}", number);
}

void Exposition::family(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    text_ += fmt::format("# HELP {} ", name);
    for (const char c : help) {
        if (c == '\\')
            text_ += '\\';
        text_ += c;
    }
    text_ += fmt::format("\n# TYPE {} {}\n", name, type);
}

void Exposition::sample(const Labels& labels, double value) {
    sample("", labels, value);
}

void Exposition::sample(std::string_view suffix, const Labels& labels, double value) {
    text_ += name_;
    text_ += suffix;
    char separator = '{';
    for (const auto& [label, text] : labels) {
        text_ += separator;
        text_ += label;
        text_ += '=';
        text_ += quoted(text);
        separator = ',';
    }
    if (!labels.empty())
        text_ += '}';
    text_ += ' ' + number_text(value) + '\n';
}

void Exposition::gauge(std::string_view name, std::string_view help, double value) {
    family(name, "gauge", help);
    sample({}, value);
}

void Exposition::counter(std::string_view name, std::string_view help, double value) {
    family(name, "counter", help);
    sample({}, value);
}

}  // namespace exporter
