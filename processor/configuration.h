// The configuration answer: two blocks of fixed layout.
#pragma once

#include <cstdint>
#include <span>

#include "processor/answer_block.h"

struct mensaje;

// The layout of block 2, or of block 1 for any other number.
std::span<const Field> configuration_block(std::uint8_t number);

// Puts the values of this moment and their length, 114 or 185, into a zero-filled answer. A value
// that cannot be read is sent as if 0 were stored, a text as an empty one.
void put_configuration(std::uint8_t number, mensaje& answer);
