#include "processor/identification.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "link/mensaje.h"
#include "processor/conf_log.h"
#include "processor/device_info.h"

namespace {

struct Source {
    std::size_t position;
    int (*read)(std::uint8_t* at);
    const char* failure;
};

constexpr char kVersionsFailure[] = "FILE: Error al recuperar las versiones del equipo.";

// In this order: a later source overwrites the tail of an earlier one, and masters read the
// block as that leaves it (of the model three characters, of the versions major and minor).
constexpr Source kSources[] = {
    {0, get_type_model, "FILE: Error al recuperar tipo y modelo del equipo."},
    {3, [](std::uint8_t* at) { return get_versions(at, 1); }, kVersionsFailure},
    {5, get_name, "FILE: Error al recuperar el nombre del equipo."},
    {13, [](std::uint8_t* at) { return get_versions(at, 2); }, kVersionsFailure},
    {15, [](std::uint8_t* at) { return get_versions(at, 3); }, kVersionsFailure},
    {17, get_serial_num, "FILE: Error al recuperar el numero de serie."},
    {29, get_MAC_num, "FILE: Error al recuperar la MAC."},
};

std::array<std::uint8_t, kMaxInfo> identification_block{};
std::uint8_t identification_length = 0;

}  // namespace

void fill_identification() {
    for (const Source& source : kSources) {
        if (source.read(&identification_block[source.position]) != 0)
            log_category(kLogGeneral, LOG_WARNING, source.failure);
    }
    identification_length = '0';  // the character: 48 bytes, seven zeros behind the MAC included
}

void put_identification(mensaje& answer) {
    std::copy(identification_block.begin(), identification_block.end(), answer.info);
    answer.longitud = identification_length;
}
