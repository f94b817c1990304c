// The clock of a module: `time` and `date`.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <ctime>

#include "master/requests.h"
#include "zondarctl/commands.h"
#include "zondarctl/confirm.h"

namespace zondarctl {

namespace {

Items clock(Session& session) {
    Items items = configuration(session.ask(block_request(2)));
    std::erase_if(items,
                  [](const Item& item) { return item.name != "time" && item.name != "date"; });
    return items;
}

// The clock went on meanwhile: the next minute will do.
bool is_now(const std::string& found, const std::string& wanted) {
    std::tm time{};
    strptime(wanted.c_str(), "%H.%M", &time);
    const int next = (time.tm_hour * 60 + time.tm_min + 1) % (24 * 60);
    return found == wanted || found == fmt::format("{:02}.{:02}", next / 60, next % 60);
}

struct Clock {
    const char* name;                  // of its item, and of the action that sets it
    std::vector<const char*> formats;  // that are understood, the wire's first
    bool (*matches)(const std::string& found, const std::string& wanted);
};

const Clock kTime = {"time", {"%H.%M", "%H:%M"}, is_now};
const Clock kDate = {
    "date", {"%d.%m.%Y", "%Y-%m-%d"}, [](const std::string& found, const std::string& wanted) {
        return found == wanted;
    }};

// As the wire has it; "now" is this machine's clock.
std::string wire_text(const Clock& clock, const std::string& text) {
    const std::time_t now = std::time(nullptr);
    std::tm time = fmt::localtime(now);
    if (text != "now") {
        const char* rest = nullptr;
        for (const char* const format : clock.formats) {
            if (rest == nullptr || *rest != '\0')
                rest = strptime(text.c_str(), format, &time);
        }
        // A day that the month does not have comes back as another one; no clock can be set to a
        // time before 1970, which "26" as a year would be.
        std::tm day = time;
        day.tm_hour = 12;
        day.tm_isdst = -1;
        if (rest == nullptr || *rest != '\0' || std::mktime(&day) < 0 ||
            day.tm_mday != time.tm_mday)
            throw UsageError(fmt::format("'{}' is no {}: it is written as in {}", text, clock.name,
                                         &clock == &kTime ? "09.05" : "31.12.2026"));
    }
    std::array<char, 16> written{};
    std::strftime(written.data(), written.size(), clock.formats[0], &time);
    return written.data();
}

Report show_or_set(const Options& options, const Clock& part, const std::string& wanted) {
    Report report;
    Session session(options.settings);
    if (!wanted.empty())
        session.ask(action_request(part.name, {{part.name, wanted}}));
    Items items;
    try {
        items = clock(session);
    } catch (const Failure& failure) {
        if (wanted.empty())
            throw;
        report.fail_to_read_back(failure);
        return report;
    }
    report.data = to_json(items);
    for (const Item& item : items) {
        if (item.name != part.name)
            continue;
        report.line({shown(item)});
        report.row.emplace_back(item.name, shown(item));
        if (!wanted.empty() && !part.matches(std::get<std::string>(item.value), wanted))
            report.fail(kRefusedOrDifferent, "read_back",
                        fmt::format("the {} of the module is {} instead of {}", item.name,
                                    shown(item), wanted));
    }
    return report;
}

}  // namespace

Run clock_command(const Options& options, std::string_view part, const std::string& text) {
    const Clock& its = part == kTime.name ? kTime : kDate;
    const std::string wanted = text.empty() ? "" : wire_text(its, text);
    if (!wanted.empty())
        confirm(options,
                {std::string(consequence_of(action_request(its.name, {{its.name, wanted}})))});
    return [&its, wanted](const Options& its_options) {
        return show_or_set(its_options, its, wanted);
    };
}

}  // namespace zondarctl
