// The configuration answer: two blocks of fixed layout.
#pragma once

#include <cstdint>

struct mensaje;

// Puts the values of this moment and their length, block 2 or for any other number block 1, into a
// zero-filled answer. A value that cannot be read is sent as if 0 were stored, a text as an empty
// one.
void put_configuration(std::uint8_t number, mensaje& answer);
