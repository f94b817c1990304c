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
#include "protocol/description.h"
#include "zondarctl/report.h"

namespace zondarctl {

struct Options {
    Settings settings = {};
    bool yes = false;  // no question before a reset or the setting of a clock
};

// Reading.
Report identify(const Options& options);
Report show_status(const Options& options);
Report show_configuration(const Options& options, std::optional<int> block);
Report get(const Options& options, const std::vector<std::string>& names);
Report list_parameters();
// Everything that can be read without changing anything, whatever part of it fails.
Report dump(const Options& options);
// A monitoring plugin's line and status; alarms named in `warnings` are warnings only.
Report check(const Options& options, const std::vector<std::string>& warnings);

// Writing.
Report set(const Options& options, const std::string& name, const std::string& value);
Report country(const Options& options, const std::string& name, bool any);
Report set_time(const Options& options, const std::string& time);
Report set_date(const Options& options, const std::string& date);
Report reset_factory(const Options& options);
Report send_raw(const Options& options, const std::string& command,
                const std::vector<std::string>& info);
Report resync(const Options& options);

// What slave modules ask and tell: a command for each action whose name begins with this word, its
// arguments being the fields of the request, by name. Of a registration only the MAC has to be
// given.
constexpr std::string_view kSlave = "slave ";
bool is_optional(const protocol::Field& field);
Report run_slave_command(const Options& options, const protocol::Subcommand& action,
                         const std::map<std::string, std::string>& arguments);

// Shows the status again and again, until Ctrl-C or for `count` times; each one goes to `show`,
// with the time that it took.
struct WatchOptions {
    double interval = 2;  // seconds
    std::optional<unsigned> count = {};
};
Report watch(const Options& options, const WatchOptions& how,
             const std::function<void(const Report&, std::chrono::steady_clock::duration)>& show);

// Without a module.
Report encode(const std::vector<std::string>& words, bool crc8_mode, unsigned sequence);
Report decode(const std::vector<std::string>& words, std::uint16_t port);
Report check_databases(const std::string& conf, const std::string& temp);

// The catalogue of commands, answers and sub-commands for other languages: docs/commands.json.
std::string catalogue();

}  // namespace zondarctl
