#include "master/line.h"

#include <fmt/format.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <semaphore>
#include <system_error>
#include <thread>

#include "master/failure.h"
#include "master/trace_file.h"

namespace master {

namespace {

// For the module's end of a connection whose answer is complete.
constexpr std::chrono::milliseconds kFarewell{200};

bool wait_for(int descriptor, short events, const Deadline& deadline) {
    pollfd state{descriptor, events, 0};
    int count = 0;
    do
        count = poll(&state, 1, static_cast<int>(deadline.left().count()));
    while (count == -1 && errno == EINTR);
    return count == 1;
}

struct FreeAddresses {
    void operator()(addrinfo* found) const { freeaddrinfo(found); }
};

struct Found {
    int result;
    std::unique_ptr<addrinfo, FreeAddresses> addresses;
};

Found find(const std::string& host, int flags) {
    addrinfo hints{};
    hints.ai_flags = flags;
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    return {result, std::unique_ptr<addrinfo, FreeAddresses>(result == 0 ? found : nullptr)};
}

// A name server may take longer than the deadline. What it then says is freed by the thread that
// asked it. Of those threads there are not many, however often somebody asks.
Found find_within(const std::string& host, const Deadline& deadline) {
    static std::counting_semaphore lookups(kLookups);
    const auto fail = [&host](std::string_view why) {
        throw Failure(Stage::resolve, fmt::format("no host {}: {}", host, why));
    };
    if (!lookups.try_acquire_for(deadline.left()))
        fail("no answer in time");
    std::packaged_task<Found()> task([host] {
        Found found = find(host, 0);
        lookups.release();
        return found;
    });
    std::future<Found> found = task.get_future();
    try {
        std::thread(std::move(task)).detach();
    } catch (const std::system_error& error) {
        lookups.release();
        fail(error.what());
    }
    if (found.wait_for(deadline.left()) != std::future_status::ready)
        fail("no answer in time");
    return found.get();
}

}  // namespace

sockaddr_in address_of(const Target& target, const Deadline& deadline) {
    Found found = find(target.host, AI_NUMERICHOST);
    if (found.result == EAI_NONAME)
        found = find_within(target.host, deadline);
    if (found.result != 0)
        throw Failure(
            Stage::resolve,
            fmt::format("no host {}: {}", target.host,
                        found.result == EAI_ADDRFAMILY ? "IPv4 only" : gai_strerror(found.result)));
    sockaddr_in address{};
    std::memcpy(&address, found.addresses->ai_addr, sizeof address);
    address.sin_port = htons(target.port);
    return address;
}

Socket::Socket(const sockaddr_in& address)
    : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (descriptor_ != -1 &&
        (connect(descriptor_, generic, sizeof address) == 0 || errno == EINPROGRESS))
        return;
    const int error = errno;
    close(descriptor_);
    throw NoConnection(std::strerror(error));
}

Socket::Socket(const sockaddr_in& address, const Deadline& deadline) : Socket(address) {
    wait_for(descriptor_, POLLOUT, deadline);
    if (!connects())
        throw NoConnection("time-out");
}

Socket::~Socket() {
    if (resets_) {
        const linger at_once{1, 0};
        setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    close(descriptor_);
}

bool Socket::connects() const {
    pollfd state{descriptor_, POLLOUT, 0};
    if (poll(&state, 1, 0) == 0)
        return false;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0)
        throw NoConnection(std::strerror(error));
    return true;
}

void Socket::send_all(std::span<const std::uint8_t> bytes, const Deadline& deadline) {
    const auto fail = [whole = bytes.size(), &bytes](const std::string& why) {
        throw Failure(Stage::answer, why,
                      bytes.size() == whole ? Outcome::not_sent : Outcome::unknown);
    };
    while (!bytes.empty()) {
        // The last bytes wait for the end that follows, and leave in one segment with it.
        const ssize_t count =
            ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_MORE);
        if (count > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        else if (errno != EAGAIN)
            fail(fmt::format("the connection broke while the request was sent: {}",
                             std::strerror(errno)));
        else if (!wait_for(descriptor_, POLLOUT, deadline))
            fail("time-out while the request was sent");
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
    broken_ = count == -1;
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

void Line::trace(const std::uint8_t* frame, unsigned direction) {
    if (!trace_path_.empty())
        append_to_trace(trace_path_, frame, direction);
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
        Bytes bytes;
        request_->read_some(bytes);
        if (!bytes.empty())
            take_from_request(bytes);
        else if (request_->ended())
            collection_->end_sending();
    }
}

// The module was answering somebody else: it ends that, and finds the collecting connection empty,
// unless it reads none.
void Line::take_from_request(const Bytes& bytes) {
    if (bytes.front() != kStartByte) {
        received_.insert(received_.end(), bytes.begin(), bytes.end());
        end_ = End::stranger;
        return;
    }
    bool any = false;
    request_->read_to_end(deadline_, any);
    collection_->end_sending();
    collection_->read_to_end(deadline_, any);
    left_over_ = any ? 2 : 1;
    end_ = End::left_over;
}

}  // namespace master
