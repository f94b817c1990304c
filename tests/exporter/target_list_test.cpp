// The files of targets, read again when they change.
#include "exporter/target_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/support/files.h"
#include "tests/support/wait.h"

namespace exporter {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

constexpr char kOne[] = "/tmp/one.json";
constexpr char kOther[] = "/tmp/other.json";

std::vector<std::string> addresses(const TargetList& list) {
    std::vector<std::string> addresses;
    for (const master::Target& target : list.targets())
        addresses.push_back(address_of(target));
    return addresses;
}

std::string problem_of(const std::vector<std::string>& paths) {
    try {
        const TargetList list(paths);
        return "none";
    } catch (const std::invalid_argument& problem) {
        return problem.what();
    }
}

class Targets : public testing::Test {
  protected:
    Targets() {
        write_file(kOne, R"([{"targets": ["10.0.0.5", "Norte:8002"],
                              "labels": {"name": "Uno", "site": "sur"}}])");
        write_file(kOther, R"([{"targets": ["10.0.0.6:8001", "10.0.0.5:8001"]}])");
    }

    // Waits for a change to be seen.
    static void refresh(TargetList& list) {
        ASSERT_TRUE(eventually([&] { return list.refresh(); }));
    }
};

TEST_F(Targets, AreThoseOfAllFilesEachOnce) {
    EXPECT_THAT(addresses(TargetList({kOne, kOther})),
                ElementsAre("10.0.0.5:8001", "norte:8002", "10.0.0.6:8001"));
}

TEST_F(Targets, AreFoundByAddressAndByName) {
    const TargetList list({kOne, kOther});
    const struct {
        const char* word;
        const char* address;  // nothing when it is none
    } cases[] = {
        {"10.0.0.5", "10.0.0.5:8001"},
        {"10.0.0.5:8001", "10.0.0.5:8001"},
        {"NORTE:8002", "norte:8002"},
        {"uno", "10.0.0.5:8001"},
        {"10.0.0.6", "10.0.0.6:8001"},
        {"norte", nullptr},
        {"10.0.0.7", nullptr},
        {"10.0.0.5:99999", nullptr},
        {"10.0.0.5:8001/metrics", nullptr},
        {"", nullptr},
    };
    for (const auto& [word, address] : cases) {
        const master::Target* const found = list.find(word);
        EXPECT_EQ(found == nullptr ? "none" : address_of(*found),
                  address == nullptr ? "none" : address)
            << word;
    }
}

// Prometheus asks by address: the answer of another module would be kept as this one's.
TEST_F(Targets, AreFoundByAddressBeforeByName) {
    write_file(kOne, R"([{"targets": ["10.0.0.5"], "labels": {"name": "10.0.0.6"}},
                         {"targets": ["10.0.0.6"], "labels": {"name": "10.0.0.5:8001"}}])");
    const TargetList list({kOne});
    EXPECT_EQ(address_of(*list.find("10.0.0.5:8001")), "10.0.0.5:8001");
    EXPECT_EQ(address_of(*list.find("10.0.0.6")), "10.0.0.6:8001");
}

TEST_F(Targets, HaveToBeThereAtTheStart) {
    EXPECT_EQ(problem_of({kOne, "/tmp/nothing.json"}),
              "/tmp/nothing.json: No such file or directory");
    write_file(kOther, "[{");
    EXPECT_THAT(problem_of({kOne, kOther}), testing::StartsWith("/tmp/other.json: "));
    EXPECT_EQ(problem_of({"/tmp"}), "/tmp: no regular file");
}

TEST_F(Targets, FollowTheirFiles) {
    TargetList list({kOne, kOther});
    write_file(kOther, R"([{"targets": ["10.0.0.9"]}])");
    refresh(list);
    EXPECT_THAT(addresses(list), ElementsAre("10.0.0.5:8001", "norte:8002", "10.0.0.9:8001"));
}

TEST_F(Targets, AreSeenInAFileThatTakesTheOthersPlace) {
    TargetList list({kOne});
    write_file("/tmp/new.json", R"([{"targets": ["10.0.0.9"]}])");
    fs::rename("/tmp/new.json", kOne);
    refresh(list);
    EXPECT_THAT(addresses(list), ElementsAre("10.0.0.9:8001"));
}

TEST_F(Targets, StayWhenTheirFileIsBroken) {
    const struct {
        std::function<void()> breaks;
        const char* error;
    } cases[] = {
        {[] { write_file(kOther, R"([{"targets": ["10.0.0.9"]})"); }, "/tmp/other.json: "},
        {[] { write_file(kOther, ""); }, "/tmp/other.json: "},
        {[] { fs::remove(kOther); }, "/tmp/other.json: No such file or directory"},
        {[] { fs::create_directory(kOther); }, "/tmp/other.json: no regular file"},
        {[] {
             fs::remove(kOther);
             mkfifo(kOther, 0600);
         },
         "/tmp/other.json: no regular file"},
    };
    TargetList list({kOne, kOther});
    for (const auto& [breaks, error] : cases) {
        breaks();
        refresh(list);
        EXPECT_THAT(list.files()[1].error, testing::StartsWith(error));
        EXPECT_THAT(addresses(list), ElementsAre("10.0.0.5:8001", "norte:8002", "10.0.0.6:8001"));
    }
    fs::remove(kOther);
    write_file(kOther, "[]");
    refresh(list);
    EXPECT_EQ(list.files()[1].error, "");
    EXPECT_THAT(addresses(list), ElementsAre("10.0.0.5:8001", "norte:8002"));
}

TEST_F(Targets, AreReadOnceThereAreFilesToOpenAgain) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers look at objects through a pipe";
#endif
    TargetList list({kOther});
    write_file(kOther, R"([{"targets": ["10.0.0.9"]}])");
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool seen = eventually([&] { return list.refresh(); });
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    ASSERT_TRUE(seen);
    EXPECT_EQ(list.files()[0].error, "/tmp/other.json: Too many open files");
    EXPECT_THAT(addresses(list), ElementsAre("10.0.0.6:8001", "10.0.0.5:8001"));
    refresh(list);
    EXPECT_EQ(list.files()[0].error, "");
    EXPECT_THAT(addresses(list), ElementsAre("10.0.0.9:8001"));
}

TEST_F(Targets, AreNotReadAgainWithoutAChange) {
    TargetList list({kOne});
    fs::remove(kOne);
    refresh(list);
    for (int i = 0; i < 3; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        EXPECT_FALSE(list.refresh());
    }
}

}  // namespace

}  // namespace exporter
