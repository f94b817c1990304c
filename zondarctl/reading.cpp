// The commands that only read.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "master/parameters.h"
#include "master/requests.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

constexpr std::string_view kAlarm = "alarma_";

bool is_alarm(const Item& item) {
    return std::string_view(item.name).starts_with(kAlarm);
}

bool is_on(const Item& item) {
    const auto* const flag = std::get_if<bool>(&item.value);
    return flag != nullptr && *flag;
}

std::vector<std::string> active_alarms(const Items& items) {
    std::vector<std::string> names;
    for (const Item& item : items) {
        if (is_alarm(item) && is_on(item))
            names.push_back(item.name);
    }
    return names;
}

Json status_json(const Items& items) {
    Json data = to_json(items);
    data["alarms"] = active_alarms(items);
    return data;
}

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

// One word for the ill, one figure after the other for the graphs.
std::string plugin_line(std::string_view state, std::string_view said, const std::string& figures) {
    return fmt::format("ZONDAR {} - {}{}", state, said, figures.empty() ? "" : " | " + figures);
}

std::string figures_of(const Items& items, double seconds) {
    std::string figures =
        fmt::format("time={:.3f}s alarms={};;;0;{}", seconds, active_alarms(items).size(),
                    std::ranges::count_if(items, is_alarm));
    for (const Item& item : items) {
        if (const auto* const number = std::get_if<std::int64_t>(&item.value))
            figures += fmt::format(" {}={}", item.name, *number);
    }
    return figures;
}

}  // namespace

Report identify(const Options& options) {
    Session session(options.settings);
    const Items items = identification(session.ask(identification_request()));
    Report report{.data = to_json(items)};
    put_lines(report, items);
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
    return report;
}

Report show_configuration(const Options& options, std::optional<int> block) {
    Session session(options.settings);
    const Items items = read_configuration(session, block);
    Report report{.data = configuration_json(items)};
    put_lines(report, items);
    return report;
}

Report get(const Options& options, const std::vector<std::string>& names) {
    std::vector<const Parameter*> wanted;
    for (const std::string& name : names) {
        const Parameter& parameter = known_parameter(name);
        if (parameter.block == 0)
            throw UsageError(fmt::format("{} cannot be read back: no answer of the module holds it",
                                         parameter.name));
        wanted.push_back(&parameter);
    }
    Session session(options.settings);
    std::array<Bytes, 3> blocks;
    Report report{.data = {{"parameters", Json::array()}}};
    for (const Parameter* parameter : wanted) {
        Bytes& info = blocks.at(parameter->block);
        if (info.empty())
            info = session.ask(block_request(parameter->block));
        const Item item = item_of(*parameter, value_in(*parameter, info));
        report.data["parameters"].push_back(parameter_json(parameter->name, item));
        report.line({parameter->name, shown(item)});
    }
    return report;
}

Report list_parameters() {
    Report report{.data = {{"parameters", Json::array()}}};
    report.line({"NAME", "SUB-COMMAND", "VALUE", "READ BACK", "MEANING", "REMARK"},
                TextLine::Look::heading);
    for (const Parameter& parameter : parameters()) {
        const Json entry = describe(parameter);
        report.data["parameters"].push_back(entry);
        const std::string value = parameter.is_text()
                                      ? fmt::format("text, {} bytes", parameter.limit())
                                      : fmt::format("0 to {}", parameter.limit());
        const std::string place =
            parameter.block == 0
                ? "nowhere"
                : fmt::format("block {}, at {}", parameter.block, parameter.field->position);
        const protocol::Parameter& known = parameter.description();
        const std::string unit = *known.unit == '\0' ? "" : fmt::format(", {}", known.unit);
        report.line({parameter.name, std::to_string(parameter.write->code), value, place,
                     known.meaning + unit, entry.value("remark", "")});
    }
    return report;
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
    std::optional<Session> session;
    session.emplace(options.settings);
    report.data["tool"] = "zondarctl " ZONDAR_VERSION;
    report.data["taken"] = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
    part("identification",
         [&] { return to_json(identification(session->ask(identification_request()))); });
    part("status", [&] { return status_json(status(session->ask(status_request()))); });
    part("configuration_1",
         [&] { return configuration_json(configuration(session->ask(block_request(1)))); });
    part("configuration_2",
         [&] { return configuration_json(configuration(session->ask(block_request(2)))); });
    return report;
}

Report check(const Options& options, const std::vector<std::string>& warnings) {
    enum { ok, warning, critical, unknown };
    constexpr const char* kStates[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    for (const std::string& alarm : warnings) {
        const auto places = protocol::fields(Layout::status);
        const auto known = std::ranges::find(places, alarm, &protocol::Field::name);
        if (known == places.end() || !alarm.starts_with(kAlarm))
            throw UsageError(fmt::format("no alarm {}", alarm));
    }
    Report report;
    std::string said = "no alarms";
    std::string figures;
    try {
        const auto start = std::chrono::steady_clock::now();
        Session session(options.settings);
        const Items items = status(session.ask(status_request()));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        const std::vector<std::string> alarms = active_alarms(items);
        const bool only_warnings = std::ranges::all_of(alarms, [&](const std::string& alarm) {
            return std::ranges::find(warnings, alarm) != warnings.end();
        });
        if (!alarms.empty()) {
            said = fmt::format("{}", fmt::join(alarms, ", "));
            report.status = only_warnings ? warning : critical;
        }
        figures = figures_of(items, taken.count());
        report.data = status_json(items);
    } catch (const Failure& failure) {
        report.fail(failure);
        report.status = failure.stage() == Stage::lock ? unknown : critical;
        said = failure.what();
    }
    report.data["state"] = kStates[report.status];
    report.line({plugin_line(kStates[report.status], printable(said), figures)});
    return report;
}

}  // namespace zondarctl
