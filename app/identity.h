// The daemon speaks in syslog under this name.
#pragma once

inline constexpr char kIdentity[] = "ZONDAR_NET_RECEIVER";
