// The integers inside `info`: unsigned, big-endian, 1 to 4 bytes wide.
#pragma once

#include <cstdint>

// Width in bytes less one. A value outside these counts as INT32_LEN_1.
enum e_int32_len : int {
    INT32_LEN_1 = 0,
    INT32_LEN_2 = 1,
    INT32_LEN_3 = 2,
    INT32_LEN_4 = 3,
};

// The number at `buff`. No sign extension below four bytes; four bytes are a signed 32-bit int.
int buff2int32(const std::uint8_t* buff, e_int32_len len);

// Writes the low bytes of `value` at `buff`, exactly as many as the width says.
void int322buff(int value, std::uint8_t* buff, e_int32_len len);
