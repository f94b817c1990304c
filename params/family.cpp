#include "params/family.h"

#include <algorithm>
#include <cstring>

void put_text(std::string_view text, Copy rule, std::uint8_t* buffer, int size) {
    if (size <= 0)
        return;
    const auto room = static_cast<std::size_t>(size);
    std::memset(buffer, 0, room);
    const std::size_t most = rule == Copy::terminated ? room - 1 : room;
    std::copy_n(text.begin(), std::min(text.size(), most), buffer);
}

std::string text_within(const char* text, unsigned size) {
    return size == 0 ? std::string() : std::string(text, strnlen(text, size - 1));
}
