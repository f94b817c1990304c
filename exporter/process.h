// This process as the system sees it.
#pragma once

#include <chrono>
#include <cstddef>

#include "exporter/exposition.h"

namespace exporter {

// Allows itself as many open files as it may have; returns how many.
std::size_t raise_open_files();

// CPU time, memory, open files, under the names that programs watched by Prometheus share.
void put_process(Exposition& out, std::chrono::system_clock::time_point start);

}  // namespace exporter
