#include "tests/support/peer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "tests/support/wait.h"

namespace {

int listen_on_8001(int backlog) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(8001);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, backlog) != 0)
        throw std::runtime_error("the peer cannot listen on port 8001");
    return listener;
}

}  // namespace

Peer::Visitor::~Visitor() {
    close(socket_);
}

Bytes Peer::Visitor::read_to_end() const {
    Bytes all;
    for (Bytes part = read_some(); !part.empty(); part = read_some())
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes Peer::Visitor::read_some() const {
    std::array<std::uint8_t, 4096> part{};
    const ssize_t count = recv(socket_, part.data(), part.size(), 0);
    return {part.begin(), part.begin() + std::max<ssize_t>(count, 0)};
}

void Peer::Visitor::send(std::span<const std::uint8_t> bytes) const {
    [[maybe_unused]] const bool taken = takes(bytes);
}

bool Peer::Visitor::takes(std::span<const std::uint8_t> bytes) const {
    return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

void Peer::Visitor::reset_at_end() const {
    const linger at_once{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

// A reset behind a normal end shows as an error, too.
std::string Peer::Visitor::end() const {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0)
        return "reset";
    std::uint8_t byte = 0;
    return recv(socket_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0 ? "normal" : "none";
}

Peer::Peer(std::function<void(const Accept& accept)> act, int backlog)
    : listener_(listen_on_8001(backlog)), thread_([this, act = std::move(act)] {
          act([this]() -> std::unique_ptr<Visitor> {
              const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
              if (socket == -1)
                  return nullptr;
              // Only bounds a test that is failing anyway.
              const timeval patience{std::chrono::seconds(kPatience).count(), 0};
              setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
              setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
              return std::make_unique<Visitor>(socket);
          });
      }) {}

Peer::~Peer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

void answer_with(const Peer::Accept& accept, const Bytes& answer) {
    while (const auto request = accept()) {
        if (request->read_to_end().empty())
            continue;  // of a re-synchronisation
        const auto collection = accept();
        if (collection == nullptr)
            return;
        collection->send(answer);
    }
}

void answer_in_turn(const Peer::Accept& accept, const std::vector<Bytes>& answers) {
    for (const Bytes& answer : answers) {
        Bytes request;
        while (request.empty()) {
            const auto visitor = accept();
            if (visitor == nullptr)
                return;
            request = visitor->read_to_end();
        }
        const auto collection = accept();
        if (collection == nullptr)
            return;
        collection->send(answer);
    }
}
