// What parameters take, and what is said of values that are not meant.
#include "master/ranges.h"

#include <gtest/gtest.h>

#include <map>

namespace master {

namespace {

const Parameter& named(const char* name) {
    const Parameter* const found = find_parameter(name);
    if (found == nullptr)
        throw std::invalid_argument(name);
    return *found;
}

TEST(Range, IsThatOfKindWidthAndUnit) {
    const std::map<const char*, const char*> kCases = {
        {"EntradaAV.0.Brillo", "0 to 255"},
        {"EntradaAV.0.Bitrate", "0 to 65535 kbit/s"},
        {"RFOut.Canal_Salida", "0 to 255"},
        {"RFOut.Frecuencia", "0 to 16777215 kHz"},
        {"RFOut.Cofdm_Off", "0 or 1"},
        {"PIDsSalida.1.2.Seleccionado", "0 or 1"},
        {"IPOut.SAP_Ip", "an IPv4 address"},
        {"ConfiguracionGen.Ip_Mask", "an IPv4 address"},
        {"ServiciosSalida.0.Nombre", "a text of at most 14 bytes"},
        {"ConfiguracionGen.Lcd_Codbloqueo", "a text of at most 4 bytes"},
    };
    for (const auto& [name, range] : kCases)
        EXPECT_EQ(range_of(named(name)), range) << name;
}

constexpr char kEuropean[] =
    "RFOut.Frecuencia takes a frequency of Great Britain: 47000 to 68000, 118000 to 173875, 174000 "
    "to 229875, 230000 to 299875, 302000 to 445875, 470000 to 862000 kHz, not ";
constexpr char kAustralian[] =
    "RFOut.Frecuencia takes a frequency of Australia: 174000 to 223000, 526000 to 813000 kHz, not ";
constexpr char kCountries[] =
    "ConfiguracionGen.Country takes a country that it has defaults for: Australia, France, Great "
    "Britain, Italy, Portugal, Spain, not ";
constexpr char kUnjudged[] = " cannot be judged: the module has no channel plan for 'Narnia'";

struct Case {
    const char* name;
    Value value;
    std::string said = "";
    const char* country = "Spain";
};

const Case kCases[] = {
    {"RFOut.Cofdm_Off", 0U},
    {"RFOut.Cofdm_Off", 1U},
    {"RFOut.Cofdm_Off", 2U, "RFOut.Cofdm_Off takes 0 or 1, not 2"},
    {"PIDsSalida.0.1.Seleccionado", 1U},
    {"PIDsSalida.0.1.Seleccionado", 255U, "PIDsSalida.0.1.Seleccionado takes 0 or 1, not 255"},

    {"RFOut.Canal_Salida", 1U, "RFOut.Canal_Salida takes a channel of Spain: 2 to 69, not 1"},
    {"RFOut.Canal_Salida", 2U},
    {"RFOut.Canal_Salida", 13U},
    {"RFOut.Canal_Salida", 69U},
    {"RFOut.Canal_Salida", 70U, "RFOut.Canal_Salida takes a channel of Spain: 2 to 69, not 70"},
    {"RFOut.Canal_Salida", 12U, "", "Australia"},
    {"RFOut.Canal_Salida", 13U,
     "RFOut.Canal_Salida takes a channel of Australia: 6 to 12, 28 to 69, not 13", "Australia"},
    {"RFOut.Canal_Salida", 27U,
     "RFOut.Canal_Salida takes a channel of Australia: 6 to 12, 28 to 69, not 27", "Australia"},
    {"RFOut.Canal_Salida", 28U, "", "Australia"},
    {"RFOut.Canal_Salida", 21U, std::string("RFOut.Canal_Salida") + kUnjudged, "Narnia"},

    {"RFOut.Frecuencia", 46999U, std::string(kEuropean) + "46999", "Great Britain"},
    {"RFOut.Frecuencia", 47000U, "", "Great Britain"},
    {"RFOut.Frecuencia", 68000U, "", "Great Britain"},
    {"RFOut.Frecuencia", 68001U, std::string(kEuropean) + "68001", "Great Britain"},
    {"RFOut.Frecuencia", 301000U, std::string(kEuropean) + "301000", "Great Britain"},
    {"RFOut.Frecuencia", 862000U, "", "Great Britain and others"},
    {"RFOut.Frecuencia", 862001U, std::string(kEuropean) + "862001", "Great Britain"},
    {"RFOut.Frecuencia", 862000U, std::string(kAustralian) + "862000", "Australia"},
    {"RFOut.Frecuencia", 205000U, "", "Australia"},
    {"RFOut.Frecuencia", 474000U, std::string("RFOut.Frecuencia") + kUnjudged, "Narnia"},

    {"ConfiguracionGen.Country", "Spain"},
    {"ConfiguracionGen.Country", "Great Britain", "", "Narnia"},
    {"ConfiguracionGen.Country", "spain", std::string(kCountries) + "'spain'"},
    {"ConfiguracionGen.Country", "", std::string(kCountries) + "''"},

    {"ConfiguracionGen.Ip_Address", "192.168.1.50"},
    {"ConfiguracionGen.Ip_Address", "192.168.1.256",
     "ConfiguracionGen.Ip_Address takes an IPv4 address, not '192.168.1.256'"},
    {"ConfiguracionGen.Ip_Address", "192.168.1",
     "ConfiguracionGen.Ip_Address takes an IPv4 address, not '192.168.1'"},
    {"ConfiguracionGen.Ip_Address", "192.168.01.50",
     "ConfiguracionGen.Ip_Address takes an IPv4 address, not '192.168.01.50'"},
    {"ConfiguracionGen.Ip_Address", "192.168.1.50 ",
     "ConfiguracionGen.Ip_Address takes an IPv4 address, not '192.168.1.50 '"},
    {"ConfiguracionGen.Ip_Address", "",
     "ConfiguracionGen.Ip_Address takes an IPv4 address, not ''"},
    {"ConfiguracionGen.Ip_Gateway", "",
     "ConfiguracionGen.Ip_Gateway takes an IPv4 address, not ''"},
    {"ConfiguracionGen.Ip_Gateway", "10.0.0.1"},
    {"IPOut.SAP_Ip", ""},
    {"IPOut.SAP_Ip", "host", "IPOut.SAP_Ip takes an IPv4 address, not 'host'"},
    {"ServiciosSalida.1.IP_address_source", ""},
    {"ServiciosSalida.1.IP_address_source", "239.1.1.2"},

    {"ConfiguracionGen.Ip_Mask", "255.255.255.0"},
    {"ConfiguracionGen.Ip_Mask", "128.0.0.0"},
    {"ConfiguracionGen.Ip_Mask", "255.255.255.255"},
    {"ConfiguracionGen.Ip_Mask", "0.0.0.0",
     "ConfiguracionGen.Ip_Mask takes a mask such as 255.255.255.0, not '0.0.0.0'"},
    {"ConfiguracionGen.Ip_Mask", "255.0.255.0",
     "ConfiguracionGen.Ip_Mask takes a mask such as 255.255.255.0, not '255.0.255.0'"},
    {"ConfiguracionGen.Ip_Mask", "24",
     "ConfiguracionGen.Ip_Mask takes a mask such as 255.255.255.0, not '24'"},

    // What no write makes of it.
    {"ServiciosSalida.0.Nombre", "% % 'x'",
     "ServiciosSalida.0.Nombre cannot become '% % 'x'': the first per cent sign of a text is stored "
     "as a blank"},
    {"Red.TSID_Out", 5U, "Red.TSID_Out cannot become 5: the module takes it and never stores it"},
    {"Red.ONID_Out", 0U},
    {"ConfiguracionGen.Modo_Entrada", 3U},

    // What nobody knows more of than its width.
    {"EntradaAV.0.Brillo", 255U},
    {"EntradaAV.0.Low_Latency", 255U},
    {"ServiciosSalida.0.Nombre", "'x' %"},
    {"ServiciosSalida.0.Nombre", ""},
};

TEST(Objection, NamesWhatIsMeantInstead) {
    for (const Case& each : kCases)
        EXPECT_EQ(objection(named(each.name), each.value, each.country).value_or(""), each.said)
            << each.name;
}

}  // namespace

}  // namespace master
