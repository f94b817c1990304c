#include "processor/region.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "link/mensaje.h"
#include "params/ConfiguracionGen.h"
#include "params/EntradaAV.h"
#include "params/RFOut.h"
#include "params/Red.h"
#include "processor/parameters.h"
#include "processor/protocol_log.h"
#include "protocol/countries.h"

namespace {

using protocol::channel_frequency;
using protocol::Country;
using protocol::find_country;
using protocol::frequency_channel;
using protocol::has_7mhz_plan;

constexpr unsigned kCountrySize = 15;  // its NUL included

// Longer than any name in a request: what is cut to it equals none of them.
constexpr std::size_t kAnyCountrySize = sizeof(mensaje);

std::string stored_country(std::size_t size = kCountrySize) {
    std::vector<std::uint8_t> text(size);
    getstr_ConfiguracionGen(CGS_COUNTRY, text.data(), static_cast<int>(size));
    return reinterpret_cast<const char*>(text.data());
}

int tune(int channel, int frequency) {
    const int result = parameter(RFO_CANAL_SALIDA).set(channel);
    return result < 0 ? result : parameter(RFO_FRECUENCIA).set(frequency);
}

// In this order, each whatever became of those before.
void write_defaults(const char* name, const Country& country) {
    log_if_failed(parameter(CGS_COUNTRY).set(name, kCountrySize));
#define COUNTRY_TEXT(selector, member, size) \
    log_if_failed(parameter(selector).set(country.member, size));
#define COUNTRY_NUMBER(selector, member) log_if_failed(parameter(selector).set(country.member));
#define LINES "protocol/country.def"
#include "protocol/lines.inc"
}

// What the width of the channels decides.
void write_channel_plan(const Country& country) {
#define PLAN_NUMBER(selector, member) log_if_failed(parameter(selector).set(country.member));
#define LINES "protocol/country.def"
#include "protocol/lines.inc"
}

// Of the last one nobody learns whether it could be written.
void write_video_bitrates(const Country& country) {
    if (get_ConfiguracionGen(CG_MODO_ENTRADA) < protocol::kFirstModeOfOneVideoBitrate) {
        log_if_failed(set_EntradaAV(EAV_BITRATE, 0, country.video_bitrate));
        set_EntradaAV(EAV_BITRATE, 1, country.video_bitrate);
    } else {
        set_EntradaAV(EAV_BITRATE, 0, protocol::kVideoBitrateOfOneInput);
    }
}

}  // namespace

int set_output_channel(int channel) {
    return tune(channel, channel_frequency(channel, stored_country()));
}

int set_output_frequency(int frequency) {
    return tune(frequency_channel(frequency, stored_country()), frequency);
}

void change_country(std::string_view name) {
    // Whole, since another process may have stored more than fits here.
    const std::string before = stored_country(kAnyCountrySize);
    if (name == before)
        return;
    const Country& country = find_country(name);
    write_defaults(std::string(name).c_str(), country);
    if (has_7mhz_plan(before) || has_7mhz_plan(name))
        write_channel_plan(country);
    write_video_bitrates(country);
}
