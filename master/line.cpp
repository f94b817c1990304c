#include "master/line.h"

#include <fmt/format.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "link/mensaje.h"
#include "master/failure.h"
#include "transport/tcp_transport.h"

namespace master {

namespace {

// Every byte doubled, and room for more than one frame.
constexpr std::size_t kFlood = 4 * kMaxFrame;

// For the module's end of a connection whose answer is complete.
constexpr std::chrono::milliseconds kFarewell{200};

// More left-over answers than a module that reads can have.
constexpr unsigned kReplayed = 3;

// Failed reads that end a reception.
constexpr int kFailedReads = read_attempts(kRequestTimeout);

[[noreturn]] void no_connection(const char* why) {
    throw Failure(Stage::connect, fmt::format("no connection: {}", why));
}

bool wait_for(int descriptor, short events, const Deadline& deadline) {
    pollfd state{descriptor, events, 0};
    return poll(&state, 1, static_cast<int>(deadline.left().count())) == 1;
}

void connect_within(int descriptor, const sockaddr_in& address, const Deadline& deadline) {
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (connect(descriptor, generic, sizeof address) == 0)
        return;
    if (errno != EINPROGRESS)
        no_connection(std::strerror(errno));
    if (!wait_for(descriptor, POLLOUT, deadline))
        no_connection("time-out");
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0)
        no_connection(std::strerror(error));
}

}  // namespace

std::string name_of(const Target& target) {
    return fmt::format("{}:{}", target.host, target.port);
}

sockaddr_in address_of(const Target& target) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(target.host.c_str(), nullptr, &hints, &found);
    if (result != 0)
        throw Failure(Stage::connect,
                      fmt::format("no host {}: {}", target.host, gai_strerror(result)));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    address.sin_port = htons(target.port);
    return address;
}

Socket::Socket(const sockaddr_in& address, const Deadline& deadline)
    : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (descriptor_ == -1)
        no_connection(std::strerror(errno));
    try {
        connect_within(descriptor_, address, deadline);
    } catch (const Failure&) {
        close(descriptor_);
        throw;
    }
}

Socket::~Socket() {
    if (resets_) {
        const linger at_once{1, 0};
        setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    close(descriptor_);
}

void Socket::send_all(std::span<const std::uint8_t> bytes, const Deadline& deadline) {
    while (!bytes.empty()) {
        // The last bytes wait for the end that follows, and leave in one segment with it.
        const ssize_t count =
            ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_MORE);
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
            continue;
        }
        if (errno != EAGAIN)
            throw Failure(Stage::answer, fmt::format("the connection broke while the request was "
                                                     "sent: {}",
                                                     std::strerror(errno)));
        if (!wait_for(descriptor_, POLLOUT, deadline))
            throw Failure(Stage::answer, "time-out while the request was sent");
    }
    end_sending();
}

// An end behind the other side's own would only make that keep the connection.
void Socket::end_sending() {
    pollfd state{descriptor_, POLLRDHUP, 0};
    if (poll(&state, 1, 0) == 0)
        shutdown(descriptor_, SHUT_WR);
    else
        resets_ = true;
}

bool Socket::read_some(Bytes& bytes) {
    std::array<std::uint8_t, kFlood> part{};
    const ssize_t count = recv(descriptor_, part.data(), part.size(), 0);
    if (count > 0) {
        bytes.insert(bytes.end(), part.begin(), part.begin() + count);
        return true;
    }
    if (count == -1 && (errno == EAGAIN || errno == EINTR))
        return true;
    ended_ = true;
    resets_ = true;
    return false;
}

bool Socket::read_to_end(const Deadline& deadline, bool& any) {
    Bytes bytes;
    while (!ended_ && bytes.size() < kFlood && wait_for(descriptor_, POLLIN, deadline))
        read_some(bytes);
    any = !bytes.empty();
    return ended_;
}

// A frame that has come whole is all there is: its connection ends by reset, at the latest after
// the farewell. One that still waits for its answer is left to the module to answer into.
Line::~Line() {
    if (collection_ && end_ == End::open) {
        bool any = false;
        collection_->read_to_end(deadline_.sooner(kFarewell), any);
        collection_->reset_at_end();
    }
}

void Line::send(std::span<const std::uint8_t> frame) {
    request_.emplace(address_, deadline_);
    sent_.assign(frame.begin(), frame.end());
    request_->send_all(frame, deadline_);
    try {
        collection_.emplace(address_, deadline_);
    } catch (const Failure& failure) {
        throw Failure(Stage::answer,
                      fmt::format("the answer cannot be collected: {}", failure.what()));
    }
}

std::optional<std::uint8_t> Line::next() {
    while (taken_ == received_.size() && end_ == End::open)
        fill();
    if (taken_ == received_.size())
        return std::nullopt;
    return received_[taken_++];
}

void Line::fill() {
    if (received_.size() > kFlood) {
        end_ = End::flood;
        return;
    }
    pollfd states[] = {{collection_->descriptor(), POLLIN, 0},
                       {request_->ended() ? -1 : request_->descriptor(), POLLIN, 0}};
    const int ready = poll(states, std::size(states), static_cast<int>(deadline_.left().count()));
    if (ready == 0) {
        end_ = End::deadline;
    } else if (states[0].revents != 0) {
        if (!collection_->read_some(received_))
            end_ = End::closed;
    } else if (states[1].revents != 0) {
        Bytes left_over;
        request_->read_some(left_over);
        if (!left_over.empty())
            drain();
        else if (request_->ended())
            collection_->end_sending();
    }
}

// The module was answering somebody else: it ends that, and finds the collecting connection empty,
// unless it reads none.
void Line::drain() {
    bool any = false;
    request_->read_to_end(deadline_, any);
    collection_->end_sending();
    collection_->read_to_end(deadline_, any);
    left_over_ = any ? 2 : 1;
    end_ = End::left_over;
}

void resynchronise(const sockaddr_in& address, const Deadline& deadline, unsigned& left_over) {
    for (int failed = 0; failed < kFailedReads; ++failed) {
        if (left_over >= kReplayed)
            throw Replay();
        Socket empty(address, deadline);
        empty.end_sending();
        bool any = false;
        if (!empty.read_to_end(deadline, any))
            throw Failure(Stage::answer,
                          "the module could not be re-synchronised in time: it is busy, or another "
                          "master holds it");
        if (any) {
            ++left_over;
            failed = -1;  // a new reception begins behind an answer
        }
    }
}

}  // namespace master
