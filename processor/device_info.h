// The device's identity and its two system actions, from files and scripts of the board. Nothing
// is kept: each call reads its source anew. Nothing is logged: that is the caller's.
//
// A getter writes a fixed number of bytes, not terminated when the text fills them, zeros behind
// a shorter text. It returns 0, or -1 with nothing written.
#pragma once

#include <cstdint>

// 10 bytes: the first line of the model file, at most 9 characters. -1 when it is empty.
int get_type_model(std::uint8_t* buffer);

// 8 bytes: the first 8 characters of the same line. Always 0; nothing written without the file.
int get_name(std::uint8_t* buffer);

// 12 bytes: the first line of the serial number file.
int get_serial_num(std::uint8_t* buffer);

// 18 bytes: the host name, at most 17 characters. -1 when it is empty.
int get_hostname(std::uint8_t* buffer);

// 16 bytes: the first line that the script prints, at most 15 characters with its line end.
int get_slave_ip(std::uint8_t* buffer);

// 12 bytes: the MAC address as hexadecimal digits without colons.
int get_MAC_num(std::uint8_t* buffer);

// 3 bytes: major, minor, build of 1 software, 2 boot loader, 3 hardware. A script that does not
// name the wanted version, or is missing, is no failure: 0 with nothing written.
int get_versions(std::uint8_t* buffer, int selector);

// Restore the factory configuration; rebuild the network interfaces from the database. The
// shell's exit status: that of the script, 128 and the number when a signal ended it, 127 when it
// is missing; -1 when the shell itself did not end by itself.
int send_reset_factory();
int send_reset_network();
