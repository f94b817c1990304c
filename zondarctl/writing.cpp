// The commands that change something.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string>

#include "master/parameters.h"
#include "master/requests.h"
#include "protocol/countries.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

// Asks before what cannot be taken back.
void confirm(const Options& options, const Request& request) {
    const std::string_view consequence = consequence_of(request);
    if (consequence.empty() || options.yes)
        return;
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
        throw UsageError(fmt::format("this {}: it needs --yes", consequence));
    write_text(stderr, fmt::format("This {}. Go on? [y/N] ", consequence));
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw UsageError("nothing was done");
}

// What the module shows of a parameter after a write, and whether that is `expected`.
void put_read_back(Report& report, const Parameter& parameter, Session& session,
                   const Value& expected) {
    const Value found = value_in(parameter, session.ask(block_request(parameter.block)));
    const Item item = item_of(parameter, found);
    Json entry = parameter_json(parameter.name, item);
    entry["matches"] = found == expected;
    report.data["read_back"].push_back(entry);
    report.line({parameter.name, shown(item), "read back"});
    if (found != expected && !report.error)
        report.fail(kRefusedOrDifferent, "read_back",
                    fmt::format("{} is {} instead of {}", parameter.name, shown(item),
                                shown(item_of(parameter, expected))));
}

// The module never tells whether it could store a value; it only can be read back.
Report store(const Options& options, const Parameter& parameter, const Value& value) {
    const Request request = write_request(parameter, value);
    confirm(options, request);
    Session session(options.settings);
    session.ask(request);
    const Item item = item_of(parameter, value);
    Report report{.data = parameter_json(parameter.name, item)};
    report.data["read_back"] = Json::array();
    if (parameter.block == 0) {
        report.line({parameter.name, shown(item),
                     "sent; no answer of the module holds it, so it was not read back"});
        return report;
    }
    try {
        put_read_back(report, parameter, session, value_after(parameter, value));
        if (const Parameter* const also = parameter.also())
            put_read_back(report, *also, session, value_after(*also, value));
    } catch (const Failure& failure) {
        report.fail(failure);
        report.error->message = "sent, but not read back: " + report.error->message;
    }
    return report;
}

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

Report clock_command(const Options& options, const Clock& clock_part, const std::string& text) {
    const std::string wanted = text.empty() ? "" : wire_text(clock_part, text);
    const Request request = action_request(clock_part.name, {{clock_part.name, wanted}});
    Report report;
    if (!wanted.empty())
        confirm(options, request);
    Session session(options.settings);
    if (!wanted.empty())
        session.ask(request);
    const Items items = clock(session);
    report.data = to_json(items);
    for (const Item& item : items) {
        if (item.name != clock_part.name)
            continue;
        report.line({shown(item)});
        if (!wanted.empty() && !clock_part.matches(std::get<std::string>(item.value), wanted))
            report.fail(kRefusedOrDifferent, "read_back",
                        fmt::format("the {} of the module is {} instead of {}", item.name,
                                    shown(item), wanted));
    }
    return report;
}

// Only to one that the module has defaults for, or else to `any`.
Report change_country_to(const Options& options, const std::string& name, bool any) {
    if (*protocol::find_country(name).name == '\0' && !any) {
        std::string known;
        for (const protocol::Country& each : protocol::countries())
            known += fmt::format("{}{}", known.empty() ? "" : ", ", each.name);
        throw UsageError(
            fmt::format("the module has no defaults for '{}', only for {}; with --any "
                        "it is sent all the same, and clears them",
                        name, known));
    }
    const Parameter& parameter = known_parameter(name_of(protocol::Selector::CGS_COUNTRY, 0));
    return store(options, parameter, parsed_value(parameter, name));
}

}  // namespace

Report set(const Options& options, const std::string& name, const std::string& value) {
    const Parameter& parameter = known_parameter(name);
    if (parameter.write->effect == protocol::Effect::changes_country)
        return change_country_to(options, value, false);
    return store(options, parameter, parsed_value(parameter, value));
}

Report country(const Options& options, const std::string& name, bool any) {
    if (!name.empty())
        return change_country_to(options, name, any);
    const Parameter& parameter = known_parameter(name_of(protocol::Selector::CGS_COUNTRY, 0));
    Session session(options.settings);
    const Value stored = value_in(parameter, session.ask(block_request(parameter.block)));
    Report report;
    put_item(report.data, "country", item_of(parameter, stored));
    report.data["known"] = Json::array();
    for (const protocol::Country& known : protocol::countries())
        report.data["known"].push_back(known.name);
    report.line({shown(item_of(parameter, stored))});
    return report;
}

Report set_time(const Options& options, const std::string& time) {
    return clock_command(options, kTime, time);
}

Report set_date(const Options& options, const std::string& date) {
    return clock_command(options, kDate, date);
}

Report reset_factory(const Options& options) {
    const Request request = action_request("reset-factory");
    confirm(options, request);
    Session session(options.settings);
    session.ask(request);
    Report report{.data = {{"reset", true}}};
    report.line({"reset to the factory configuration"});
    return report;
}

Report send_raw(const Options& options, const std::string& command,
                const std::vector<std::string>& info) {
    const Request request = {.command = byte_of(command, 15, "command"), .info = bytes_of(info)};
    confirm(options, request);
    Session session(options.settings);
    const Bytes answer = session.ask(request);
    Report report{.data = {{"command", request.command}, {"length", answer.size()}}};
    report.data["info"] = hex_digits(answer);
    put_hex_lines(report, answer);
    return report;
}

Report resync(const Options& options) {
    Session session(options.settings);
    session.resync();
    const Items items = identification(session.ask(identification_request()));
    Report report{.data = to_json(items)};
    report.line({"between two frames, and answering"});
    put_lines(report, items);
    return report;
}

}  // namespace zondarctl
