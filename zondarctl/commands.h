// The commands of zondarctl. Each gives its report; Failures and UsageErrors are their caller's to
// report.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "master/session.h"
#include "master/targets.h"
#include "protocol/description.h"
#include "zondarctl/report.h"

namespace zondarctl {

using Words = std::vector<std::string>;

struct Options {
    Settings settings = {};  // of the module that is asked
    bool timeout_given = false;
    bool verbose = false;   // the bytes of each exchange are told
    bool yes = false;       // nothing is asked on the terminal
    bool any = false;       // values are sent, too, that the module takes without a meaning
    bool several = false;   // modules are asked
    std::string whom = {};  // is asked: "10.0.0.5:8001", "20 modules"
    // The module that a word of the command means; throws a UsageError.
    std::function<Target(const std::string&)> target_named = {};
};

// What a command does with each of the modules that it asks, after its words were read once.
using Run = std::function<Report(const Options&)>;

// Reading.
Report identify(const Options& options);
Report show_status(const Options& options);
Report show_configuration(const Options& options, std::optional<int> block);
// The parameters that the names find; `quiet` shows their values alone.
Run getting(const Words& names, bool quiet);
// Everything that can be read without changing anything, whatever part of it fails.
Report dump(const Options& options);

// What a monitoring plugin makes of the status.
struct CheckOptions {
    Words warn = {};      // alarms or "output_sync" that are warnings only, and NAME:RANGE
    Words critical = {};  // NAME:RANGE
    Words ignore = {};    // alarms, and "output_sync"
};
// Throws a UsageError for what the status does not have, and for what has no range.
Run checking(const CheckOptions& how);
// The plugin's line and status for a call that was wrong: it is read by its line then, too.
void tell_misuse(Report& report);
// The gravest of their states: a critical one, then a warning, then an unknown one.
int worst_check(const std::vector<ModuleReport>& modules);
// The plugin's line about several modules, by their reports.
std::string sum_of_checks(const std::vector<ModuleReport>& modules);

// What can be said without asking a module: of the parameters that a word is in, of those that a
// name finds, of the modules that have names.
Report list_parameters(const std::string& word);
Report describe_parameters(const std::string& name);
Report list_targets(const std::vector<Target>& targets);

// Writing: "NAME", "VALUE"; "NAME=VALUE" of any number; "-" for such lines on standard input. What
// reaches further is asked before.
Run setting(const Options& options, const Words& words);
Report show_country(const Options& options);
Run changing_country(const Options& options, const std::string& name);
Run clock_command(const Options& options, std::string_view part, const std::string& text);
Run resetting_factory(const Options& options);
Run sending_raw(const Options& options, const std::string& command, const Words& info);
Report resync(const Options& options);

// Carrying a configuration. A side is a file that `dump` has written, or a module.
// Without the other one it is the module that is asked.
Run comparing(const Options& options, const std::string& one, const std::string& other);
struct RestoreOptions {
    bool addresses = false;  // those of the management interface, too
    bool dry_run = false;
};
// The module that is asked is brought to it.
Run restoring(const std::string& file, const RestoreOptions& how);
Run copying(const Options& options, const std::string& from, const RestoreOptions& how);

// What slave modules ask and tell: a command for each action whose name begins with this word, its
// arguments being the fields of the request, by name. Of a registration only the MAC has to be
// given.
constexpr std::string_view kSlave = "slave ";
bool is_optional(const protocol::Field& field);
Run asking_as_slave(const protocol::Subcommand& action,
                    const std::map<std::string, std::string>& arguments);

// Asks for the status again and again, until Ctrl-C or for `count` times; what there is to tell
// goes to `show`, with the time that the exchange took.
struct WatchOptions {
    double interval = 2;  // seconds
    std::optional<unsigned> count = {};
    bool changes = false;  // tells of changes alone, a line for each
};
Report watch(const Options& options, const WatchOptions& how,
             const std::function<void(const Report&, Elapsed)>& show);

// Without a module.
Report encode(const Words& words, bool crc8_mode, unsigned sequence);
Report decode(const Words& words, std::uint16_t port);
Report check_databases(const std::string& conf, const std::string& temp, bool all);

// The catalogue of commands, answers and sub-commands for other languages: docs/commands.json.
std::string catalogue();

}  // namespace zondarctl
