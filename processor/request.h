// Reading the info of a request.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "link/mensaje.h"
#include "processor/wire_integers.h"
#include "protocol/description.h"

// Where the value of a sub-command stands.
constexpr std::size_t kValue = protocol::position(protocol::Layout::write, "value");

// The number of 1 to 3 bytes at a position. It is taken from there however short the info is: what
// a short request lacks is then its code bytes and zeros.
inline int number_at(const mensaje& request, std::size_t position, std::size_t width) {
    return buff2int32(&request.info[position], static_cast<e_int32_len>(width - 1));
}

// The text at a position, up to its NUL. One that the master did not end runs on into the bytes
// that follow in the record, its code bytes first, and ends with the record at the latest.
inline std::string_view text_at(const mensaje& request, std::size_t position) {
    const std::size_t offset = kInfoOffset + position;
    const auto* const text = reinterpret_cast<const char*>(frame_area(request) + offset);
    return {text, strnlen(text, sizeof(mensaje) - offset)};
}
