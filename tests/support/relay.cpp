#include "tests/support/relay.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>
#include <list>
#include <stdexcept>
#include <vector>

#include "tests/support/bytes.h"

namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int listen_on(std::uint16_t port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_in address = loopback(port);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, SOMAXCONN) != 0)
        throw std::runtime_error("the relay cannot listen");
    return listener;
}

void reset_at_end(int socket) {
    const linger at_once{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

// One direction of a connection.
class Way {
  public:
    Way(int from, int to) : from_(from), to_(to) {}

    [[nodiscard]] bool open() const { return open_; }
    [[nodiscard]] bool done() const { return !open_ && late_.empty(); }
    [[nodiscard]] bool broken() const { return broken_; }

    void take(Clock::time_point due) {
        std::array<std::uint8_t, 4096> part{};
        const ssize_t count = recv(from_, part.data(), part.size(), MSG_DONTWAIT);
        if (count == -1 && errno == EAGAIN)
            return;
        open_ = count > 0;
        late_.push_back({due, count, {part.begin(), part.begin() + std::max<ssize_t>(count, 0)}});
    }

    void deliver(Clock::time_point now) {
        for (; !late_.empty() && late_.front().due <= now; late_.pop_front()) {
            const Late& next = late_.front();
            if (next.count > 0)
                send(to_, next.bytes.data(), next.bytes.size(), MSG_NOSIGNAL);
            else if (next.count == 0)
                shutdown(to_, SHUT_WR);
            else
                broken_ = true;
        }
        if (broken_)
            reset_at_end(to_);
    }

  private:
    struct Late {
        Clock::time_point due;
        ssize_t count;  // 0 is the end, -1 a reset
        Bytes bytes;
    };

    int from_;
    int to_;
    bool open_ = true;
    bool broken_ = false;
    std::deque<Late> late_;
};

struct Connection {
    explicit Connection(int accepted)
        : near(accepted), far(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~Connection() {
        close(near);
        close(far);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int near;
    int far;
    Way there{near, far};
    Way back{far, near};
    bool arrived = false;
};

}  // namespace

Relay::Relay(std::uint16_t port, std::chrono::milliseconds one_way)
    : one_way_(one_way), listener_(listen_on(port)), thread_([this] { run(); }) {}

Relay::~Relay() {
    ended_ = true;
    thread_.join();
    close(listener_);
}

void Relay::run() {
    struct Arrival {
        Clock::time_point due;
        Connection* connection;
    };
    std::list<Connection> connections;
    std::deque<Arrival> arrivals;
    const sockaddr_in module = loopback(8001);
    while (!ended_) {
        std::vector<pollfd> states = {{listener_, POLLIN, 0}};
        for (const Connection& each : connections) {
            if (each.there.open())
                states.push_back({each.near, POLLIN, 0});
            if (each.arrived && each.back.open())
                states.push_back({each.far, POLLIN, 0});
        }
        poll(states.data(), states.size(), 1);
        const auto now = Clock::now();
        const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted != -1)
            arrivals.push_back({now + one_way_, &connections.emplace_back(accepted)});
        for (; !arrivals.empty() && arrivals.front().due <= now; arrivals.pop_front()) {
            Connection& arrived = *arrivals.front().connection;
            arrived.arrived = true;
            if (connect(arrived.far, reinterpret_cast<const sockaddr*>(&module), sizeof module) !=
                0)
                throw std::runtime_error("the relay reaches nobody");
        }
        for (Connection& each : connections) {
            if (each.there.open())
                each.there.take(now + one_way_);
            if (!each.arrived)
                continue;
            if (each.back.open())
                each.back.take(now + one_way_);
            each.there.deliver(now);
            each.back.deliver(now);
        }
        connections.remove_if([](const Connection& each) {
            return each.there.broken() || each.back.broken() ||
                   (each.there.done() && each.back.done());
        });
    }
}
