#include "processor/region.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "link/mensaje.h"
#include "params/ConfiguracionGen.h"
#include "params/EntradaAV.h"
#include "params/RFOut.h"
#include "params/Red.h"
#include "processor/countries.h"
#include "processor/parameters.h"
#include "processor/protocol_log.h"

namespace {

// Of the texts, their NUL included.
constexpr unsigned kCountrySize = 15;
constexpr unsigned kLocaleSize = 6;
constexpr unsigned kThreeLettersSize = 4;
constexpr unsigned kTwoLettersSize = 3;

// Longer than any name in a request: what is cut to it equals none of them.
constexpr std::size_t kAnyCountrySize = sizeof(mensaje);

std::string stored_country(std::size_t size = kCountrySize) {
    std::vector<std::uint8_t> text(size);
    getstr_ConfiguracionGen(CGS_COUNTRY, text.data(), static_cast<int>(size));
    return reinterpret_cast<const char*>(text.data());
}

int tune(int channel, int frequency) {
    const int result = number(RFO_CANAL_SALIDA).set(channel);
    return result < 0 ? result : number(RFO_FRECUENCIA).set(frequency);
}

// In this order, each whatever became of those before.
void write_defaults(const char* name, const Country& country) {
    log_if_failed(text(CGS_COUNTRY).set(name, kCountrySize));
    log_if_failed(text(CGS_LANGUAGE).set(country.locale, kLocaleSize));
    log_if_failed(number(CG_SUBTIMEZONE).set(country.subtimezone));
    log_if_failed(text(CGS_IDTIMEZONE).set(country.two_letters, kTwoLettersSize));
    log_if_failed(text(CGS_CODTIMEZONE).set(country.three_letters, kThreeLettersSize));
    log_if_failed(number(RED_NID).set(country.nid));
    log_if_failed(number(kNoTsidOut).set(country.tsid_out));
    log_if_failed(number(kNoOnidOut).set(country.onid_out));
    log_if_failed(number(RED_NIT_PATRON).set(country.nit_patron));
    log_if_failed(number(RED_LCN_MODE).set(country.lcn_mode));
    log_if_failed(number(RFO_MODO_OFDM).set(country.modo_ofdm));
    log_if_failed(number(RFO_INTERVALO_GUARDA).set(country.intervalo_guarda));
}

// What the width of the channels decides.
void write_channel_plan(const Country& country) {
    log_if_failed(number(RFO_CODE_RATE).set(country.code_rate));
    log_if_failed(number(RFO_CANAL_SALIDA).set(country.canal_salida));
    log_if_failed(number(RFO_FRECUENCIA).set(country.frecuencia));
    log_if_failed(number(RFO_ANCHO_BANDA).set(country.ancho_banda));
}

// In kbit/s. Of the last one nobody learns whether it could be written.
void write_video_bitrates(std::string_view name) {
    constexpr int kFirstModeOfOneInput = 3;
    constexpr int kOneInput = 15000;
    const bool lower = has_7mhz_plan(name) || name.starts_with("Italy");
    const int each = lower ? 7000 : 8000;
    if (get_ConfiguracionGen(CG_MODO_ENTRADA) < kFirstModeOfOneInput) {
        log_if_failed(set_EntradaAV(EAV_BITRATE, 0, each));
        set_EntradaAV(EAV_BITRATE, 1, each);
    } else {
        set_EntradaAV(EAV_BITRATE, 0, kOneInput);
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
    write_video_bitrates(name);
}
