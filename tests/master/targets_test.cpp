// Words, files of targets, and what is chosen by them.
#include "master/targets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace master {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Texts = std::vector<std::string>;

// "" when nothing is refused.
std::string refusal(const std::function<void()>& act) {
    try {
        act();
    } catch (const std::invalid_argument& problem) {
        return problem.what();
    }
    return "";
}

Texts names_of(const std::vector<Target>& targets) {
    Texts names;
    for (const Target& target : targets)
        names.push_back(name_of(target));
    return names;
}

TEST(Targets, AreNamedByAddressAndName) {
    EXPECT_EQ(name_of(Target{}), "127.0.0.1:8001");
    EXPECT_EQ(name_of(Target{.host = "cabecera", .port = 7}), "cabecera:7");
    EXPECT_EQ(name_of(Target{.host = "10.0.0.5", .name = "Peña 1"}), "Peña 1 (10.0.0.5:8001)");
}

TEST(Words, AreHostsWithOrWithoutAPort) {
    EXPECT_EQ(name_of(parse_target("10.0.0.5")), "10.0.0.5:8001");
    EXPECT_EQ(name_of(parse_target("10.0.0.5", 9000)), "10.0.0.5:9000");
    EXPECT_EQ(name_of(parse_target("10.0.0.5:1", 9000)), "10.0.0.5:1");
    EXPECT_EQ(name_of(parse_target("sur_1.cabecera-2.es:65535")), "sur_1.cabecera-2.es:65535");
}

TEST(Words, AreNoOtherTargets) {
    const struct {
        const char* word;
        const char* refusal;
    } kCases[] = {
        {"", "an empty word: no host"},
        {":8001", ":8001: no host"},
        {"a:", "an empty word is no port: 1 to 65535"},
        {"a:0", "0 is no port: 1 to 65535"},
        {"a:65536", "65536 is no port: 1 to 65535"},
        {"a:-1", "-1 is no port: 1 to 65535"},
        {"a:8001x", "8001x is no port: 1 to 65535"},
        {"::1", "::1: IPv4 only, HOST or HOST:PORT"},
        {"[::1]:8001", "[::1]:8001: IPv4 only, HOST or HOST:PORT"},
        {"[::1]", "[::1]: IPv4 only, HOST or HOST:PORT"},
        {"a/b", "a/b is no host: letters, digits, '-' and '.'"},
        {"a b", "a b is no host: letters, digits, '-' and '.'"},
        {"Peña", "Peña is no host: letters, digits, '-' and '.'"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(refusal([&] { parse_target(each.word); }), each.refusal) << each.word;
}

TEST(TargetsFile, GivesAllOfAGroupItsLabels) {
    const std::vector<Target> targets = parse_targets(
        R"([{"targets": ["10.0.0.5:8001", "b"], "labels": {"name": "sur-1", "site": "Peña", "x": ""}},
            {"targets": ["10.0.0.7:7"]}, {"labels": {"site": "norte"}}, {}])");
    EXPECT_THAT(names_of(targets),
                ElementsAre("sur-1 (10.0.0.5:8001)", "sur-1 (b:8001)", "10.0.0.7:7"));
    EXPECT_THAT(targets.at(1).labels, ElementsAre(Pair("name", "sur-1"), Pair("site", "Peña")));
    EXPECT_THAT(targets.at(2).labels, IsEmpty());
}

TEST(TargetsFile, MayBeEmpty) {
    EXPECT_THAT(parse_targets("[]"), IsEmpty());
}

TEST(TargetsFile, HasWhatStandsTwiceOnce) {
    EXPECT_THAT(names_of(parse_targets(R"([{"targets": ["a", "b", "a:8001"]},
                                           {"targets": ["b"], "labels": {"site": ""}},
                                           {"targets": ["a"], "labels": {"site": "sur"}}])")),
                ElementsAre("a:8001", "b:8001", "a:8001"));
}

TEST(TargetsFile, OfAnotherFormIsRefusedByItsPlace) {
    const struct {
        const char* text;
        const char* refusal;
    } kCases[] = {
        {"", "no JSON: line 1, column 1"},
        {"[\n {\"targets\": [\"a\",]}]", "no JSON: line 2, column 19"},
        {"[{\"labels\": {\"name\": \"\xFF\"}}]", "no JSON: line 1, column 23"},
        {"[1e999]", "no list of groups: a number in it is too large"},
        {"{}", R"(no list of groups: [{"targets": ...}, ...])"},
        {"null", R"(no list of groups: [{"targets": ...}, ...])"},
        {R"([{}, null])", R"([1] is no group: {"targets": ["HOST:PORT", ...], "labels": {...}})"},
        {R"([{"targets": "a"}])", "[0].targets is no list"},
        {R"([{"targets": ["a", 5]}])", "[0].targets[1] is no text"},
        {R"([{"targets": ["a:x"]}])", "[0].targets[0]: x is no port: 1 to 65535"},
        {R"([{"labels": []}])", R"([0].labels is no object: {"label": "value", ...})"},
        {R"([{"labels": {"site": 5}}])", "[0].labels.site is no text"},
        {R"([{"labels": {"a-b": ""}}])",
         "[0].labels has no label's name: 'a-b', letters, digits and _ do, no digit first"},
        {R"([{"labels": {"1a": ""}}])",
         "[0].labels has no label's name: '1a', letters, digits and _ do, no digit first"},
        {R"([{"labels": {"": "a"}}])",
         "[0].labels has no label's name: '', letters, digits and _ do, no digit first"},
        {R"([{"target": ["a"]}])", "[0] has a member 'target': targets and labels are all"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(refusal([&] { parse_targets(each.text); }), each.refusal) << each.text;
}

constexpr char kFile[] = "/tmp/targets.json";

TEST(TargetsFile, IsNamedByWhatIsRefused) {
    EXPECT_EQ(refusal([] { read_targets_file("/tmp/none"); }),
              "/tmp/none: No such file or directory");
    EXPECT_EQ(refusal([] { read_targets_file("/tmp"); }), "/tmp: Is a directory");
    EXPECT_EQ(refusal([] { read_targets_file("/dev/zero"); }), "/dev/zero: more than 4 MiB");
    write_file(kFile, "[");
    EXPECT_EQ(refusal([] { read_targets_file(kFile); }),
              "/tmp/targets.json: no JSON: line 1, column 2");
    write_file(kFile, "[{\"targets\": [\"a\"]}]\n");
    EXPECT_THAT(names_of(read_targets_file(kFile)), ElementsAre("a:8001"));
}

TEST(TargetsFiles, AreThatOfTheMachineAndThatOfTheUser) {
    setenv("HOME", "/home/eva", 1);
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_THAT(targets_files(),
                ElementsAre("/etc/zondar/targets.json", "/home/eva/.config/zondar/targets.json"));
    setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_THAT(targets_files(),
                ElementsAre("/etc/zondar/targets.json", "/home/eva/.config/zondar/targets.json"));
    setenv("XDG_CONFIG_HOME", "/home/eva/config", 1);
    EXPECT_THAT(targets_files(),
                ElementsAre("/etc/zondar/targets.json", "/home/eva/config/zondar/targets.json"));
    unsetenv("XDG_CONFIG_HOME");
    setenv("HOME", "", 1);
    EXPECT_THAT(targets_files(), ElementsAre("/etc/zondar/targets.json"));
    unsetenv("HOME");
    EXPECT_THAT(targets_files(), ElementsAre("/etc/zondar/targets.json"));
}

constexpr char kFleet[] = R"([
    {"targets": ["10.0.0.1"], "labels": {"name": "sur-1", "site": "sur", "rack": "1"}},
    {"targets": ["10.0.0.2", "10.0.0.3"], "labels": {"name": "par", "site": "sur", "rack": "2"}},
    {"targets": ["10.0.0.4"], "labels": {"name": "Peña, 1", "site": "norte"}},
    {"targets": ["10.0.0.5"]},
    {"targets": ["10.0.0.1"], "labels": {"site": "este"}}])";

// What is selected of that file: the names, or the refusal.
class Selecting : public testing::Test {
  protected:
    Selecting() { write_file(kFile, kFleet); }

    [[nodiscard]] Texts selected(const Selection& selection) const {
        try {
            return names_of(Inventory(paths_).select(selection, 9000));
        } catch (const std::invalid_argument& problem) {
            return {problem.what()};
        }
    }

    Texts paths_ = {"/tmp/none.json", kFile};
};

TEST_F(Selecting, TakesWordsAsNamesElseAsHosts) {
    EXPECT_THAT(selected({.words = {"sur-1"}}), ElementsAre("sur-1 (10.0.0.1:8001)"));
    EXPECT_THAT(selected({.words = {"par"}}),
                ElementsAre("par (10.0.0.2:8001)", "par (10.0.0.3:8001)"));
    EXPECT_THAT(selected({.words = {"sur-2"}}), ElementsAre("sur-2:9000"));
    EXPECT_THAT(selected({.words = {"Peña, 1"}}), ElementsAre("Peña, 1 (10.0.0.4:8001)"));
    EXPECT_THAT(selected({.words = {"sur-9,par,10.0.0.9:1", "z"}}),
                ElementsAre("sur-9:9000", "par (10.0.0.2:8001)", "par (10.0.0.3:8001)",
                            "10.0.0.9:1", "z:9000"));
    EXPECT_THAT(selected({}), IsEmpty());
}

TEST_F(Selecting, RefusesEmptyWords) {
    for (const char* const word : {"", "a,", ",a", "a,,b"})
        EXPECT_THAT(selected({.words = {word}}), ElementsAre("an empty word: no host")) << word;
}

TEST_F(Selecting, TakesEachModuleOnce) {
    EXPECT_THAT(selected({.words = {"10.0.0.3:8001", "par,par", "10.0.0.3:8002"}}),
                ElementsAre("10.0.0.3:8001", "par (10.0.0.2:8001)", "10.0.0.3:8002"));
}

TEST_F(Selecting, TakesAllInTheOrderOfTheFile) {
    EXPECT_THAT(selected({.words = {"z"}, .all = true}),
                ElementsAre("sur-1 (10.0.0.1:8001)", "par (10.0.0.2:8001)", "par (10.0.0.3:8001)",
                            "Peña, 1 (10.0.0.4:8001)", "10.0.0.5:8001", "z:9000"));
}

TEST_F(Selecting, LeavesWhatMeetsTheConditions) {
    EXPECT_THAT(selected({.where = {"site=sur"}}),
                ElementsAre("sur-1 (10.0.0.1:8001)", "par (10.0.0.2:8001)", "par (10.0.0.3:8001)"));
    EXPECT_THAT(selected({.all = true, .where = {"site=sur", "rack!=2"}}),
                ElementsAre("sur-1 (10.0.0.1:8001)"));
    EXPECT_THAT(selected({.where = {"site=este"}}), ElementsAre("10.0.0.1:8001"));
    EXPECT_THAT(selected({.where = {"site!=sur", "name=Peña, 1"}}),
                ElementsAre("Peña, 1 (10.0.0.4:8001)"));
    EXPECT_THAT(selected({.where = {"site="}}), ElementsAre("10.0.0.5:8001"));
    EXPECT_THAT(selected({.words = {"par", "sur-1"}, .where = {"rack=1"}}),
                ElementsAre("sur-1 (10.0.0.1:8001)"));
}

TEST_F(Selecting, NamesTheLabelsThatThereAreWhenNoneMeetsACondition) {
    EXPECT_THAT(selected({.where = {"site=oeste"}}),
                ElementsAre("no target has site=oeste; there is site=este, site=norte, site=sur"));
    EXPECT_THAT(selected({.where = {"site=sur", "rack=3"}}),
                ElementsAre("no target has rack=3; there is rack=1, rack=2"));
    EXPECT_THAT(selected({.where = {"sitio=sur"}}),
                ElementsAre("no target has sitio=sur; the labels are: name, rack, site"));
    EXPECT_THAT(selected({.words = {"a"}, .where = {"site=sur"}}),
                ElementsAre("no target has site=sur; the labels are: none"));
}

TEST_F(Selecting, NamesNotMoreThanTwentyLabels) {
    std::string text = "[";
    for (int i = 10; i <= 30; ++i)
        text += R"({"targets": ["a"], "labels": {"x": ")" + std::to_string(i) + R"("}},)";
    text.back() = ']';
    write_file(kFile, text);
    EXPECT_THAT(selected({.where = {"x=1"}}),
                ElementsAre("no target has x=1; there is x=10, x=11, x=12, x=13, x=14, x=15, x=16, "
                            "x=17, x=18, x=19, x=20, x=21, x=22, x=23, x=24, x=25, x=26, x=27, "
                            "x=28, x=29, ..."));
}

TEST_F(Selecting, RefusesWhatIsNoCondition) {
    for (const std::string text : {"site", "=sur", "!=sur", ""})
        EXPECT_THAT(selected({.where = {text}}),
                    ElementsAre(text + " is no condition: LABEL=VALUE or LABEL!=VALUE"));
}

TEST_F(Selecting, TellsWhereItLookedWhenThereAreNoTargets) {
    paths_ = {"/tmp/none.json", "/tmp/targets.json/none"};
    const std::string kNone =
        "no targets: they are looked for in /tmp/none.json and /tmp/targets.json/none";
    EXPECT_THAT(selected({.all = true}), ElementsAre(kNone));
    EXPECT_THAT(selected({.where = {"site=sur"}}), ElementsAre(kNone));
    EXPECT_THAT(selected({.words = {"a"}}), ElementsAre("a:9000"));
}

// A word that could be a name in it, or that asks for all of it.
TEST_F(Selecting, FindsABrokenFileWhereItMatters) {
    write_file("/tmp/none.json", "[");
    const std::string kBroken = "/tmp/none.json: no JSON: line 1, column 2";
    EXPECT_THAT(selected({.words = {"10.0.0.1,a:1"}}), ElementsAre("10.0.0.1:9000", "a:1"));
    EXPECT_THAT(selected({.words = {"10.0.0.1,sur-1"}}), ElementsAre(kBroken));
    EXPECT_THAT(selected({.words = {"Peña"}}), ElementsAre(kBroken));
    EXPECT_THAT(selected({.all = true}), ElementsAre(kBroken));
    EXPECT_THAT(selected({.where = {"site=sur"}}), ElementsAre(kBroken));
    EXPECT_EQ(refusal([this] { static_cast<void>(Inventory(paths_).targets()); }), kBroken);
}

TEST_F(Selecting, TakesTheTargetsOfAllFilesEachOnce) {
    write_file("/tmp/none.json", R"([{"targets": ["10.0.0.5"]}, {"targets": ["b"]}])");
    EXPECT_THAT(
        names_of(Inventory(paths_).targets()),
        ElementsAre("10.0.0.5:8001", "b:8001", "sur-1 (10.0.0.1:8001)", "par (10.0.0.2:8001)",
                    "par (10.0.0.3:8001)", "Peña, 1 (10.0.0.4:8001)", "10.0.0.1:8001"));
}

}  // namespace

}  // namespace master
