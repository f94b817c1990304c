#include "protocol/countries.h"

namespace protocol {

namespace {

// clang-format off
constexpr Band kAustralia[] = {
    // step class first last  lowest highest offset
    {  7000,  32,    6,   9, 174000, 202000, 3500},
    {  7000,  65,    9,   9, 202000, 209000, 3500},
    {  7000,  32,   10,  12, 209000, 223000, 3500},
    {  7000,  32,   28,  69, 526000, 813000, 3500},
};

constexpr Band kEurope[] = {
    // step class first last  lowest highest offset
    {  7000,  69,    2,   4,  47000,  68000, 3500},
    {  7000,  83,    3,  10, 118000, 173875, 3500},
    {  7000,  69,    5,  12, 174000, 229875, 3500},
    {  7000,  83,   11,  20, 230000, 299875, 3500},
    {  8000,  83,   21,  38, 302000, 445875, 4000},
    {  8000,  32,   21,  69, 470000, 862000, 4000},
};

constexpr Range kAustralianRanges[] = {
    { 6,  9, 0},
    {10, 12, 2},
    {28, 69, 3},
};

constexpr Range kEuropeanRanges[] = {
    { 2,  4, 0},
    { 5, 12, 2},
    {13, 20, 3},
    {21, 69, 5},
};

constexpr Plan kAustralianPlan = {"Australia", kAustralia, kAustralianRanges};
constexpr Plan kEuropeanPlan   = {"Europe",    kEurope,    kEuropeanRanges};

constexpr Country kCountries[] = {
    //                                             time   NID  TSID  ONID NIT LCN OFDM guard rate channel     kHz width  --  video
    {"Australia",     "en_US", "AUS", "au",           6,    1,   28,  100,  1,  5,   1,    1,   2,     38, 599500,    1, 100, 7000, &kAustralianPlan},
    {"France",        "fr_FR", "FRA", "fr",           0,    1,   21, 8442,  1,  1,   1,    2,   2,     21, 474000,    0,  45, 8000, &kEuropeanPlan},
    {"Great Britain", "en_US", "GBR", "gb",           0,    1,   21, 9018,  1,  2,   0,    0,   2,     21, 474000,    0, 400, 8000, &kEuropeanPlan},
    {"Italy",         "it_IT", "ITA", "it",           0,    1,   21,    1,  1,  1,   1,    3,   2,     21, 474000,    0,  10, 7000, &kEuropeanPlan},
    {"Portugal",      "en_US", "PRT", "pt",           0,    1,   21, 8904,  1,  5,   1,    0,   4,     21, 474000,    0,   0, 8000, &kEuropeanPlan},
    {"Spain",         "es_ES", "ESP", "es",           0,    1,   21,  100,  1,  0,   1,    0,   4,     21, 474000,    0,   1, 8000, &kEuropeanPlan},
};
// clang-format on

constexpr Country kUnknown = {"", "", "", "", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8000, nullptr};

const Band& band_of(int channel, const Plan& plan) {
    for (const Range& range : plan.ranges) {
        if (channel >= range.first && channel <= range.last)
            return plan.bands[range.band];
    }
    return plan.bands.front();
}

}  // namespace

std::span<const Country> countries() {
    return kCountries;
}

const Country& find_country(std::string_view text) {
    for (const Country& country : kCountries) {
        if (text.starts_with(country.name))
            return country;
    }
    return kUnknown;
}

bool has_7mhz_plan(std::string_view country) {
    return country.starts_with("Australia");
}

int channel_frequency(int channel, std::string_view country) {
    const Plan* const plan = find_country(country).plan;
    const Band& band = band_of(channel, plan == nullptr ? kEuropeanPlan : *plan);
    return (channel - band.first_channel) * band.step + band.lowest + band.offset;
}

int frequency_channel(int frequency, std::string_view country) {
    const Plan* const plan = find_country(country).plan;
    if (plan == nullptr)
        return 0;
    for (const Band& band : plan->bands) {
        if (frequency >= band.lowest && frequency <= band.highest)
            return (frequency - band.lowest) / band.step + band.first_channel;
    }
    return 0;
}

}  // namespace protocol
