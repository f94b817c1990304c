// The ready lines of the operator's guide for monitoring, run as the programs would that they are
// for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <sstream>

#include "tests/zondarctl/running_daemon.h"
#include "tests/zondarctl/status_of_module.h"
#include "tests/zondarctl/zondarctl.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// The indented lines of the guide that stand together and have this one among them.
std::string block(const std::string& line_of_it) {
    std::istringstream guide(read_file(ZONDAR_SOURCE_DIR "/docs/operation.md"));
    std::string text;
    for (std::string line; std::getline(guide, line);) {
        if (line.empty() || line.starts_with("    "))
            text += line.empty() ? "\n" : line.substr(4) + "\n";
        else if (text.find("\n" + line_of_it + "\n") != std::string::npos)
            return text;
        else
            text.clear();
    }
    ADD_FAILURE() << line_of_it;
    return "";
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    for (; at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

std::string with_path(const std::string& text) {
    return replaced(text, "/usr/bin/zondarctl", zondarctl_path());
}

std::vector<std::smatch> all_in(const std::string& text, const std::regex& what) {
    return {std::sregex_iterator(text.begin(), text.end(), what), std::sregex_iterator()};
}

// What stands in quotes.
Words quoted(const std::string& text) {
    Words words;
    for (const std::smatch& found : all_in(text, std::regex("\"([^\"]*)\"")))
        words.push_back(found[1]);
    return words;
}

class Monitoring : public testing::Test {
  protected:
    Monitoring() { set_state("alarma_in", "0"); }

    RunningDaemon daemon_;
};

// With alarms that the lines make nothing, a warning and critical.
void expect_judged(const std::function<ProgramRun()>& check) {
    const struct {
        const char* alarm;
        int status;
        const char* said;
    } cases[] = {
        {"alarma_si", 1, "ZONDAR WARNING - alarma_si"},
        {"alarma_hw", 2, "ZONDAR CRITICAL - alarma_hw, alarma_si"},
    };
    EXPECT_THAT(check().out, StartsWith("ZONDAR OK - no alarms"));
    for (const auto& each : cases) {
        set_state(each.alarm, "1");
        const ProgramRun run = check();
        EXPECT_EQ(run.status, each.status);
        EXPECT_THAT(run.out, StartsWith(each.said));
        EXPECT_THAT(run.out, HasSubstr(" null_level=-5;;-20:20 "));
    }
}

TEST_F(Monitoring, IsDoneByIcinga) {
    const std::string config = block("object CheckCommand \"zondar\" {");
    std::map<std::string, Words> macros = {{"address", {"127.0.0.1"}}};
    for (const std::smatch& found :
         all_in(config, std::regex("vars\\.(\\w+) = (\\[[^\\]]*\\]|\"[^\"]*\")")))
        macros[found[1]] = quoted(found[2]);
    const auto value_of = [&](const std::string& word) {
        const Words value = macros[word];
        return value.size() == 1 && value[0].starts_with('$')
                   ? macros[value[0].substr(1, value[0].size() - 2)]
                   : value;
    };
    std::smatch command;
    ASSERT_TRUE(std::regex_search(config, command, std::regex("command = \\[([^\\]]*)\\]")));
    Words words = quoted(command[1]);
    words[0] = zondarctl_path();
    for (const std::smatch& found :
         all_in(config, std::regex("\"(--\\w+)\" = (?:\\{ value = )?\"\\$(\\w+)\\$\""))) {
        for (const std::string& value : value_of(found[2]))
            words.insert(words.end(), {found[1], value});
    }
    EXPECT_EQ(words.size(), 12U);
    expect_judged([&] { return run_program(words); });
    set_state("alarma_ip", "1");
    EXPECT_THAT(run_program(words).out, HasSubstr("; ignored: alarma_ip | "));
}

TEST_F(Monitoring, IsDoneByNagios) {
    const std::string config = block("define command {");
    std::smatch command;
    ASSERT_TRUE(std::regex_search(config, command, std::regex("command_line +(.+)")));
    std::smatch service;
    ASSERT_TRUE(std::regex_search(config, service, std::regex("check_command +check_zondar!(.+)")));
    std::string line = replaced(with_path(command[1]), "$HOSTADDRESS$", "127.0.0.1");
    line = replaced(line, "$ARG1$", service[1]);
    expect_judged([&] { return run_program({"/bin/sh", "-c", line}); });
}

TEST_F(Monitoring, IsMailedByCronOnlyWhenIll) {
    // To cron a per cent sign is a line end.
    const std::regex kLine("\n    (?:[*/0-9]+ ){5}daemon ([^%\n]+)\n");
    const std::string guide = read_file(ZONDAR_SOURCE_DIR "/docs/operation.md");
    std::smatch parts;
    ASSERT_TRUE(std::regex_search(guide, parts, kLine));
    const Words shell = {"/bin/sh", "-c",
                         replaced(with_path(parts[1]), "192.168.1.50", "127.0.0.1")};
    ProgramRun run = run_program(shell);
    EXPECT_EQ(run.out + run.err, "");
    set_state("alarma_mod", "1");
    run = run_program(shell);
    EXPECT_THAT(run.out, StartsWith("ZONDAR CRITICAL - alarma_mod | "));
    EXPECT_EQ(run.err, "");
    EXPECT_EQ((*daemon_).stop(SIGKILL), 1009);
    EXPECT_THAT(run_program(shell).out,
                AllOf(HasSubstr("ZONDAR CRITICAL - no connection: Connection refused\n"),
                      HasSubstr("zondarctl: 127.0.0.1:8001: no connection")));
}

TEST_F(Monitoring, IsDoneByATimer) {
    const std::string service =
        replaced(with_path(block("Type=oneshot")), "192.168.1.50", "127.0.0.1");
    std::filesystem::create_directories("/run/systemd");  // where it wants to be
    write_file("/tmp/units/zondar-check.service", service);
    write_file("/tmp/units/zondar-check.timer", block("OnCalendar=*:0/5"));
    const ProgramRun verified =
        run_program({"/usr/bin/systemd-analyze", "verify", "--man=no",
                     "/tmp/units/zondar-check.service", "/tmp/units/zondar-check.timer"});
    EXPECT_EQ(verified.status, 0);
    EXPECT_EQ(verified.out + verified.err, "");

    std::smatch start;
    ASSERT_TRUE(std::regex_search(service, start, std::regex("\nExecStart=(.+)")));
    std::smatch success;
    ASSERT_TRUE(std::regex_search(service, success, std::regex("\nSuccessExitStatus=([0-9]+)\n")));
    const auto check = [&] { return run_program({"/bin/sh", "-c", start[1]}); };
    EXPECT_EQ(check().status, 0);
    set_state("alarma_si", "1");
    EXPECT_EQ(std::to_string(check().status), success[1]) << "a warning fails no unit";
    set_state("alarma_hw", "1");
    EXPECT_EQ(check().status, 2);
}

}  // namespace
