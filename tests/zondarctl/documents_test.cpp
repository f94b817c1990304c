// The documents for users say what the tool does: the sessions of the README and of the operator's
// guide as they print, every command and option in the manual.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/description.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/peer.h"
#include "tests/support/program.h"
#include "tests/zondarctl/replaying_daemon.h"
#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::HasSubstr;

std::string document(const std::string& path) {
    return read_file(ZONDAR_SOURCE_DIR "/" + path);
}

struct Step {
    std::string command;
    std::string shown;
};

// The indented lines of a section, by the commands behind "$ ", which may go on in a second line.
std::vector<Step> session(const std::string& text, const std::string& heading) {
    const std::size_t begin = text.find("\n" + heading + "\n") + 1;
    std::istringstream lines(text.substr(begin, text.find("\n## ", begin) - begin));
    std::vector<Step> steps;
    bool goes_on = false;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("    "))
            continue;
        line.erase(0, 4);
        if (line.starts_with("$ "))
            steps.push_back({line.substr(2), ""});
        else if (goes_on)
            steps.back().command += "\n" + line;
        else if (!steps.empty())
            steps.back().shown += line + "\n";
        goes_on = line.ends_with('\\');
    }
    return steps;
}

std::string replaced(const std::string& text, const std::string& what, const std::string& with) {
    return std::regex_replace(text, std::regex(what), with);
}

// Runs the session and compares what each command shows.
void expect_as_shown(const std::vector<Step>& steps) {
    const std::string folder = std::filesystem::path(ZONDARCTL).parent_path();
    for (const Step& step : steps) {
        SCOPED_TRACE(step.command);
        std::string command =
            replaced(step.command, "build/release/zondarctl/zondarctl", "zondarctl");
        command = replaced(command, "build/board/", "/quelt/");
        const ProgramRun run = keep_json(
            run_program({"/bin/sh", "-c", "PATH=" + folder + ":$PATH; { " + command + "\n} 2>&1"}));
        const std::string time = "\"elapsed_ms\": [0-9]+";
        EXPECT_EQ(replaced(run.out, time, "TIME"), replaced(step.shown, time, "TIME"));
    }
}

TEST(Readme, ShowsTheFirstSessionAsItPrints) {
    const RunningDaemon daemon;
    const std::vector<Step> steps = session(document("README.md"), "## A first session");
    EXPECT_GT(steps.size(), 8U);
    expect_as_shown(steps);
}

TEST(OperatorsGuide, ShowsTheFirstExchangeAsItPrints) {
    const RunningDaemon daemon;
    const std::vector<Step> steps = session(document("docs/operation.md"), "## First exchange");
    EXPECT_EQ(steps.size(), 6U);
    expect_as_shown(steps);
}

TEST(OperatorsGuide, BacksUpAndRestoresUnderTheRunningDaemon) {
    const RunningDaemon daemon;
    const std::vector<Step> steps =
        session(document("docs/operation.md"), "### Backup and restore");
    EXPECT_EQ(steps.size(), 8U);
    expect_as_shown(steps);
}

TEST(OperatorsGuide, CarriesAConfigurationAsItPrints) {
    const RunningDaemon daemon;
    const std::vector<Step> steps =
        session(document("docs/operation.md"), "## Carrying a configuration");
    EXPECT_EQ(steps.size(), 5U);
    expect_as_shown(steps);
}

// Its list of modules is read, and as it says.
TEST(OperatorsGuide, NamesModulesAsItPrints) {
    const std::string guide = document("docs/operation.md");
    const std::size_t begin = guide.find("    [\n      {\"targets\"");
    const std::string end = "\n    ]\n";
    std::filesystem::create_directory("/tmp/zondar");
    write_file("/tmp/zondar/targets.json",
               guide.substr(begin, guide.find(end, begin) + end.size() - begin));
    setenv("XDG_CONFIG_HOME", "/tmp", 1);
    const std::vector<Step> steps = session(guide, "## Many modules");
    EXPECT_EQ(steps.size(), 2U);
    expect_as_shown(steps);
}

// All that may be found in a capture has its row, in the order of the description.
TEST(OperatorsGuide, ExplainsEachFinding) {
    const char* const severities[] = {"note", "warn", "error"};
    std::string rows;
    for (const protocol::FindingText& finding : protocol::kFindings)
        rows += "| `" + std::string(finding.name) + "` | " +
                severities[static_cast<std::size_t>(finding.severity)] + " | " + finding.text +
                " |\n";
    const std::string explanations = " \\|[^|\n]+\\|[^|\n]+\\|\n";
    EXPECT_THAT(replaced(document("docs/operation.md"), explanations, " |\n"),
                HasSubstr("\n| Name | Severity | Text |\n|---|---|---|---|---|\n" + rows + "\n"));
}

// What it says of a module when there is no answer, and with which status, stands in the guide,
// with the seconds that it waits unless told otherwise.
void expect_explained(const ProgramRun& run) {
    const std::string begin = "zondarctl: 127.0.0.1:8001: ";
    ASSERT_THAT(run.err, testing::StartsWith(begin));
    const std::string text =
        replaced(run.err.substr(begin.size(), run.err.size() - begin.size() - 1),
                 "no answer after 2 s", "no answer after 5 s");
    EXPECT_THAT(document("docs/operation.md"),
                HasSubstr("| `" + text + "` | " + std::to_string(run.status) + " |"));
}

TEST(OperatorsGuide, ExplainsWhyThereIsNoAnswer) {
    const std::vector<std::string> identify = {ZONDARCTL, "-t", "2", "identify"};
    expect_explained(run_program(identify));  // nobody listens
    const RunningDaemon daemon;
    {
        const Connection silent;
        expect_explained(run_program(identify));
        expect_explained(run_program(identify));  // has to bring the module back first
    }
    EXPECT_EQ(run_program(identify).status, 0);              // brings the module back first
    expect_explained(run_program({ZONDARCTL, "raw", "5"}));  // has no answer
    EXPECT_EQ(run_program(identify).status, 0);
    send_request(frame(0));  // nobody collects its answer
    expect_explained(run_program({ZONDARCTL, "raw", "4"}));
}

TEST(OperatorsGuide, ExplainsAnswersThatNobodyAskedFor) {
    const ReplayingDaemon daemon(frame(4));
    expect_explained(run_program({ZONDARCTL, "identify"}));
}

TEST(OperatorsGuide, ExplainsWhatIsNoModule) {
    const Peer peer([](const Peer::Accept& accept) {
        answer_with(accept, text_bytes("SSH-2.0-OpenSSH_9.2\r\n"));
    });
    expect_explained(run_program({ZONDARCTL, "identify"}));
}

// A manual page as it is read, and a help text: words only.
std::string plain(const std::string& page) {
    const ProgramRun run = run_program(
        {"/bin/sh", "-c",
         "sed -e 's/\\\\f[BIR]//g' -e 's/\\\\-/-/g' " ZONDAR_SOURCE_DIR "/docs/man/" + page});
    return run.out;
}

// The first words of the indented lines of a help text.
std::vector<std::string> offered(const std::vector<std::string>& words) {
    std::vector<std::string> command = {ZONDARCTL};
    command.insert(command.end(), words.begin(), words.end());
    command.emplace_back("--help");
    std::istringstream lines(run_program(command).out);
    std::vector<std::string> first_words;
    for (std::string line; std::getline(lines, line);) {
        std::smatch found;
        if (std::regex_search(line, found, std::regex("^  (-[^ ]*|[a-z][a-z-]*)")))
            first_words.push_back(found[1]);
    }
    return first_words;
}

TEST(Manual, NamesEveryCommandAndOption) {
    const std::string manual = plain("zondarctl.1");
    const std::vector<std::vector<std::string>> helps = {
        {},          {"slave"}, {"db"},     {"slave", "register"}, {"get"}, {"check"}, {"watch"},
        {"restore"}, {"copy"},  {"encode"}, {"db", "check"}};
    for (const std::vector<std::string>& help : helps) {
        const std::vector<std::string> words = offered(help);
        EXPECT_FALSE(words.empty());
        for (const std::string& word : words) {
            std::istringstream forms(word);
            for (std::string form; std::getline(forms, form, ',');) {
                if (form != "-h") {
                    EXPECT_THAT(manual, HasSubstr(form));
                }
            }
        }
    }
}

TEST(Manual, NamesEveryOptionOfTheDaemon) {
    const std::string manual = plain("zondar_net_receiver.8");
    const std::string help = document("tests/app/help.golden");
    const std::regex option("\\[ (-[a-z]) \\] \\[ (--[a-z]+) \\]");
    std::size_t count = 0;
    for (std::sregex_iterator at(help.begin(), help.end(), option), end; at != end; ++at, ++count) {
        EXPECT_THAT(manual, HasSubstr((*at)[1].str()));
        EXPECT_THAT(manual, HasSubstr((*at)[2].str()));
    }
    EXPECT_EQ(count, 7U);
}

}  // namespace
