// What the program answers to its command line before it becomes a daemon: help, version, errors.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/system/program_end.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

const char* const kNoPaths =
    "ERROR: No se han indicado las rutas de las bases de datos obligatorias, saliendo...\n";
const char* const kHint = "Try `receiver --help' for more information.\n";

// Under a short name, which the program repeats.
ProgramEnd run(const std::vector<std::string>& words, const std::string& name = "receiver") {
    return run_to_end({
        .options = words,
        .paths = {},
        .launcher = {"/bin/bash", "-c", "exec -a '" + name + "' \"$0\" \"$@\""},
    });
}

TEST(CommandLine, ShowsTheHelpToTheLetter) {
    const std::string text = read_file(ZONDAR_SOURCE_DIR "/tests/app/help.golden");
    ASSERT_THAT(text, StartsWith(" [ -stlpdvh ] path_to_config_db path_to_temp_db\n"));
    const std::vector<std::string> cases[] = {
        {"-h"},
        {"--help"},
        {"-h", "a", "b"},
        {"a", "b", "-h"},
        {"-vh"},
        {"-d", "-h"},
        // what comes behind it is not looked at
        {"-h", "-x"},
        {"-h", "-s", "6"},
        {"-hx"},
    };
    for (const std::vector<std::string>& words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramEnd end = run(words);
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(end.out, "usage: receiver" + text);
        EXPECT_EQ(end.err, "");
        EXPECT_THAT(end.log, IsEmpty());
    }
}

TEST(CommandLine, RepeatsItsNameAsItWasCalled) {
    EXPECT_THAT(run({"-h"}, "./some dir/%s").out, StartsWith("usage: ./some dir/%s [ -stlpdvh ]"));
    EXPECT_EQ(run({}, "./some dir/%s").err, "Try `./some dir/%s --help' for more information.\n");
}

TEST(CommandLine, ShowsTheVersionAndTheBuildTime) {
    const std::vector<std::string> cases[] = {
        {"-v"}, {"--version"}, {"-v", "a", "b"}, {"-tdv"}, {"-v", "/missing", "/missing"},
    };
    for (const std::vector<std::string>& words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramEnd end = run(words);
        EXPECT_EQ(end.status, 0);
        EXPECT_THAT(end.out, MatchesRegex("\nVersion: 1\\.0\n"
                                          "Compilation date: [A-Z][a-z][a-z] [ 123][0-9] 20[0-9]{2}"
                                          "\nTime: [0-2][0-9]:[0-5][0-9]:[0-5][0-9]\n"));
        EXPECT_EQ(end.err, "");
        EXPECT_THAT(end.log, IsEmpty());
    }
}

TEST(CommandLine, RefusesWhatItDoesNotKnow) {
    const std::vector<std::string> cases[] = {
        {"-x"},
        {"--unknown"},
        {"--daemon"},
        {"-s"},
        {"-l"},
        {"-p"},
        {"--pidfile"},
        {"a", "b", "-x"},
        // an error counts even before -h and after -v
        {"-x", "-h"},
        {"-v", "-x"},
    };
    for (const std::vector<std::string>& words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramEnd end = run(words);
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out, "");
        EXPECT_THAT(end.err, EndsWith(kHint));
        EXPECT_THAT(end.log, IsEmpty());
    }
}

TEST(CommandLine, AsksForBothPaths) {
    const std::vector<std::string> cases[] = {
        {}, {"a"}, {"-d", "a"}, {"-s", "5", "-l", "127", "-t"}, {"--", "-v"},
    };
    for (const std::vector<std::string>& words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramEnd end = run(words);
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out, kNoPaths);
        EXPECT_EQ(end.err, kHint);
        EXPECT_THAT(end.log, IsEmpty());
        EXPECT_FALSE(std::filesystem::exists("/tmp/zondar_net_receiver.pid"));
    }
}

// On a terminal both lines share one stream: the reason comes before the hint.
TEST(CommandLine, ShowsTheReasonBeforeTheHint) {
    const ProgramEnd end = run_to_end({
        .paths = {},
        .launcher = {"/bin/bash", "-c", "exec -a receiver \"$0\" \"$@\" 2>&1"},
    });
    EXPECT_EQ(end.out, std::string(kNoPaths) + kHint);
}

TEST(CommandLine, AbortsWithTheTextOfARangeError) {
    struct OutOfRange {
        std::vector<std::string> words;
        std::string text;
    };
    const OutOfRange cases[] = {
        {{"-s", "-1"}, "parameter range error: s must be >= 0"},
        {{"-s", "6"}, "parameter range error: s must be <= 5"},
        {{"--sysloglevel=6"}, "parameter range error: s must be <= 5"},
        {{"-l", "-1"}, "parameter range error: l must be >= 0"},
        {{"-l", "128"}, "parameter range error: l must be <= 127"},
        {{"-s", "6", "-h"}, "parameter range error: s must be <= 5"},
    };
    constexpr int kAborted = 1006;
    leave_faults_to_the_program();
    for (const OutOfRange& wrong : cases) {
        SCOPED_TRACE(testing::PrintToString(wrong.words));
        const ProgramEnd end = run(wrong.words);
        EXPECT_EQ(end.status, kAborted);
        EXPECT_EQ(end.out, "");
        EXPECT_THAT(end.err, HasSubstr(wrong.text + "\n"));
        EXPECT_THAT(end.log, IsEmpty());
    }
}

// Accepted values come as far as the databases, of which there are none.
TEST(CommandLine, AcceptsTheLimits) {
    const std::vector<std::string> cases[] = {
        {"-s", "0"},  {"-s", "1"},   {"-s", "5"}, {"-s", "abc"},         {"--sysloglevel", "5"},
        {"-l", "0"},  {"-l", "127"}, {"-l", "x"}, {"--stdloglevel=127"}, {"--pidfile=/tmp/x"},
        {"--deamon"}, {"-d"},        {"-t"},      {"--logtostderr"},
    };
    for (std::vector<std::string> words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        words.insert(words.end(), {"/missing", "/missing"});
        const ProgramEnd end = run(words);
        EXPECT_THAT(end.status, testing::AnyOf(0, 1));
        EXPECT_EQ(end.out, "");
        EXPECT_THAT(end.err, testing::Not(HasSubstr("Try")));
    }
}

}  // namespace
