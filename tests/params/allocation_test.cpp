// Failing allocations in the accessors: they throw, and nothing is left behind.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "params/EntradaAV.h"
#include "params/EsclavosModulo.h"
#include "params/databases.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/open_board.h"

namespace {

class FailingAllocations : public testing::Test {
  private:
    OpenBoard board_;
};

TEST_F(FailingAllocations, EndARead) {
    EXPECT_GT(with_each_allocation_failing([] { get_EntradaAV(EAV_BITRATE, 1); }), 30);
}

TEST_F(FailingAllocations, EndAWrite) {
    EXPECT_GT(with_each_allocation_failing([] { set_EntradaAV(EAV_BITRATE, 1, 7100); }), 30);
}

// The table being empty, it adds a row.
TEST_F(FailingAllocations, EndTheLookUpOfASlave) {
    EXPECT_GT(with_each_allocation_failing([] {
                  sqlite3_exec(ConfDB, "DELETE FROM EsclavosModulo", nullptr, nullptr, nullptr);
                  get_EsclavosModuloIdByMAC("001a2b3c4d5e");
              }),
              15);
}

}  // namespace
