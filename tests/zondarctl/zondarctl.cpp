#include "tests/zondarctl/zondarctl.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::vector<std::string> with_path(const std::vector<std::string>& words) {
    std::vector<std::string> all = {ZONDARCTL};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

}  // namespace

std::string zondarctl_path() {
    return ZONDARCTL;
}

ProgramRun run_zondarctl(const std::vector<std::string>& words, const std::string& input) {
    return run_program(with_path(words), input);
}

ProgramRun zondarctl_on_terminal(const std::vector<std::string>& words, const std::string& typed) {
    return run_on_terminal(with_path(words), typed);
}

nlohmann::ordered_json json_of(const std::vector<std::string>& words, int status) {
    std::vector<std::string> all = words;
    all.insert(all.begin(), "--json");
    const ProgramRun run = run_zondarctl(all);
    EXPECT_EQ(run.status, status) << run.err;
    return nlohmann::ordered_json::parse(run.out);
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}
