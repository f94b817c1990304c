// The settings of the input channels.
#include "params/EntradaAV.h"

#include <gtest/gtest.h>

#include "tests/support/database.h"
#include "tests/support/open_board.h"

namespace {

TEST(EntradaAV, SeesWhatAnotherProcessWroteAtOnce) {
    const OpenBoard board;
    EXPECT_EQ(get_EntradaAV(EAV_BITRATE, 1), 6500);
    run_elsewhere(kConfDb, "UPDATE EntradaAV SET Bitrate = 7100 WHERE IdEntradaAV = 1");
    EXPECT_EQ(get_EntradaAV(EAV_BITRATE, 1), 7100);
}

}  // namespace
