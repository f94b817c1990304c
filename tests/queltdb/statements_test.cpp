// Select, update and insert on real databases: statement texts, attempts, messages, results.
#include "queltdb/statements.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "queltdb/records.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/pauses.h"

namespace {

using queltdb::tAlarmasEstado;
using testing::ElementsAre;

// The board, and a connection for the code under test.
class Statements : public testing::Test {
  protected:
    Statements() { make_board(); }

    static auto select(const Database& database, const char* clause) {
        return std::unique_ptr<std::vector<tAlarmasEstado*>,
                               decltype(&tAlarmasEstado::eliminaListaResultados)>(
            tAlarmasEstado::doSelect(database.handle(), clause),
            tAlarmasEstado::eliminaListaResultados);
    }
};

TEST_F(Statements, ALockedTableIsTriedThreeTimes) {
    const Database database(kTempDb);
    const ForeignLock lock(kTempDb);
    const Printed printed =
        printed_by([&] { EXPECT_TRUE(select(database, "WHERE nombre='alarma_in'")->empty()); });
    EXPECT_EQ(printed.out, "");
    std::string expected;
    for (const char* const n : {"0", "1", "2"}) {
        expected +=
            std::string("[ERROR_DB]doSelect: Error leyendo datos tabla alarmasEstado . intento: ") +
            n +
            "\n[ERROR_DB]doSelect: database is locked\n"
            "database is locked: Resource temporarily unavailable\n";
    }
    EXPECT_EQ(printed.err, expected);
    EXPECT_THAT(take_pauses(), ElementsAre(1, 2, 3));
}

}  // namespace
