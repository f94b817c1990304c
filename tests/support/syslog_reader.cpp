#include "tests/support/syslog_reader.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "tests/support/wait.h"

namespace {

constexpr char kMark[] = "mark";
constexpr std::size_t kTimeStamp = sizeof "Nov 20 20:13:00 " - 1;

// "<29>Nov 20 20:13:00 NAME[3]: text". What was not sent by syslog() has no priority and no name.
LogLine parse(const std::string& packet) {
    if (!packet.starts_with('<'))
        return {-1, "", packet};
    const std::size_t stamp = packet.find('>') + 1;
    const std::size_t name = stamp + kTimeStamp;
    const std::size_t text = packet.find(": ", name) + 2;
    return {std::stoi(packet.substr(1)),
            packet.substr(name, packet.find_first_of("[:", name) - name), packet.substr(text)};
}

bool holds(const LogLine& line, const std::string& text) {
    return line.text.find(text) != std::string::npos;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << "<" << line.priority << "> " << line.name << ": " << line.text;
}

std::string with_priority(const LogLine& line) {
    std::string text = "<";
    text += std::to_string(line.priority);
    text += ">";
    return text += line.text;
}

SyslogReader::SyslogReader()
    : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      marker_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{AF_UNIX, "/dev/log"};
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    unlink(address.sun_path);
    if (bind(socket_, generic, sizeof address) != 0)
        throw std::runtime_error("cannot bind /dev/log");
    if (connect(marker_, generic, sizeof address) != 0)
        throw std::runtime_error("cannot connect to /dev/log");
    collector_ = std::thread([this] { collect(); });
}

SyslogReader::~SyslogReader() {
    shutdown(socket_, SHUT_RDWR);
    collector_.join();
    close(socket_);
    close(marker_);
}

void SyslogReader::collect() {
    std::array<char, 8192> packet{};
    ssize_t length = 0;
    while ((length = recv(socket_, packet.data(), packet.size(), 0)) > 0) {
        const std::string text(packet.data(), static_cast<std::size_t>(length));
        const std::lock_guard not_paused(reading_);
        if (text == kMark) {
            ++marks_seen_;
            continue;
        }
        const std::lock_guard lock(mutex_);
        lines_.push_back(parse(text));
    }
}

void SyslogReader::settle() const {
    const int mark = ++marks_sent_;
    if (send(marker_, kMark, sizeof kMark - 1, MSG_NOSIGNAL) == -1 ||
        !eventually([&] { return marks_seen_ >= mark; }))
        throw std::runtime_error("the log does not settle");
}

void SyslogReader::pause() {
    reading_.lock();
}

void SyslogReader::go_on() {
    reading_.unlock();
}

bool SyslogReader::full() const {
    const bool fits = send(marker_, kMark, sizeof kMark - 1, MSG_NOSIGNAL | MSG_DONTWAIT) != -1;
    if (fits)
        ++marks_sent_;
    return !fits;
}

std::vector<LogLine> SyslogReader::lines() const {
    settle();
    const std::lock_guard lock(mutex_);
    return lines_;
}

int SyslogReader::count(const std::string& text) const {
    settle();
    return count_so_far(text);
}

int SyslogReader::count_so_far(const std::string& text) const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(lines_.begin(), lines_.end(),
                                          [&](const LogLine& line) { return holds(line, text); }));
}

bool SyslogReader::wait_for(const std::string& text, int times) const {
    return eventually([&] { return count_so_far(text) >= times; });
}
