// `set` and `country`: single values are changed, and nothing else.
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <sstream>

#include "master/plan.h"
#include "master/ranges.h"
#include "master/requests.h"
#include "protocol/countries.h"
#include "zondarctl/assignments.h"
#include "zondarctl/commands.h"
#include "zondarctl/confirm.h"
#include "zondarctl/differences.h"
#include "zondarctl/interrupt.h"
#include "zondarctl/module.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

const Parameter& country_parameter() {
    return known_parameter(name_of(protocol::Selector::CGS_COUNTRY, 0));
}

// The channel plan is that of the country that is stored by then.
bool needs_country(const Write& write) {
    return write.parameter->write->effect == protocol::Effect::tunes;
}

std::string country_behind(const std::vector<Write>& writes, const Configuration& now) {
    const auto changed = std::ranges::find(writes, &country_parameter(), &Write::parameter);
    return changed == writes.end() ? now.country() : std::get<std::string>(changed->value);
}

// `where` stands in front: the module whose country matters.
void refuse_unmeant(const Write& write, std::string_view country, const std::string& where = "") {
    if (const auto problem = objection(*write.parameter, write.value, country))
        throw UsageError(where + *problem + "; --any sends it all the same");
}

// "51 -> 7", or what it is.
std::string changed(const std::string& name, const Value& before, const Value& after) {
    const std::string now = shown(item_of(name, after));
    return before == after ? now : fmt::format("{} -> {}", shown(item_of(name, before)), now);
}

// Why a parameter is not as it was sent, when no write makes it so.
std::string reason_for(const Parameter& parameter, const Value& value) {
    const bool never = read_back_of(parameter, value) != value_after(parameter, value) &&
                       !value_to_send(parameter, value);
    return never ? ": " + why_never(parameter, value) : "";
}

// What the module shows now of what was asked for, and what it has changed besides.
void put_values(Report& report, const std::vector<Write>& writes, const Configuration& before,
                const Configuration& after) {
    for (const auto& [parameter, value] : writes) {
        const Item sent = item_of(*parameter, value);
        Json entry = parameter_json(parameter->name, sent);
        entry["read_back"] = nullptr;
        entry["matches"] = nullptr;
        if (parameter->block == 0) {
            report.data["parameters"].push_back(entry);
            report.line({parameter->name, shown(sent),
                         "sent; no answer of the module holds it, so it was not read back"});
            continue;
        }
        const Value& found = after.at(*parameter);
        const Item item = item_of(*parameter, found);
        const Value expected = value_after(*parameter, value);
        put_item(entry, "read_back", item);
        entry["matches"] = found == expected;
        report.data["parameters"].push_back(entry);
        const Value& was = before.at(*parameter);
        report.line({parameter->name, shown(item),
                     was == found
                         ? "read back"
                         : fmt::format("read back, was {}", shown(item_of(*parameter, was)))});
        report.row.emplace_back(parameter->name, changed(parameter->name, was, found));
        if (found != expected && !report.error)
            report.fail(
                kRefusedOrDifferent, "read_back",
                fmt::format("{} is {} instead of {}{}", parameter->name, shown(item),
                            shown(item_of(*parameter, expected)), reason_for(*parameter, value)));
    }
}

std::vector<std::string> names_of(const std::vector<Write>& writes) {
    std::vector<std::string> names;
    names.reserve(writes.size());
    for (const Write& write : writes)
        names.push_back(write.parameter->name);
    return names;
}

Report write_all(const Options& options, const std::vector<Write>& writes) {
    heed_interrupts();
    Module module(options);
    const Configuration before = module.read();
    const std::string country = country_behind(writes, before);
    for (const Write& write : writes) {
        if (needs_country(write) && !options.any)
            refuse_unmeant(write, country, options.whom + ": ");
    }
    const Plan plan = plan_to_write(before, writes);
    Report report{.data = {{"parameters", Json::array()}, {"changed", Json::array()}}};
    put_end(report, module.carry_out(plan.steps), plan.steps.size());
    try {
        const Configuration after = module.read();
        put_values(report, writes, before, after);
        put_changes(report, before, after, "changed with it", names_of(writes));
    } catch (const Failure& failure) {
        if (!report.error)
            report.fail_to_read_back(failure);
    }
    return report;
}

// What is wrong with a value is known before any module is asked, and so is what it reaches.
Run writing(const Options& options, const std::vector<Write>& writes) {
    std::vector<std::string> consequences;
    for (const Write& write : writes) {
        if (options.several &&
            write.parameter->write->selector == protocol::Selector::CGS_IP_ADDRESS)
            throw UsageError(fmt::format("{} is for one module, not for {}: each has its own",
                                         write.parameter->name, options.whom));
        if (!options.any && !needs_country(write))
            refuse_unmeant(write, "");
        if (std::string text = consequence_of(*write.parameter, write.value); !text.empty())
            consequences.push_back(std::move(text));
    }
    confirm(options, consequences);
    return [writes](const Options& its) { return write_all(its, writes); };
}

}  // namespace

Run setting(const Options& options, const Words& words) {
    return writing(options, assignments_in(words, std::cin));
}

Run changing_country(const Options& options, const std::string& name) {
    std::istringstream none;
    return writing(options, assignments_in({country_parameter().name, name}, none));
}

Report show_country(const Options& options) {
    const Parameter& parameter = country_parameter();
    Session session(options.settings);
    const Item stored =
        item_of(parameter, value_in(parameter, session.ask(block_request(parameter.block))));
    Report report;
    put_item(report.data, "country", stored);
    report.data["known"] = Json::array();
    for (const protocol::Country& known : protocol::countries())
        report.data["known"].push_back(known.name);
    report.line({shown(stored)});
    report.row.emplace_back("country", shown(stored));
    return report;
}

}  // namespace zondarctl
