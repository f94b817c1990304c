// The countries that the module knows: their regional defaults and their channel plans.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace protocol {

// Channels of equal width that follow each other in frequency. Frequencies in kHz.
struct Band {
    int step;      // width of a channel
    int category;  // of the band; nothing depends on it
    int first_channel;
    int last_channel;
    int lowest;
    int highest;
    int offset;  // of a channel's centre from its lower edge
};

// The channels of which a band is chosen to reckon their frequencies: the bands overlap in their
// channel numbers, and some are never chosen.
struct Range {
    int first;
    int last;
    std::size_t band;  // index of it
};

struct Plan {
    const char* name;
    std::span<const Band> bands;
    std::span<const Range> ranges;  // a channel of none goes to the first band
};

struct Country {
    const char* name;
    const char* locale;
    const char* three_letters;
    const char* two_letters;
    // Columns of the configuration, for what they mean there.
    int subtimezone;
    int nid;
    int tsid_out;
    int onid_out;
    int nit_patron;
    int lcn_mode;
    int modo_ofdm;
    int intervalo_guarda;
    int code_rate;
    int canal_salida;
    int frecuencia;
    int ancho_banda;
    int spare;          // carried along, nothing here depends on it
    int video_bitrate;  // kbit/s, of each of two inputs
    const Plan* plan;   // null for none
};

// All of them.
std::span<const Country> countries();

// The first country whose name `text` begins with; one with empty texts, zeros and no plan when
// there is none.
const Country& find_country(std::string_view text);

// True for Australia, the one country with channels of 7 MHz in all its bands.
bool has_7mhz_plan(std::string_view country);

// A change of country gives each AV input the country's video bitrate, but from this mode of the
// inputs on the first one alone gets one, in kbit/s.
inline constexpr int kFirstModeOfOneVideoBitrate = 3;
inline constexpr int kVideoBitrateOfOneInput = 15000;

// The centre of a channel in kHz; of any number, as if the country's first band went on in both
// directions. A country that is not known has the European plan.
int channel_frequency(int channel, std::string_view country);

// The channel of the first band that a frequency in kHz lies in; 0 when it lies in none or the
// country is not known.
int frequency_channel(int frequency, std::string_view country);

}  // namespace protocol
