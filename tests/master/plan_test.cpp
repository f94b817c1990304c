// How a module is brought from one configuration to another.
#include "master/plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/master/module.h"

namespace master {

namespace {

using testing::IsEmpty;

using Lines = std::vector<std::string>;

std::string line_of(const Step& step) {
    std::string line = std::to_string(step.parameter->write->code) + " " + written(step.send) +
                       ": " + written(step.before) + " -> " + written(step.after);
    for (const Change& each : step.besides)
        line += (each.for_a_moment ? "; for a moment " : "; ") + each.parameter->name + " " +
                written(each.before) + " -> " + written(each.after);
    return line;
}

Lines steps_of(const Plan& plan) {
    Lines lines;
    for (const Step& step : plan.steps)
        lines.push_back(line_of(step));
    return lines;
}

Lines left_of(const Plan& plan) {
    Lines lines;
    for (const Left& each : plan.left)
        lines.push_back(each.name + " " + written(each.wanted) + ": " + each.reason);
    return lines;
}

struct Case {
    const char* name;
    SettingList wanted;
    Lines steps = {};
    Lines left = {};
    bool addresses = false;
};

// From the sample board.
const Case kCases[] = {
    {"nothing", {}},
    {"what is so already", {{"EntradaAV.0.Brillo", 51U}, {"Red.TSID_Out", 0U}}},
    {"a number and a text by any case",
     {{"red.networkname", "Otra"}, {"ENTRADAAV.0.BRILLO", 7U}},
     {"2 7: 51 -> 7", "37 'Otra': 'Red Local' -> 'Otra'"}},
    {"the audio bitrate alone keeps the output on",
     {{"EntradaAV.1.Audio_Bitrate", 1U}},
     {"17 1: 4 -> 1; for a moment RFOut.Cofdm_Off 0 -> 1", "18 0: 1 -> 0"}},
    {"the audio bitrate, and the output off",
     {{"RFOut.Cofdm_Off", 1U}, {"EntradaAV.1.Audio_Bitrate", 1U}},
     {"17 1: 4 -> 1; RFOut.Cofdm_Off 0 -> 1"}},
    {"a channel with its frequency",
     {{"RFOut.Canal_Salida", 30U}, {"RFOut.Frecuencia", 546000U}},
     {"19 30: 21 -> 30; RFOut.Frecuencia 474000 -> 546000"}},
    {"a frequency beside the centre of its channel",
     {{"RFOut.Canal_Salida", 30U}, {"RFOut.Frecuencia", 546001U}},
     {"20 546001: 474000 -> 546001; RFOut.Canal_Salida 21 -> 30"}},
    {"another frequency of the same channel",
     {{"RFOut.Canal_Salida", 21U}, {"RFOut.Frecuencia", 474001U}},
     {"20 474001: 474000 -> 474001"}},
    {"a channel alone",
     {{"RFOut.Canal_Salida", 22U}},
     {"19 22: 21 -> 22; RFOut.Frecuencia 474000 -> 482000"}},
    {"a frequency alone",
     {{"RFOut.Frecuencia", 483000U}},
     {"20 483000: 474000 -> 483000; RFOut.Canal_Salida 21 -> 22"}},
    {"a channel beyond the plan, whose frequency is another one's",
     {{"RFOut.Frecuencia", 736500U}, {"RFOut.Canal_Salida", 100U}},
     {"19 100: 21 -> 100; RFOut.Frecuencia 474000 -> 736500"}},
    {"a channel and a frequency of another one",
     {{"RFOut.Canal_Salida", 22U}, {"RFOut.Frecuencia", 546000U}},
     {},
     {"RFOut.Canal_Salida 22: in the plan of 'Spain' no channel goes with this frequency",
      "RFOut.Frecuencia 546000: in the plan of 'Spain' no channel goes with this frequency"}},
    {"a country first, then what it overwrites",
     {{"RFOut.Intervalo_Guarda", 0U},
      {"EntradaAV.1.Bitrate", 6500U},
      {"ConfiguracionGen.Country", "France"}},
     {"71 'France': 'Spain' -> 'France'; for a moment EntradaAV.1.Bitrate 6500 -> 8000; for a "
      "moment RFOut.Intervalo_Guarda 0 -> 2; Red.NIT_Patron 0 -> 1",
      "16 6500: 8000 -> 6500", "24 0: 2 -> 0"}},
    {"a channel by the plan of its country",
     {{"ConfiguracionGen.Country", "Australia"},
      {"RFOut.Canal_Salida", 28U},
      {"RFOut.Frecuencia", 529500U},
      {"EntradaAV.0.Bitrate", 7000U},
      {"Red.NIT_Patron", 1U},
      {"EntradaAV.1.Bitrate", 7000U}},
     {"71 'Australia': 'Spain' -> 'Australia'; EntradaAV.0.Bitrate 8000 -> 7000; "
      "EntradaAV.1.Bitrate 6500 -> 7000; for a moment RFOut.Canal_Salida 21 -> 38; for a moment "
      "RFOut.Frecuencia 474000 -> 599500; RFOut.Ancho_Banda 0 -> 1; RFOut.Intervalo_Guarda 0 -> "
      "1; RFOut.Code_Rate 4 -> 2; Red.NIT_Patron 0 -> 1; Red.LCN_Mode 1 -> 5; "
      "ConfiguracionGen.Subtimezone 0 -> 6",
      "19 28: 38 -> 28; RFOut.Frecuencia 599500 -> 529500"}},
    {"addresses that were not asked for",
     {{"ConfiguracionGen.Ip_Address", "10.0.0.2"},
      {"ConfiguracionGen.Ip_Dhcp", 0U},
      {"ConfiguracionGen.Ip_Mask", "255.0.0.0"},
      {"IPOut.SAP_Ip", "224.2.127.1"}},
     {"61 '224.2.127.1': '224.2.127.254' -> '224.2.127.1'"},
     {"ConfiguracionGen.Ip_Mask '255.0.0.0': addresses stay as they are",
      "ConfiguracionGen.Ip_Address '10.0.0.2': addresses stay as they are"}},
    {"addresses last, and the address behind all",
     {{"ConfiguracionGen.Ip_Address", "10.0.0.2"},
      {"ConfiguracionGen.Ip_Dhcp", 1U},
      {"ConfiguracionGen.Ip_Gateway", "10.0.0.1"},
      {"ConfiguracionGen.Ip_Mask", "255.0.0.0"},
      {"EntradaAV.1.Low_Latency", 0U}},
     {"79 0: 1 -> 0", "67 1: 0 -> 1", "69 '255.0.0.0': '255.255.255.0' -> '255.0.0.0'",
      "70 '10.0.0.1': '192.168.1.1' -> '10.0.0.1'", "68 '10.0.0.2': '192.168.1.50' -> '10.0.0.2'"},
     {},
     true},
    {"a per cent sign in place of a blank",
     {{"Red.NetworkName", "Al 100%"}, {"Red.Proveedor", "100% mio"}},
     {"37 'Al%100%': 'Red Local' -> 'Al 100%'"},
     {"Red.Proveedor '100% mio': the first per cent sign of a text is stored as a blank"}},
    {"what cannot be stored, read or sent",
     {{"Red.ONID_Out", 5U},
      {"ConfiguracionGen.Lcd_Bloqueo", 0U},
      {"Narnia", 1U},
      {"EntradaAV.0.Brillo", 256U},
      {"EntradaAV.0.Contraste", "51"},
      {"Red.NetworkName", "quince bytes .."},
      {"ConfiguracionGen.Modo_Entrada", 3U},
      {"PIDsSalida.0.1.Seleccionado", 2U}},
     {},
     {"ConfiguracionGen.Lcd_Bloqueo 0: no answer of the module holds it",
      "Narnia 1: the module has no such parameter", "EntradaAV.0.Brillo 256: it takes 0 to 255",
      "EntradaAV.0.Contraste '51': it takes 0 to 255",
      "Red.NetworkName 'quince bytes ..': it takes a text of at most 14 bytes",
      "ConfiguracionGen.Modo_Entrada 3: it would read back as 10",
      "PIDsSalida.0.1.Seleccionado 2: it would read back as 0",
      "Red.ONID_Out 5: the module takes it and never stores it"}},
};

TEST(PlanFromTheSampleBoard, HasItsStepsInTheirOrder) {
    const Configuration now = Module().read();
    for (const Case& each : kCases) {
        SCOPED_TRACE(each.name);
        const Plan plan = plan_to_restore(now, each.wanted, {.addresses = each.addresses});
        EXPECT_EQ(steps_of(plan), each.steps);
        EXPECT_EQ(left_of(plan), each.left);
    }
}

void carry_out(const Module& module, const Plan& plan) {
    for (const Step& step : plan.steps)
        module.write(*step.parameter, step.send);
}

// The module has it then, and nothing is left to do.
void expect_restored(const Module& module, const Configuration& wanted) {
    const Configuration now = module.read();
    ASSERT_THAT(changes(wanted, now), IsEmpty());
    EXPECT_THAT(plan_to_restore(now, wanted.settings(), {.addresses = true}).steps, IsEmpty());
}

// All that the module has, by chance; the channel last, so that the country knows it.
Configuration some_configuration(const Module& module, Chance& chance) {
    for (const Parameter& parameter : parameters())
        module.write(parameter, chance.value_for(parameter));
    const Parameter& tuned =
        *find_parameter(chance.below(2) == 0 ? "RFOut.Canal_Salida" : "RFOut.Frecuencia");
    module.write(tuned, chance.value_for(tuned));
    return module.read();
}

constexpr const char* kCountries[] = {"Australia", "France",   "Great Britain",
                                      "Italy",     "Portugal", "Spain"};

TEST(PlanOfARestore, BringsAModuleToTheDefaultsOfEachCountryAndBack) {
    const Module module;
    Chance chance;
    for (int i = 0; i < 4; ++i) {
        const Configuration one = some_configuration(module, chance);
        for (const char* const country : kCountries) {
            SCOPED_TRACE(std::to_string(i) + country);
            Configuration other = one;
            other.apply(*find_parameter("ConfiguracionGen.Country"), "Narnia");
            other.apply(*find_parameter("ConfiguracionGen.Country"), country);
            for (const Configuration& wanted : {other, one}) {
                const Plan plan =
                    plan_to_restore(module.read(), wanted.settings(), {.addresses = true});
                EXPECT_THAT(left_of(plan), IsEmpty());
                EXPECT_THAT(changes(wanted, plan.end), IsEmpty());
                carry_out(module, plan);
                ASSERT_NO_FATAL_FAILURE(expect_restored(module, wanted));
            }
        }
    }
}

TEST(PlanOfARestore, GoesOnFromWhereverItWasBrokenOff) {
    const Module module;
    Chance chance;
    const Configuration one = some_configuration(module, chance);
    const Configuration other = some_configuration(module, chance);
    const Configuration third = some_configuration(module, chance);
    for (const Configuration& wanted : {one, other, third}) {
        Lines rest =
            steps_of(plan_to_restore(module.read(), wanted.settings(), {.addresses = true}));
        EXPECT_GT(rest.size(), 50U);
        while (!rest.empty()) {
            const Plan plan =
                plan_to_restore(module.read(), wanted.settings(), {.addresses = true});
            ASSERT_EQ(steps_of(plan), rest);
            module.write(*plan.steps[0].parameter, plan.steps[0].send);
            rest.erase(rest.begin());
        }
        ASSERT_NO_FATAL_FAILURE(expect_restored(module, wanted));
    }
}

}  // namespace

}  // namespace master
