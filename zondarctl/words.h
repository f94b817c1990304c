// Words of the command line. What cannot be read is a UsageError.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "master/bytes.h"
#include "zondarctl/report.h"

namespace zondarctl {

// A number from 0 to `largest`, decimal or behind 0x hexadecimal; `what` is it called.
std::uint8_t byte_of(const std::string& word, unsigned largest, const char* what);

// At most 255 bytes in hexadecimal digits, with or without blanks between them.
Bytes bytes_of(const std::vector<std::string>& words);

// 16 bytes a line.
void put_hex_lines(Report& report, const Bytes& bytes);

}  // namespace zondarctl
