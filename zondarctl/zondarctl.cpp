// zondarctl, the master's side of a module: one call of it.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "zondarctl/command_line.h"
#include "zondarctl/several.h"
#include "zondarctl/trace_option.h"
#include "zondarctl/waiting.h"

namespace zondarctl {

namespace {

// A stream that was closed is no place for a file or a connection: what is said to it would go
// there.
void keep_streams_taken() {
    int descriptor = 0;
    do
        descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= STDIN_FILENO && descriptor <= STDERR_FILENO);
    close(descriptor);
}

bool is_misuse(const Report& report) {
    return report.error && report.error->stage == "usage";
}

// Asks all modules that are meant and prints what they say; the exit status is the worst of theirs.
int ask_several(const CommandLine& line, const Run& run) {
    const Invocation& invocation = line.invocation();
    const std::vector<ModuleReport> modules =
        reports_of(run, invocation.options, invocation.targets, invocation.at_once);
    print(modules, line.command(), line.is_check() ? sum_of_checks(modules) : "", invocation.style);
    if (line.is_check())
        return worst_check(modules);
    const auto status = [](const ModuleReport& module) { return module.report.status; };
    return status(*std::ranges::max_element(modules, {}, status));
}

Report ask_one(const CommandLine& line, const Run& run) {
    const Options& options = line.invocation().options;
    std::optional<Waiting> waiting;
    if (line.command() != "watch")
        waiting.emplace([&] { return options.whom; });
    return report_of(run, options);
}

int run(CommandLine& line, int argc, char** argv) {
    const auto start = std::chrono::steady_clock::now();
    const Invocation& invocation = line.invocation();
    Report report;
    try {
        line.parse(argc, argv);
        line.select_targets();
        require_trace_file(invocation.options.settings.trace_path);
        const Run run = invocation.prepare();
        if (invocation.several && invocation.asks == Asks::several)
            return ask_several(line, run);
        report = ask_one(line, run);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return line.app().exit(error);
        report.fail(kUsage, "usage", line.problem(error));
    } catch (const UsageError& error) {
        report.fail(kUsage, "usage", error.what());
    } catch (const Failure& failure) {  // of a module beside those that are asked
        report.fail(failure);
        report.error->outcome = Outcome::none;
        report.error->of_module = false;
    }
    if (line.is_check() && is_misuse(report))
        tell_misuse(report);
    print(report, line.command(), line.target(), std::chrono::steady_clock::now() - start,
          invocation.style);
    return report.status;
}

}  // namespace

}  // namespace zondarctl

int main(int argc, char** argv) try {
    using namespace zondarctl;
    keep_streams_taken();
    CommandLine line;
    const int status = run(line, argc, argv);
    return std::ferror(stdout) != 0 ? kUsage : status;
} catch (const std::exception& error) {
    std::fprintf(stderr, "zondarctl: %s\n", error.what());
    return zondarctl::kUsage;
}
