// The integers inside info: every width, every value at the edges, not one byte too many.
#include "processor/wire_integers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tests/processor/marked_buffer.h"
#include "tests/support/bytes.h"

namespace {

constexpr int kLowest = std::numeric_limits<int>::min();

struct Decoding {
    const char* bytes;
    int len;
    int value;
};

constexpr Decoding kDecodings[] = {
    {.bytes = "01 02 03 04", .len = 0, .value = 1},
    {.bytes = "01 02 03 04", .len = 1, .value = 258},
    {.bytes = "01 02 03 04", .len = 2, .value = 66051},
    {.bytes = "01 02 03 04", .len = 3, .value = 16909060},
    {.bytes = "00 00 00 00", .len = 3, .value = 0},
    // no sign extension below four bytes
    {.bytes = "FF FF FF FF", .len = 0, .value = 255},
    {.bytes = "FF FF FF FF", .len = 1, .value = 65535},
    {.bytes = "FF FF FF FF", .len = 2, .value = 16777215},
    {.bytes = "80 00 00 00", .len = 0, .value = 128},
    {.bytes = "80 00 00 00", .len = 1, .value = 32768},
    {.bytes = "80 00 00 00", .len = 2, .value = 8388608},
    // four bytes are signed
    {.bytes = "FF FF FF FF", .len = 3, .value = -1},
    {.bytes = "80 00 00 00", .len = 3, .value = kLowest},
    {.bytes = "7F FF FF FF", .len = 3, .value = 2147483647},
    // any other width is one byte
    {.bytes = "81 02 03 04", .len = 4, .value = 129},
    {.bytes = "81 02 03 04", .len = 5, .value = 129},
    {.bytes = "81 02 03 04", .len = 255, .value = 129},
    {.bytes = "81 02 03 04", .len = -1, .value = 129},
    {.bytes = "81 02 03 04", .len = kLowest, .value = 129},
    {.bytes = "81 02 03 04", .len = 2147483647, .value = 129},
};

TEST(WireIntegers, AreDecodedBigEndian) {
    for (const Decoding& c : kDecodings) {
        SCOPED_TRACE(std::string(c.bytes) + " with width code " + std::to_string(c.len));
        EXPECT_EQ(buff2int32(hex(c.bytes).data(), static_cast<e_int32_len>(c.len)), c.value);
    }
}

struct Encoding {
    int value;
    int len;
    const char* bytes;
};

constexpr Encoding kEncodings[] = {
    {.value = 300, .len = 0, .bytes = "2C"},
    {.value = 300, .len = 1, .bytes = "01 2C"},
    {.value = 300, .len = 2, .bytes = "00 01 2C"},
    {.value = 300, .len = 3, .bytes = "00 00 01 2C"},
    {.value = 0, .len = 0, .bytes = "00"},
    {.value = 0, .len = 3, .bytes = "00 00 00 00"},
    {.value = 0x12345678, .len = 0, .bytes = "78"},
    {.value = 0x12345678, .len = 1, .bytes = "56 78"},
    {.value = 0x12345678, .len = 2, .bytes = "34 56 78"},
    {.value = 0x12345678, .len = 3, .bytes = "12 34 56 78"},
    {.value = -1, .len = 0, .bytes = "FF"},
    {.value = -1, .len = 1, .bytes = "FF FF"},
    {.value = -2, .len = 2, .bytes = "FF FF FE"},
    {.value = -2, .len = 3, .bytes = "FF FF FF FE"},
    {.value = kLowest, .len = 3, .bytes = "80 00 00 00"},
    {.value = 0x12345678, .len = 4, .bytes = "78"},
    {.value = 0x12345678, .len = 255, .bytes = "78"},
    {.value = 0x12345678, .len = -1, .bytes = "78"},
    {.value = 0x12345678, .len = kLowest, .bytes = "78"},
};

TEST(WireIntegers, AreEncodedBigEndianAndNoByteBeyondTheirWidthIsTouched) {
    for (const Encoding& c : kEncodings) {
        SCOPED_TRACE(std::to_string(c.value) + " with width code " + std::to_string(c.len));
        Bytes buffer = marked();
        int322buff(c.value, buffer.data(), static_cast<e_int32_len>(c.len));
        EXPECT_EQ(to_hex(buffer), to_hex(marked(hex(c.bytes))));
    }
}

}  // namespace
