#include "processor/configuration.h"

#include "link/mensaje.h"
#include "processor/answer_block.h"
#include "processor/board_clock.h"

namespace {

using protocol::Layout;

constexpr Field kFields[] = {
#define LINES "protocol/configuration.def"
#include "processor/answer_fields.inc"
};

constexpr std::span<const Field> kBlock1 = fields_of(kFields, Layout::configuration_1);
constexpr std::span<const Field> kBlock2 = fields_of(kFields, Layout::configuration_2);

}  // namespace

void put_configuration(std::uint8_t number, mensaje& answer) {
    put_fields(protocol::block_layout(number) == Layout::configuration_2 ? kBlock2 : kBlock1,
               answer);
}
