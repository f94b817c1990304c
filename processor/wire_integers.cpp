#include "processor/wire_integers.h"

namespace {

int width(e_int32_len len) {
    return len >= INT32_LEN_1 && len <= INT32_LEN_4 ? len + 1 : 1;
}

}  // namespace

int buff2int32(const std::uint8_t* buff, e_int32_len len) {
    std::uint32_t value = 0;
    for (int i = 0; i < width(len); ++i)
        value = value << 8U | buff[i];
    return static_cast<int>(value);
}

void int322buff(int value, std::uint8_t* buff, e_int32_len len) {
    auto rest = static_cast<std::uint32_t>(value);
    for (int i = width(len) - 1; i >= 0; --i) {
        buff[i] = static_cast<std::uint8_t>(rest);
        rest >>= 8U;
    }
}
