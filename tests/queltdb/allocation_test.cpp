// Failing allocations: they throw, and nothing is left behind. A program of its own, since it takes
// the place of operator new.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <new>

#include "queltdb/records.h"
#include "tests/queltdb/statements.h"
#include "tests/support/database.h"
#include "tests/support/files.h"

namespace {

long allocations_left = -1;  // before the one that fails; below zero none does
long live_allocations = 0;

void* allocate(std::size_t size) {
    if (allocations_left-- == 0)
        throw std::bad_alloc();
    void* const memory = std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    ++live_allocations;
    return memory;
}

void release(void* memory) {
    live_allocations -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}

namespace {

using queltdb::tAlarmasEstado;
using queltdb::tEsclavosModulo;
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;

// Runs `code` with its first allocation failing, then with its second one and so on, until it gets
// to its end; the number of allocations that it took.
template <typename Code>
long with_each_allocation_failing(Code code) {
    for (long n = 0;; ++n) {
        const long before = live_allocations;
        bool thrown = false;
        allocations_left = n;
        try {
            code();
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
        allocations_left = -1;
        EXPECT_EQ(live_allocations, before) << "left behind when allocation " << n << " failed";
        if (!thrown)
            return n;
    }
}

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
