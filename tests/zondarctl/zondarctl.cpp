#include "tests/zondarctl/zondarctl.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>

#include "tests/support/files.h"

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

ProgramRun keep_json(ProgramRun run) {
    static std::atomic<int> count = 0;
    if (!run.out.starts_with('{') && !run.out.starts_with('['))
        return run;
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    write_file(std::string(ZONDAR_PRINTED_JSON) + "/" + test.test_suite_name() + "." + test.name() +
                   "." + std::to_string(++count),
               run.out);
    return run;
}

ProgramRun run_zondarctl(const std::vector<std::string>& words, const std::string& input) {
    return keep_json(run_program(with_path(words), input));
}

ProgramRun zondarctl_on_terminal(const std::vector<std::string>& words, const std::string& typed) {
    return keep_json(run_on_terminal(with_path(words), typed));
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
