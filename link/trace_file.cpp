#include "link/trace_file.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "link/messages.h"
#include "link/trace_record.h"

const char* zondar_pcap_path = "";

namespace {

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
        const TraceFileHeader header;
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
    const TraceRecordHeader header = trace_record_header(trama, now);
    const auto direction_byte = static_cast<std::uint8_t>(direction);
    put(fd, &header, sizeof header);
    put(fd, &direction_byte, 1);
    put(fd, trama, traced_length(trama));
    close(fd);
}
