// The name under which the daemon speaks in syslog.
#pragma once

inline constexpr char kIdentity[] = "ZONDAR_NET_RECEIVER";
