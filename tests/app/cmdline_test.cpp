// The command line: what each spelling of the options sets, and how wrong ones are refused.
#include "app/cmdline.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::StrEq;
using testing::Throws;

// An argument vector of its own for each parser, which may put it in another order.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {
        words_.insert(words_.begin(), "receiver");
        for (std::string& word : words_)
            pointers_.push_back(word.data());
        pointers_.push_back(nullptr);
    }

    Cmdline parse() { return {static_cast<int>(words_.size()), pointers_.data()}; }

    [[nodiscard]] std::vector<std::string> from(std::int32_t index) const {
        return {pointers_.begin() + index, pointers_.end() - 1};
    }

  private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

struct Accepted {
    std::vector<std::string> words;
    std::int32_t s = 4;
    bool t = false;
    std::int32_t l = 0;
    std::string p = "/tmp/zondar_net_receiver.pid";
    bool d = false;
    bool v = false;
    std::vector<std::string> positional = {};
};

const Accepted kAccepted[] = {
    {.words = {}},
    {.words = {"a", "b"}, .positional = {"a", "b"}},
    {.words = {"-s", "0"}, .s = 0},
    {.words = {"-s", "5"}, .s = 5},
    {.words = {"-s3"}, .s = 3},
    {.words = {"--sysloglevel", "2"}, .s = 2},
    {.words = {"--sysloglevel=1"}, .s = 1},
    // what is no number counts as 0, what begins like one as that
    {.words = {"-s", "abc"}, .s = 0},
    {.words = {"-s", ""}, .s = 0},
    {.words = {"-s", " 3rd"}, .s = 3},
    {.words = {"-t"}, .t = true},
    {.words = {"--logtostderr"}, .t = true},
    {.words = {"-l", "0"}, .l = 0},
    {.words = {"-l", "127"}, .l = 127},
    {.words = {"--stdloglevel", "64"}, .l = 64},
    {.words = {"--stdloglevel=32"}, .l = 32},
    {.words = {"-l", "0x20"}, .l = 0},
    {.words = {"-p", "/run/x.pid"}, .p = "/run/x.pid"},
    {.words = {"-p", ""}, .p = ""},
    {.words = {"--pidfile", "x"}, .p = "x"},
    {.words = {"--pidfile="}, .p = ""},
    {.words = {"-p", "-d"}, .p = "-d"},
    {.words = {"-d"}, .d = true},
    {.words = {"--deamon"}, .d = true},
    {.words = {"-v"}, .v = true},
    {.words = {"--version"}, .v = true},
    {.words = {"-tdv"}, .t = true, .d = true, .v = true},
    {.words = {"-tds", "1", "a"}, .s = 1, .t = true, .d = true, .positional = {"a"}},
    // the last one counts
    {.words = {"-s", "1", "-s", "2", "-p", "x", "-p", "y"}, .s = 2, .p = "y"},
    // options are found behind the paths too
    {.words = {"a", "-s", "1", "b", "-l", "16", "c"},
     .s = 1,
     .l = 16,
     .positional = {"a", "b", "c"}},
    {.words = {"-d", "--", "-t", "b"}, .d = true, .positional = {"-t", "b"}},
};

TEST(Cmdline, SetsWhatTheOptionsSay) {
    for (const Accepted& expected : kAccepted) {
        SCOPED_TRACE(testing::PrintToString(expected.words));
        Arguments arguments(expected.words);
        const Cmdline cmdline = arguments.parse();
        EXPECT_EQ(cmdline.s(), expected.s);
        EXPECT_EQ(cmdline.t(), expected.t);
        EXPECT_EQ(cmdline.l(), expected.l);
        EXPECT_EQ(cmdline.p(), expected.p);
        EXPECT_EQ(cmdline.d(), expected.d);
        EXPECT_EQ(cmdline.v(), expected.v);
        EXPECT_FALSE(cmdline.h());
        EXPECT_EQ(arguments.from(cmdline.first_positional()), expected.positional);
    }
}

TEST(Cmdline, ThrowsTheRangeErrorAsText) {
    struct Refused {
        std::vector<std::string> words;
        std::string text;
    };
    const Refused cases[] = {
        {{"-s", "-1"}, "parameter range error: s must be >= 0"},
        {{"-s", "6"}, "parameter range error: s must be <= 5"},
        {{"-s", "2147483647"}, "parameter range error: s must be <= 5"},
        {{"--sysloglevel=-1"}, "parameter range error: s must be >= 0"},
        {{"-l", "-1"}, "parameter range error: l must be >= 0"},
        {{"-l", "128"}, "parameter range error: l must be <= 127"},
        {{"--stdloglevel", "128"}, "parameter range error: l must be <= 127"},
        // the first error counts, and what comes before it does not help
        {{"-v", "-l", "128", "-s", "6"}, "parameter range error: l must be <= 127"},
    };
    for (const Refused& refused : cases) {
        SCOPED_TRACE(testing::PrintToString(refused.words));
        EXPECT_THAT([&] { Arguments(refused.words).parse(); },
                    Throws<std::string>(StrEq(refused.text)));
    }
}

TEST(CmdlineDeathTest, RefusesUnknownOptionsAndMissingArgumentsWithAHint) {
    const std::vector<std::string> cases[] = {
        {"-x"},        {"-?"},           {"--unknown"},     {"--daemon"},  {"-s"},
        {"-l"},        {"-p"},           {"--sysloglevel"}, {"--pidfile"}, {"--stdloglevel"},
        {"--help=me"}, {"a", "b", "-x"},
    };
    for (const std::vector<std::string>& words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        EXPECT_EXIT(Arguments(words).parse(), ExitedWithCode(1),
                    EndsWith("Try `receiver --help' for more information.\n"));
    }
}

TEST(CmdlineDeathTest, EndsWithTheStatusOfTheUsage) {
    EXPECT_EXIT(Arguments({}).parse().usage(0), ExitedWithCode(0), Eq(""));
    EXPECT_EXIT(Arguments({}).parse().usage(7), ExitedWithCode(7),
                Eq("Try `receiver --help' for more information.\n"));
}

// A program started with no words at all has no name, but still its defaults.
TEST(Cmdline, LivesWithoutAnyWord) {
    char* nothing[] = {nullptr};
    const Cmdline cmdline(0, nothing);
    EXPECT_EQ(cmdline.s(), 4);
    EXPECT_EQ(cmdline.p(), "/tmp/zondar_net_receiver.pid");
}

}  // namespace
