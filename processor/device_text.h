// Pure parsers of what the board's scripts print.
#pragma once

#include <cstdint>
#include <cstdio>

// "00:1a:2b:3c:4d:5e" to the 12 digits without colons at `digits`; the digits are not checked.
// 0, or -1 with nothing written when the line is not 17 characters long with its first colon
// behind the second.
int parse_mac(const char* line, std::uint8_t* digits);

// Scans `output` for records of three words, whatever its line ends: one skipped, a label, a
// version A.B.C. The last record that bears the label of `selector` (1 software, 2 boot loader,
// 3 hardware) gives the three bytes at `version`; each is the number modulo 256, a missing one 0.
// 0 when the whole output was read, also when no label matched; -1 with nothing written when a
// version has an empty A or the output cannot be read.
int scan_versions(std::FILE* output, int selector, std::uint8_t* version);
