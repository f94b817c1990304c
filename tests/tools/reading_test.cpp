// The commands that only read, against the real daemon on the sample board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/running_daemon.h"
#include "tests/tools/zondarctl.h"

namespace {

class Reading : public testing::Test {
  protected:
    RunningDaemon daemon_;
};

TEST_F(Reading, IdentifiesTheModule) {
    const ProgramRun run = zondarctl({"identify"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "model        ZND\n"
              "software     2.4\n"
              "name         ZND2AV-T\n"
              "boot_loader  1.3\n"
              "hardware     3.1\n"
              "serial       ZN2024000123\n"
              "mac          001a2b3c4d5e\n");
}

}  // namespace
