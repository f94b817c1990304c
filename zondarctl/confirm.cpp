#include "zondarctl/confirm.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <strings.h>
#include <unistd.h>

#include <iostream>

#include "zondarctl/commands.h"
#include "zondarctl/waiting.h"

namespace zondarctl {

bool confirm(const Options& options, const std::vector<std::string>& consequences,
             const std::string& plan) {
    if (consequences.empty() || options.yes)
        return false;
    const std::string what =
        fmt::format("{}: this {}", options.whom, fmt::join(consequences, ", and "));
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
        throw UsageError(fmt::format("{}: it needs --yes", what));
    const Waiting::Pause pause;
    write_text(stderr, fmt::format("{}{}. Go on? [y/N] ", plan, printable(what)));
    std::string answer;
    std::getline(std::cin, answer);
    if (strcasecmp(answer.c_str(), "y") != 0 && strcasecmp(answer.c_str(), "yes") != 0)
        throw UsageError("nothing was done");
    return true;
}

}  // namespace zondarctl
