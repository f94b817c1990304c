// `check`: a monitoring plugin.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <strings.h>

#include <algorithm>

#include "master/names.h"
#include "master/requests.h"
#include "zondarctl/alarms.h"
#include "zondarctl/commands.h"
#include "zondarctl/range.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

enum State : int { ok, warning, critical, unknown };
constexpr const char* kStates[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

constexpr const char* kTime = "time";  // that the answer took, in seconds

struct Limit {
    std::string name;
    State state;
    PluginRange range;
};

// What the words of the command line make of the status.
struct Rules {
    Words ignored = {};
    Words lenient = {};  // alarms that are warnings only
    std::vector<Limit> limits = {};

    [[nodiscard]] const Limit* limit(std::string_view name, State state) const {
        const auto is_it = [&](const Limit& each) {
            return each.name == name && each.state == state;
        };
        const auto found = std::ranges::find_if(limits, is_it);
        return found == limits.end() ? nullptr : &*found;
    }
};

bool has(const Words& words, const std::string& word) {
    return std::ranges::find(words, word) != words.end();
}

bool is_remainder(std::string_view name) {
    const auto fields = protocol::fields(Layout::status);
    const auto field = std::ranges::find(fields, name, &protocol::Field::name);
    return field != fields.end() && field->kind == protocol::Kind::remainder;
}

// As the status calls it.
std::string known_name(const std::string& word) {
    Words names;
    for (const protocol::Field& field : protocol::fields(Layout::status)) {
        if (has_item(field))
            names.emplace_back(field.name);
    }
    names.emplace_back(kTime);
    for (const std::string& name : names) {
        if (strcasecmp(name.c_str(), word.c_str()) == 0)
            return name;
    }
    throw UsageError(
        fmt::format("the status has no '{}'{}", word, did_you_mean(nearest(word, names))));
}

void refuse_remainder(const std::string& name) {
    if (is_remainder(name))
        throw UsageError(
            fmt::format("{} cannot be judged: the module sends the low byte of a larger number, "
                        "which behind 255 begins anew at 0",
                        name));
}

std::string known_flag(const std::string& word) {
    std::string name = known_name(word);
    refuse_remainder(name);
    if (!is_judged(name))
        throw UsageError(
            fmt::format("{} is a number, and ill only by a range, as in {}:10:20", name, name));
    return name;
}

void add_limit(Rules& rules, const std::string& word, State state) {
    const std::size_t colon = word.find(':');
    const std::string name = known_name(word.substr(0, colon));
    if (is_judged(name))
        throw UsageError(fmt::format("{} is no number, so it has no range", name));
    refuse_remainder(name);
    if (rules.limit(name, state) != nullptr)
        throw UsageError(fmt::format("{} has two ranges", name));
    if (colon == std::string::npos)
        throw UsageError(fmt::format("{} needs a range, as in {}:10:20", name, name));
    rules.limits.push_back({name, state, parse_range(word.substr(colon + 1))});
}

Rules rules_of(const CheckOptions& how) {
    Rules rules;
    for (const std::string& word : how.ignore)
        rules.ignored.push_back(known_flag(word));
    for (const std::string& word : how.warn) {
        if (word.find(':') == std::string::npos)
            rules.lenient.push_back(known_flag(word));
        else
            add_limit(rules, word, warning);
    }
    for (const std::string& word : how.critical)
        add_limit(rules, word, critical);
    return rules;
}

// What is measured of a module: of the status all numbers that mean what they say.
struct Figure {
    std::string name;
    double value;
    std::string text;
    const char* unit = "";
};

std::vector<Figure> figures_of(const Items& items, double seconds) {
    std::vector<Figure> figures = {{kTime, seconds, fmt::format("{:.3f}", seconds), "s"}};
    for (const Item& item : items) {
        const auto* const number = std::get_if<std::int64_t>(&item.value);
        if (number != nullptr && !is_remainder(item.name))
            figures.push_back({item.name, static_cast<double>(*number), fmt::to_string(*number)});
    }
    return figures;
}

struct Problem {
    std::string name;
    State state;
    std::string said;
};

void judge(const Figure& figure, const Rules& rules, std::vector<Problem>& problems) {
    for (const State state : {critical, warning}) {
        const Limit* const limit = rules.limit(figure.name, state);
        if (limit == nullptr || !limit->range.is_ill(figure.value))
            continue;
        problems.push_back({figure.name, state,
                            fmt::format("{} {}{} {}", figure.name, figure.text, figure.unit,
                                        limit->range.where())});
        return;
    }
}

// The critical ones first; those that are ignored are none, and last.
std::vector<Problem> problems_of(const Items& items, const std::vector<Figure>& figures,
                                 const Rules& rules) {
    std::vector<Problem> problems;
    for (const Item& item : items) {
        if (const std::string illness = illness_of(item); !illness.empty())
            problems.push_back({item.name,
                                has(rules.ignored, item.name)   ? ok
                                : has(rules.lenient, item.name) ? warning
                                                                : critical,
                                illness});
    }
    for (const Figure& figure : figures)
        judge(figure, rules, problems);
    std::ranges::stable_sort(problems, std::ranges::greater(), &Problem::state);
    return problems;
}

std::string said_of(const std::vector<Problem>& problems) {
    Words said;
    Words ignored;
    for (const Problem& problem : problems)
        (problem.state == ok ? ignored : said).push_back(problem.said);
    const std::string all = said.empty() ? "no alarms" : fmt::format("{}", fmt::join(said, ", "));
    return ignored.empty() ? all : fmt::format("{}; ignored: {}", all, fmt::join(ignored, ", "));
}

// As the graphing programs read it.
std::string graphed(const std::vector<Figure>& figures, const Items& items, const Rules& rules) {
    Words words;
    for (const Figure& figure : figures) {
        std::string word = fmt::format("{}={}{}", figure.name, figure.text, figure.unit);
        for (const State state : {warning, critical}) {
            const Limit* const limit = rules.limit(figure.name, state);
            word += limit == nullptr ? ";" : ";" + limit->range.text;
        }
        word.erase(word.find_last_not_of(';') + 1);
        words.push_back(word);
    }
    words.insert(
        words.begin() + 1,
        fmt::format("alarms={};;;0;{}", active_alarms(items).size(),
                    std::ranges::count_if(items, [](const Item& item) { return is_alarm(item); })));
    return fmt::format("{}", fmt::join(words, " "));
}

// One word for the ill; behind the bar, which nothing else may have, the figures for the graphs.
std::string plugin_line(int state, std::string said, const std::string& figures) {
    std::ranges::replace(said, '|', '/');
    return fmt::format("ZONDAR {} - {}{}", kStates[state], printable(said),
                       figures.empty() ? "" : " | " + figures);
}

Report judged(const Items& items, double seconds, const Rules& rules) {
    const std::vector<Figure> figures = figures_of(items, seconds);
    const std::vector<Problem> problems = problems_of(items, figures, rules);
    Report report{.data = status_json(items)};
    report.status = problems.empty() ? ok : problems[0].state;
    report.data["problems"] = Json::array();
    for (const Problem& problem : problems)
        report.data["problems"].push_back(
            {{"name", problem.name}, {"state", kStates[problem.state]}, {"said", problem.said}});
    const std::string said = said_of(problems);
    report.row = {{"state", kStates[report.status]}, {"says", said}};
    report.line({plugin_line(report.status, said, graphed(figures, items, rules))});
    return report;
}

Report check(const Options& options, const Rules& rules) {
    Report report;
    try {
        const auto start = std::chrono::steady_clock::now();
        Session session(options.settings);
        const Items items = status(session.ask(status_request()));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        report = judged(items, taken.count(), rules);
    } catch (const Failure& failure) {
        report.fail(failure);
        report.status = failure.stage() == Stage::lock ? unknown : critical;
        report.row = {{"state", kStates[report.status]}};
        report.line({plugin_line(report.status, failure.what(), "")});
    }
    report.data["state"] = kStates[report.status];
    return report;
}

std::string said_of(const ModuleReport& module) {
    const Report& report = module.report;
    const Target& target = module.target;
    return fmt::format("{} {}", target.name.empty() ? name_of(target) : target.name,
                       report.error ? report.error->message : report.row.back().second);
}

}  // namespace

Run checking(const CheckOptions& how) {
    return [rules = rules_of(how)](const Options& options) { return check(options, rules); };
}

void tell_misuse(Report& report) {
    report.status = unknown;
    report.data["state"] = kStates[unknown];
    report.line({plugin_line(unknown, report.error->message, "")});
}

int worst_check(const std::vector<ModuleReport>& modules) {
    constexpr State kByGravity[] = {critical, warning, unknown};
    const auto* const worst = std::ranges::find_if(kByGravity, [&](State state) {
        return std::ranges::any_of(
            modules, [&](const ModuleReport& module) { return module.report.status == state; });
    });
    return worst == std::end(kByGravity) ? ok : *worst;
}

std::string sum_of_checks(const std::vector<ModuleReport>& modules) {
    constexpr std::size_t kRoom = 160;  // of a line that a display or a text message shows
    std::size_t counts[std::size(kStates)] = {};
    for (const ModuleReport& module : modules)
        ++counts[module.report.status];
    const std::size_t ill = modules.size() - counts[ok];
    std::string said = ill == 0 ? fmt::format("{} modules", modules.size())
                                : fmt::format("{} of {}:", ill, modules.size());
    std::size_t told = 0;
    for (const State state : {critical, warning, unknown}) {
        for (const ModuleReport& module : modules) {
            const std::string next = (told == 0 ? " " : ", ") + said_of(module);
            if (module.report.status != state || (told != 0 && said.size() + next.size() > kRoom))
                continue;
            said += next;
            ++told;
        }
    }
    if (told < ill)
        said += fmt::format(" and {} more", ill - told);
    std::string figures = fmt::format("modules={}", modules.size());
    for (const State state : {ok, warning, critical, unknown}) {
        std::string name = kStates[state];
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
        figures += fmt::format(" {}={};;;0;{}", name, counts[state], modules.size());
    }
    return plugin_line(worst_check(modules), said, figures);
}

}  // namespace zondarctl
