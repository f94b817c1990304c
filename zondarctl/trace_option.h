// The file of --pcap.
#pragma once

#include <string>

namespace zondarctl {

// Throws a UsageError when frames could not be appended to the file, or not to what it holds. An
// empty path is no file.
void require_trace_file(const std::string& path);

}  // namespace zondarctl
