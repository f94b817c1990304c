// A configuration as a whole: `diff`, `restore` and `copy`.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string>
#include <vector>

#include "master/plan.h"
#include "master/ranges.h"
#include "zondarctl/commands.h"
#include "zondarctl/confirm.h"
#include "zondarctl/differences.h"
#include "zondarctl/dump_file.h"
#include "zondarctl/interrupt.h"
#include "zondarctl/module.h"
#include "zondarctl/waiting.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

// A configuration and where it is from, a file or a module.
struct Side {
    std::string name;
    Dump dump;
};

struct State {
    std::string model;
    Configuration configuration;
};

State state_of(const Options& options) {
    Module module(options);
    std::string model = model_of(module.identify());
    return {std::move(model), module.read()};
}

Side side_of_module(const Options& options) {
    const State state = state_of(options);
    return {name_of(options.settings.target), {state.configuration.settings(), state.model}};
}

// What a word means: a file of a dump, or a module. Both are read at once, before the module is
// asked that the command is for.
Side side_of(const Options& options, const std::string& word) {
    if (is_file(word))
        return {word, read_dump(word)};
    if (word.find('/') != std::string::npos)
        throw UsageError(fmt::format("{}: no such file", word));
    Options its = options;
    its.settings.target = options.target_named(word);
    const Waiting waiting([&] { return name_of(its.settings.target); });
    try {
        return side_of_module(its);
    } catch (const Failure& failure) {
        throw Failure(failure.stage(),
                      fmt::format("{}: {}", name_of(its.settings.target), failure.what()));
    }
}

Report diff(const Side& a, const Side& b) {
    const std::vector<Difference> found = differences(a.dump.settings, b.dump.settings);
    Report report{.data = {{"a", a.name}, {"b", b.name}}};
    if (found.empty())
        report.line({"no differences"});
    else
        report.line({"NAME", a.name, b.name, "MEANING"}, TextLine::Look::heading);
    put_differences(report, found);
    report.row.emplace_back("differences", std::to_string(found.size()));
    report.status = found.empty() ? kDone : kRefusedOrDifferent;
    return report;
}

void put_plan(Report& report, const Plan& plan) {
    report.data["plan"] = Json::array();
    for (const Step& step : plan.steps) {
        const std::string& name = step.parameter->name;
        report.data["plan"].push_back(
            difference_json({name, step.before, step.after}, {"before", "after"}));
        report.line(
            {name, fmt::format("{} -> {}", shown(name, step.before), shown(name, step.after))});
    }
    report.data["left"] = Json::array();
    for (const Left& left : plan.left) {
        Json entry = named_json(left.name);
        put_value(entry, "wanted", left.name, left.wanted);
        entry["reason"] = left.reason;
        report.data["left"].push_back(entry);
        report.line(
            {left.name, fmt::format("not {}: {}", shown(left.name, left.wanted), left.reason)},
            TextLine::Look::alert);
    }
}

// What a step writes by the way is worth a question when it does not stay.
bool is_harmless(const Step& step) {
    const Parameter* const also = step.parameter->also();
    return also != nullptr && std::ranges::none_of(step.besides, [&](const Change& change) {
               return change.parameter == also && change.for_a_moment;
           });
}

// What the module has otherwise than it was to have, but for what was to stay.
std::vector<Difference> rest_of(const Configuration& now, const SettingList& wanted,
                                const Plan& plan) {
    std::vector<Difference> rest = differences(now.settings(), wanted);
    std::erase_if(rest, [&](const Difference& each) {
        const auto left = std::ranges::find(plan.left, each.name, &Left::name);
        return !each.one || !each.other || (left != plan.left.end() && left->is_meant);
    });
    return rest;
}

// What no dump holds.
std::vector<std::string> never_carried() {
    std::vector<std::string> names;
    for (const Parameter& parameter : parameters()) {
        if (parameter.block == 0 || !protocol::is_stored(parameter.write->selector))
            names.push_back(parameter.name);
    }
    return names;
}

struct Intent {
    Plan plan;
    std::vector<std::string> consequences;
};

void add_once(std::vector<std::string>& texts, std::string text) {
    if (!text.empty() && std::ranges::find(texts, text) == texts.end())
        texts.push_back(std::move(text));
}

Intent intent_of(const State& now, const Side& source, const RestoreOptions& how) {
    Intent intent = {plan_to_restore(now.configuration, source.dump.settings, {how.addresses}), {}};
    const Plan& plan = intent.plan;
    const std::string& model = source.dump.model;
    if (model != now.model && !plan.steps.empty())
        add_once(intent.consequences,
                 fmt::format("carries the configuration of a {} to a {}",
                             model.empty() ? "module of unknown model" : model, now.model));
    for (const Step& step : plan.steps) {
        if (const auto problem = objection(*step.parameter, step.after, plan.end.country()))
            add_once(intent.consequences, "writes what is not meant: " + *problem);
        if (!is_harmless(step))
            add_once(intent.consequences, consequence_of(*step.parameter, step.send));
    }
    return intent;
}

bool is_same(const Step& one, const Step& other) {
    return one.parameter == other.parameter && one.send == other.send;
}

// What differs when all is written, or as far as it was.
void put_rest(Report& report, Module& module, const Side& source, const Plan& plan) {
    std::vector<Difference> rest;
    try {
        rest = rest_of(module.read(), source.dump.settings, plan);
    } catch (const Failure& failure) {
        if (!report.error)
            report.fail_to_read_back(failure);
        return;
    }
    report.line({fmt::format("{} values written, {} different", report.data["done"].get<int>(),
                             rest.size())});
    put_differences(report, rest);
    // What can never be read back is no difference, and yet not as it was to be.
    const auto impossible = std::ranges::count_if(plan.left, [&](const Left& left) {
        return !left.is_meant &&
               std::ranges::find(rest, left.name, &Difference::name) == rest.end();
    });
    const std::size_t missed = rest.size() + static_cast<std::size_t>(impossible);
    if (missed != 0 && !report.error)
        report.fail(kRefusedOrDifferent, "read_back",
                    fmt::format("{} values are not as in {}", missed, source.name));
}

Report bring_to(const Options& options, const Side& source, const RestoreOptions& how) {
    const Intent intent = intent_of(state_of(options), source, how);
    const std::vector<Step>& steps = intent.plan.steps;
    Report report{.data = {{"dry_run", how.dry_run}}};
    put_plan(report, intent.plan);
    report.data["never_carried"] = never_carried();
    report.data["done"] = 0;
    report.data["differences"] = Json::array();
    if (!steps.empty())
        report.line({fmt::format("never carried: {}", fmt::join(never_carried(), ", "))});
    if (how.dry_run) {
        report.line({fmt::format("{} values would be written", steps.size())});
        const auto impossible = std::ranges::count(intent.plan.left, false, &Left::is_meant);
        if (impossible != 0)
            report.fail(kRefusedOrDifferent, "read_back",
                        fmt::format("{} values cannot become as in {}", impossible, source.name));
        return report;
    }
    if (confirm(options, intent.consequences, text_of(report.lines)))
        report.lines.clear();
    heed_interrupts();
    // Whoever was asked took his time.
    Module module(options);
    const State now = {model_of(module.identify()), module.read()};
    if (!std::ranges::equal(intent_of(now, source, how).plan.steps, steps, is_same))
        throw UsageError(
            options.whom +
            ": the module has changed meanwhile, and nothing was written: run it again");
    const Module::Progress progress = module.carry_out(steps);
    report.data["done"] = progress.done;
    put_end(report, progress, steps.size(), ": run it again to finish");
    put_rest(report, module, source, intent.plan);
    return report;
}

}  // namespace

Run comparing(const Options& options, const std::string& one, const std::string& other) {
    const Side a = side_of(options, one);
    if (other.empty())
        return [a](const Options& its) { return diff(a, side_of_module(its)); };
    return [a, b = side_of(options, other)](const Options& /*its*/) { return diff(a, b); };
}

Run restoring(const std::string& file, const RestoreOptions& how) {
    return [source = Side{file, read_dump(file)}, how](const Options& options) {
        return bring_to(options, source, how);
    };
}

Run copying(const Options& options, const std::string& from, const RestoreOptions& how) {
    return [source = side_of(options, from), how](const Options& its) {
        return bring_to(its, source, how);
    };
}

}  // namespace zondarctl
