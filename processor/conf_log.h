// The category mask of the log: a message of a category is written only when its bit is set.
#pragma once

#include <cstdint>

extern std::uint32_t conf_log;

constexpr std::uint32_t kLogGeneral = 0x10;
constexpr std::uint32_t kLogDatabases = 0x20;
constexpr std::uint32_t kLogZondar = 0x40;

// Writes `text` to syslog at `priority` when one of the bits of `category` is set in conf_log.
void log_category(std::uint32_t category, int priority, const char* text);
