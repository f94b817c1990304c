// Select and update on every table of the sample board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstddef>
#include <string>
#include <utility>

#include "queltdb/records.h"
#include "tests/queltdb/fields.h"
#include "tests/queltdb/statements.h"
#include "tests/support/capture.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/pauses.h"

namespace {

using queltdb::tSqlite3parent;
using testing::ElementsAre;
using testing::IsEmpty;

template <typename Record>
class TableStatements : public testing::Test {
  protected:
    TableStatements() {
        make_board();
        Database(kConfDb).run(
            "INSERT INTO EsclavosModulo VALUES"
            " (4, '00:11', 'host', 'serial', 'model', '10.0.0.1', '1.2', 1, 2, 3, 4),"
            " (9, '00:22', NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
    }

    static std::string table() { return Record::kTable.name; }
    static std::string key() { return Record::kTable.columns[0].name; }
    static std::string path() {
        return table() == "alarmasEstado" || table() == "Bitrate_Nulos" ? kTempDb : kConfDb;
    }

  private:
    NoLeakInSqlite no_leak_;
};
TYPED_TEST_SUITE(TableStatements, AllRecords, ClassName);

TYPED_TEST(TableStatements, SelectsReadEveryColumnOfEveryRow) {
    const Database database(this->path());
    Trace trace(database);
    const auto list = select<TypeParam>(database.handle(), nullptr);
    EXPECT_THAT(trace.take(), ElementsAre("SELECT * FROM " + this->table() + " "));
    EXPECT_FALSE(list->empty());
    EXPECT_EQ(texts_of(*list), database.rows("SELECT * FROM " + this->table()));
    for (const TypeParam* const record : *list)
        EXPECT_THAT(modified(*record), IsEmpty());
}

TYPED_TEST(TableStatements, SettersAndAnUpdateWriteTheirColumnAndNoOther) {
    const Database database(this->path());
    const std::string all_rows = "SELECT * FROM " + this->table();
    for (std::size_t k = 0; k < kFields<TypeParam>.size(); ++k) {
        const Field<TypeParam>& field = kFields<TypeParam>.at(k);
        if (field.set == nullptr)
            continue;
        SCOPED_TRACE(field.name);
        if constexpr (kUpdates<TypeParam>) {
            Rows expected = database.rows(all_rows);
            expected.front().at(k) = "777";
            const auto list = select<TypeParam>(database.handle(), nullptr);
            TypeParam& record = *list->front();
            field.set(record, "777");
            Trace trace(database);
            EXPECT_EQ(record.update(database.handle()), 1);
            EXPECT_THAT(trace.take(), ElementsAre("UPDATE " + this->table() + " SET  " +
                                                  field.name + " = '777'  WHERE " + this->key() +
                                                  " = '" + expected.front().front() + "'"));
            EXPECT_EQ(database.rows(all_rows), expected);
            EXPECT_THAT(modified(record), IsEmpty());
        } else {
            ADD_FAILURE() << "a setter, but no update";
        }
    }
}

// Those without setter, too: their flags are raised by hand.
TYPED_TEST(TableStatements, UpdatesWriteAllColumnsInOneStatement) {
    if constexpr (kUpdates<TypeParam>) {
        const Database database(this->path());
        const std::string key =
            database.value("SELECT min(" + this->key() + ") FROM " + this->table());
        const auto list = select<TypeParam>(database.handle(), nullptr);
        TypeParam& record = *list->front();
        Row expected;
        std::string items;
        for (const Field<TypeParam>& field : kFields<TypeParam>) {
            const bool is_key = expected.empty();
            const std::string text = is_key ? key : std::to_string(500 + expected.size());
            delete std::exchange(record.*field.value, new tSqlite3parent(text.c_str()));
            record.*field.modified = true;
            items += std::string(is_key ? " " : ", ") + field.name + " = '" + text + "' ";
            expected.push_back(text);
        }
        Trace trace(database);
        EXPECT_EQ(record.update(database.handle()), 1);
        EXPECT_THAT(trace.take(), ElementsAre("UPDATE " + this->table() + " SET " + items +
                                              " WHERE " + this->key() + " = '" + key + "'"));
        EXPECT_EQ(database.rows("SELECT * FROM " + this->table()).front(), expected);
        EXPECT_THAT(modified(record), IsEmpty());
    }
}

}  // namespace
