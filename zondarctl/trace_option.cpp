#include "zondarctl/trace_option.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>

#include "zondarctl/report.h"

namespace zondarctl {

namespace {

[[noreturn]] void refuse(const std::string& path, const char* why) {
    throw UsageError(fmt::format("cannot write frames to {}: {}", path, why));
}

// As the trace writer begins a file on this machine: magic number, and in the last four bytes the
// link type.
bool begins_a_trace(const std::string& path) {
    std::uint32_t header[6] = {};
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(header), sizeof header);
    return file && header[0] == 0xA1B2C3D4 && header[5] == 147;
}

}  // namespace

void require_trace_file(const std::string& path) {
    if (path.empty())
        return;
    if (access(path.c_str(), F_OK) == 0) {
        if (access(path.c_str(), W_OK) != 0)
            refuse(path, std::strerror(errno));
        if (!begins_a_trace(path))
            refuse(path, "it is there, and holds something else");
        return;
    }
    // The trace writer makes the file itself; here it only is seen that it can.
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (descriptor == -1)
        refuse(path, std::strerror(errno));
    close(descriptor);
    unlink(path.c_str());
}

}  // namespace zondarctl
