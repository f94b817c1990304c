#include "processor/device_info.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "processor/device_text.h"

namespace {

constexpr char kModelFile[] = "/quelt/conf/quelt_modelo";
constexpr char kSerialFile[] = "/quelt/conf/quelt_numserie";
constexpr char kHostnameCommand[] = "hostname|tr -d '\\n'";
constexpr char kSlaveIpScript[] = "/quelt/script/get_slave_ip.sh";
constexpr char kMacScript[] = "/quelt/script/MAC";
constexpr char kVersionsScript[] = "/quelt/script/get_board_versions.sh";

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
struct ClosePipe {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;
using Pipe = std::unique_ptr<std::FILE, ClosePipe>;

// Close-on-exec in both: no descriptor of ours goes to a script.
File open_file(const char* path) {
    return File(std::fopen(path, "re"));
}
Pipe start(const char* command) {
    return Pipe(popen(command, "re"));
}

// A zeroed line of at most N - 1 characters.
template <std::size_t N>
using Line = std::array<char, N>;

// Reads one line, its line end included. False when there is none.
template <std::size_t N>
bool read_line(std::FILE* source, Line<N>& line) {
    return std::fgets(line.data(), static_cast<int>(line.size()), source) != nullptr;
}

// Zeros everything from the line end on.
template <std::size_t N>
void cut_line_end(Line<N>& line) {
    std::fill(line.begin() + std::strcspn(line.data(), "\n"), line.end(), '\0');
}

// False when the file cannot be opened. An unreadable or empty one gives an empty line.
template <std::size_t N>
bool read_file(const char* path, Line<N>& line) {
    const File file = open_file(path);
    if (!file)
        return false;
    read_line(file.get(), line);
    cut_line_end(line);
    return true;
}

// False when the command cannot be started or prints nothing. Its exit status does not count.
template <std::size_t N>
bool read_command(const char* command, Line<N>& line) {
    const Pipe pipe = start(command);
    return pipe && read_line(pipe.get(), line);
}

int exit_status(const char* command) {
    const int status = std::system(command);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int get_type_model(std::uint8_t* buffer) {
    Line<10> line{};
    if (!read_file(kModelFile, line) || line[0] == '\0')
        return -1;
    std::copy_n(line.begin(), 10, buffer);
    return 0;
}

int get_name(std::uint8_t* buffer) {
    Line<9> line{};
    if (read_file(kModelFile, line))
        std::copy_n(line.begin(), 8, buffer);
    return 0;
}

int get_serial_num(std::uint8_t* buffer) {
    Line<13> line{};
    if (!read_file(kSerialFile, line))
        return -1;
    std::copy_n(line.begin(), 12, buffer);
    return 0;
}

int get_hostname(std::uint8_t* buffer) {
    Line<18> line{};
    if (!read_command(kHostnameCommand, line) || line[0] == '\0')
        return -1;
    std::copy_n(line.begin(), 18, buffer);
    return 0;
}

int get_slave_ip(std::uint8_t* buffer) {
    Line<16> line{};
    if (!read_command(kSlaveIpScript, line))
        return -1;
    std::copy_n(line.begin(), 16, buffer);
    return 0;
}

int get_MAC_num(std::uint8_t* buffer) {
    Line<18> line{};
    if (!read_command(kMacScript, line))
        return -1;
    cut_line_end(line);
    return parse_mac(line.data(), buffer);
}

int get_versions(std::uint8_t* buffer, int selector) {
    const Pipe pipe = start(kVersionsScript);
    return pipe ? scan_versions(pipe.get(), selector, buffer) : -1;
}

int send_reset_factory() {
    return exit_status("/quelt/script/reset_factory_default.sh");
}

int send_reset_network() {
    return exit_status("/quelt/script/set_interfaces_db.sh");
}
