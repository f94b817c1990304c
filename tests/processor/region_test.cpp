// The change of country, sub-command 71: which cells of the databases it changes, in which order,
// and what it logs.
#include "processor/region.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "processor/request.h"
#include "protocol/countries.h"
#include "tests/processor/own_log.h"
#include "tests/processor/requests.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/open_board.h"
#include "tests/support/pauses.h"
#include "tests/support/trace.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

using Lines = std::vector<std::string>;

constexpr std::uint8_t kWrite = 3;

const std::string kCommandLine = "<31>CMD: Comando escritura parametros.\n";
const std::string kSubcommandLine = "<31>Subcomando SUBCOMMAND_COUNTRY\n";
const std::string kErrorLine = "<28>ERROR: Peticion de escritura no exitosa.\n";

// The info of a request for that country: the sub-command and the name, ended or not.
Bytes named(const std::string& name) {
    return joined({{71}, text_bytes(name)});
}
Bytes ended(const std::string& name) {
    return joined({named(name), {0}});
}

// A board on which every cell that a change of country writes holds something that none of the
// countries has.
void stand_in(const std::string& country, int input_mode) {
    const Database conf(kConfDb);
    conf.run("UPDATE ConfiguracionGen SET Country = " + country +
             ", Language = '-', Idtimezone = '-', Codtimezone = '-', Subtimezone = -7,"
             "  Modo_Entrada = " +
             std::to_string(input_mode) +
             ";"
             "UPDATE Red SET NID = -7, TSID_Out = -7, ONID_Out = -7, NIT_Patron = -7,"
             "  LCN_Mode = -7;"
             "UPDATE RFOut SET Modo_OFDM = -7, Intervalo_Guarda = -7, Code_Rate = -7,"
             "  Canal_Salida = -7, Frecuencia = -7, Ancho_Banda = -7;"
             "UPDATE EntradaAV SET Bitrate = -7");
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

// What becomes of the cells, all of them in the one row of each table. The identifiers of the
// transport stream and of the original network cannot be written, so nothing is told of them.
struct Defaults {
    const char* language;
    const char* idtimezone;
    const char* codtimezone;
    int subtimezone;
    int nid;
    int nit_patron;
    int lcn_mode;
    int modo_ofdm;
    int intervalo_guarda;
    // with the channel plan
    int code_rate;
    int canal_salida;
    int frecuencia;
    int ancho_banda;
    int bitrate;  // of both inputs
};

constexpr Defaults kUnknown = {"", "", "", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8000};

struct Region {
    const char* name;
    Defaults defaults;
    bool narrow = false;  // channels of 7 MHz
};

// clang-format off
const Region kRegions[] = {
    {"Australia",     {"en_US", "au", "AUS", 6, 1, 1, 5, 1, 1, 2, 38, 599500, 1, 7000}, true},
    {"France",        {"fr_FR", "fr", "FRA", 0, 1, 1, 1, 1, 2, 2, 21, 474000, 0, 8000}},
    {"Great Britain", {"en_US", "gb", "GBR", 0, 1, 1, 2, 0, 0, 2, 21, 474000, 0, 8000}},
    {"Italy",         {"it_IT", "it", "ITA", 0, 1, 1, 1, 1, 3, 2, 21, 474000, 0, 7000}},
    {"Portugal",      {"en_US", "pt", "PRT", 0, 1, 1, 5, 1, 0, 4, 21, 474000, 0, 8000}},
    {"Spain",         {"es_ES", "es", "ESP", 0, 1, 1, 0, 1, 0, 4, 21, 474000, 0, 8000}},
    {"Germany",       kUnknown},
    {"Andorra",       kUnknown},
};
// clang-format on
const Defaults& kAustralia = kRegions[0].defaults;
const Defaults& kItaly = kRegions[3].defaults;
const Defaults& kGreatBritain = kRegions[2].defaults;
const Defaults& kSpain = kRegions[5].defaults;

// `from` and `to` as SQL literals.
Lines country_line(const std::string& from, const std::string& to) {
    if (from == to)
        return {};
    return {"ConfiguracionGen 1 Country: " + from + " -> " + to};
}

Lines general_lines(const Defaults& to) {
    return {
        "ConfiguracionGen 1 Language: '-' -> " + quoted(to.language),
        "ConfiguracionGen 1 Subtimezone: -7 -> " + std::to_string(to.subtimezone),
        "ConfiguracionGen 1 Idtimezone: '-' -> " + quoted(to.idtimezone),
        "ConfiguracionGen 1 Codtimezone: '-' -> " + quoted(to.codtimezone),
    };
}

Lines network_lines(const Defaults& to) {
    return {
        "Red 1 NID: -7 -> " + std::to_string(to.nid),
        "Red 1 NIT_Patron: -7 -> " + std::to_string(to.nit_patron),
        "Red 1 LCN_Mode: -7 -> " + std::to_string(to.lcn_mode),
    };
}

Lines modulation_lines(const Defaults& to) {
    return {
        "RFOut 1 Modo_OFDM: -7 -> " + std::to_string(to.modo_ofdm),
        "RFOut 1 Intervalo_Guarda: -7 -> " + std::to_string(to.intervalo_guarda),
    };
}

Lines plan_lines(const Defaults& to) {
    return {
        "RFOut 1 Code_Rate: -7 -> " + std::to_string(to.code_rate),
        "RFOut 1 Canal_Salida: -7 -> " + std::to_string(to.canal_salida),
        "RFOut 1 Frecuencia: -7 -> " + std::to_string(to.frecuencia),
        "RFOut 1 Ancho_Banda: -7 -> " + std::to_string(to.ancho_banda),
    };
}

Lines bitrate_lines(int of_channel_0, int of_channel_1) {
    Lines lines;
    if (of_channel_0 != -7)
        lines.push_back("EntradaAV 0 Bitrate: -7 -> " + std::to_string(of_channel_0));
    if (of_channel_1 != -7)
        lines.push_back("EntradaAV 1 Bitrate: -7 -> " + std::to_string(of_channel_1));
    return lines;
}

Lines operator+(Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// Everything but the country's name itself and the channel plan, with two inputs.
Lines all_lines(const Defaults& to) {
    return general_lines(to) + network_lines(to) + modulation_lines(to) +
           bitrate_lines(to.bitrate, to.bitrate);
}

class CountryChange : public testing::Test {
  protected:
    CountryChange() { conf_log = 0x40; }

    // What the request changes in both databases.
    static Lines changed_by(const mensaje& request) {
        const Contents before = contents();
        EXPECT_EQ(to_hex(answer_to(request)), "");
        return changes(before, contents());
    }
    static Lines changed_by(const Bytes& info) { return changed_by(request_of(kWrite, info)); }

    OwnLog log_;
    OpenBoard board_;
};

TEST_F(CountryChange, WritesTheDefaultsOfTheNewCountryAndThePlanInto7MhzAndOutOfIt) {
    for (const Region& from : kRegions) {
        for (const Region& to : kRegions) {
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            stand_in(quoted(from.name), 0);
            Lines expected;
            if (from.name != to.name) {
                expected =
                    country_line(quoted(from.name), quoted(to.name)) + all_lines(to.defaults);
                if (from.narrow || to.narrow)
                    expected = expected + plan_lines(to.defaults);
            }
            EXPECT_THAT(changed_by(ended(to.name)), UnorderedElementsAreArray(expected));
            EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kSubcommandLine));
        }
    }
}

// The sample board itself, whose cells hold much of this already.
struct Known {
    const char* to;
    Lines expected = {};
};

const Known kOfTheSampleBoard[] = {
    {"Spain", {}},
    {"France",
     {
         "ConfiguracionGen 1 Codtimezone: 'ESP' -> 'FRA'",
         "ConfiguracionGen 1 Country: 'Spain' -> 'France'",
         "ConfiguracionGen 1 Idtimezone: 'es' -> 'fr'",
         "ConfiguracionGen 1 Language: 'es_ES' -> 'fr_FR'",
         "EntradaAV 1 Bitrate: 6500 -> 8000",
         "RFOut 1 Intervalo_Guarda: 0 -> 2",
         "Red 1 NIT_Patron: 0 -> 1",
     }},
    {"Australia",
     {
         "ConfiguracionGen 1 Codtimezone: 'FRA' -> 'AUS'",
         "ConfiguracionGen 1 Country: 'France' -> 'Australia'",
         "ConfiguracionGen 1 Idtimezone: 'fr' -> 'au'",
         "ConfiguracionGen 1 Language: 'fr_FR' -> 'en_US'",
         "ConfiguracionGen 1 Subtimezone: 0 -> 6",
         "EntradaAV 0 Bitrate: 8000 -> 7000",
         "EntradaAV 1 Bitrate: 8000 -> 7000",
         "RFOut 1 Ancho_Banda: 0 -> 1",
         "RFOut 1 Canal_Salida: 21 -> 38",
         "RFOut 1 Code_Rate: 4 -> 2",
         "RFOut 1 Frecuencia: 474000 -> 599500",
         "RFOut 1 Intervalo_Guarda: 2 -> 1",
         "Red 1 LCN_Mode: 1 -> 5",
     }},
    {"Narnia",
     {
         "ConfiguracionGen 1 Codtimezone: 'AUS' -> ''",
         "ConfiguracionGen 1 Country: 'Australia' -> 'Narnia'",
         "ConfiguracionGen 1 Idtimezone: 'au' -> ''",
         "ConfiguracionGen 1 Language: 'en_US' -> ''",
         "ConfiguracionGen 1 Subtimezone: 6 -> 0",
         "EntradaAV 0 Bitrate: 7000 -> 8000",
         "EntradaAV 1 Bitrate: 7000 -> 8000",
         "RFOut 1 Ancho_Banda: 1 -> 0",
         "RFOut 1 Canal_Salida: 38 -> 0",
         "RFOut 1 Code_Rate: 2 -> 0",
         "RFOut 1 Frecuencia: 599500 -> 0",
         "RFOut 1 Intervalo_Guarda: 1 -> 0",
         "RFOut 1 Modo_OFDM: 1 -> 0",
         "Red 1 LCN_Mode: 5 -> 0",
         "Red 1 NID: 1 -> 0",
         "Red 1 NIT_Patron: 1 -> 0",
     }},
};

TEST_F(CountryChange, GoesFromOneToTheNextOnTheSampleBoard) {
    for (const Known& step : kOfTheSampleBoard) {
        SCOPED_TRACE(step.to);
        EXPECT_EQ(changed_by(ended(step.to)), step.expected);
    }
}

const std::string kGeneral = "SELECT * FROM ConfiguracionGen ";
const std::string kNetwork = "SELECT * FROM Red ";
const std::string kOutput = "SELECT * FROM RFOut WHERE IdRFOut='1'";
const std::string kInput0 = "SELECT * FROM EntradaAV WHERE IdEntradaAV='0'";
const std::string kInput1 = "SELECT * FROM EntradaAV WHERE IdEntradaAV='1'";

TEST_F(CountryChange, WritesInAFixedOrder) {
    stand_in("'Spain'", 0);
    Trace trace;
    EXPECT_EQ(to_hex(answer_to(kWrite, ended("Australia"))), "");
    EXPECT_THAT(
        trace.take(),
        ElementsAre(
            kGeneral,  // the stored name
            kGeneral,
            "UPDATE ConfiguracionGen SET  Country = 'Australia'  WHERE IdConfiguracion = '1'",
            kGeneral,
            "UPDATE ConfiguracionGen SET  Language = 'en_US'  WHERE IdConfiguracion = '1'",
            kGeneral, "UPDATE ConfiguracionGen SET  Subtimezone = '6'  WHERE IdConfiguracion = '1'",
            kGeneral, "UPDATE ConfiguracionGen SET  Idtimezone = 'au'  WHERE IdConfiguracion = '1'",
            kGeneral,
            "UPDATE ConfiguracionGen SET  Codtimezone = 'AUS'  WHERE IdConfiguracion = '1'",
            kNetwork, "UPDATE Red SET  NID = '1'  WHERE idRed = '1'",
            kNetwork,  // of the transport stream and
            kNetwork,  // of the original network nothing is written
            kNetwork, "UPDATE Red SET  NIT_Patron = '1'  WHERE idRed = '1'", kNetwork,
            "UPDATE Red SET  LCN_Mode = '5'  WHERE idRed = '1'", kOutput,
            "UPDATE RFOut SET  Modo_OFDM = '1'  WHERE idRFOut = '1'", kOutput,
            "UPDATE RFOut SET  Intervalo_Guarda = '1'  WHERE idRFOut = '1'", kOutput,
            "UPDATE RFOut SET  Code_Rate = '2'  WHERE idRFOut = '1'", kOutput,
            "UPDATE RFOut SET  Canal_Salida = '38'  WHERE idRFOut = '1'", kOutput,
            "UPDATE RFOut SET  Frecuencia = '599500'  WHERE idRFOut = '1'", kOutput,
            "UPDATE RFOut SET  Ancho_Banda = '1'  WHERE idRFOut = '1'",
            kGeneral,  // the input mode
            kInput0, "UPDATE EntradaAV SET  Bitrate = '7000'  WHERE IdEntradaAV = '0'", kInput1,
            "UPDATE EntradaAV SET  Bitrate = '7000'  WHERE IdEntradaAV = '1'"));
}

TEST_F(CountryChange, LeavesOutThePlanAndTheSecondInputWhenTheyDoNotCount) {
    stand_in("'Spain'", 3);
    Trace trace;
    EXPECT_EQ(to_hex(answer_to(kWrite, ended("Italy"))), "");
    const Lines statements = trace.take();
    ASSERT_GE(statements.size(), 5U);
    EXPECT_THAT(
        Lines(statements.end() - 5, statements.end()),
        ElementsAre(kOutput, "UPDATE RFOut SET  Intervalo_Guarda = '3'  WHERE idRFOut = '1'",
                    kGeneral, kInput0,
                    "UPDATE EntradaAV SET  Bitrate = '15000'  WHERE IdEntradaAV = '0'"));
}

TEST_F(CountryChange, ToTheStoredNameReadsNothingElse) {
    for (const char* name : {"Spain", "Australia", "Germany", ""}) {
        SCOPED_TRACE(name);
        stand_in(quoted(name), 0);
        Trace trace;
        EXPECT_THAT(changed_by(ended(name)), IsEmpty());
        EXPECT_THAT(trace.take(), ElementsAre(kGeneral));
        EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kSubcommandLine));
    }
}

// How the name in the request and the one in the database are taken.
struct Naming {
    const char* name;
    std::string stored = "'Spain'";  // SQL
    Bytes info;
    std::string then;              // SQL
    const Defaults* to = nullptr;  // null when nothing happens
    bool plan = false;
};

const Naming kNamings[] = {
    {.name = "only begins with a country's name",
     .stored = "'France'",
     .info = ended("Spainish"),
     .then = "'Spainish'",
     .to = &kSpain},
    {.name = "the stored name begins with the new one",
     .stored = "'Spainish'",
     .info = ended("Spain"),
     .then = "'Spain'",
     .to = &kSpain},
    {.name = "the new name begins with the stored one",
     .info = ended("Spain "),
     .then = "'Spain '",
     .to = &kSpain},
    {.name = "begins with Australia",
     .info = ended("Australian"),
     .then = "'Australian'",
     .to = &kAustralia,
     .plan = true},
    {.name = "the stored name begins with Australia",
     .stored = "'Australian'",
     .info = ended("Spain"),
     .then = "'Spain'",
     .to = &kSpain,
     .plan = true},
    {.name = "from one that begins with Australia to another",
     .stored = "'Australian'",
     .info = ended("Australia"),
     .then = "'Australia'",
     .to = &kAustralia,
     .plan = true},
    {.name = "begins with Italy",
     .info = ended("Italy, the North"),
     .then = "'Italy, the Nor'",
     .to = &kItaly},
    {.name = "a beginning of a country's name",
     .info = ended("Great"),
     .then = "'Great'",
     .to = &kUnknown},
    {.name = "Australia but for its last letter",
     .info = ended("Australi"),
     .then = "'Australi'",
     .to = &kUnknown},
    {.name = "a country's name behind a blank",
     .info = ended(" Australia"),
     .then = "' Australia'",
     .to = &kUnknown},
    {.name = "small letters", .info = ended("australia"), .then = "'australia'", .to = &kUnknown},
    {.name = "capitals", .info = ended("SPAIN"), .then = "'SPAIN'", .to = &kUnknown},
    {.name = "the stored name in capitals",
     .stored = "'SPAIN'",
     .info = ended("Spain"),
     .then = "'Spain'",
     .to = &kSpain},
    // 14 characters are stored, and all are compared; another process may have stored more
    {.name = "14 characters",
     .info = ended("Great Britain!"),
     .then = "'Great Britain!'",
     .to = &kGreatBritain},
    {.name = "15 characters",
     .info = ended("Great Britain!!"),
     .then = "'Great Britain!'",
     .to = &kGreatBritain},
    {.name = "the longest that an info holds",
     .info = named("Italy" + std::string(248, '.')),
     .then = "'Italy.........'",
     .to = &kItaly},
    {.name = "differs behind the 14th character only",
     .stored = "'Great Britain!'",
     .info = ended("Great Britain!!"),
     .then = "'Great Britain!'",
     .to = &kGreatBritain},
    {.name = "14 characters again",
     .stored = "'Great Britain!'",
     .info = ended("Great Britain!"),
     .then = "'Great Britain!'"},
    {.name = "the first 14 characters of a longer stored name",
     .stored = "'Great Britain!?'",
     .info = ended("Great Britain!"),
     .then = "'Great Britain!'",
     .to = &kGreatBritain},
    {.name = "a longer stored name again",
     .stored = "'Great Britain!?'",
     .info = ended("Great Britain!?"),
     .then = "'Great Britain!?'"},
    {.name = "the longest that an info holds again",
     .stored = quoted("Italy" + std::string(248, '.')),
     .info = ended("Italy" + std::string(248, '.')),
     .then = quoted("Italy" + std::string(248, '.'))},
    {.name = "the longest that an info holds, of a stored name that is longer still",
     .stored = quoted("Italy" + std::string(400, '.')),
     .info = ended("Italy" + std::string(248, '.')),
     .then = "'Italy.........'",
     .to = &kItaly},
    // empty or none
    {.name = "empty name", .info = ended(""), .then = "''", .to = &kUnknown},
    {.name = "empty name after Australia",
     .stored = "'Australia'",
     .info = ended(""),
     .then = "''",
     .to = &kUnknown,
     .plan = true},
    {.name = "no stored name",
     .stored = "NULL",
     .info = ended("Spain"),
     .then = "'Spain'",
     .to = &kSpain},
    {.name = "no stored name, Australia",
     .stored = "NULL",
     .info = ended("Australia"),
     .then = "'Australia'",
     .to = &kAustralia,
     .plan = true},
    {.name = "empty name, no stored one", .stored = "NULL", .info = ended(""), .then = "NULL"},
    {.name = "empty stored name",
     .stored = "''",
     .info = ended("Italy"),
     .then = "'Italy'",
     .to = &kItaly},
    // what stands behind the first NUL
    {.name = "a longer name behind the NUL",
     .stored = "'France'",
     .info = hex("47 53 70 61 69 6E 00 41 75 73 74 72 61 6C 69 61 00"),
     .then = "'Spain'",
     .to = &kSpain},
    {.name = "only something behind the NUL",
     .info = hex("47 00 41"),
     .then = "''",
     .to = &kUnknown},
    // not for SQL
    {.name = "quote", .info = ended("Spain's"), .then = "'Spain''s'", .to = &kSpain},
    {.name = "statement", .info = ended("';DELETE--"), .then = "''';DELETE--'", .to = &kUnknown},
    // Without its NUL a name runs on into the checksum, the negative of 03 + 06 + 47 + 53 + 70 + 61
    // + 69 + 6E and of 03 + 0A + 47 + 41 + 75 + 73 + 74 + 72 + 61 + 6C + 69 + 61.
    {.name = "not ended", .info = named("Spain"), .then = "'Spain\xB5'", .to = &kSpain},
    {.name = "Australia not ended",
     .info = named("Australia"),
     .then = "'Australia\x06'",
     .to = &kAustralia,
     .plan = true},
};

TEST_F(CountryChange, TakesTheNameUpToItsNulAndCompares) {
    for (const Naming& c : kNamings) {
        SCOPED_TRACE(c.name);
        stand_in(c.stored, 0);
        Lines expected = country_line(c.stored, c.then);
        if (c.to != nullptr)
            expected = expected + all_lines(*c.to);
        if (c.plan)
            expected = expected + plan_lines(*c.to);
        EXPECT_THAT(changed_by(c.info), UnorderedElementsAreArray(expected));
        EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kSubcommandLine));
    }
}

TEST_F(CountryChange, StoresABlankForAPerCentSign) {
    stand_in("'Spain'", 0);
    testing::internal::CaptureStdout();
    EXPECT_THAT(
        changed_by(ended("Spain%s%n")),
        UnorderedElementsAreArray(country_line("'Spain'", "'Spain s%n'") + all_lines(kSpain)));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[DEBUG_DB]update: sustituido caracter % por espacio\n");
}

// A request whose bytes behind the info are `behind`: code bytes in normal mode or with CRC, and
// what a record holds otherwise.
mensaje with_codes(const Bytes& info, const Bytes& behind) {
    mensaje request = request_of(kWrite, info);
    std::copy(behind.begin(), behind.end(), frame_area(request) + kInfoOffset + info.size());
    return request;
}

struct Codes {
    const char* name;
    Bytes behind;
    std::string then;
    bool nothing = false;
};

const Codes kCodes[] = {
    // header bytes can make it any value
    {.name = "checksum 0, the stored name", .behind = {0x00}, .then = "'Spain'", .nothing = true},
    {.name = "checksum", .behind = {'!'}, .then = "'Spain!'"},
    {.name = "checksum and CRC", .behind = {'!', '?'}, .then = "'Spain!?'"},
    {.name = "checksum and CRC 0", .behind = {'!', 0x00}, .then = "'Spain!'"},
    {.name = "checksum 0 and CRC, the stored name",
     .behind = {0x00, '?'},
     .then = "'Spain'",
     .nothing = true},
};

TEST_F(CountryChange, RunsOnIntoTheCodesWhenTheNameIsNotEnded) {
    for (const Codes& c : kCodes) {
        SCOPED_TRACE(c.name);
        stand_in("'Spain'", 0);
        Lines expected;
        if (!c.nothing)
            expected = country_line("'Spain'", c.then) + all_lines(kSpain);
        EXPECT_THAT(changed_by(with_codes(named("Spain"), c.behind)),
                    UnorderedElementsAreArray(expected));
    }
}

// The record is on the heap, so that a sanitizer sees a read beyond its end.
TEST_F(CountryChange, ReadsNoFurtherThanTheRecord) {
    stand_in("'Spain'", 0);
    const auto request = std::make_unique<mensaje>(request_of(kWrite, named("Italy")));
    std::uint8_t* const area = frame_area(*request);
    std::fill(area + kInfoOffset + 6, area + sizeof(mensaje), std::uint8_t{'.'});
    request->comando = kWrite;
    EXPECT_EQ(text_at(*request, 1).size(), 258U);
    EXPECT_EQ(text_at(*request, 1), "Italy" + std::string(251, '.') + "\x03.");
    const Contents before = contents();
    const std::unique_ptr<mensaje> answer = procesar_comando(*request);
    EXPECT_EQ(answer->longitud, 0);
    EXPECT_THAT(
        changes(before, contents()),
        UnorderedElementsAreArray(country_line("'Spain'", "'Italy.........'") + all_lines(kItaly)));
}

struct Inputs {
    const char* to;
    int mode;
    int channel_0;
    int channel_1 = -7;  // as before
};

// From mode 3 on there is but one input, also in those modes that a master's 3 and 4 are stored as.
constexpr Inputs kInputs[] = {
    {"France", -2147483647, 8000, 8000},
    {"France", -1, 8000, 8000},
    {"France", 0, 8000, 8000},
    {"France", 1, 8000, 8000},
    {"France", 2, 8000, 8000},
    {"France", 3, 15000},
    {"France", 4, 15000},
    {"France", 10, 15000},
    {"France", 11, 15000},
    {"France", 2147483647, 15000},
    {"Italy", -1, 7000, 7000},
    {"Italy", 0, 7000, 7000},
    {"Italy", 1, 7000, 7000},
    {"Italy", 2, 7000, 7000},
    {"Italy", 3, 15000},
    {"Italy", 10, 15000},
    {"Italy", 11, 15000},
    {"Australia", -1, 7000, 7000},
    {"Australia", 0, 7000, 7000},
    {"Australia", 1, 7000, 7000},
    {"Australia", 2, 7000, 7000},
    {"Australia", 3, 15000},
    {"Australia", 10, 15000},
    {"Australia", 11, 15000},
    {"Italian", 0, 8000, 8000},
    {"italy", 0, 8000, 8000},
    {"Germany", 2, 8000, 8000},
    {"Germany", 3, 15000},
};

TEST_F(CountryChange, SetsTheVideoBitratesByCountryAndInputMode) {
    for (const Inputs& c : kInputs) {
        SCOPED_TRACE(std::string(c.to) + ", mode " + std::to_string(c.mode));
        stand_in("'Spain'", c.mode);
        Lines of_inputs;
        for (const std::string& line : changed_by(ended(c.to))) {
            if (line.starts_with("EntradaAV"))
                of_inputs.push_back(line);
        }
        EXPECT_EQ(of_inputs, bitrate_lines(c.channel_0, c.channel_1));
    }
}

TEST_F(CountryChange, TakesAnInputModeOfNullForTwoInputs) {
    stand_in("'Spain'", 0);
    Database(kConfDb).run("UPDATE ConfiguracionGen SET Modo_Entrada = NULL");
    EXPECT_THAT(changed_by(ended("Spain!")),
                UnorderedElementsAreArray(country_line("'Spain'", "'Spain!'") + all_lines(kSpain)));
}

// Rows that are missing: each write that fails is told of once, the others are done all the same.
struct Failure {
    const char* name;
    const char* sql;
    int mode = 0;
    const char* from = "Spain";
    std::string to = "Italy";
    std::size_t errors;
    Lines expected = {};
};

const Lines kToItaly = country_line("'Spain'", "'Italy'");
const Lines kToAustralia = country_line("'Spain'", "'Australia'");

const Failure kFailures[] = {
    {.name = "no general configuration",
     .sql = "DELETE FROM ConfiguracionGen",
     .errors = 5,
     .expected = network_lines(kItaly) + modulation_lines(kItaly) + bitrate_lines(7000, 7000)},
    // Its mode is then 0.
    {.name = "no general configuration, one input",
     .sql = "DELETE FROM ConfiguracionGen",
     .mode = 3,
     .errors = 5,
     .expected = network_lines(kItaly) + modulation_lines(kItaly) + bitrate_lines(7000, 7000)},
    // Nor does anything tell of the 7 MHz before.
    {.name = "no general configuration, from Australia",
     .sql = "DELETE FROM ConfiguracionGen",
     .from = "Australia",
     .errors = 5,
     .expected = network_lines(kItaly) + modulation_lines(kItaly) + bitrate_lines(7000, 7000)},
    // The name that is not there is the empty one.
    {.name = "no general configuration, empty name",
     .sql = "DELETE FROM ConfiguracionGen",
     .to = "",
     .errors = 0},
    {.name = "two general configurations",
     .sql = "INSERT INTO ConfiguracionGen (Country) VALUES ('Italy')",
     .errors = 5,
     .expected = network_lines(kItaly) + modulation_lines(kItaly) + bitrate_lines(7000, 7000)},
    {.name = "no network",
     .sql = "DELETE FROM Red",
     .errors = 5,
     .expected =
         kToItaly + general_lines(kItaly) + modulation_lines(kItaly) + bitrate_lines(7000, 7000)},
    {.name = "no output",
     .sql = "DELETE FROM RFOut",
     .errors = 2,
     .expected =
         kToItaly + general_lines(kItaly) + network_lines(kItaly) + bitrate_lines(7000, 7000)},
    {.name = "no output, with the plan",
     .sql = "DELETE FROM RFOut",
     .to = "Australia",
     .errors = 6,
     .expected = kToAustralia + general_lines(kAustralia) + network_lines(kAustralia) +
                 bitrate_lines(7000, 7000)},
    // Of the last bitrate nothing is told.
    {.name = "no first input",
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 0",
     .errors = 1,
     .expected = kToItaly + general_lines(kItaly) + network_lines(kItaly) +
                 modulation_lines(kItaly) + bitrate_lines(-7, 7000)},
    {.name = "no first input where it is the only one",
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 0",
     .mode = 3,
     .errors = 0,
     .expected =
         kToItaly + general_lines(kItaly) + network_lines(kItaly) + modulation_lines(kItaly)},
    {.name = "no second input",
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 1",
     .errors = 0,
     .expected = kToItaly + general_lines(kItaly) + network_lines(kItaly) +
                 modulation_lines(kItaly) + bitrate_lines(7000, -7)},
    {.name = "no second input where there is but one",
     .sql = "DELETE FROM EntradaAV WHERE IdEntradaAV = 1",
     .mode = 10,
     .errors = 0,
     .expected = kToItaly + general_lines(kItaly) + network_lines(kItaly) +
                 modulation_lines(kItaly) + bitrate_lines(15000, -7)},
    {.name = "no inputs",
     .sql = "DELETE FROM EntradaAV",
     .errors = 1,
     .expected =
         kToItaly + general_lines(kItaly) + network_lines(kItaly) + modulation_lines(kItaly)},
    {.name = "nothing at all",
     .sql = "DELETE FROM ConfiguracionGen; DELETE FROM Red; DELETE FROM RFOut;"
            "DELETE FROM EntradaAV",
     .to = "Australia",
     .errors = 17},
    {.name = "nothing at all, the stored name",
     .sql = "DELETE FROM Red; DELETE FROM RFOut; DELETE FROM EntradaAV",
     .to = "Spain",
     .errors = 0},
};

TEST(CountryChangeWithoutARow, LogsEachFailedWriteButTheLastAndGoesOn) {
    conf_log = 0x40;
    OwnLog log;
    for (const Failure& c : kFailures) {
        SCOPED_TRACE(c.name);
        const OpenBoard board;
        stand_in(quoted(c.from), c.mode);
        Database(kConfDb).run(c.sql);
        const Contents before = contents();
        EXPECT_EQ(to_hex(answer_to(kWrite, ended(c.to))), "");
        EXPECT_THAT(changes(before, contents()), UnorderedElementsAreArray(c.expected));
        Lines lines = {kCommandLine, kSubcommandLine};
        lines.insert(lines.end(), c.errors, kErrorLine);
        EXPECT_EQ(log.take(), lines);
        EXPECT_THAT(take_pauses(), IsEmpty());
    }
}

// The accessors count a write as done when they found the row.
TEST_F(CountryChange, DoesNotLogWritesThatTheDatabaseRefuses) {
    stand_in("'Spain'", 0);
    ASSERT_EQ(sqlite3_exec(ConfDB, "PRAGMA query_only = ON", nullptr, nullptr, nullptr), SQLITE_OK);
    Lines changed;
    const Printed printed = printed_by([&] { changed = changed_by(ended("Australia")); });
    EXPECT_THAT(changed, IsEmpty());
    EXPECT_THAT(log_.take(), ElementsAre(kCommandLine, kSubcommandLine));
    // 16 writes, two identifiers not among them, three attempts each
    EXPECT_EQ(take_pauses().size(), 48U);
    EXPECT_TRUE(printed.err.starts_with(
        "[ERROR_DB]update: Error actualizando datos registro en tabla ConfiguracionGen . intento: "
        "0\n"))
        << printed;
}

TEST_F(CountryChange, LogsNothingWhenTheLogIsOff) {
    conf_log = 0xBF;
    Database(kConfDb).run("DELETE FROM Red");
    EXPECT_EQ(to_hex(answer_to(kWrite, ended("Italy"))), "");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST(Countries, HaveNothingInCommonWithUnknownOnes) {
    for (const char* name : {"", "A", "spain", " Spain", "Great", "Great  Britain", "Germany"}) {
        SCOPED_TRACE(name);
        const protocol::Country& unknown = protocol::find_country(name);
        EXPECT_STREQ(unknown.name, "");
        EXPECT_EQ(unknown.plan, nullptr);
    }
}

}  // namespace
