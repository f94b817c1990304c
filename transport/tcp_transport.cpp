#include "transport/tcp_transport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

bool transport_trace = false;

namespace {

constexpr int kBacklog = 5;
constexpr useconds_t kPauseBetweenAttempts_us = 10;
constexpr std::size_t kRingSize = 512;

std::uint8_t socket_server_mode = 0;
const char* server_ip = "";
std::uint16_t server_port = 0;
int socket_fd = 0;  // server: listening socket; client: connected socket
int client_fd = 0;  // server: connection being read, 0 = none; client: 1 = connected
sockaddr_in socket_address{};
std::array<std::uint8_t, kRingSize> rx_ring{};
std::size_t rx_pos = 0;
// This is an abstract local-socket name; as a C string it is empty.
constexpr char socket_name[] = "\0zondar_socket";

const sockaddr* generic_address() {
    return reinterpret_cast<const sockaddr*>(&socket_address);
}

[[noreturn]] void end_process(const char* what) {
    std::perror(what);
    std::exit(-1);
}

void append_hex(std::string& line, const std::uint8_t* buf, unsigned len, const char* digits,
                const char* separator) {
    for (unsigned i = 0; i < len; ++i) {
        line += digits[buf[i] >> 4U];
        line += digits[buf[i] & 0x0FU];
        line += separator;
    }
}

void print_sent(const std::uint8_t* buf, unsigned len) {
    std::string text;
    if (transport_trace) {
        text += "[DEBUG]enviar_buffer_zondar: Enviado: " + std::to_string(len) + "  dbytes:\n";
        text += "ENVIADO " + std::to_string(std::time(nullptr)) + "\n";
        append_hex(text, buf, len, "0123456789abcdef", " ");
        text += "\n";
    }
    text += "WriteSocket\nBuffer: ";
    append_hex(text, buf, len, "0123456789ABCDEF", "");
    text += "\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
}

// It is close-on-exec: a script that outlives the daemon must not hold the port.
void IniciarSocket_zondar() {
    socket_address = {};
    socket_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket_fd == -1)
        end_process("socket error");
    socket_address.sin_family = AF_INET;
    socket_address.sin_addr.s_addr =
        socket_server_mode != 0 ? htonl(INADDR_ANY) : inet_addr(server_ip);
    socket_address.sin_port = htons(server_port);
}

int accept_connection() {
    const int fd = accept4(socket_fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd == -1)
        std::perror("accept error");
    return fd;
}

bool connect_to_server() {
    IniciarSocket_zondar();
    if (connect(socket_fd, generic_address(), sizeof socket_address) == 0)
        return true;
    std::perror("connect error");
    return false;
}

// Never sends on the connection that is being read: the master collects each answer on one of its
// own.
void send_as_server(const std::uint8_t* buf, unsigned len) {
    const int fd = accept_connection();
    if (fd == -1)
        return;
    if (write(fd, buf, len) < static_cast<ssize_t>(len))
        std::puts("No he podido escribir todos los bytes");
    close(fd);
}

void send_as_client(const std::uint8_t* buf, unsigned len) {
    if (connect_to_server() && write(socket_fd, buf, len) != static_cast<ssize_t>(len)) {
        if (len != 0)
            std::fputs("partial write", stderr);
        else
            std::perror("write error");
    }
    close(socket_fd);
}

// After a failed accept client_fd holds -1, so no new accept is tried and every later read fails.
ssize_t read_as_server(std::uint8_t* buffer, std::size_t length) {
    if (client_fd == 0)
        client_fd = accept_connection();
    const ssize_t result = read(client_fd, buffer, length);
    if (result == -1)
        std::perror("read");
    if (result == 0) {
        std::puts("Client Close");
        close(client_fd);
        client_fd = 0;
    }
    return result;
}

ssize_t read_as_client(std::uint8_t* buffer, std::size_t length) {
    if (client_fd == 0) {
        if (!connect_to_server()) {
            close(socket_fd);
            return 0;
        }
        client_fd = 1;
    }
    const ssize_t result = read(socket_fd, buffer, length);
    if (result == 0)
        std::puts("Socket Closed!");
    if (result <= 0)
        client_fd = 0;
    return result;
}

ssize_t LeerSocket_zondar(std::uint8_t* buffer, std::size_t length) {
    return socket_server_mode != 0 ? read_as_server(buffer, length)
                                   : read_as_client(buffer, length);
}

}  // namespace

void SetSocketServer_zondar() {
    socket_server_mode = 1;
}

void set_zondar_servernumber(unsigned n) {
    if (n <= 2) {
        server_ip = n == 0 ? "169.254.34.21" : "192.168.5.1";
        server_port = 8001;
    }
    std::printf("IP:%s\n", server_ip);
}

// It sets no socket options, on purpose: a port that was just in use stays refused for a while, and
// the supervision outside starts the daemon again until it is free.
void AbrirSocket_zondar() {
    IniciarSocket_zondar();
    if (socket_server_mode == 0) {
        std::puts("AbrirSocketClient");
        return;
    }
    std::puts("AbrirSocketServer");
    unlink(socket_name);
    if (bind(socket_fd, generic_address(), sizeof socket_address) == -1)
        end_process("bind error");
    if (listen(socket_fd, kBacklog) == -1)
        end_process("listen error");
}

void CerrarSocket_zondar() {
    if (socket_server_mode != 0)
        return;
    std::printf("CerrarSocket %d\n", socket_fd);
    close(socket_fd);
}

void enviar_buffer_zondar(unsigned /*port*/, const std::uint8_t* buf, unsigned len) {
    print_sent(buf, len);
    if (socket_server_mode != 0)
        send_as_server(buf, len);
    else
        send_as_client(buf, len);
}

int leer_byte_zondar(unsigned /*port*/, std::uint8_t* byte, int timeout) {
    const int attempts = read_attempts(timeout);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        // The low 8 bits alone decide, on purpose: a read error (-1) counts as a byte too and
        // hands out what the ring holds.
        if ((LeerSocket_zondar(&rx_ring[rx_pos], 1) & 0xFF) != 0) {
            *byte = rx_ring[rx_pos];
            if (transport_trace)
                std::printf("%02x ", *byte);
            rx_pos = (rx_pos + 1) % kRingSize;
            return 1;
        }
        usleep(kPauseBetweenAttempts_us);
    }
    return 0;
}

void reset_puerto_zondar(unsigned /*port*/) {}

void cambia_modo_zondar(tPuertoZondar* /*port*/, unsigned /*mode*/) {}
