#include "link/trace_file.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "link/mensaje.h"
#include "link/messages.h"

const char* zondar_pcap_path = "";

namespace {

// Both headers are written in the host's byte order; the magic number tells a reader which one.
// Format: https://www.tcpdump.org/manpages/pcap-savefile.5.html
struct FileHeader {
    std::uint32_t magic = 0xA1B2C3D4;
    std::uint16_t major = 2;
    std::uint16_t minor = 4;
    std::uint32_t zone = 0;
    std::uint32_t accuracy = 0;
    std::uint32_t snapshot = 0;  // readers take 0 as unlimited
    std::uint32_t link_type = 147;
};
static_assert(sizeof(FileHeader) == 24);

struct RecordHeader {
    std::uint32_t seconds;
    std::uint32_t microseconds;
    std::uint32_t captured;
    std::uint32_t on_the_wire;
};
static_assert(sizeof(RecordHeader) == 16);

// A trace that cannot be written is no reason to disturb the protocol.
void put(int fd, const void* bytes, std::size_t count) {
    [[maybe_unused]] const ssize_t written = write(fd, bytes, count);
}

// Returns a descriptor that is ready to append a record; -1 on failure.
int open_trace() {
    if (access(zondar_pcap_path, F_OK) == 0)
        return open(zondar_pcap_path, O_RDWR | O_APPEND | O_CLOEXEC);
    const int fd = open(zondar_pcap_path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd != -1) {
        const FileHeader header;
        put(fd, &header, sizeof header);
    }
    return fd;
}

}  // namespace

void write_zondar_msg_to_pcap(const std::uint8_t* trama, unsigned direction) {
    if (*zondar_pcap_path == '\0')
        return;
    timeval now{};
    gettimeofday(&now, nullptr);
    const int fd = open_trace();
    if (fd == -1) {
        error_line("write_zondar_msg_to_pcap", "Error abriendo log: %s", std::strerror(errno));
        return;
    }
    const std::uint32_t frame_length = trama[kLengthOffset] + 8U;
    const RecordHeader header{static_cast<std::uint32_t>(now.tv_sec),
                              static_cast<std::uint32_t>(now.tv_usec), frame_length + 1,
                              frame_length + 1};
    const auto direction_byte = static_cast<std::uint8_t>(direction);
    put(fd, &header, sizeof header);
    put(fd, &direction_byte, 1);
    put(fd, trama, frame_length);
    close(fd);
}
