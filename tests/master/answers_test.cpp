// What a master makes of parameters and of answers, without a module.
#include "master/answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <regex>
#include <set>
#include <sstream>

#include "master/frame.h"
#include "master/parameters.h"
#include "master/requests.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/protocol_document.h"

namespace master {

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// A row of docs/protocol.md: the sub-command's column, what it can hold, where it is read back.
struct Row {
    int code;
    const char* name;
    bool text;
    std::uint32_t limit;
    int block;
    int position;
};

constexpr Row kRows[] = {
    {1, "ConfiguracionGen.Modo_Entrada", false, 255, 1, 1},
    {2, "EntradaAV.0.Brillo", false, 255, 1, 2},
    {3, "EntradaAV.0.Contraste", false, 255, 1, 3},
    {4, "EntradaAV.0.Saturacion", false, 255, 1, 4},
    {5, "EntradaAV.0.Sharpness", false, 255, 1, 5},
    {6, "EntradaAV.0.Video_Enc_Standard", false, 255, 1, 6},
    {7, "EntradaAV.0.Video_Aspect_Ratio", false, 255, 1, 7},
    {8, "EntradaAV.0.Bitrate", false, 65535, 1, 8},
    {9, "EntradaAV.0.Audio_Bitrate", false, 255, 1, 10},
    {10, "EntradaAV.1.Brillo", false, 255, 1, 12},
    {11, "EntradaAV.1.Contraste", false, 255, 1, 13},
    {12, "EntradaAV.1.Saturacion", false, 255, 1, 14},
    {13, "EntradaAV.1.Sharpness", false, 255, 1, 15},
    {14, "EntradaAV.1.Video_Enc_Standard", false, 255, 1, 16},
    {15, "EntradaAV.1.Video_Aspect_Ratio", false, 255, 1, 17},
    {16, "EntradaAV.1.Bitrate", false, 65535, 1, 18},
    {17, "EntradaAV.1.Audio_Bitrate", false, 255, 1, 20},
    {18, "RFOut.Cofdm_Off", false, 255, 1, 22},
    {19, "RFOut.Canal_Salida", false, 255, 1, 23},
    {20, "RFOut.Frecuencia", false, 16777215, 1, 24},
    {21, "ConfiguracionGen.Atenuacion", false, 255, 1, 27},
    {22, "RFOut.Modo_OFDM", false, 255, 1, 28},
    {23, "RFOut.Ancho_Banda", false, 255, 1, 29},
    {24, "RFOut.Intervalo_Guarda", false, 255, 1, 30},
    {25, "RFOut.Constelacion", false, 255, 1, 31},
    {26, "RFOut.Code_Rate", false, 255, 1, 32},
    {27, "PIDsSalida.0.1.Seleccionado", false, 255, 1, 33},
    {28, "PIDsSalida.0.2.Seleccionado", false, 255, 1, 34},
    {29, "ServiciosSalida.0.LCN", false, 65535, 1, 35},
    {30, "ServiciosSalida.0.SID", false, 65535, 1, 37},
    {31, "ServiciosSalida.0.Nombre", true, 14, 1, 39},
    {32, "PIDsSalida.1.1.Seleccionado", false, 255, 1, 54},
    {33, "PIDsSalida.1.2.Seleccionado", false, 255, 1, 55},
    {34, "ServiciosSalida.1.LCN", false, 65535, 1, 56},
    {35, "ServiciosSalida.1.SID", false, 65535, 1, 58},
    {36, "ServiciosSalida.1.Nombre", true, 14, 1, 60},
    {37, "Red.NetworkName", true, 14, 1, 75},
    {38, "Red.Proveedor", true, 14, 1, 90},
    {39, "Red.NID", false, 65535, 1, 105},
    {40, "Red.TSID_Out", false, 65535, 1, 107},
    {41, "Red.ONID_Out", false, 65535, 1, 109},
    {42, "Red.NIT_Patron", false, 255, 1, 111},
    {43, "Red.LCN_Mode", false, 255, 1, 112},
    {44, "Red.Insertar_TDT", false, 255, 1, 113},
    {45, "IPOut.Ip_Off", false, 255, 2, 1},
    {46, "IPOut.Protocolo", false, 255, 2, 2},
    {47, "IPOut.Qos", false, 255, 2, 3},
    {48, "IPOut.Ttl", false, 255, 2, 4},
    {49, "IPOut.Vlan_Mode", false, 255, 2, 5},
    {50, "IPOut.Vlan_Id", false, 65535, 2, 6},
    {51, "IPOut.Vlan_Tpid", false, 65535, 2, 8},
    {52, "ServiciosSalida.0.IP_address_source", true, 15, 2, 10},
    {53, "ServiciosSalida.0.IP_port_source", false, 65535, 2, 25},
    {55, "ServiciosSalida.0.Nombre_SAP", true, 14, 2, 27},
    {56, "ServiciosSalida.1.IP_address_source", true, 15, 2, 42},
    {57, "ServiciosSalida.1.IP_port_source", false, 65535, 2, 57},
    {59, "ServiciosSalida.1.Nombre_SAP", true, 14, 2, 59},
    {60, "IPOut.SAP_Mode", false, 255, 2, 74},
    {61, "IPOut.SAP_Ip", true, 15, 2, 75},
    {62, "IPOut.SAP_User", true, 14, 2, 90},
    {63, "IPOut.SAP_Time", false, 255, 2, 105},
    {66, "ConfiguracionGen.Player_Mode", false, 255, 2, 106},
    {67, "ConfiguracionGen.Ip_Dhcp", false, 255, 2, 107},
    {68, "ConfiguracionGen.Ip_Address", true, 15, 2, 108},
    {69, "ConfiguracionGen.Ip_Mask", true, 15, 2, 123},
    {70, "ConfiguracionGen.Ip_Gateway", true, 15, 2, 138},
    {71, "ConfiguracionGen.Country", true, 14, 2, 153},
    {74, "ConfiguracionGen.Subtimezone", false, 255, 2, 183},
    {75, "ConfiguracionGen.Lcd_Bloqueo", false, 255, 0, 0},
    {76, "ConfiguracionGen.Lcd_Codbloqueo", true, 4, 0, 0},
    {77, "IPOut.Mpts_Mode", false, 255, 2, 184},
    {78, "EntradaAV.0.Low_Latency", false, 255, 1, 11},
    {79, "EntradaAV.1.Low_Latency", false, 255, 1, 21},
};

std::string in_case(std::string text, int (*letter)(int)) {
    std::transform(text.begin(), text.end(), text.begin(), letter);
    return text;
}

TEST(Parameters, AreThoseOfTheProtocolByNameAndPlace) {
    ASSERT_EQ(parameters().size(), std::size(kRows));
    for (std::size_t i = 0; i < std::size(kRows); ++i) {
        const Row& row = kRows[i];
        SCOPED_TRACE(row.name);
        const Parameter& parameter = parameters()[i];
        EXPECT_EQ(parameter.name, row.name);
        EXPECT_EQ(parameter.write->code, row.code);
        EXPECT_EQ(parameter.is_text(), row.text);
        EXPECT_EQ(parameter.limit(), row.limit);
        EXPECT_EQ(parameter.block, row.block);
        ASSERT_EQ(parameter.field != nullptr, row.block != 0);
        if (row.block != 0) {
            EXPECT_EQ(parameter.field->position, row.position);
        }
    }
}

TEST(Parameters, AreFoundInUpperAndLowerCase) {
    for (std::size_t i = 0; i < std::size(kRows); ++i) {
        const std::string name = kRows[i].name;
        for (const std::string& written :
             {name, in_case(name, std::tolower), in_case(name, std::toupper)})
            EXPECT_EQ(find_parameter(written), &parameters()[i]) << written;
    }
}

TEST(Parameters, AreFoundByTheirWholeNamesAlone) {
    for (const char* const name :
         {"", ".", "Brillo", "EntradaAV.Brillo", "EntradaAV.0.Brill", "EntradaAV.0.Brillo ",
          " EntradaAV.0.Brillo", "EntradaAV.2.Brillo", "EntradaAV 0 Brillo",
          "PIDsSalida.0.3.Seleccionado", "RFOut.0.Frecuencia", "2"})
        EXPECT_EQ(find_parameter(name), nullptr) << name;
}

const Parameter& named(const char* name) {
    const Parameter* const found = find_parameter(name);
    if (found == nullptr)
        throw std::invalid_argument(name);
    return *found;
}

TEST(Parameters, SayWhatElseTheirValueIsWrittenTo) {
    for (const Parameter& parameter : parameters())
        EXPECT_EQ(parameter.also(), parameter.name == "EntradaAV.1.Audio_Bitrate"
                                        ? &named("RFOut.Cofdm_Off")
                                        : nullptr)
            << parameter.name;
}

// A value as parse_value() takes it, or why it does not.
std::string parsed(const char* name, const std::string& text) {
    try {
        const Value value = parse_value(named(name), text);
        if (const auto* const number = std::get_if<std::uint32_t>(&value))
            return "number " + std::to_string(*number);
        return "text " + std::get<std::string>(value);
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
}

TEST(ParameterValue, IsTakenUpToItsLimit) {
    const struct {
        const char* name;
        const char* text;
        const char* parsed;
    } kCases[] = {
        {"EntradaAV.0.Brillo", "0", "number 0"},
        {"EntradaAV.0.Brillo", "255", "number 255"},
        {"EntradaAV.0.Brillo", "0xFF", "number 255"},
        {"EntradaAV.0.Brillo", "0000000000255", "number 255"},
        {"EntradaAV.0.Brillo", "256", "256 is beyond the 255 that EntradaAV.0.Brillo can hold"},
        {"EntradaAV.0.Brillo", "0x100", "0x100 is beyond the 255 that EntradaAV.0.Brillo can hold"},
        {"EntradaAV.0.Brillo", "4294967296",
         "4294967296 is beyond the 255 that EntradaAV.0.Brillo can hold"},
        {"EntradaAV.0.Brillo", "-1", "'-1' is no number"},
        {"EntradaAV.0.Brillo", "", "'' is no number"},
        {"EntradaAV.0.Brillo", "12a", "'12a' is no number"},
        {"EntradaAV.0.Bitrate", "65535", "number 65535"},
        {"EntradaAV.0.Bitrate", "65536",
         "65536 is beyond the 65535 that EntradaAV.0.Bitrate can hold"},
        {"RFOut.Frecuencia", "16777215", "number 16777215"},
        {"RFOut.Frecuencia", "16777216",
         "16777216 is beyond the 16777215 that RFOut.Frecuencia can hold"},
        {"Red.NetworkName", "", "text "},
        {"Red.NetworkName", "12345", "text 12345"},
        {"Red.NetworkName", "Catorce bytes.", "text Catorce bytes."},
        {"Red.NetworkName", "Quince bytes ..",
         "'Quince bytes ..' is longer than the 14 bytes of Red.NetworkName"},
        {"Red.NetworkName", "Ca\xF1on \xFF", "text Ca\xF1on \xFF"},
        {"ConfiguracionGen.Ip_Address", "192.168.100.100", "text 192.168.100.100"},
        {"ConfiguracionGen.Ip_Address", "192.168.100.1000",
         "'192.168.100.1000' is longer than the 15 bytes of ConfiguracionGen.Ip_Address"},
        {"ConfiguracionGen.Lcd_Codbloqueo", "4321", "text 4321"},
        {"ConfiguracionGen.Lcd_Codbloqueo", "43210",
         "'43210' is longer than the 4 bytes of ConfiguracionGen.Lcd_Codbloqueo"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(parsed(each.name, each.text), each.parsed) << each.name << " " << each.text;
}

TEST(WriteRequest, HasTheBytesOfTheProtocol) {
    const struct {
        const char* name;
        Value value;
        const char* info;
    } kCases[] = {
        {"EntradaAV.0.Brillo", 0x34U, "02 34"},
        {"EntradaAV.0.Brillo", 0U, "02 00"},
        {"EntradaAV.0.Brillo", 255U, "02 FF"},
        {"EntradaAV.0.Bitrate", 9000U, "08 23 28"},
        {"EntradaAV.0.Bitrate", 65535U, "08 FF FF"},
        {"EntradaAV.0.Bitrate", 1U, "08 00 01"},
        {"RFOut.Frecuencia", 500000U, "14 07 A1 20"},
        {"RFOut.Frecuencia", 16777215U, "14 FF FF FF"},
        {"ServiciosSalida.0.Nombre", "Canal Tres", "1F 43 61 6E 61 6C 20 54 72 65 73 00"},
        {"ServiciosSalida.0.Nombre", "", "1F 00"},
        {"ConfiguracionGen.Ip_Mask", "255.255.255.255",
         "45 32 35 35 2E 32 35 35 2E 32 35 35 2E 32 35 35 00"},
    };
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.info);
        const Request request = write_request(named(each.name), each.value);
        EXPECT_EQ(request.command, 3);
        EXPECT_EQ(to_hex(request.info), each.info);
        EXPECT_FALSE(request.reads);
        EXPECT_TRUE(request.answered_by(request, {}));
        EXPECT_FALSE(request.answered_by(request, Bytes{2}));
        EXPECT_FALSE(request.answered_by(request, Bytes(255)));
    }
}

TEST(BlockRequest, IsAnsweredByItsBlockAlone) {
    for (const auto& [block, length] : {std::pair<std::uint8_t, std::size_t>{1, 114}, {2, 185}}) {
        SCOPED_TRACE(length);
        const Request request = block_request(block);
        EXPECT_EQ(request.command, 1);
        EXPECT_EQ(request.info, Bytes{block});
        EXPECT_TRUE(request.reads);
        for (std::size_t size = 0; size <= 255; ++size) {
            for (const std::uint8_t first : Bytes{0, 1, 2, 3}) {
                Bytes info(size);
                if (size > 0)
                    info[0] = first;
                EXPECT_EQ(request.answered_by(request, info), size == length && first == block)
                    << size << " " << int{first};
            }
        }
    }
}

TEST(ValueAfter, IsWhatTheModuleShows) {
    const struct {
        const char* name;
        Value written;
        Value shown;
    } kCases[] = {
        {"ConfiguracionGen.Modo_Entrada", 0U, 0U},
        {"ConfiguracionGen.Modo_Entrada", 2U, 2U},
        {"ConfiguracionGen.Modo_Entrada", 3U, 10U},
        {"ConfiguracionGen.Modo_Entrada", 4U, 11U},
        {"ConfiguracionGen.Modo_Entrada", 5U, 5U},
        {"ConfiguracionGen.Modo_Entrada", 255U, 255U},
        {"EntradaAV.0.Brillo", 3U, 3U},
        {"EntradaAV.0.Bitrate", 65535U, 65535U},
        {"RFOut.Constelacion", 3U, 3U},
        {"RFOut.Canal_Salida", 3U, 3U},
        {"RFOut.Frecuencia", 16777215U, 16777215U},
        {"PIDsSalida.0.1.Seleccionado", 0U, 0U},
        {"PIDsSalida.0.1.Seleccionado", 1U, 1U},
        {"Red.NetworkName", "Red", "Red"},
        {"ConfiguracionGen.Country", "France", "France"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(value_after(named(each.name), each.written), each.shown) << each.name;
}

TEST(Consequence, IsNamedForWhatNeedsAConfirmation) {
    constexpr char kClock[] = "sets the clock of the module";
    constexpr char kFactory[] = "resets the module to its factory configuration";
    constexpr char kNetwork[] =
        "resets the network of the module, which may then have another address";
    for (unsigned code = 0; code <= 255; ++code) {
        std::string_view expected;
        if (code >= 68 && code <= 70)
            expected = kNetwork;
        if (code == 72 || code == 73)
            expected = kClock;
        if (code == 80)
            expected = kFactory;
        const auto first = static_cast<std::uint8_t>(code);
        EXPECT_EQ(consequence_of({.command = 3, .info = {first, 0}}), expected) << code;
        EXPECT_EQ(consequence_of({.command = 3, .info = Bytes(255, first)}), expected) << code;
        // What the module refuses, or takes for something else.
        EXPECT_EQ(consequence_of({.command = 3, .info = {first}}), "") << code;
        for (const std::uint8_t command : Bytes{0, 1, 2, 4, 5, 15})
            EXPECT_EQ(consequence_of({.command = command, .info = {first, 0}}), "") << code;
    }
    EXPECT_EQ(consequence_of({.command = 3}), "");
}

std::string written(const Item& item) {
    if (const auto* const flag = std::get_if<bool>(&item.value))
        return item.name + (*flag ? " true" : " false");
    if (const auto* const number = std::get_if<std::int64_t>(&item.value))
        return item.name + " " + std::to_string(*number);
    return item.name + " '" + std::get<std::string>(item.value) + "'";
}

std::vector<std::string> written(const Items& items) {
    std::vector<std::string> lines;
    for (const Item& item : items)
        lines.push_back(written(item));
    return lines;
}

const Bytes kIdentificationInfo = info_of(hex(document::answer(frame(4))), 4);
const Bytes kStatusInfo = info_of(hex(document::answer(frame(0))), 0);
const Bytes kBlock1Info = info_of(hex(document::answer(frame(1, {1}))), 1);
// At five past eleven in the evening of the last day of 2024.
const Bytes kBlock2Info = hex(
    "02 00 01 04 10 00 00 64 81 00 32 33 39 2E 31 2E 31 2E 31 00 00 00 00 00 00 13 88 53 41 50 20 "
    "55 6E 6F 00 00 00 00 00 00 00 00 32 33 39 2E 31 2E 31 2E 32 00 00 00 00 00 00 13 8A 53 41 50 "
    "20 44 6F 73 00 00 00 00 00 00 00 00 01 32 32 34 2E 32 2E 31 32 37 2E 32 35 34 00 00 63 61 62 "
    "65 63 65 72 61 00 00 00 00 00 00 00 05 00 00 31 39 32 2E 31 36 38 2E 31 2E 35 30 00 00 00 32 "
    "35 35 2E 32 35 35 2E 32 35 35 2E 30 00 00 31 39 32 2E 31 36 38 2E 31 2E 31 00 00 00 00 53 70 "
    "61 69 6E 00 00 00 00 00 00 00 00 00 00 32 33 2E 30 35 33 31 2E 31 32 2E 32 30 32 34 00 00");
const Bytes kEncoderInfo =
    hex("6A 01 04 01 19 64 01 04 00 00 02 00 02 01 02 00 01 01 01 03 AC 44 00 11 00 01 01 00");
const Bytes kRegistrationInfo = hex(
    "6E 30 30 31 61 32 62 33 63 34 64 35 65 00 63 61 62 65 63 65 72 61 2D 31 00 00 00 00 00 00 00 "
    "00 5A 4E 32 30 32 34 30 30 30 31 32 33 00 5A 4E 44 32 41 56 2D 54 00 00 31 36 39 2E 32 35 34 "
    "2E 33 34 2E 32 31 0A 00 00 02 04 01 00");
const Bytes kUpgradeInfo = hex("6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00");

TEST(Answer, NamesTheModule) {
    EXPECT_THAT(written(identification(kIdentificationInfo)),
                ElementsAre("model 'ZND'", "software '2.4'", "name 'ZND2AV-T'", "boot_loader '1.3'",
                            "hardware '3.1'", "serial 'ZN2024000123'", "mac '001a2b3c4d5e'"));
    EXPECT_THAT(written(identification(Bytes(48))),
                ElementsAre("model ''", "software '0.0'", "name ''", "boot_loader '0.0'",
                            "hardware '0.0'", "serial ''", "mac ''"));
    EXPECT_THAT(written(identification(Bytes(48, 0xFF))),
                ElementsAre("model '\xFF\xFF\xFF'", "software '255.255'",
                            "name '" + std::string(8, '\xFF') + "'", "boot_loader '255.255'",
                            "hardware '255.255'", "serial '" + std::string(12, '\xFF') + "'",
                            "mac '" + std::string(12, '\xFF') + "'"));
}

TEST(Answer, TellsTheStatus) {
    EXPECT_THAT(written(status(kStatusInfo)),
                ElementsAre("input_sync 5", "alarma_hw false", "alarma_in true", "alarma_cod false",
                            "alarma_si false", "alarma_mod false", "alarma_ip false",
                            "output_sync true", "tv_system_1 34", "tv_system_2 33", "hdmi_1 33",
                            "hdsdi_1 34", "hdmi_2 1", "hdsdi_2 0", "null_level -5",
                            "multiplex_1 160", "multiplex_total 16", "multiplex_2 178",
                            "multiplex_net 16", "ip_total 0", "ip_0 0", "ip_1 0", "player 0"));
}

// The lines of the status that a byte makes differ from those of an answer of zeros.
std::vector<std::string> status_with(std::size_t position, std::uint8_t byte) {
    Bytes info(kStatusInfo.size());
    const std::vector<std::string> before = written(status(info));
    info[position] = byte;
    std::vector<std::string> different;
    for (const std::string& line : written(status(info))) {
        if (std::find(before.begin(), before.end(), line) == before.end())
            different.push_back(line);
    }
    return different;
}

std::size_t position_of(const std::string& content) {
    return document::place("Status", content).position;
}

TEST(Answer, TellsEachBitAndByteOfTheStatusApart) {
    const struct {
        const char* place;
        std::size_t offset;
        std::uint8_t byte;
        const char* line;
    } kCases[] = {
        {"input synchronisation", 0, 0xFF, "input_sync 255"},
        {"alarms", 0, 0x01, "alarma_hw true"},
        {"alarms", 0, 0x02, "alarma_in true"},
        {"alarms", 0, 0x04, "alarma_cod true"},
        {"alarms", 0, 0x08, "alarma_si true"},
        {"alarms", 0, 0x10, "alarma_mod true"},
        {"alarms", 0, 0x20, "alarma_ip true"},
        {"output synchronised", 0, 0x01, "output_sync true"},
        {"TV system: bits 0 to 7", 0, 0x80, "tv_system_1 128"},
        {"TV system: bits 16 to 23", 0, 1, "tv_system_2 1"},
        {"HDMI: bits 16 to 23", 0, 2, "hdmi_1 2"},
        {"HD-SDI: bits 16 to 23", 0, 3, "hdsdi_1 3"},
        {"HDMI: bits 24 to 31", 0, 4, "hdmi_2 4"},
        {"HD-SDI: bits 24 to 31", 0, 5, "hdsdi_2 5"},
        {"null packet level", 0, 0x01, "null_level 1"},
        {"null packet level", 0, 0x7F, "null_level 127"},
        {"null packet level", 0, 0x81, "null_level -1"},
        {"null packet level", 0, 0xFF, "null_level -127"},
        {"output bitrates", 0, 6, "multiplex_1 6"},
        {"output bitrates", 1, 7, "multiplex_total 7"},
        {"output bitrates", 2, 8, "multiplex_2 8"},
        {"output bitrates", 3, 9, "multiplex_net 2304"},
        {"output bitrates", 4, 9, "multiplex_net 9"},
        {"output bitrates", 5, 10, "ip_total 2560"},
        {"output bitrates", 6, 10, "ip_total 10"},
        {"output bitrates", 7, 11, "ip_0 2816"},
        {"output bitrates", 8, 11, "ip_0 11"},
        {"output bitrates", 9, 12, "ip_1 3072"},
        {"output bitrates", 10, 12, "ip_1 12"},
        {"player", 0, 13, "player 13"},
    };
    for (const auto& each : kCases)
        EXPECT_THAT(status_with(position_of(each.place) + each.offset, each.byte),
                    ElementsAre(each.line));
    // What has no meaning, and a level of minus zero.
    EXPECT_THAT(status_with(position_of("alarms"), 0xC0), IsEmpty());
    EXPECT_THAT(status_with(position_of("output synchronised"), 0xFE), IsEmpty());
    EXPECT_THAT(status_with(position_of("null packet level"), 0x80), IsEmpty());
    for (const document::Place& place : document::layout("Status")) {
        if (place.content != "zero" && place.content != "3 and 3")
            continue;
        for (std::size_t i = 0; i < place.width; ++i)
            EXPECT_THAT(status_with(place.position + i, 0xFF), IsEmpty());
    }
}

TEST(Answer, TellsTheConfiguration) {
    EXPECT_THAT(
        written(configuration(kBlock1Info)),
        ElementsAre(
            "ConfiguracionGen.Modo_Entrada 0", "EntradaAV.0.Brillo 51", "EntradaAV.0.Contraste 52",
            "EntradaAV.0.Saturacion 50", "EntradaAV.0.Sharpness 3",
            "EntradaAV.0.Video_Enc_Standard 1", "EntradaAV.0.Video_Aspect_Ratio 1",
            "EntradaAV.0.Bitrate 8000", "EntradaAV.0.Audio_Bitrate 3", "EntradaAV.0.Low_Latency 0",
            "EntradaAV.1.Brillo 61", "EntradaAV.1.Contraste 62", "EntradaAV.1.Saturacion 60",
            "EntradaAV.1.Sharpness 4", "EntradaAV.1.Video_Enc_Standard 1",
            "EntradaAV.1.Video_Aspect_Ratio 0", "EntradaAV.1.Bitrate 6500",
            "EntradaAV.1.Audio_Bitrate 4", "EntradaAV.1.Low_Latency 1", "RFOut.Cofdm_Off 0",
            "RFOut.Canal_Salida 21", "RFOut.Frecuencia 474000", "ConfiguracionGen.Atenuacion 10",
            "RFOut.Modo_OFDM 1", "RFOut.Ancho_Banda 0", "RFOut.Intervalo_Guarda 0",
            "RFOut.Constelacion 2", "RFOut.Code_Rate 4", "PIDsSalida.0.1.Seleccionado 1",
            "PIDsSalida.0.2.Seleccionado 1", "ServiciosSalida.0.LCN 1", "ServiciosSalida.0.SID 101",
            "ServiciosSalida.0.Nombre 'Canal Uno'", "PIDsSalida.1.1.Seleccionado 1",
            "PIDsSalida.1.2.Seleccionado 1", "ServiciosSalida.1.LCN 2", "ServiciosSalida.1.SID 102",
            "ServiciosSalida.1.Nombre 'Canal Dos'", "Red.NetworkName 'Red Local'",
            "Red.Proveedor 'Proveedor'", "Red.NID 1", "Red.TSID_Out 0", "Red.ONID_Out 0",
            "Red.NIT_Patron 0", "Red.LCN_Mode 1", "Red.Insertar_TDT 1"));
    EXPECT_THAT(
        written(configuration(kBlock2Info)),
        ElementsAre(
            "IPOut.Ip_Off 0", "IPOut.Protocolo 1", "IPOut.Qos 4", "IPOut.Ttl 16",
            "IPOut.Vlan_Mode 0", "IPOut.Vlan_Id 100", "IPOut.Vlan_Tpid 33024",
            "ServiciosSalida.0.IP_address_source '239.1.1.1'",
            "ServiciosSalida.0.IP_port_source 5000", "ServiciosSalida.0.Nombre_SAP 'SAP Uno'",
            "ServiciosSalida.1.IP_address_source '239.1.1.2'",
            "ServiciosSalida.1.IP_port_source 5002", "ServiciosSalida.1.Nombre_SAP 'SAP Dos'",
            "IPOut.SAP_Mode 1", "IPOut.SAP_Ip '224.2.127.254'", "IPOut.SAP_User 'cabecera'",
            "IPOut.SAP_Time 5", "ConfiguracionGen.Player_Mode 0", "ConfiguracionGen.Ip_Dhcp 0",
            "ConfiguracionGen.Ip_Address '192.168.1.50'",
            "ConfiguracionGen.Ip_Mask '255.255.255.0'", "ConfiguracionGen.Ip_Gateway '192.168.1.1'",
            "ConfiguracionGen.Country 'Spain'", "time '23.05'", "date '31.12.2024'",
            "ConfiguracionGen.Subtimezone 0", "IPOut.Mpts_Mode 0"));
}

TEST(Answer, HasTheValueOfEachParameterThatABlockShows) {
    const struct {
        const char* name;
        Value value;
    } kCases[] = {
        {"EntradaAV.0.Brillo", 51U},
        {"EntradaAV.1.Bitrate", 6500U},
        {"RFOut.Frecuencia", 474000U},
        {"Red.Insertar_TDT", 1U},
        {"ServiciosSalida.1.Nombre", "Canal Dos"},
        {"IPOut.Vlan_Tpid", 33024U},
        {"ConfiguracionGen.Ip_Mask", "255.255.255.0"},
        {"ConfiguracionGen.Country", "Spain"},
        {"IPOut.Mpts_Mode", 0U},
    };
    for (const auto& each : kCases) {
        const Parameter& parameter = named(each.name);
        EXPECT_EQ(value_in(parameter, parameter.block == 1 ? kBlock1Info : kBlock2Info), each.value)
            << each.name;
    }
    // A text that fills its field has no NUL.
    EXPECT_EQ(value_in(named("ConfiguracionGen.Ip_Mask"), Bytes(185, '9')),
              Value("999999999999999"));
}

TEST(Answer, TellsASlaveItsSettings) {
    const struct {
        Bytes info;
        std::vector<std::string> items;
    } kCases[] = {
        {hex("69 01 02"), {"channel 1", "pending_state 2"}},
        {kEncoderInfo,
         {"channel 1",
          "Sharpness 4",
          "Video_Enc_Standard 1",
          "Bitrate 6500",
          "Audio_Enc_Standard 1",
          "Audio_Bitrate 4",
          "Video_Aspect_Ratio 0",
          "Remux_Av 0",
          "Pid_Video_Ch 512",
          "Pid_Audio_Ch 513",
          "Pid_Pcr_Ch 512",
          "Filter_Mode 1",
          "Low_Latency 1",
          "Profile 1",
          "Level 3",
          "Remote_Audio_Sampling_Rate 44100",
          "Remote_Needs_Reload_Firmware 0",
          "Remote_Sistema_TV 17",
          "Remote_Stop 0",
          "Remote_Video_Present 1",
          "Remote_Audio_Present 1",
          "Remote_Modo_Salida 0"}},
        {hex("6D 00"), {"result 0"}},
        {kRegistrationInfo,
         {"mac '001a2b3c4d5e'", "hostname 'cabecera-1'", "serial 'ZN2024000123'",
          "model 'ZND2AV-T'", "ip '169.254.34.21'", "software '2.4.1'", "registered true"}},
        {kUpgradeInfo, {"upgrade 0", "mac '001a2b3c4d5e'"}},
        {hex("6F 30 30 31 61 32 62 33 63 34 64 35 65 00"), {"mac '001a2b3c4d5e'"}},
        {{}, {}},
        {hex("6B 01"), {}},
        {hex("6C 01"), {}},
        {hex("70 01"), {}},
        {hex("02 34"), {}},
    };
    for (const auto& each : kCases)
        EXPECT_THAT(written(slave_answer(each.info)), ElementsAreArray(each.items))
            << to_hex(each.info);
    Bytes not_registered = kRegistrationInfo;
    not_registered[74] = 1;
    EXPECT_EQ(written(slave_answer(not_registered)).back(), "registered false");
}

// A copy without a byte of room behind it, so that a sanitizer sees what is read there.
Bytes first_of(const Bytes& bytes, std::size_t size) {
    Bytes part(size);
    std::copy_n(bytes.begin(), std::min(size, bytes.size()), part.begin());
    return part;
}

// What it says about the first bytes of an answer, and about one that is longer than it should be.
void expect_what_is_there(Items (*read)(std::span<const std::uint8_t>), const Bytes& whole,
                          const std::vector<std::size_t>& ends) {
    const std::vector<std::string> all = written(read(whole));
    ASSERT_EQ(all.size(), ends.size());
    for (std::size_t size = 0; size <= 255; ++size) {
        std::vector<std::string> there;
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (ends[i] <= size)
                there.push_back(all[i]);
        }
        EXPECT_EQ(written(read(first_of(whole, size))), there) << size;
    }
}

// Where the items end, in the order of the page.
std::vector<std::size_t> ends_in_status() {
    std::vector<std::size_t> ends;
    for (const document::Place& place : document::layout("Status")) {
        const std::size_t end = place.position + place.width;
        if (place.content.starts_with("output bitrates")) {
            for (const std::size_t behind : {10U, 9U, 8U, 6U, 4U, 2U, 0U})
                ends.push_back(end - behind);
        } else if (place.content.starts_with("null packet level")) {
            ends.push_back(end);
        } else {
            ends.insert(ends.end(), document::quoted(place.content).size(), end);
        }
    }
    return ends;
}

TEST(Answer, OfAnyLengthHasTheItemsThatAreThere) {
    expect_what_is_there(identification, kIdentificationInfo, {3, 5, 13, 15, 17, 29, 41});
    expect_what_is_there(status, kStatusInfo, ends_in_status());
    expect_what_is_there(configuration, kBlock1Info,
                         {2,  3,  4,  5,  6,  7,  8,  10,  11,  12,  13,  14,  15,  16, 17, 18,
                          20, 21, 22, 23, 24, 27, 28, 29,  30,  31,  32,  33,  34,  35, 37, 39,
                          54, 55, 56, 58, 60, 75, 90, 105, 107, 109, 111, 112, 113, 114});
    expect_what_is_there(configuration, kBlock2Info,
                         {2,  3,   4,   5,   6,   8,   10,  25,  27,  42,  57,  59,  74, 75,
                          90, 105, 106, 107, 108, 123, 138, 153, 168, 173, 183, 184, 185});
    expect_what_is_there(slave_answer, hex("69 01 02"), {2, 3});
    expect_what_is_there(slave_answer, kEncoderInfo, {2,  3,  4,  6,  7,  8,  9,  10, 12, 14, 16,
                                                      17, 18, 19, 20, 22, 23, 24, 25, 26, 27, 28});
    expect_what_is_there(slave_answer, hex("6D 05"), {2});
    expect_what_is_there(slave_answer, kRegistrationInfo, {13, 32, 44, 55, 71, 74, 75});
}

TEST(Answer, OfAnyContentIsTaken) {
    for (unsigned command = 0; command <= 4; ++command) {
        for (std::size_t size = 0; size <= 255; ++size) {
            for (const std::uint8_t first :
                 Bytes{0, 1, 2, 3, 20, 31, 54, 80, 105, 106, 107, 109, 110, 111, 255}) {
                mensaje frame{};
                frame.comando = static_cast<std::uint8_t>(command);
                frame.longitud = static_cast<std::uint8_t>(size);
                std::fill_n(frame.info, size, 0xFF);
                frame.info[0] = first;
                const Meaning meaning = meaning_of(frame);
                ASSERT_NE(meaning.text, "");
                for (const Item& item : meaning.items) {
                    ASSERT_NE(item.name, "");
                    const auto* const text = std::get_if<std::string>(&item.value);
                    // A version's digits are more than its bytes.
                    ASSERT_TRUE(text == nullptr || text->size() <= std::max<std::size_t>(size, 11))
                        << item.name;
                }
            }
        }
    }
}

Meaning meaning_of_hex(const std::string& text) {
    const auto read = read_frame(hex(text));
    if (!read)
        throw std::invalid_argument(text);
    return meaning_of(read->record);
}

TEST(MeaningOfAFrame, IsToldWithoutItsOtherHalf) {
    const struct {
        const char* frame;
        const char* text;
        std::vector<std::string> items;
    } kCases[] = {
        {"A5 00 00 00 00 00 00", "request: status", {}},
        {"A5 02 00 00 00 00 FE", "request: status", {}},
        {"A5 00 00 00 00 01 07 F8", "answer: status", {"input_sync 7"}},
        {"A5 02 00 00 00 01 07 F6", "answer: status", {"input_sync 7"}},
        {"A5 04 00 00 00 00 FC", "request: identification", {}},
        {"A5 84 00 00 00 00 7C D4", "request: identification", {}},
        {"A5 04 01 02 03 00 F6", "request: identification", {}},
        {"A5 14 00 00 00 00 EC", "request: identification", {}},
        {"A5 04 00 00 00 03 5A 4E 44 0D", "answer: identification", {"model 'ZND'"}},
        {"A5 01 00 00 00 01 01 FD", "request: configuration, block 1", {}},
        {"A5 01 00 00 00 01 02 FC", "request: configuration, block 2", {}},
        {"A5 01 00 00 00 01 07 F7", "request: configuration, block 1", {}},
        {"A5 01 00 00 00 00 FF", "answer: no configuration, the request had a wrong length", {}},
        {"A5 01 00 00 00 03 01 0A 33 BE",
         "answer: configuration, block 1",
         {"ConfiguracionGen.Modo_Entrada 10", "EntradaAV.0.Brillo 51"}},
        {"A5 01 00 00 00 02 02 01 FA", "answer: configuration, block 2", {"IPOut.Ip_Off 1"}},
        {"A5 05 00 00 00 00 FB", "unknown command 5", {}},
        {"A5 0F 00 00 00 00 F1", "unknown command 15", {}},
        {"A5 03 00 00 00 00 FD", "answer: written or not", {}},
        {"A5 03 00 00 00 02 02 34 C5",
         "request: write, sub-command 2 Brillo ch1.",
         {"EntradaAV.0.Brillo 52"}},
        {"A5 83 00 00 00 02 57 61 C3 BD",
         "request: write, sub-command 2 Brillo ch1.",
         {"EntradaAV.0.Brillo 52"}},
        {"A5 B3 00 00 00 02 57 61 93 A9",
         "request: write, sub-command 2 Brillo ch1.",
         {"EntradaAV.0.Brillo 52"}},
        {"A5 03 00 00 00 04 14 07 A1 20 1D",
         "request: write, sub-command 20 SUBCOMMAND_FRECUENCIA_1",
         {"RFOut.Frecuencia 500000"}},
        // Cut off, and with more than a value.
        {"A5 03 00 00 00 03 14 07 A1 3E",
         "request: write, sub-command 20 SUBCOMMAND_FRECUENCIA_1",
         {}},
        {"A5 03 00 00 00 01 02 FA", "request: write, sub-command 2 Brillo ch1.", {}},
        {"A5 03 00 00 00 03 02 34 FF C5",
         "request: write, sub-command 2 Brillo ch1.",
         {"EntradaAV.0.Brillo 52"}},
        {"A5 03 00 00 00 04 1F 55 6E 6F A8",
         "request: write, sub-command 31 SUBCOMMAND_NOMBRE_SERV1",
         {"ServiciosSalida.0.Nombre 'Uno'"}},
        {"A5 03 00 00 00 02 50 00 AB",
         "request: write, sub-command 80 SUBCOMMAND_RESET_FACTORY",
         {}},
        {"A5 03 00 00 00 02 36 01 C4", "request: write, unknown sub-command 54", {}},
        {"A5 03 00 00 00 02 00 01 FA", "request: write, unknown sub-command 0", {}},
        {"A5 03 00 00 00 02 FF 01 FB", "request: write, unknown sub-command 255", {}},
        {"A5 03 00 00 00 03 69 01 00 90",
         "answer: sub-command 105",
         {"channel 1", "pending_state 0"}},
        {"A5 03 00 00 00 02 6D 00 8E", "answer: sub-command 109", {"result 0"}},
        {"A5 03 00 00 00 0F 6F 00 30 30 31 61 32 62 33 63 34 64 35 65 00 31",
         "answer: sub-command 111",
         {"upgrade 0", "mac '001a2b3c4d5e'"}},
    };
    for (const auto& each : kCases) {
        const Meaning meaning = meaning_of_hex(each.frame);
        EXPECT_EQ(meaning.text, each.text) << each.frame;
        EXPECT_THAT(written(meaning.items), ElementsAreArray(each.items)) << each.frame;
    }
}

// The frame of an answer, as far as meaning_of() looks at it.
mensaje answer_frame(std::uint8_t command, const Bytes& info) {
    mensaje frame{};
    frame.comando = command;
    frame.longitud = static_cast<std::uint8_t>(info.size());
    std::copy(info.begin(), info.end(), frame.info);
    return frame;
}

TEST(MeaningOfAFrame, IsARefusalForZerosOfTheFullLengthAlone) {
    Bytes info(255);
    EXPECT_EQ(meaning_of(answer_frame(3, info)).text, "answer: refused");
    info[254] = 1;
    EXPECT_EQ(meaning_of(answer_frame(3, info)).text, "request: write, unknown sub-command 0");
    EXPECT_EQ(meaning_of(answer_frame(3, Bytes(254))).text,
              "request: write, unknown sub-command 0");
}

TEST(MeaningOfAFrame, HasTheItemsOfTheWholeAnswer) {
    const struct {
        std::uint8_t command;
        const Bytes& info;
        const char* text;
        std::size_t items;
        const char* last;
    } kCases[] = {
        {4, kIdentificationInfo, "answer: identification", 7, "mac '001a2b3c4d5e'"},
        {0, kStatusInfo, "answer: status", 23, "player 0"},
        {1, kBlock1Info, "answer: configuration, block 1", 46, "Red.Insertar_TDT 1"},
        {1, kBlock2Info, "answer: configuration, block 2", 27, "IPOut.Mpts_Mode 0"},
        {3, kEncoderInfo, "answer: sub-command 106", 22, "Remote_Modo_Salida 0"},
        {3, kRegistrationInfo, "answer: sub-command 110", 7, "registered true"},
    };
    for (const auto& each : kCases) {
        const Meaning meaning = meaning_of(answer_frame(each.command, each.info));
        EXPECT_EQ(meaning.text, each.text);
        ASSERT_EQ(meaning.items.size(), each.items) << each.text;
        EXPECT_EQ(written(meaning.items.back()), each.last);
    }
}

// The table of sub-commands in docs/protocol.md has a request each.
TEST(MeaningOfAFrame, NamesTheSubcommandOfEachRequestInTheDocument) {
    std::istringstream document(read_file(ZONDAR_SOURCE_DIR "/docs/protocol.md"));
    const std::regex row(R"(\| (\d+) \| (none|`([^`]+?) ?`) \| .* \| `(A5 03 [^`]*)` \|)");
    std::size_t seen = 0;
    for (std::string line; std::getline(document, line);) {
        std::smatch cells;
        if (!std::regex_match(line, cells, row))
            continue;
        ++seen;
        const std::string name = cells[2] == "none" ? "" : " " + cells[3].str();
        EXPECT_EQ(meaning_of_hex(cells[4]).text,
                  "request: write, sub-command " + cells[1].str() + name);
    }
    EXPECT_EQ(seen, 84U);
}

}  // namespace

}  // namespace master
