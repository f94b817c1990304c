// Which parameters and words are found by what somebody typed.
#include "master/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace master {

namespace {

using Names = std::vector<std::string>;

Names names_of(const std::vector<const Parameter*>& parameters) {
    Names names;
    for (const Parameter* parameter : parameters)
        names.push_back(parameter->name);
    return names;
}

const Names kBitrates = {"EntradaAV.0.Bitrate", "EntradaAV.1.Bitrate"};
const Names kTunes = {"RFOut.Canal_Salida", "RFOut.Frecuencia"};

struct Asked {
    const char* pattern;
    Names found;
    Names matching;
};

const Asked kAsked[] = {
    {"EntradaAV.0.Bitrate", {"EntradaAV.0.Bitrate"}, {"EntradaAV.0.Bitrate"}},
    {"entradaav.0.BITRATE", {"EntradaAV.0.Bitrate"}, {"EntradaAV.0.Bitrate"}},
    {"EntradaAV.*.Bitrate", kBitrates, kBitrates},
    {"e*itrate",
     {"EntradaAV.0.Bitrate", "EntradaAV.0.Audio_Bitrate", "EntradaAV.1.Bitrate",
      "EntradaAV.1.Audio_Bitrate"},
     {"EntradaAV.0.Bitrate", "EntradaAV.0.Audio_Bitrate", "EntradaAV.1.Bitrate",
      "EntradaAV.1.Audio_Bitrate"}},
    {"*_salida", {"RFOut.Canal_Salida"}, {"RFOut.Canal_Salida"}},
    {"RFOut.Fre**", {"RFOut.Frecuencia"}, {"RFOut.Frecuencia"}},
    {"*.0.*.Sel*",
     {"PIDsSalida.0.1.Seleccionado", "PIDsSalida.0.2.Seleccionado"},
     {"PIDsSalida.0.1.Seleccionado", "PIDsSalida.0.2.Seleccionado"}},
    {"*aaa*", {}, {}},
    {"PIDsSalida.1", {"PIDsSalida.1.1.Seleccionado", "PIDsSalida.1.2.Seleccionado"}, {}},
    {"pidssalida",
     {"PIDsSalida.0.1.Seleccionado", "PIDsSalida.0.2.Seleccionado", "PIDsSalida.1.1.Seleccionado",
      "PIDsSalida.1.2.Seleccionado"},
     {}},
    {"Bitrate",
     {"EntradaAV.0.Bitrate", "EntradaAV.0.Audio_Bitrate", "EntradaAV.1.Bitrate",
      "EntradaAV.1.Audio_Bitrate"},
     {}},
    {"1.Bitrate", {"EntradaAV.1.Bitrate"}, {}},
    {"off", {"RFOut.Cofdm_Off", "IPOut.Ip_Off"}, {}},
    {"2.seleccionado", {"PIDsSalida.0.2.Seleccionado", "PIDsSalida.1.2.Seleccionado"}, {}},
    {"itrate", {}, {}},
    {"EntradaA", {}, {}},
    {"EntradaAV.", {}, {}},
    {"EntradaAV.2", {}, {}},
    {"?FOut.Frecuencia", {}, {}},
    {"", {}, {}},
};

TEST(Pattern, FindsWhatFitsItByNameStartOrEnd) {
    for (const Asked& asked : kAsked) {
        EXPECT_EQ(names_of(find_parameters(asked.pattern)), asked.found) << asked.pattern;
        EXPECT_EQ(names_of(matching(asked.pattern)), asked.matching) << asked.pattern;
    }
}

TEST(Pattern, OfAStarIsEveryParameter) {
    EXPECT_EQ(find_parameters("*").size(), parameters().size());
    EXPECT_EQ(matching("***").size(), parameters().size());
}

TEST(Pattern, OfManyStarsIsJudgedAtOnce) {
    std::string pattern;
    for (int i = 0; i < 1000; ++i)
        pattern += "*a";
    EXPECT_THAT(matching(pattern), testing::IsEmpty());
}

TEST(MistypedParameter, IsNearTheNamesThatItMayBeMeantFor) {
    const struct {
        const char* name;
        Names near;
    } kCases[] = {
        {"RFOut.Canal_salid", {"RFOut.Canal_Salida"}},
        {"ConfiguracionGen.brillo", {"EntradaAV.0.Brillo", "EntradaAV.1.Brillo"}},
        {"EntradaAV.2.Bitrate", kBitrates},
        {"EntradaAV.1.Birtate", {"EntradaAV.1.Bitrate", "EntradaAV.0.Bitrate"}},
        {"RFOut.Frequency", {"RFOut.Frecuencia"}},
        {"brilo", {"EntradaAV.0.Brillo", "EntradaAV.1.Brillo"}},
        {"Red.NIT", {"Red.NID"}},
        {"Selecionado",
         {"PIDsSalida.0.1.Seleccionado", "PIDsSalida.0.2.Seleccionado",
          "PIDsSalida.1.1.Seleccionado", "PIDsSalida.1.2.Seleccionado"}},
        {"Narnia.Wardrobe", {}},
        {"x", {}},
        {"", {}},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(nearest_parameters(each.name), each.near) << each.name;
}

TEST(MistypedWord, IsNearThoseWithFewOtherLettersTheNearestFirst) {
    const Names words = {"status", "set", "get", "list", "watch", "Dump", "diff", "db"};
    const struct {
        const char* word;
        Names near;
    } kCases[] = {
        {"statsu", {"status"}},
        {"STATUS", {"status"}},
        {"stats", {"status"}},
        {"sett", {"set"}},
        {"det", {"set", "get"}},
        {"dmup", {"Dump"}},
        {"lisst", {"list"}},
        {"bd", {"db"}},
        {"a", {}},
        {"", {}},
        {"help", {}},
        {"statusstatus", {}},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(nearest(each.word, words), each.near) << each.word;
}

TEST(MistypedWord, IsOfferedFourAtMost) {
    const Names words = {"abcd5", "abcd1", "abcd2", "abcd3", "abcd"};
    EXPECT_EQ(nearest("abcd", words), (Names{"abcd", "abcd5", "abcd1", "abcd2"}));
}

}  // namespace

}  // namespace master
