// What the answers of a module say as metrics, made from the one description of the messages: names
// and meanings of the fields are the metrics' help. docs/metrics.md lists them all.
#pragma once

#include <cstdint>
#include <span>

#include "exporter/exposition.h"

namespace exporter {

// All take infos as long as they have to be. Figures that begin anew at 0 are left out: whoever
// draws them would draw what never was.
void put_status(Exposition& exposition, std::span<const std::uint8_t> info);
void put_identification(Exposition& exposition, std::span<const std::uint8_t> info);
// Of both blocks of the configuration, without the module's clock.
void put_configuration(Exposition& exposition, std::span<const std::uint8_t> block_1,
                       std::span<const std::uint8_t> block_2);

}  // namespace exporter
