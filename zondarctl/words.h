// Words of the command line. What cannot be read is a UsageError.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "master/bytes.h"
#include "zondarctl/report.h"

namespace zondarctl {

// A number from 0 to `largest`, decimal or behind 0x hexadecimal; `what` is it called.
std::uint8_t byte_of(const std::string& word, unsigned largest, const char* what);

// At most 255 bytes in hexadecimal digits, as master/bytes.h reads them.
Bytes bytes_of(const std::vector<std::string>& words);

// "; did you mean A, B or C?"; empty for none.
std::string did_you_mean(std::span<const std::string> words);

// True for a word that names a file.
bool is_file(const std::string& word);

// 16 bytes a line.
void put_hex_lines(Report& report, const Bytes& bytes);

}  // namespace zondarctl
