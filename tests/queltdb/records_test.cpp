// What all record classes share: shape, construction, setters, the end of records and lists.
#include "queltdb/records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tests/queltdb/fields.h"

namespace {

using queltdb::tAlarmasEstado;
using queltdb::tSqlite3int;
using queltdb::tSqlite3parent;
using testing::ElementsAre;

template <typename Record>
const tSqlite3parent& value_of(const Record& record, const Field<Record>& field) {
    return *(record.*field.value);
}

template <typename Record>
const std::type_info& kind_of(const Field<Record>& field) {
    return field.integer ? typeid(tSqlite3int) : typeid(tSqlite3parent);
}

template <typename Record>
class Records : public testing::Test {};
TYPED_TEST_SUITE(Records, AllRecords, ClassName);

TYPED_TEST(Records, HoldTheirValuesInOrderThenTheirFlags) {
    static_assert(!std::is_polymorphic_v<TypeParam>);
    static_assert(std::is_standard_layout_v<TypeParam>, "nor a base class with values");
    // Two would free the same values.
    static_assert(!std::is_copy_constructible_v<TypeParam>);
    static_assert(!std::is_copy_assignable_v<TypeParam>);
    const TypeParam record;
    const auto place_of = [&](const auto& member) {
        return reinterpret_cast<const std::byte*>(&member) -
               reinterpret_cast<const std::byte*>(&record);
    };
    const auto count = std::ssize(kFields<TypeParam>);
    std::ptrdiff_t k = 0;
    for (const Field<TypeParam>& field : kFields<TypeParam>) {
        SCOPED_TRACE(field.name);
        EXPECT_EQ(place_of(record.*field.value), k * std::ptrdiff_t{sizeof(void*)});
        EXPECT_EQ(place_of(record.*field.modified), count * std::ptrdiff_t{sizeof(void*)} + k);
        ++k;
    }
    static_assert(sizeof(bool) == 1);
}

TYPED_TEST(Records, CopyATextForEachColumn) {
    std::vector<std::string> given;
    for (const Field<TypeParam>& field : kFields<TypeParam>)
        given.push_back(std::string("text of ") + field.name);
    typename TypeParam::Texts texts{};
    for (std::size_t k = 0; k < texts.size(); ++k)
        texts.at(k) = given.at(k).c_str();
    const auto record = std::make_from_tuple<TypeParam>(texts);
    for (std::string& text : given)
        text.assign(text.size(), 'x');
    for (const Field<TypeParam>& field : kFields<TypeParam>) {
        SCOPED_TRACE(field.name);
        EXPECT_EQ(value_of(record, field).getString(), std::string("text of ") + field.name);
        EXPECT_EQ(typeid(value_of(record, field)), kind_of(field));
    }
    EXPECT_THAT(modified(record), ElementsAre());
}

// One text for each column, no fewer and no more.
template <typename Record, std::size_t... K>
constexpr bool made_from(std::index_sequence<K...> /*columns*/) {
    return std::is_constructible_v<Record, decltype(K, static_cast<const char*>(nullptr))...>;
}

TYPED_TEST(Records, AreMadeFromATextForEachColumn) {
    constexpr std::size_t columns = TypeParam::kColumns.size();
    static_assert(made_from<TypeParam>(std::make_index_sequence<columns>()));
    static_assert(!made_from<TypeParam>(std::make_index_sequence<columns - 1>()));
    static_assert(!made_from<TypeParam>(std::make_index_sequence<columns + 1>()));
}

TEST(Records, AreMadeFromTextsAndNulls) {
    const tAlarmasEstado record("1", "n", nullptr, "0", NULL);
    EXPECT_EQ(record.idalarmasEstado->getString(), "1");
    EXPECT_EQ(record.nombre->getString(), "n");
    EXPECT_EQ(record.valor->texto(), nullptr);
    EXPECT_EQ(record.EstadoPendienteWR->getString(), "0");
    EXPECT_EQ(record.EstadoPendienteRE->texto(), nullptr);
}

TYPED_TEST(Records, HoldANullForEachSqlNull) {
    const auto record = std::make_from_tuple<TypeParam>(typename TypeParam::Texts{});
    for (const Field<TypeParam>& field : kFields<TypeParam>) {
        SCOPED_TRACE(field.name);
        EXPECT_EQ(value_of(record, field).texto(), nullptr);
        EXPECT_EQ(typeid(value_of(record, field)), kind_of(field));
    }
    EXPECT_THAT(modified(record), ElementsAre());
}

TYPED_TEST(Records, AreEmptyByDefault) {
    // Where something else was before.
    alignas(TypeParam) std::array<std::byte, sizeof(TypeParam)> room{};
    room.fill(std::byte{0xFF});
    auto* const record = new (room.data()) TypeParam();
    for (const Field<TypeParam>& field : kFields<TypeParam>)
        EXPECT_EQ(record->*field.value, nullptr) << field.name;
    EXPECT_THAT(modified(*record), ElementsAre());
    record->~TypeParam();
}

// A text held by a column of a record, the text given to its setter, and whether that counts as a
// change.
struct Setting {
    enum Held { none, null, text };
    Held held;
    const char* held_text;
    const char* given;
    bool changes;
};

std::string name_of(const Setting& setting) {
    const std::array<std::string, 3> held{"no value", "a null", "'"};
    return held.at(setting.held) + (setting.held == Setting::text ? setting.held_text : "") +
           " given " + (setting.given == nullptr ? "null" : setting.given);
}

// clang-format off
constexpr Setting kSettings[] = {
    {Setting::text, "5", "5", false},
    {Setting::text, "5", "6", true},
    {Setting::text, "05", "5", true},  // compared as texts, not as numbers
    {Setting::text, "5", " 5", true},
    {Setting::text, "text", "texT", true},
    {Setting::text, "text", "tex", true},
    {Setting::text, "text", "texts", true},
    {Setting::text, "text", "", true},
    {Setting::text, "text", nullptr, true},
    {Setting::text, "", "text", true},
    {Setting::text, "", "", false},
    {Setting::text, "", nullptr, false},  // the text of a null is empty
    {Setting::null, nullptr, "5", true},
    {Setting::null, nullptr, "", true},
    {Setting::null, nullptr, nullptr, true},
    {Setting::none, nullptr, "5", true},
    {Setting::none, nullptr, "", true},
    {Setting::none, nullptr, nullptr, true},
};
// clang-format on

template <typename Record>
Record record_for(const Setting& setting) {
    typename Record::Texts texts{};
    texts.fill(setting.held_text);
    if (setting.held == Setting::none)
        return Record();
    return std::make_from_tuple<Record>(texts);
}

TYPED_TEST(Records, SetWhatDiffersAndNothingElse) {
    for (const Setting& setting : kSettings) {
        SCOPED_TRACE(name_of(setting));
        for (const Field<TypeParam>& field : kFields<TypeParam>) {
            if (field.set == nullptr)
                continue;
            SCOPED_TRACE(field.name);
            auto record = record_for<TypeParam>(setting);
            std::vector<const tSqlite3parent*> others;
            for (const Field<TypeParam>& other : kFields<TypeParam>)
                others.push_back(record.*other.value);
            const char* const text =
                setting.held == Setting::text ? value_of(record, field).texto() : nullptr;

            field.set(record, setting.given);

            if (setting.changes) {
                EXPECT_STREQ(value_of(record, field).texto(), setting.given);
                EXPECT_EQ(typeid(value_of(record, field)), kind_of(field));
                EXPECT_THAT(modified(record), ElementsAre(field.name));
            } else {
                EXPECT_EQ(value_of(record, field).texto(), text);
                EXPECT_THAT(modified(record), ElementsAre());
            }
            for (std::size_t k = 0; k < others.size(); ++k) {
                const Field<TypeParam>& other = kFields<TypeParam>.at(k);
                if (other.name != field.name || !setting.changes) {
                    EXPECT_EQ(record.*other.value, others.at(k)) << other.name;
                }
            }
        }
    }
}

TYPED_TEST(Records, KeepAFlagThatWasRaised) {
    const Setting setting{Setting::text, "before", nullptr, false};
    for (const Field<TypeParam>& field : kFields<TypeParam>) {
        if (field.set == nullptr)
            continue;
        SCOPED_TRACE(field.name);
        auto record = record_for<TypeParam>(setting);
        field.set(record, "after");
        field.set(record, "after");
        field.set(record, "before");
        EXPECT_EQ(value_of(record, field).getString(), "before");
        EXPECT_THAT(modified(record), ElementsAre(field.name));
    }
}

// Tells of its end, and goes by another text than the one it holds.
class Spy : public tSqlite3parent {
  public:
    Spy(std::vector<std::string>& ended, std::string name)
        : tSqlite3parent("held"), ended_(ended), name_(std::move(name)) {}
    ~Spy() override { ended_.push_back(name_); }
    Spy(const Spy&) = delete;
    Spy& operator=(const Spy&) = delete;
    [[nodiscard]] std::string getString() const override { return name_; }

  private:
    std::vector<std::string>& ended_;
    std::string name_;
};

TYPED_TEST(Records, EndWithTheirValuesInOrder) {
    std::vector<std::string> ended;
    std::vector<std::string> names;
    {
        TypeParam record;
        for (const Field<TypeParam>& field : kFields<TypeParam>) {
            names.emplace_back(field.name);
            record.*field.value = new Spy(ended, field.name);
        }
    }
    EXPECT_EQ(ended, names);
}

TYPED_TEST(Records, EndIncomplete) {
    std::vector<std::string> ended;
    {
        TypeParam record;
        record.*kFields<TypeParam>.back().value = new Spy(ended, "last");
    }
    EXPECT_THAT(ended, ElementsAre("last"));
}

TEST(Setters, CompareByWhatAValueGoesBy) {
    std::vector<std::string> ended;
    tAlarmasEstado record;
    record.valor = new Spy(ended, "name");
    record.setvalor(tSqlite3parent("name"));
    EXPECT_THAT(ended, ElementsAre());
    EXPECT_FALSE(record.valor_modificado);
    record.setvalor(tSqlite3parent("held"));
    EXPECT_THAT(ended, ElementsAre("name"));
    EXPECT_TRUE(record.valor_modificado);
    EXPECT_STREQ(record.valor->texto(), "held");
}

TEST(Setters, TakeNumbers) {
    tAlarmasEstado record("1", "alarma_in", "0", "0", "2");
    record.setEstadoPendienteRE(tSqlite3int(2));
    EXPECT_FALSE(record.EstadoPendienteRE_modificado);
    record.setEstadoPendienteRE(tSqlite3int(-5));
    EXPECT_TRUE(record.EstadoPendienteRE_modificado);
    EXPECT_STREQ(record.EstadoPendienteRE->texto(), "-5");
}

TEST(Setters, LeaveWhatTheyAreGivenToTheCaller) {
    tAlarmasEstado record;
    const tSqlite3parent value("5");
    record.setvalor(value);
    EXPECT_STREQ(value.texto(), "5");
    EXPECT_NE(record.valor->texto(), value.texto());
}

TYPED_TEST(Records, AreFreedWithTheirList) {
    TypeParam::eliminaListaResultados(nullptr);
    TypeParam::eliminaListaResultados(new std::vector<TypeParam*>);

    std::vector<std::string> ended;
    auto* const list = new std::vector<TypeParam*>;
    for (const char* const name : {"first", "second", "fourth"}) {
        list->push_back(new TypeParam);
        list->back()->*kFields<TypeParam>.front().value = new Spy(ended, name);
    }
    list->insert(list->begin() + 2, nullptr);
    TypeParam::eliminaListaResultados(list);
    EXPECT_THAT(ended, ElementsAre("first", "second", "fourth"));
}

}  // namespace
