// The transport on a network that fails as the input wants.
//
// Input: a control stream, then what the transport is asked for.
//   1 byte              bit 0: it is a client, else the server; bit 1: with the transport's trace
//   1 byte C, C bytes   the control stream, a byte for each call to the network, in their order;
//                       0 and what is lacking: success. Bits 0 and 1: of a read 1 the peer has
//                       closed, 2 and 3 an error; of a write 1 all bytes but one, 2 none, 3 an
//                       error; of any other call an error. Bits 2 to 4 choose the error
//   of each request:
//   1 byte, 1 byte N    bit 0: send the N bytes that follow; bit 1: close; else read a byte, with
//                       a time-out of N less 32
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "fuzz/exits.h"
#include "fuzz/input.h"
#include "fuzz/require.h"

namespace {

enum class Control : std::uint8_t { succeed, first, second, third };

struct Network {
    std::span<const std::uint8_t> control = {};
    bool has_server = false;
    std::set<int> open = {};  // descriptors
    int last = 2;             // descriptor that was given out
    bool fatal = false;       // a call has failed that nothing can follow
    // Of the last request:
    int connections = 0;  // accepted, or tried by a client
    int pauses = 0;
    int errors = 0;                 // of reads
    ssize_t read = 0;               // the result of the last one
    const void* read_to = nullptr;  // and its buffer
    std::uint8_t came = 0;          // the last byte
    int sender = -1;                // the descriptor written to
    std::vector<std::uint8_t> sent = {};

    Control next() {
        constexpr int kErrors[] = {EINTR, ECONNRESET, EMFILE, ENFILE, ENOMEM, EAGAIN, EPIPE, EPERM};
        if (control.empty())
            return Control::succeed;
        const std::uint8_t byte = control.front();
        control = control.subspan(1);
        errno = kErrors[byte >> 2U & 7U];
        return static_cast<Control>(byte & 3U);
    }
    int result() { return next() == Control::succeed ? 0 : -1; }
    int descriptor() {
        if (result() == -1)
            return -1;
        open.insert(++last);
        return last;
    }
    int fatal_result() {
        const int value = result();
        fatal = value == -1;
        return value;
    }
};
Network network;

int fake_socket(int domain, int type, int protocol) {
    REQUIRE(domain == AF_INET && type == (SOCK_STREAM | SOCK_CLOEXEC) && protocol == 0);
    const int fd = network.descriptor();
    network.fatal = fd == -1;
    return fd;
}

int fake_bind(int fd, const sockaddr* address, socklen_t size) {
    REQUIRE(network.open.contains(fd) && address->sa_family == AF_INET && size == 16);
    return network.fatal_result();
}

int fake_listen(int fd, int backlog) {
    REQUIRE(network.open.contains(fd) && backlog == 5);
    return network.fatal_result();
}

int fake_accept4(int fd, const sockaddr* address, const socklen_t* size, int flags) {
    REQUIRE(network.has_server && network.open.contains(fd));
    REQUIRE(address == nullptr && size == nullptr && flags == SOCK_CLOEXEC);
    ++network.connections;
    return network.descriptor();
}

int fake_connect(int fd, const sockaddr* address, socklen_t size) {
    REQUIRE(!network.has_server && network.open.contains(fd));
    REQUIRE(address->sa_family == AF_INET && size == 16);
    ++network.connections;
    return network.result();
}

ssize_t fake_read(int fd, std::uint8_t* buffer, std::size_t size) {
    REQUIRE(size == 1);
    network.read_to = buffer;
    if (!network.open.contains(fd)) {
        errno = EBADF;
        ++network.errors;
        return network.read = -1;
    }
    switch (network.next()) {
        case Control::succeed:
            network.came = static_cast<std::uint8_t>(network.came * 5U + 1U);
            *buffer = network.came;
            return network.read = 1;
        case Control::first:
            return network.read = 0;
        case Control::second:
        case Control::third:
            break;
    }
    ++network.errors;
    return network.read = -1;
}

ssize_t fake_write(int fd, const std::uint8_t* buffer, std::size_t size) {
    REQUIRE(network.open.contains(fd) && network.sender == -1);
    network.sender = fd;
    network.sent.assign(buffer, buffer + size);
    switch (network.next()) {
        case Control::succeed:
            return static_cast<ssize_t>(size);
        case Control::first:
            return static_cast<ssize_t>(std::max<std::size_t>(size, 1) - 1);
        case Control::second:
            return 0;
        case Control::third:
            break;
    }
    return -1;
}

// A client closes what it has closed before when it is asked to; the server never does.
int fake_close(int fd) {
    const bool was_open = network.open.erase(fd) == 1;
    REQUIRE(was_open || !network.has_server);
    return was_open ? 0 : -1;
}

int fake_unlink(const char* path) {
    REQUIRE(*path == '\0');
    return -1;
}

int fake_usleep(useconds_t pause) {
    REQUIRE(pause == 10);
    ++network.pauses;
    return 0;
}

}  // namespace

// The source itself, so that each input finds it as a new process does.
#define socket fake_socket
#define bind fake_bind
#define listen fake_listen
#define accept4 fake_accept4
#define connect fake_connect
#define read fake_read
#define write fake_write
#define close fake_close
#define unlink fake_unlink
#define usleep fake_usleep
#include "transport/tcp_transport.cpp"  // NOLINT(bugprone-suspicious-include)
#undef socket
#undef bind
#undef listen
#undef accept4
#undef connect
#undef read
#undef write
#undef close
#undef unlink
#undef usleep

namespace {

void start(Input& input) {
    constexpr unsigned kClient = 1;
    constexpr unsigned kTrace = 2;
    const std::uint8_t flags = input.byte();
    network = {.has_server = (flags & kClient) == 0};
    network.control = input.bytes(input.byte());
    socket_server_mode = 0;
    server_ip = "";
    server_port = 0;
    socket_fd = 0;
    client_fd = 0;
    rx_ring = {};
    rx_pos = 0;
    transport_trace = (flags & kTrace) != 0;
    if (network.has_server)
        SetSocketServer_zondar();
    set_zondar_servernumber(0);
}

void check_descriptors() {
    if (!network.has_server)
        return;
    std::set<int> expected = {socket_fd};
    if (client_fd > 0)
        expected.insert(client_fd);
    REQUIRE(network.open == expected);
}

// What is handed out is what came, at the next place of the ring; after an error what stood there.
void read_byte(int timeout) {
    const std::array<std::uint8_t, 512> before = rx_ring;
    const std::size_t position = rx_pos;
    const int attempts = std::max(timeout / 10 + 1, 0);
    std::uint8_t byte = 0;
    network.pauses = 0;
    network.errors = 0;
    network.read_to = nullptr;
    const int result = leer_byte_zondar(0, &byte, timeout);
    REQUIRE(network.read_to == nullptr || network.read_to == &rx_ring[position]);
    if (result == 0) {
        REQUIRE(network.pauses == attempts && network.errors == 0);
        REQUIRE(rx_pos == position && rx_ring == before);
        return;
    }
    REQUIRE(result == 1 && network.pauses < attempts && network.read != 0);
    REQUIRE(network.errors == (network.read == -1 ? 1 : 0));
    REQUIRE(byte == (network.read == 1 ? network.came : before[position]));
    REQUIRE(rx_ring[position] == byte);
    REQUIRE(rx_pos == (position == 511 ? 0 : position + 1));
}

// One write of all bytes, on a connection for them alone.
void send(std::span<const std::uint8_t> bytes) {
    const int being_read = client_fd;
    network.connections = 0;
    network.sender = -1;
    network.sent.clear();
    enviar_buffer_zondar(0, bytes.data(), static_cast<unsigned>(bytes.size()));
    REQUIRE(network.connections == 1 && client_fd == being_read);
    if (network.sender == -1)
        return;
    REQUIRE(std::ranges::equal(network.sent, bytes));
    REQUIRE(network.sender == network.last && !network.open.contains(network.sender));
}

void serve(Input& input) {
    constexpr unsigned kSend = 1;
    constexpr unsigned kClose = 2;
    constexpr int kBelowZero = 32;
    AbrirSocket_zondar();
    while (!input.at_end()) {
        const std::uint8_t request = input.byte();
        const std::uint8_t number = input.byte();
        if ((request & kSend) != 0)
            send(input.bytes(number));
        else if ((request & kClose) != 0)
            CerrarSocket_zondar();
        else
            read_byte(number - kBelowZero);
        check_descriptors();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    start(input);
    const auto status = exit_status_of([&input] { serve(input); });
    REQUIRE(status.has_value() == network.fatal);
    REQUIRE(!network.fatal || *status == -1);
    return 0;
}
