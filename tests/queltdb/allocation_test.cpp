// Failing allocations: they throw, and nothing is left behind.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <new>

#include "queltdb/records.h"
#include "tests/queltdb/statements.h"
#include "tests/support/database.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

namespace {

using queltdb::tAlarmasEstado;
using queltdb::tEsclavosModulo;
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;

class FailingAllocations : public Statements {};

TEST_F(FailingAllocations, EndTheMakingOfARecord) {
    EXPECT_EQ(with_each_allocation_failing(
                  [] { const tAlarmasEstado record("1", "nombre", "valor", nullptr, "0"); }),
              9);  // five values, four texts
}

TEST_F(FailingAllocations, LeaveASetterUndone) {
    EXPECT_GT(with_each_allocation_failing([] {
                  tAlarmasEstado record("1", "nombre", "before", "0", "0");
                  try {
                      record.setvalor(tSqlite3parent("after"));
                  } catch (const std::bad_alloc&) {
                      EXPECT_FALSE(record.valor_modificado);
                      throw;
                  }
                  EXPECT_TRUE(record.valor_modificado);
              }),
              10);
}

TEST_F(FailingAllocations, EndASelect) {
    const Database database(kTempDb);
    EXPECT_GT(with_each_allocation_failing(
                  [&] { select<tAlarmasEstado>(database.handle(), "WHERE idalarmasEstado<'4'"); }),
              3 * 10);
}

TEST_F(FailingAllocations, EndAnUpdateWithItsFlagsUp) {
    const Database database(kTempDb);
    EXPECT_GT(with_each_allocation_failing([&] {
                  tAlarmasEstado record("2", "nombre", "before", "0", "0");
                  record.setvalor(tSqlite3parent("a value that takes some room"));
                  try {
                      record.update(database.handle());
                  } catch (const std::bad_alloc&) {
                      EXPECT_TRUE(record.valor_modificado);
                      throw;
                  }
              }),
              12);
}

TEST_F(FailingAllocations, EndAnInsert) {
    const Database database(kConfDb);
    EXPECT_GT(with_each_allocation_failing([&] {
                  // With a value for the key, to be replaced.
                  auto record = std::make_from_tuple<tEsclavosModulo>(
                      tEsclavosModulo::Texts{nullptr, "00:1a:2b:3c:4d:5e"});
                  record.setEstado(tSqlite3int(1));
                  record.insert(database.handle());
              }),
              15);
}

}  // namespace
