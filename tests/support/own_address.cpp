// Preloaded into a program that listens at all addresses, it makes it listen at that of
// ZONDAR_BIND, so that many of them share a port. One that ended can be started again at once.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

in_addr_t own_address = INADDR_ANY;

// The program may clear its environment before it binds.
[[gnu::constructor]] void read_own_address() {
    if (const char* const text = std::getenv("ZONDAR_BIND"))
        own_address = inet_addr(text);
}

}  // namespace

// Takes the C library's place.
extern "C" int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    sockaddr_in own{};
    if (address->sa_family == AF_INET && length == sizeof own) {
        std::memcpy(&own, address, sizeof own);
        if (own.sin_addr.s_addr == INADDR_ANY) {
            const int on = 1;
            setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
            own.sin_addr.s_addr = own_address;
            address = reinterpret_cast<const sockaddr*>(&own);
        }
    }
    return static_cast<int>(syscall(SYS_bind, descriptor, address, length));
}
