// What the running daemon writes to syslog, and the category mask that gates most of it.
#pragma once

#include <cstdint>

// A message of a category is written only when its bit is set.
extern std::uint32_t conf_log;

constexpr std::uint32_t kLogGeneral = 0x10;
constexpr std::uint32_t kLogDatabases = 0x20;
constexpr std::uint32_t kLogZondar = 0x40;

// Writes a line to syslog. A fatal signal that comes meanwhile ends the process when the line is
// out.
[[gnu::format(printf, 2, 3)]] void log_line(int priority, const char* format, ...);

// The same with `text` when one of the bits of `category` is set in conf_log.
void log_category(std::uint32_t category, int priority, const char* text);
