#include "zondarctl/report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "master/bytes.h"
#include "zondarctl/waiting.h"

namespace zondarctl {

namespace {

constexpr int kSchema = 2;

// By stage.
constexpr Status kStatuses[] = {kNoConnection,  kLocked,       kNoConnection,
                                kNoAnswer,      kNoAnswer,     kWrongCode,
                                kWrongSequence, kOtherCommand, kRefusedOrDifferent};
static_assert(std::size(kStatuses) == std::size(kStageNames));

constexpr const char* kOutcomes[] = {"", "not sent", "not taken", "unknown"};

// Columns on the screen: characters, not bytes.
std::size_t width_of(std::string_view text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](unsigned char c) { return (c & 0xC0U) != 0x80; }));
}

Json envelope(const Report& report, std::string_view command, const std::optional<Target>& target,
              Elapsed elapsed) {
    Json object = {{"schema", kSchema}};
    object["target"] = target ? Json(fmt::format("{}:{}", target->host, target->port)) : Json();
    if (target && !target->name.empty())
        object["name"] = target->name;
    object["command"] = command;
    object["ok"] = !report.error;
    object["elapsed_ms"] = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
    object["data"] = report.data;
    if (report.error) {
        Json error = {{"stage", report.error->stage}};
        put_text(error, "message", report.error->message);
        if (report.error->outcome != Outcome::none)
            error["outcome"] = kOutcomes[static_cast<std::size_t>(report.error->outcome)];
        object["error"] = error;
    }
    return object;
}

std::string json_text(const Json& json, const Style& style) {
    return json.dump(style.compact ? -1 : 2, ' ', false, Json::error_handler_t::replace) + "\n";
}

void put_error(const std::string& message) {
    const Waiting::Pause pause;
    write_text(stderr, fmt::format("zondarctl: {}\n", printable(message)));
}

void put_answer(const std::string& text) {
    const Waiting::Pause pause;
    if (!write_text(stdout, text))
        put_error(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
}

// The headings of all rows, each once, in the order in which they come.
std::vector<std::string> headings_of(const std::vector<ModuleReport>& modules) {
    std::vector<std::string> headings;
    for (const ModuleReport& module : modules) {
        for (const auto& [heading, content] : module.report.row) {
            if (std::ranges::find(headings, heading) == headings.end())
                headings.push_back(heading);
        }
    }
    return headings;
}

std::vector<TextLine> table_of(const std::vector<ModuleReport>& modules) {
    const std::vector<std::string> headings = headings_of(modules);
    const bool failures = std::ranges::any_of(
        modules, [](const auto& each) { return each.report.error.has_value(); });
    TextLine first{{"module"}, TextLine::Look::heading};
    first.cells.insert(first.cells.end(), headings.begin(), headings.end());
    if (failures)
        first.cells.emplace_back("error");
    std::vector<TextLine> lines = {first};
    for (const auto& [target, report, elapsed] : modules) {
        TextLine line{{printable(name_of(target))}};
        for (const std::string& heading : headings) {
            const auto cell =
                std::ranges::find(report.row, heading, &decltype(report.row)::value_type::first);
            line.cells.push_back(cell == report.row.end() ? "-" : cell->second);
        }
        if (failures)
            line.cells.push_back(report.error ? printable(report.error->message) : "");
        line.look = report.status == kDone ? TextLine::Look::plain : TextLine::Look::alert;
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace

void Report::fail(const Failure& failure) {
    fail(kStatuses[static_cast<std::size_t>(failure.stage())], name_of(failure.stage()),
         failure.what());
    error->outcome = failure.outcome();
    error->of_module = true;
}

void Report::fail_to_read_back(const Failure& failure) {
    fail(failure);
    error->outcome = Outcome::unknown;
    error->message = "sent, but not read back: " + error->message;
}

void Report::fail(int new_status, const std::string& stage, const std::string& message) {
    status = new_status;
    error = Error{stage, message};
}

bool color_wanted() {
    const char* const refused = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0');
}

void print(const Report& report, std::string_view command, const std::optional<Target>& target,
           Elapsed elapsed, const Style& style) {
    put_answer(style.json ? json_text(envelope(report, command, target, elapsed), style)
                          : text_of(report.lines, style.color));
    if (report.error && report.error->of_module && target)
        put_error(fmt::format("{}: {}", name_of(*target), report.error->message));
    else if (report.error)
        put_error(report.error->message);
}

void print(const std::vector<ModuleReport>& modules, std::string_view command,
           const std::string& heading, const Style& style) {
    if (!style.json) {
        put_answer((heading.empty() ? "" : heading + "\n") +
                   text_of(table_of(modules), style.color));
        return;
    }
    Json list = Json::array();
    for (const auto& [target, report, elapsed] : modules)
        list.push_back(envelope(report, command, target, elapsed));
    put_answer(json_text(list, style));
}

std::string text_of(const std::vector<TextLine>& lines, bool color) {
    std::string text;
    for (std::size_t first = 0; first < lines.size();) {
        const std::size_t count = lines[first].cells.size();
        std::size_t end = first;
        std::vector<std::size_t> widths(count);
        for (; end < lines.size() && lines[end].cells.size() == count; ++end) {
            for (std::size_t i = 0; i < count; ++i)
                widths[i] = std::max(widths[i], width_of(lines[end].cells[i]));
        }
        for (; first < end; ++first) {
            std::string line;
            for (std::size_t i = 0; i < count; ++i) {
                const std::string& cell = lines[first].cells[i];
                line += cell;
                line.append(i + 1 < count ? widths[i] - width_of(cell) + 2 : 0, ' ');
            }
            line.erase(line.find_last_not_of(' ') + 1);
            constexpr const char* kLooks[] = {"", "\033[1m", "\033[1;31m"};
            const auto look = static_cast<std::size_t>(lines[first].look);
            const bool looks = color && look != 0;
            text +=
                fmt::format("{}{}{}\n", looks ? kLooks[look] : "", line, looks ? "\033[0m" : "");
        }
    }
    return text;
}

bool write_text(std::FILE* stream, std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size() &&
           std::fflush(stream) == 0;
}

void put_text(Json& object, const std::string& key, const std::string& text) {
    object[key] = text;
    if (!is_utf8(text))
        object[key + "_hex"] = hex_digits(Bytes(text.begin(), text.end()));
}

void put_item(Json& object, const std::string& key, const Item& item) {
    if (const auto* const text = std::get_if<std::string>(&item.value))
        put_text(object, key, *text);
    else if (const auto* const number = std::get_if<std::int64_t>(&item.value))
        object[key] = *number;
    else
        object[key] = std::get<bool>(item.value);
}

Json to_json(const Items& items) {
    Json object = Json::object();
    for (const Item& item : items)
        put_item(object, item.name, item);
    return object;
}

std::string shown(const Item& item) {
    if (const auto* const text = std::get_if<std::string>(&item.value))
        return printable(*text);
    if (const auto* const number = std::get_if<std::int64_t>(&item.value))
        return std::to_string(*number);
    return std::get<bool>(item.value) ? "yes" : "no";
}

void put_lines(Report& report, const Items& items) {
    for (const Item& item : items)
        report.line({item.name, shown(item)});
}

}  // namespace zondarctl
