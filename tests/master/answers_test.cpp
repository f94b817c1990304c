// What a master makes of parameters and of answers, without a module.
#include "master/answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <map>
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

// What docs/protocol.md says of a parameter: the sub-command's column, what it can hold, where it
// is read back.
struct Row {
    int code;
    std::string name;
    bool text;
    std::uint32_t limit;
    int block = 0;
    std::size_t position = 0;
};

// Whose first column is not the parameter, or none.
const std::map<int, std::string> kOtherNames = {{20, "RFOut.Frecuencia"},
                                                {40, "Red.TSID_Out"},
                                                {41, "Red.ONID_Out"},
                                                {71, "ConfiguracionGen.Country"}};

std::vector<Row> documented_parameters() {
    std::vector<Row> rows;
    for (const document::Row& row : document::table("| Code | Name in the log")) {
        const int code = std::stoi(row[0]);
        const bool text = row[2].starts_with("text ");
        if (!text && !std::regex_match(row[2], std::regex("[123] bytes?")))
            continue;
        const auto other = kOtherNames.find(code);
        const unsigned size = static_cast<unsigned>(std::stoul(row[2].substr(text ? 5 : 0)));
        rows.push_back({code,
                        other == kOtherNames.end() ? document::quoted(row[3]).at(0) : other->second,
                        text, text ? size : (1U << 8 * size) - 1});
    }
    for (const int block : {1, 2}) {
        for (const document::Place& place : document::layout("Block " + std::to_string(block))) {
            const auto shown = std::ranges::find(rows, place.name, &Row::name);
            if (shown != rows.end()) {
                shown->block = block;
                shown->position = place.position;
            }
        }
    }
    return rows;
}
const std::vector<Row> kRows = documented_parameters();

std::string in_case(std::string text, int (*letter)(int)) {
    std::transform(text.begin(), text.end(), text.begin(), letter);
    return text;
}

TEST(Parameters, AreThoseOfTheProtocolByNameAndPlace) {
    ASSERT_EQ(parameters().size(), kRows.size());
    for (std::size_t i = 0; i < kRows.size(); ++i) {
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
    for (std::size_t i = 0; i < kRows.size(); ++i) {
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
        {"EntradaAV.0.Brillo", "256", "EntradaAV.0.Brillo takes 0 to 255, not '256'"},
        {"EntradaAV.0.Brillo", "0x100", "EntradaAV.0.Brillo takes 0 to 255, not '0x100'"},
        {"EntradaAV.0.Brillo", "4294967296", "EntradaAV.0.Brillo takes 0 to 255, not '4294967296'"},
        {"RFOut.Canal_Salida", "abc", "RFOut.Canal_Salida takes 0 to 255, not 'abc'"},
        {"RFOut.Canal_Salida", "-1", "RFOut.Canal_Salida takes 0 to 255, not '-1'"},
        {"RFOut.Canal_Salida", "21.0", "RFOut.Canal_Salida takes 0 to 255, not '21.0'"},
        {"RFOut.Canal_Salida", "", "RFOut.Canal_Salida takes 0 to 255, not ''"},
        {"EntradaAV.0.Brillo", "12a", "EntradaAV.0.Brillo takes 0 to 255, not '12a'"},
        {"EntradaAV.0.Bitrate", "65535", "number 65535"},
        {"EntradaAV.0.Bitrate", "65536",
         "EntradaAV.0.Bitrate takes 0 to 65535 kbit/s, not '65536'"},
        {"RFOut.Frecuencia", "16777215", "number 16777215"},
        {"RFOut.Frecuencia", "16777216",
         "RFOut.Frecuencia takes 0 to 16777215 kHz, not '16777216'"},
        {"RFOut.Cofdm_Off", "255", "number 255"},
        {"RFOut.Cofdm_Off", "on", "RFOut.Cofdm_Off takes 0 or 1, not 'on'"},
        {"Red.NetworkName", "", "text "},
        {"Red.NetworkName", "12345", "text 12345"},
        {"Red.NetworkName", "Catorce bytes.", "text Catorce bytes."},
        {"Red.NetworkName", "Quince bytes ..",
         "Red.NetworkName takes a text of at most 14 bytes, not 'Quince bytes ..' with 15"},
        {"Red.NetworkName", "Ca\xF1on \xFF", "text Ca\xF1on \xFF"},
        {"ConfiguracionGen.Ip_Address", "192.168.100.100", "text 192.168.100.100"},
        {"ConfiguracionGen.Ip_Address", "192.168.100.1000",
         "ConfiguracionGen.Ip_Address takes an IPv4 address, not '192.168.100.1000'"},
        {"ConfiguracionGen.Lcd_Codbloqueo", "4321", "text 4321"},
        {"ConfiguracionGen.Lcd_Codbloqueo", "43210",
         "ConfiguracionGen.Lcd_Codbloqueo takes a text of at most 4 bytes, not '43210' with 5"},
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
        EXPECT_TRUE(answers(request, {}));
        EXPECT_FALSE(answers(request, Bytes{2}));
        EXPECT_FALSE(answers(request, Bytes(255)));
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
                EXPECT_EQ(answers(request, info), size == length && first == block)
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

TEST(ReadBack, IsWhatTheModuleShowsOfAnyValue) {
    const struct {
        const char* name;
        Value sent;
        Value shown;
    } kCases[] = {
        {"ConfiguracionGen.Modo_Entrada", 3U, 10U},
        {"ConfiguracionGen.Modo_Entrada", 10U, 10U},
        {"PIDsSalida.0.1.Seleccionado", 0U, 0U},
        {"PIDsSalida.0.1.Seleccionado", 1U, 1U},
        {"PIDsSalida.1.2.Seleccionado", 2U, 0U},
        {"PIDsSalida.1.2.Seleccionado", 255U, 0U},
        {"Red.TSID_Out", 5U, 0U},
        {"Red.ONID_Out", 0U, 0U},
        {"RFOut.Cofdm_Off", 255U, 255U},
        {"Red.NetworkName", "100% de %", "100  de %"},
        {"IPOut.SAP_Ip", "%", " "},
        {"Red.NetworkName", "'Red'", "'Red'"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(read_back_of(named(each.name), each.sent), each.shown) << each.name;
}

TEST(ValueToSend, IsTheOneThatReadsBackAsWanted) {
    using Maybe = std::optional<Value>;
    const struct {
        const char* name;
        Value wanted;
        Maybe sent;
    } kCases[] = {
        {"EntradaAV.0.Brillo", 255U, Value(255U)},
        {"EntradaAV.0.Brillo", 256U, {}},
        {"EntradaAV.0.Brillo", "5", {}},
        {"ConfiguracionGen.Modo_Entrada", 2U, Value(2U)},
        {"ConfiguracionGen.Modo_Entrada", 3U, {}},
        {"ConfiguracionGen.Modo_Entrada", 4U, {}},
        {"ConfiguracionGen.Modo_Entrada", 10U, Value(10U)},
        {"PIDsSalida.0.1.Seleccionado", 0U, Value(0U)},
        {"PIDsSalida.0.1.Seleccionado", 1U, Value(1U)},
        {"PIDsSalida.0.1.Seleccionado", 2U, {}},
        {"Red.TSID_Out", 0U, Value(0U)},
        {"Red.ONID_Out", 1U, {}},
        {"Red.NetworkName", "Red 1", "Red 1"},
        {"Red.NetworkName", "", ""},
        {"Red.NetworkName", "Red al 100%", "Red%al 100%"},
        {"Red.NetworkName", " %%", "%%%"},
        {"Red.NetworkName", "100% de", {}},
        {"Red.NetworkName", "%", {}},
        {"Red.NetworkName", "quince bytes ..", {}},
        {"Red.NetworkName", std::string("a\0b", 3), {}},
        {"Red.NetworkName", 5U, {}},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(value_to_send(named(each.name), each.wanted), each.sent) << each.name;
}

TEST(Consequence, IsNamedForWhatNeedsAConfirmation) {
    constexpr char kClock[] = "sets the clock of the module";
    constexpr char kFactory[] = "resets the module to its factory configuration";
    constexpr char kNetwork[] =
        "resets the network of the module, which may then have another address";
    for (unsigned code = 0; code <= 255; ++code) {
        std::string_view expected;
        if (code == 17)
            expected = "stores the same value in RFOut.Cofdm_Off, too";
        if (code == 71)
            expected = "stores the country's defaults in all that depends on the country";
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

TEST(Consequence, OfAWriteIsThatOfItsRequest) {
    std::set<std::string> reaching;
    for (const Parameter& parameter : parameters()) {
        const Request request = {.command = 3, .info = {parameter.write->code, 0}};
        EXPECT_EQ(reaches(parameter), consequence_of(request)) << parameter.name;
        if (!reaches(parameter).empty())
            reaching.insert(parameter.name);
    }
    EXPECT_THAT(reaching, ElementsAre("ConfiguracionGen.Country", "ConfiguracionGen.Ip_Address",
                                      "ConfiguracionGen.Ip_Gateway", "ConfiguracionGen.Ip_Mask",
                                      "EntradaAV.1.Audio_Bitrate"));
}

TEST(Patience, IsAMinuteForScriptsAndForTheCountryAndElse5Seconds) {
    for (unsigned code = 0; code <= 255; ++code) {
        const bool is_long = (code >= 68 && code <= 71) || code == 80;
        const auto first = static_cast<std::uint8_t>(code);
        EXPECT_EQ(patience_for({.command = 3, .info = {first, 0}}),
                  std::chrono::seconds(is_long ? 60 : 5))
            << code;
        EXPECT_EQ(patience_for({.command = 3, .info = {first}}), std::chrono::seconds(5)) << code;
        EXPECT_EQ(patience_for({.command = 1, .info = {first, 0}}), std::chrono::seconds(5))
            << code;
    }
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

const Bytes kIdentificationInfo = ::info_of(hex(document::answer(frame(4))), 4);
const Bytes kStatusInfo = ::info_of(hex(document::answer(frame(0))), 0);
const Bytes kBlock1Info = ::info_of(hex(document::answer(frame(1, {1}))), 1);
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

// Where the items end that the page tells of in a section.
std::vector<std::size_t> ends_in(const std::string& heading) {
    std::vector<std::size_t> ends;
    for (const document::Place& place : document::layout(heading)) {
        const bool says_something =
            place.kind != "zeros" && place.kind != "fixed" && place.kind != "sub-command";
        if (says_something)
            ends.push_back(place.position + place.width);
    }
    return ends;
}

TEST(Answer, TellsTheStatus) {
    EXPECT_THAT(written(status(kStatusInfo)), testing::IsSupersetOf({"input_sync 5",
                                                                     "alarma_hw false",
                                                                     "alarma_in true",
                                                                     "alarma_cod false",
                                                                     "alarma_si false",
                                                                     "alarma_mod false",
                                                                     "alarma_ip false",
                                                                     "output_sync true",
                                                                     "tv_system_1 34",
                                                                     "tv_system_2 33",
                                                                     "hdmi_1 33",
                                                                     "hdsdi_1 34",
                                                                     "hdmi_2 1",
                                                                     "hdsdi_2 0",
                                                                     "null_level -5",
                                                                     "multiplex_1 160",
                                                                     "multiplex_total 16",
                                                                     "multiplex_2 178",
                                                                     "multiplex_net 16",
                                                                     "ip_total 0",
                                                                     "ip_0 0",
                                                                     "ip_1 0",
                                                                     "player 0"}));
    EXPECT_EQ(status(kStatusInfo).size(), ends_in("Status").size());
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

std::size_t position_of(const std::string& name) {
    return document::place("Status", name).position;
}

TEST(Answer, TellsEachBitAndByteOfTheStatusApart) {
    const struct {
        const char* place;
        std::size_t offset;
        std::uint8_t byte;
        const char* line;
    } kCases[] = {
        {"input_sync", 0, 0xFF, "input_sync 255"},
        {"alarma_hw", 0, 0x01, "alarma_hw true"},
        {"alarma_hw", 0, 0x02, "alarma_in true"},
        {"alarma_hw", 0, 0x04, "alarma_cod true"},
        {"alarma_hw", 0, 0x08, "alarma_si true"},
        {"alarma_hw", 0, 0x10, "alarma_mod true"},
        {"alarma_hw", 0, 0x20, "alarma_ip true"},
        {"output_sync", 0, 0x01, "output_sync true"},
        {"tv_system_1", 0, 0x80, "tv_system_1 128"},
        {"tv_system_2", 0, 1, "tv_system_2 1"},
        {"hdmi_1", 0, 2, "hdmi_1 2"},
        {"hdsdi_1", 0, 3, "hdsdi_1 3"},
        {"hdmi_2", 0, 4, "hdmi_2 4"},
        {"hdsdi_2", 0, 5, "hdsdi_2 5"},
        {"null_level", 0, 0x01, "null_level 1"},
        {"null_level", 0, 0x7F, "null_level 127"},
        {"null_level", 0, 0x81, "null_level -1"},
        {"null_level", 0, 0xFF, "null_level -127"},
        {"multiplex_1", 0, 6, "multiplex_1 6"},
        {"multiplex_total", 0, 7, "multiplex_total 7"},
        {"multiplex_2", 0, 8, "multiplex_2 8"},
        {"multiplex_net", 0, 9, "multiplex_net 2304"},
        {"multiplex_net", 1, 9, "multiplex_net 9"},
        {"ip_total", 0, 10, "ip_total 2560"},
        {"ip_total", 1, 10, "ip_total 10"},
        {"ip_0", 0, 11, "ip_0 2816"},
        {"ip_0", 1, 11, "ip_0 11"},
        {"ip_1", 0, 12, "ip_1 3072"},
        {"ip_1", 1, 12, "ip_1 12"},
        {"player", 0, 13, "player 13"},
    };
    for (const auto& each : kCases)
        EXPECT_THAT(status_with(position_of(each.place) + each.offset, each.byte),
                    ElementsAre(each.line));
    // What has no meaning, and a level of minus zero.
    EXPECT_THAT(status_with(position_of("alarma_hw"), 0xC0), IsEmpty());
    EXPECT_THAT(status_with(position_of("output_sync"), 0xFE), IsEmpty());
    EXPECT_THAT(status_with(position_of("null_level"), 0x80), IsEmpty());
    for (const document::Place& place : document::layout("Status")) {
        if (place.kind != "zeros" && place.kind != "fixed")
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
        EXPECT_THAT(written(action_answer(each.info)), ElementsAreArray(each.items))
            << to_hex(each.info);
    Bytes not_registered = kRegistrationInfo;
    not_registered[74] = 1;
    EXPECT_EQ(written(action_answer(not_registered)).back(), "registered false");
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

TEST(Answer, OfAnyLengthHasTheItemsThatAreThere) {
    expect_what_is_there(identification, kIdentificationInfo, ends_in("Identification"));
    expect_what_is_there(status, kStatusInfo, ends_in("Status"));
    expect_what_is_there(configuration, kBlock1Info, ends_in("Block 1"));
    expect_what_is_there(configuration, kBlock2Info, ends_in("Block 2"));
    expect_what_is_there(action_answer, kEncoderInfo, ends_in("Slave modules"));
    expect_what_is_there(action_answer, hex("69 01 02"), {2, 3});
    expect_what_is_there(action_answer, hex("6D 05"), {2});
    expect_what_is_there(action_answer, kRegistrationInfo, {13, 32, 44, 55, 71, 74, 75});
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
         {"ignored 0"}},
        {"A5 03 00 00 00 0F 70 30 61 31 62 32 63 33 64 34 65 35 66 00 02 F8",
         "request: write, sub-command 112",
         {"mac '0a1b2c3d4e5f'", "state 2"}},
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
        {4, kIdentificationInfo, "answer: identification", ends_in("Identification").size(),
         "mac '001a2b3c4d5e'"},
        {0, kStatusInfo, "answer: status", ends_in("Status").size(), "player 0"},
        {1, kBlock1Info, "answer: configuration, block 1", ends_in("Block 1").size(),
         "Red.Insertar_TDT 1"},
        {1, kBlock2Info, "answer: configuration, block 2", ends_in("Block 2").size(),
         "IPOut.Mpts_Mode 0"},
        {3, kEncoderInfo, "answer: sub-command 106", ends_in("Slave modules").size(),
         "Remote_Modo_Salida 0"},
        {3, kRegistrationInfo, "answer: sub-command 110", 7, "registered true"},
    };
    for (const auto& each : kCases) {
        const Meaning meaning = meaning_of(answer_frame(each.command, each.info));
        EXPECT_EQ(meaning.text, each.text);
        ASSERT_EQ(meaning.items.size(), each.items) << each.text;
        EXPECT_EQ(written(meaning.items.back()), each.last);
    }
}

TEST(MeaningOfAFrame, IsThatOfItsHalfWhereThatIsKnown) {
    const struct {
        std::uint8_t command;
        Bytes info;
        const char* as_request;
        const char* as_answer;
    } kCases[] = {
        {0, {}, "request: status", "answer: status"},
        {0, {7}, "request: status", "answer: status"},
        {4, {}, "request: identification", "answer: identification"},
        {4, {90}, "request: identification", "answer: identification"},
        {1,
         {},
         "request: configuration, of a wrong length",
         "answer: no configuration, the request had a wrong length"},
        {1, {2}, "request: configuration, block 2", "answer: configuration, block 2"},
        {1, {1, 10}, "request: configuration, of a wrong length", "answer: configuration, block 1"},
        {3, {}, "request: write, no sub-command", "answer: written or not"},
        {3, {2, 52}, "request: write, sub-command 2 Brillo ch1.", "answer: sub-command 2"},
        {3, {54, 1}, "request: write, unknown sub-command 54", "answer: sub-command 54"},
        {3,
         {109, 0},
         "request: write, sub-command 109 SUBCOMMAND_REMOTE_ENCODER_STATUS",
         "answer: sub-command 109"},
        {3, Bytes(255), "request: write, unknown sub-command 0", "answer: refused"},
        {5, {}, "unknown command 5", "unknown command 5"},
    };
    for (const auto& each : kCases) {
        const mensaje frame = answer_frame(each.command, each.info);
        EXPECT_EQ(meaning_of(frame, Half::request).text, each.as_request);
        EXPECT_EQ(meaning_of(frame, Half::answer).text, each.as_answer);
    }
    const mensaje frame = answer_frame(0, {7});
    EXPECT_THAT(written(meaning_of(frame, Half::request).items), ElementsAre());
    EXPECT_THAT(written(meaning_of(frame, Half::answer).items), ElementsAre("input_sync 7"));
    const mensaje brightness = answer_frame(3, {2, 52});
    EXPECT_THAT(written(meaning_of(brightness, Half::request).items),
                ElementsAre("EntradaAV.0.Brillo 52"));
    EXPECT_THAT(written(meaning_of(brightness, Half::answer).items), ElementsAre());
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
    EXPECT_EQ(seen, document::table("| Code | Name in the log").size());
}

}  // namespace

}  // namespace master
