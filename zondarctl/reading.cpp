// The commands that only read.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>

#include "master/names.h"
#include "master/parameters.h"
#include "master/requests.h"
#include "zondarctl/alarms.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

// Time and date of the module stand beside its parameters.
Json configuration_json(const Items& items) {
    Json data = {{"parameters", Json::array()}};
    for (const Item& item : items) {
        if (find_parameter(item.name) != nullptr)
            data["parameters"].push_back(parameter_json(item.name, item));
        else
            put_item(data, item.name, item);
    }
    return data;
}

// Those that the names find, which all can be read back; a name may find several.
std::vector<const Parameter*> readable_parameters(const Words& names) {
    std::vector<const Parameter*> wanted;
    for (const std::string& name : names) {
        const std::vector<const Parameter*> found = known_parameters(name);
        const auto before = wanted.size();
        std::ranges::copy_if(found, std::back_inserter(wanted),
                             [](const Parameter* each) { return each->block != 0; });
        if (wanted.size() == before)
            throw UsageError(fmt::format("{} cannot be read back: no answer of the module holds it",
                                         found[0]->name));
    }
    return wanted;
}

Items read_configuration(Session& session, std::optional<int> only) {
    Items items;
    for (const int block : {1, 2}) {
        if (only.value_or(block) == block) {
            const Items more = configuration(session.ask(block_request(block == 1 ? 1 : 2)));
            items.insert(items.end(), more.begin(), more.end());
        }
    }
    return items;
}

}  // namespace

Report identify(const Options& options) {
    Session session(options.settings);
    const Items items = identification(session.ask(identification_request()));
    Report report{.data = to_json(items)};
    put_lines(report, items);
    for (const Item& item : items)
        report.row.emplace_back(item.name, shown(item));
    return report;
}

Report show_status(const Options& options) {
    Session session(options.settings);
    const Items items = status(session.ask(status_request()));
    Report report{.data = status_json(items)};
    for (const Item& item : items) {
        const bool alert = is_alarm(item) && is_on(item);
        report.line({item.name, shown(item)},
                    alert ? TextLine::Look::alert : TextLine::Look::plain);
    }
    const std::vector<std::string> alarms = active_alarms(items);
    report.row.emplace_back("alarms",
                            alarms.empty() ? "none" : fmt::format("{}", fmt::join(alarms, ", ")));
    for (const Item& item : items) {
        if (!is_alarm(item))
            report.row.emplace_back(item.name, shown(item));
    }
    return report;
}

Report show_configuration(const Options& options, std::optional<int> block) {
    Session session(options.settings);
    const Items items = read_configuration(session, block);
    Report report{.data = configuration_json(items)};
    put_lines(report, items);
    return report;
}

Run getting(const Words& names, bool quiet) {
    const std::vector<const Parameter*> wanted = readable_parameters(names);
    return [=](const Options& options) {
        Session session(options.settings);
        Report report{.data = {{"parameters", Json::array()}}};
        std::array<Bytes, 3> blocks;
        for (const Parameter* parameter : wanted) {
            Bytes& info = blocks.at(parameter->block);
            if (info.empty())
                info = session.ask(block_request(parameter->block));
            const Item item = item_of(*parameter, value_in(*parameter, info));
            report.data["parameters"].push_back(parameter_json(parameter->name, item));
            report.line(quiet ? Words{shown(item)} : Words{parameter->name, shown(item)});
            report.row.emplace_back(parameter->name, shown(item));
        }
        return report;
    };
}

// A part that fails says so in its place; the first failure is the report's.
Report dump(const Options& options) {
    Report report;
    const auto part = [&](const char* name, const auto& read) {
        try {
            report.data[name] = read();
        } catch (const Failure& failure) {
            if (!report.error)
                report.fail(failure);
            report.data[name] = nullptr;
        }
    };
    Session session(options.settings);
    report.data["tool"] = "zondarctl " ZONDAR_VERSION;
    report.data["taken"] = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
    part("identification",
         [&] { return to_json(identification(session.ask(identification_request()))); });
    part("status", [&] { return status_json(status(session.ask(status_request()))); });
    part("configuration_1",
         [&] { return configuration_json(configuration(session.ask(block_request(1)))); });
    part("configuration_2",
         [&] { return configuration_json(configuration(session.ask(block_request(2)))); });
    return report;
}

}  // namespace zondarctl
