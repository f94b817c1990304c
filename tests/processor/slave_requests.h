// What a slave module sends.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/bytes.h"

// A text in a field of that width, zeros behind it; one that is longer is cut, without a NUL.
inline Bytes field(const std::string& text, std::size_t width) {
    Bytes bytes = text_bytes(text);
    bytes.resize(width);
    return bytes;
}

// The sub-command, the MAC address and what is behind it.
inline Bytes of_slave(std::uint8_t code, const std::string& mac, const Bytes& data = {}) {
    return joined({{code}, field(mac, 13), data});
}

struct Registration {
    std::string mac;
    std::string hostname;
    std::string serial;
    std::string model;
    std::string ip;
    Bytes version;
};

inline Bytes registration(const Registration& slave) {
    return joined({{110},
                   field(slave.mac, 13),
                   field(slave.hostname, 18),
                   field(slave.serial, 13),
                   field(slave.model, 10),
                   field(slave.ip, 16),
                   slave.version});
}
