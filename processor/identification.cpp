#include "processor/identification.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "link/mensaje.h"
#include "processor/conf_log.h"
#include "processor/device_info.h"
#include "processor/indexed.h"
#include "protocol/description.h"

namespace {

enum Fact : std::uint8_t { model, software, name, boot_loader, hardware, serial, mac };

struct Source {
    Fact fact;
    int (*read)(std::uint8_t* at);
    const char* failure;
};

template <int selector>
int versions(std::uint8_t* at) {
    return get_versions(at, selector);
}

constexpr char kVersionsFailure[] = "FILE: Error al recuperar las versiones del equipo.";

// clang-format off
constexpr Source kSources[] = {
    {model,       get_type_model, "FILE: Error al recuperar tipo y modelo del equipo."},
    {software,    versions<1>,    kVersionsFailure},
    {name,        get_name,       "FILE: Error al recuperar el nombre del equipo."},
    {boot_loader, versions<2>,    kVersionsFailure},
    {hardware,    versions<3>,    kVersionsFailure},
    {serial,      get_serial_num, "FILE: Error al recuperar el numero de serie."},
    {mac,         get_MAC_num,    "FILE: Error al recuperar la MAC."},
};
// clang-format on

static_assert(is_indexed_by(kSources, &Source::fact));

struct Place {
    std::uint8_t position;
    Fact fact;
};

constexpr Place kPlaces[] = {
#define FIELD(layout, position, width, name, kind, unit, meaning, source) {position, source},
#define LINES "protocol/identification.def"
#include "protocol/lines.inc"
};

std::array<std::uint8_t, kMaxInfo> identification_block{};
std::uint8_t identification_length = 0;

}  // namespace

void fill_identification() {
    for (const Place& place : kPlaces) {
        const Source& source = kSources[place.fact];
        if (source.read(&identification_block[place.position]) != 0)
            log_category(kLogGeneral, LOG_WARNING, source.failure);
    }
    constexpr std::uint8_t kLength = protocol::length(protocol::Layout::identification);
    identification_length = kLength;
}

void put_identification(mensaje& answer) {
    std::copy(identification_block.begin(), identification_block.end(), answer.info);
    answer.longitud = identification_length;
}
