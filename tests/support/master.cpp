#include "tests/support/master.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "tests/support/wait.h"

namespace {

constexpr int kMoment_ms = 300;

bool readable(int socket, int milliseconds) {
    pollfd state{socket, POLLIN, 0};
    return poll(&state, 1, milliseconds) == 1;
}

int connect_once() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(8001);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

}  // namespace

Connection::Connection() {
    if (!eventually([this] { return (socket_ = connect_once()) != -1; }))
        throw std::runtime_error("port 8001 takes no connection");
}

Connection::~Connection() {
    close(socket_);
}

void Connection::send(std::span<const std::uint8_t> bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            throw std::runtime_error("the daemon closed the connection");
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
}

void Connection::end_sending() const {
    shutdown(socket_, SHUT_WR);
}

Bytes Connection::read_to_end() const {
    Bytes all;
    std::array<std::uint8_t, 4096> part{};
    constexpr int patience_ms = std::chrono::milliseconds(kPatience).count();
    while (readable(socket_, patience_ms)) {
        const ssize_t length = read(socket_, part.data(), part.size());
        if (length <= 0)
            break;
        all.insert(all.end(), part.begin(), part.begin() + length);
    }
    return all;
}

bool Connection::stays_silent() const {
    return !readable(socket_, kMoment_ms);
}

void Connection::reset_at_end() const {
    const linger at_once{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

void send_request(std::span<const std::uint8_t> request) {
    Connection().send(request);
}

Bytes collect_answer() {
    const Connection connection;
    connection.reset_at_end();
    return connection.read_to_end();
}

Bytes exchange(std::span<const std::uint8_t> request) {
    send_request(request);
    return collect_answer();
}

Bytes empty_connection() {
    const Connection connection;
    connection.end_sending();
    return connection.read_to_end();
}

void nudge() {
    const int fd = connect_once();
    if (fd != -1)
        close(fd);
}

void resynchronise() {
    constexpr int kAttempts = 501;
    for (int failed = 0; failed < kAttempts; ++failed) {
        if (!empty_connection().empty())
            failed = -1;
    }
}
