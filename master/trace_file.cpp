#include "master/trace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

#include "link/trace_record.h"

namespace master {

namespace {

// Ready for a record; -1 on failure. Of several writers that find no file one makes its header.
int open_trace(const char* path) {
    constexpr int kFlags = O_RDWR | O_APPEND | O_CLOEXEC;
    int file = open(path, kFlags);
    if (file == -1 && errno == ENOENT)
        file = open(path, kFlags | O_CREAT, 0644);
    struct stat status {};
    const auto is_empty = [&] { return fstat(file, &status) == 0 && status.st_size == 0; };
    if (is_empty()) {
        flock(file, LOCK_EX);
        const TraceFileHeader header;
        [[maybe_unused]] const ssize_t written =
            is_empty() ? write(file, &header, sizeof header) : 0;
        flock(file, LOCK_UN);
    }
    return file;
}

}  // namespace

void append_to_trace(const std::string& path, const std::uint8_t* trama, unsigned direction) {
    const int file = open_trace(path.c_str());
    if (file == -1)
        return;
    timeval now{};
    gettimeofday(&now, nullptr);
    TraceRecordHeader header = trace_record_header(trama, now);
    auto direction_byte = static_cast<std::uint8_t>(direction);
    const iovec record[] = {{&header, sizeof header},
                            {&direction_byte, 1},
                            {const_cast<std::uint8_t*>(trama), traced_length(trama)}};
    [[maybe_unused]] const ssize_t written = writev(file, record, std::size(record));
    close(file);
}

}  // namespace master
