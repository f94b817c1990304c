#include "zondarctl/command_line.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "master/bytes.h"
#include "master/names.h"
#include "zondarctl/several.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

// What is no number, or lies beyond, is told with what it may be. The help of the option tells it,
// not its type.
template <typename Number>
CLI::Validator within(Number least, Number most) {
    const auto problem = [=](const std::string& word) {
        Number number{};
        const bool is_number = CLI::detail::lexical_cast(word, number);
        if (is_number && number >= least && number <= most)
            return std::string();
        return fmt::format("'{}' is {}; {} to {}", word, is_number ? "out of range" : "no number",
                           least, most);
    };
    return {problem, ""};
}

// A variable of a script that was not set must not pass for a command without the word.
CLI::Validator not_empty() {
    return {[](const std::string& word) { return word.empty() ? "it is empty" : std::string(); },
            ""};
}

// Those of a report that is the same whoever is asked, and when.
template <typename Make>
Run prepared(Make make) {
    return [make](const Options& /*options*/) { return make(); };
}

// A command that changes something with some of its words only.
Run writing(Run run, bool is_writing) {
    return is_writing ? changing(std::move(run)) : run;
}

std::string unknown_command(const std::string& word, const CLI::App& parent) {
    Words known;
    for (const CLI::App* each : parent.get_subcommands({}))
        known.push_back(each->get_name());
    return fmt::format("no command {}{}", word, did_you_mean(nearest(word, known)));
}

std::string help_of(const CLI::App& command) {
    const bool is_top = command.get_parent() == nullptr;
    return is_top ? "zondarctl help" : "zondarctl help " + command.get_name();
}

std::string unknown_option(const std::string& word, std::initializer_list<const CLI::App*> owners) {
    const std::string name = word.substr(0, word.find('='));
    Words known;
    for (const CLI::App* owner : owners) {
        for (const CLI::Option* option : owner->get_options()) {
            for (const std::string& each : option->get_lnames())
                known.push_back("--" + each);
        }
    }
    return fmt::format("no option {}{}", name, did_you_mean(nearest(name, known)));
}

}  // namespace

CommandLine::CommandLine() {
    app_.set_version_flag("--version", "zondarctl " ZONDAR_VERSION);
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.ignore_case();
    add_options();
    add_reading();
    add_describing();
    add_writing();
    add_carrying();
    add_slaves();
    add_offline();
}

void CommandLine::parse(int argc, char** argv) {
    it_.style.json = std::any_of(
        argv, argv + argc, [](const char* word) { return std::string_view(word) == "--json"; });
    app_.parse(argc, argv);
    Options& options = it_.options;
    options.timeout_given = timeout_.has_value();
    if (timeout_)
        options.settings.timeout = std::chrono::milliseconds(static_cast<long>(*timeout_ * 1000));
    it_.style.color = color_wanted();
}

std::vector<Target> CommandLine::targets_of(const Selection& selection) const {
    try {
        return inventory_.select(selection, static_cast<std::uint16_t>(port_));
    } catch (const std::invalid_argument& problem) {
        throw UsageError(problem.what());
    }
}

void CommandLine::select_targets() {
    it_.options.target_named = [this](const std::string& word) {
        const std::vector<Target> found = targets_of({.words = {word}});
        if (found.size() > 1)
            throw UsageError(fmt::format("{} is {} modules, not one", word, found.size()));
        return found[0];
    };
    if (it_.asks == Asks::none)
        return;
    const bool by_label = all_ || !where_.empty();
    if (hosts_.empty() && !by_label) {
        const char* const usual = std::getenv("ZONDAR_HOST");
        hosts_.emplace_back(usual == nullptr || *usual == '\0' ? "127.0.0.1" : usual);
    }
    it_.targets = targets_of({.words = hosts_, .all = all_, .where = where_});
    if (it_.targets.empty())
        throw UsageError("no module is meant: the files of targets have none");
    it_.several = by_label || it_.targets.size() > 1;
    if (it_.several && it_.asks == Asks::one)
        throw UsageError(
            fmt::format("{} is for one module, not for {}", command(), it_.targets.size()));
    it_.options = options_for(it_.options, it_.targets[0], "");
    it_.options.several = it_.several;
    if (it_.several)
        it_.options.whom = fmt::format("{} modules", it_.targets.size());
}

std::string CommandLine::command() const {
    std::string words;
    for (auto at = app_.get_subcommands(); !at.empty(); at = at[0]->get_subcommands())
        words += (words.empty() ? "" : " ") + at[0]->get_name();
    return words;
}

// A word that nobody takes says more than what is missing because of it.
std::string CommandLine::problem(const CLI::ParseError& error) const {
    const CLI::App* last = &app_;
    while (!last->get_subcommands().empty())
        last = last->get_subcommands()[0];
    const bool needs_command = last->get_require_subcommand_min() != 0;
    const std::vector<std::string> unknown = app_.remaining(true);
    const bool is_about_words = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr ||
                                dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if (!is_about_words)
        return error.what();
    if (unknown.empty())
        return needs_command ? fmt::format("a command is required; `{}` lists them", help_of(*last))
                             : error.what();
    if (unknown[0].starts_with('-'))
        return unknown_option(unknown[0], {&app_, last});
    if (needs_command)
        return unknown_command(unknown[0], *last);
    const bool is_text = last->get_name() == "country";
    return fmt::format("'{}' is one word too many{}", unknown[0],
                       is_text ? ": quote a text with blanks" : "");
}

std::optional<Target> CommandLine::target() const {
    if (it_.asks == Asks::none || it_.several || it_.targets.empty())
        return std::nullopt;
    return it_.targets[0];
}

void CommandLine::add_options() {
    Settings& settings = it_.options.settings;
    app_.add_option("--host", hosts_,
                    "the module: a name of the targets, or an IPv4 address or host with or "
                    "without :PORT; several behind commas; ZONDAR_HOST without")
        ->type_name("HOST")
        ->delimiter(',')
        ->take_all()
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app_.add_option("--port", port_, "TCP port of those without one")
        ->type_name("PORT")
        ->check(within(1, 65535))
        ->capture_default_str();
    app_.add_flag("--all", all_, "all modules of the targets files");
    app_.add_option("--where", where_, "those of them with this label, such as site=sur")
        ->type_name("LABEL=VALUE")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app_.add_option("--parallel", it_.at_once, "how many modules are asked at once")
        ->type_name("N")
        ->check(within(1, 1000))
        ->capture_default_str();
    app_.add_option("-t,--timeout", timeout_,
                    "seconds that the call may take (5), and each write anew (5; 60 for addresses, "
                    "country, raw and reset that take longer)")
        ->type_name("SECONDS")
        ->check(within(0.001, 86400.0));
    app_.add_option("-r,--retries", settings.retries,
                    "how often a request that only reads is repeated")
        ->type_name("N")
        ->check(within(0, 100))
        ->capture_default_str();
    app_.add_flag("--crc8", settings.crc8_mode, "send requests in CRC8 mode");
    app_.add_flag("--json", it_.style.json, "one JSON object instead of lines");
    app_.add_flag("-v,--verbose", it_.options.verbose,
                  "the bytes sent and received, on standard error");
    app_.add_option("--pcap", settings.trace_path, "append the frames to a capture file")
        ->type_name("FILE");
    app_.add_flag("--any", it_.options.any, "set also values that are not meant");
    app_.add_flag("--yes", it_.options.yes, "do not ask before what reaches further");
}

// A command whose report `prepare` makes a maker of, once its words are known; `parsed` is called
// before any module is chosen.
CLI::App* CommandLine::add(CLI::App& parent, const std::string& name, const std::string& help,
                           Asks asks, std::function<Run()> prepare, std::function<void()> parsed) {
    CLI::App* const command = parent.add_subcommand(name, help);
    command->callback([this, prepare = std::move(prepare), parsed = std::move(parsed), asks] {
        it_.prepare = prepare;
        it_.asks = asks;
        if (parsed)
            parsed();
    });
    return command;
}

void CommandLine::add_reading() {
    add(app_, "identify", "who the module is", Asks::several, [] { return identify; });
    add(app_, "status", "its alarms, states and bitrates", Asks::several,
        [] { return show_status; });
    add(app_, "config", "its configuration, or one block of it", Asks::one,
        [this] {
            return [block = words_.block](const Options& options) {
                return show_configuration(options, block);
            };
        })
        ->add_option("BLOCK", words_.block, "1 or 2")
        ->check(within(1, 2));
    CLI::App* const get = add(app_, "get", "parameters by name", Asks::several,
                              [this] { return getting(words_.names, words_.flag); });
    get->add_option("NAME", words_.names, "such as EntradaAV.0.Brillo, EntradaAV, Bitrate")
        ->required();
    get->add_flag("-q,--quiet", words_.flag, "the values alone");
    add(
        app_, "dump", "everything that can be read, as JSON", Asks::several, [] { return dump; },
        [this] { it_.style.json = true; });
    check_ = add(app_, "check", "a monitoring plugin's line and status", Asks::several,
                 [this] { return checking(words_.check); });
    check_
        ->add_option("--warn", words_.check.warn,
                     "an alarm, or output_sync, that is a warning only; or a number of the status, "
                     "or time in seconds, and the range outside of which it is one")
        ->type_name("NAME[:RANGE]");
    check_
        ->add_option("--critical", words_.check.critical,
                     "a number, and the range outside of which it is critical")
        ->type_name("NAME:RANGE");
    check_->add_option("--ignore", words_.check.ignore, "an alarm, or output_sync, that is nothing")
        ->type_name("ALARM");
    for (const char* const option : {"--warn", "--critical", "--ignore"})
        check_->get_option(option)->expected(1)->multi_option_policy(
            CLI::MultiOptionPolicy::TakeAll);
    CLI::App* const watching =
        add(app_, "watch", "the status again and again, until Ctrl-C", Asks::one,
            [this] { return [this](const Options& options) { return watch_on(options); }; });
    watching->add_option("-n,--interval", words_.watch.interval, "seconds in between")
        ->type_name("SECONDS")
        ->check(within(0.0, 86400.0))
        ->capture_default_str();
    watching->add_option("--count", words_.watch.count, "how often")
        ->type_name("N")
        ->check(within(1U, UINT32_MAX));
    watching->add_flag("--changes", words_.watch.changes,
                       "the first values, and then a line for each change alone");
    add(app_, "resync", "bring the module back to between two frames", Asks::one,
        [] { return resync; });
}

void CommandLine::add_describing() {
    add(app_, "list", "all parameters, or those with a word in them", Asks::none, [this] {
        return prepared([word = words_.first] { return list_parameters(word); });
    })->add_option("WORD", words_.first, "of the name or the meaning");
    add(app_, "describe", "what a parameter means, takes, and changes besides", Asks::none,
        [this] { return prepared([name = words_.first] { return describe_parameters(name); }); })
        ->add_option("NAME", words_.first, "such as EntradaAV.0.Brillo, EntradaAV, Bitrate")
        ->required();
    add(app_, "targets", "the modules that have names, or those of --where", Asks::none, [this] {
        return prepared(
            [this] { return list_targets(targets_of({.all = true, .where = where_})); });
    });
    CLI::App* const help = app_.add_subcommand("help", "this, or the help of a command");
    help->add_option("COMMAND", words_.names, "such as set");
    help->callback([this] { show_help(); });
}

void CommandLine::add_writing() {
    // Each of the three takes what stands behind "--", which a list alone would not.
    CLI::App* const set =
        add(app_, "set", "change parameters and read them back", Asks::several, [this] {
            Words words = {words_.first};
            if (words_.value)
                words.push_back(*words_.value);
            words.insert(words.end(), words_.names.begin(), words_.names.end());
            return changing(setting(it_.options, words));
        });
    set->add_option("NAME", words_.first,
                    "its VALUE behind it; or NAME=VALUE, any number of them; or - for such lines "
                    "on standard input")
        ->required();
    set->add_option("VALUE", words_.value, "a number, also behind 0x, or a text");
    set->add_option("NAME=VALUE", words_.names, "more of them");
    CLI::App* const country = add(app_, "country", "the country, or change it and its defaults",
                                  Asks::several, [this]() -> Run {
                                      if (words_.first.empty())
                                          return show_country;
                                      return changing(changing_country(it_.options, words_.first));
                                  });
    country->add_option("NAME", words_.first, "such as Spain")->check(not_empty());
    add(app_, "time", "the module's time of day, or set it", Asks::several,
        [this] {
            return writing(clock_command(it_.options, "time", words_.first), !words_.first.empty());
        })
        ->add_option("TIME", words_.first, "HH.MM or now")
        ->check(not_empty());
    add(app_, "date", "the module's date, or set it", Asks::several,
        [this] {
            return writing(clock_command(it_.options, "date", words_.first), !words_.first.empty());
        })
        ->add_option("DATE", words_.first, "DD.MM.YYYY or now")
        ->check(not_empty());
    add(app_, "reset-factory", "back to the factory configuration", Asks::one,
        [this] { return changing(resetting_factory(it_.options)); });
    CLI::App* const raw = add(app_, "raw", "send any request", Asks::one, [this] {
        return changing(sending_raw(it_.options, words_.first, words_.names));
    });
    raw->add_option("COMMAND", words_.first, "0 to 15")->required();
    raw->add_option("HEX", words_.names, "its info");
}

// Its second word is the module that is changed; --host would be a third one.
void CommandLine::choose_target_of_copy() {
    if (!hosts_.empty() || all_ || !where_.empty())
        throw CLI::ValidationError(
            "copy names both modules: --host, --all and --where are not for it");
    hosts_ = {words_.second};
}

void CommandLine::add_carrying() {
    CLI::App* const diff = add(
        app_, "diff", "what differs between a dump and the module, two dumps or two modules",
        Asks::several, [this] { return comparing(it_.options, words_.first, words_.second); },
        [this] {
            if (!words_.second.empty())
                it_.asks = Asks::none;
        });
    diff->add_option("A", words_.first, "a file that dump has written, or a module")->required();
    diff->add_option("B", words_.second, "the same; that of --host without");
    CLI::App* const restore = add(app_, "restore", "bring the module to a dump", Asks::one, [this] {
        return writing(restoring(words_.first, words_.restore), !words_.restore.dry_run);
    });
    restore->add_option("FILE", words_.first, "that dump has written")->required();
    CLI::App* const copy = add(
        app_, "copy", "bring one module to the configuration of another one", Asks::one,
        [this] {
            return writing(copying(it_.options, words_.first, words_.restore),
                           !words_.restore.dry_run);
        },
        [this] { choose_target_of_copy(); });
    copy->add_option("FROM", words_.first, "a module")->required();
    copy->add_option("TO", words_.second, "the module that is changed")->required();
    for (CLI::App* const command : {restore, copy}) {
        command->add_flag("--addresses", words_.restore.addresses,
                          "also those of the management interface");
        command->add_flag("--dry-run", words_.restore.dry_run, "tells the plan, writes nothing");
    }
}

void CommandLine::add_slaves() {
    CLI::App* const slave = app_.add_subcommand("slave", "what slave modules ask and tell");
    slave->require_subcommand(1);
    for (const protocol::Subcommand& action : protocol::kSubcommands) {
        std::string name = action.name;
        if (!name.starts_with(kSlave))
            continue;
        name.erase(0, kSlave.size());
        CLI::App* const command =
            add(*slave, name, fmt::format("{} ({})", action.meaning, action.code), Asks::one,
                [this, &action] { return changing(asking_as_slave(action, words_.slave)); });
        for (const protocol::Field& field : protocol::fields(action.request)) {
            if (has_item(field))
                add_field(*command, field);
        }
    }
}

void CommandLine::add_field(CLI::App& command, const protocol::Field& field) {
    std::string name = field.name;
    std::string& word = words_.slave[name];
    if (is_optional(field)) {
        command.add_option("--" + name, word, field.meaning)->type_name("TEXT");
        return;
    }
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    command.add_option(name, word, field.meaning)->required();
}

void CommandLine::add_offline() {
    CLI::App* const encoding =
        add(app_, "encode", "the frame of a command with its info, or of a parameter and its value",
            Asks::none, [this] {
                return [this](const Options& options) {
                    return encode(words_.names, options.settings.crc8_mode, words_.sequence);
                };
            });
    encoding->add_option("WORDS", words_.names, "COMMAND [HEX...] or NAME VALUE")->required();
    encoding->add_option("--sequence", words_.sequence, "0 to 7")
        ->type_name("N")
        ->check(within(0, 7));
    add(app_, "decode", "frames, from hexadecimal digits, a trace file or a TCP capture",
        Asks::none,
        [this] {
            return prepared(
                [this] { return decode(words_.names, static_cast<std::uint16_t>(port_)); });
        })
        ->add_option("FILE|HEX", words_.names, "standard input without");
    CLI::App* const databases = app_.add_subcommand("db", "the module's database files");
    databases->require_subcommand(1);
    CLI::App* const checking =
        add(*databases, "check", "whether they are what the daemon reads", Asks::none, [this] {
            return prepared(
                [this] { return check_databases(words_.first, words_.second, words_.flag); });
        });
    checking->add_option("CONF", words_.first, "config_local.sqlite")->required();
    checking->add_option("TEMP", words_.second, "temp_local.sqlite")->required();
    checking->add_flag("--all", words_.flag, "all rows, also of what is sound");
}

// The words behind "help" name a command, whose help is not that of the command that was found.
void CommandLine::show_help() {
    const CLI::App* at = &app_;
    std::string names = app_.get_name();
    for (const std::string& word : words_.names) {
        const auto named =
            at->get_subcommands([&](const CLI::App* each) { return each->check_name(word); });
        if (named.empty())
            throw UsageError(unknown_command(word, *at));
        at = named[0];
        names += " " + at->get_name();
    }
    write_text(stdout, app_.get_formatter()->make_help(at, names, CLI::AppFormatMode::Normal));
    throw CLI::Success();
}

// On a terminal one status takes the place of the other.
Report CommandLine::watch_on(const Options& options) {
    const bool in_place = isatty(STDOUT_FILENO) != 0 && !it_.style.json && !words_.watch.changes;
    it_.style.compact = true;
    return watch(options, words_.watch, [this, in_place](const Report& report, Elapsed taken) {
        if (in_place)
            write_text(stdout, "\033[H\033[J");
        print(report, command(), target(), taken, it_.style);
    });
}

}  // namespace zondarctl
