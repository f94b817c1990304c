// What writes make of a configuration: as the module says it, for any that it may be sent.
#include "master/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/master/module.h"

namespace master {

namespace {

using testing::IsEmpty;

const Parameter& named(const char* name) {
    return *find_parameter(name);
}

const Parameter& kCountry = named("ConfiguracionGen.Country");

// The model and the module after the same writes.
class WritesOfAConfiguration : public testing::Test {
  protected:
    void write(const Parameter& parameter, const Value& value) {
        model_.apply(parameter, value);
        module_.write(parameter, value);
        writes_ += parameter.name + " " + written(value) + "; ";
    }

    // After the writes since the last time.
    void expect_alike() {
        ASSERT_THAT(changes(model_, module_.read()), IsEmpty()) << writes_;
        writes_.clear();
    }

    Module module_;
    Configuration model_ = module_.read();

  private:
    std::string writes_;
};

TEST_F(WritesOfAConfiguration, MakeOfItWhatTheModuleMakesOfIt) {
    Chance chance;
    for (int i = 0; i < 250; ++i) {
        for (const Parameter& parameter : {std::cref(chance.of(parameters())),
                                           std::cref(chance.of(parameters())), std::cref(kCountry)})
            write(parameter, chance.value_for(parameter));
        ASSERT_NO_FATAL_FAILURE(expect_alike());
    }
}

TEST_F(WritesOfAConfiguration, OfEachCountryAreAlikeFromEachOtherInEachModeOfTheInputs) {
    const char* const kCountries[] = {"Australia", "Great Britain", "Italy",     "Spain",
                                      "Narnia",    "Spain x",       "Australi%", "% Italy"};
    for (const std::uint32_t mode : {0, 2, 3, 5, 11}) {
        write(named("ConfiguracionGen.Modo_Entrada"), mode);
        for (const char* const from : kCountries) {
            for (const char* const to : kCountries) {
                write(kCountry, from);
                write(named("EntradaAV.1.Bitrate"), 1U);
                write(named("RFOut.Frecuencia"), 600000U);
                write(kCountry, to);
                ASSERT_NO_FATAL_FAILURE(expect_alike());
            }
        }
    }
}

TEST_F(WritesOfAConfiguration, ReadBackAsWantedWhereAnythingDoes) {
    Chance chance;
    for (const Parameter& parameter : parameters()) {
        for (int i = 0; i < 5 && parameter.block != 0; ++i) {
            const Value shown = read_back_of(parameter, chance.value_for(parameter));
            const auto sent = value_to_send(parameter, shown);
            ASSERT_TRUE(sent) << parameter.name << written(shown);
            module_.write(parameter, *sent);
            EXPECT_EQ(module_.read().at(parameter), shown) << parameter.name;
        }
    }
}

TEST(ConfigurationOfABoard, HasWhatItsBlocksShow) {
    const Configuration configuration = Module().read();
    EXPECT_EQ(configuration.country(), "Spain");
    EXPECT_EQ(configuration.at(named("EntradaAV.1.Bitrate")), Value(6500U));
    EXPECT_EQ(configuration.at(named("RFOut.Frecuencia")), Value(474000U));
    EXPECT_EQ(configuration.at(named("ServiciosSalida.1.Nombre_SAP")), Value("SAP Dos"));
    const SettingList settings = configuration.settings();
    EXPECT_EQ(settings.size(), 71U);
    EXPECT_EQ(settings.front().name, "ConfiguracionGen.Modo_Entrada");
    EXPECT_EQ(settings.back().name, "EntradaAV.1.Low_Latency");
}

TEST(Differences, AreWhatTwoListsDoNotHaveAlike) {
    const SettingList one = {{"a", 1U}, {"b", "x"}, {"c", 3U}, {"d", 4U}, {"d", 5U}};
    const SettingList other = {{"d", 5U}, {"e", ""}, {"b", "y"}, {"a", 1U}};
    const auto found = differences(one, other);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0].name, "b");
    EXPECT_EQ(found[0].one, Value("x"));
    EXPECT_EQ(found[0].other, Value("y"));
    EXPECT_EQ(found[1].name, "c");
    EXPECT_EQ(found[1].one, Value(3U));
    EXPECT_EQ(found[1].other, std::nullopt);
    EXPECT_EQ(found[2].name, "e");
    EXPECT_EQ(found[2].one, std::nullopt);
    EXPECT_EQ(found[2].other, Value(""));
    EXPECT_THAT(differences(one, one), IsEmpty());
}

}  // namespace

}  // namespace master
