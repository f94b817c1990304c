#include "tests/support/fleet.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/database.h"
#include "tests/support/frames.h"
#include "tests/support/wait.h"

namespace {

constexpr std::chrono::milliseconds kMoment{300};
const Bytes kIdentification = frame(4);

// A connection to a module.
class Visit {
  public:
    explicit Visit(std::size_t module) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = inet_addr(Fleet::address(module).c_str());
        address.sin_port = htons(8001);
        taken_ = connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    Visit(Visit&& other) noexcept
        : socket_(std::exchange(other.socket_, -1)), taken_(other.taken_) {}
    ~Visit() { close(socket_); }

    // Somebody listens.
    [[nodiscard]] bool taken() const { return taken_; }
    void send(const Bytes& bytes) const {
        EXPECT_EQ(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL), std::ssize(bytes));
    }
    // What comes up to the other side's end, or up to a silence.
    [[nodiscard]] Bytes read_to_end(std::chrono::milliseconds silence = kPatience) const {
        Bytes all;
        std::array<std::uint8_t, 4096> part{};
        pollfd state{socket_, POLLIN, 0};
        while (poll(&state, 1, static_cast<int>(silence.count())) == 1) {
            const ssize_t length = read(socket_, part.data(), part.size());
            if (length <= 0)
                break;
            all.insert(all.end(), part.begin(), part.begin() + length);
        }
        return all;
    }

  private:
    int socket_;
    bool taken_ = false;
};

std::string serial_number_in(const Bytes& answer) {
    const Bytes info = info_of(answer, 4);
    return {info.begin() + 17, info.begin() + 29};
}

std::string serial_number_of(std::size_t module) {
    Visit(module).send(kIdentification);
    return serial_number_in(Visit(module).read_to_end());
}

TEST(Fleet, AnswersAtItsAddressesAtOnceButForTheHungAndTheDead) {
    Fleet fleet(20);
    fleet.hang(3);
    fleet.kill(7);
    fleet.kill(19);
    std::vector<Visit> collections;
    for (std::size_t i = 0; i < 20; ++i) {
        if (const Visit request(i); request.taken())
            request.send(kIdentification);
        collections.emplace_back(i);
    }
    for (std::size_t i = 0; i < 20; ++i) {
        const bool dead = i == 7 || i == 19;
        EXPECT_EQ(collections[i].taken(), !dead) << i;
        if (dead)
            continue;
        if (i == 3)
            EXPECT_EQ(collections[i].read_to_end(kMoment), Bytes());
        else
            EXPECT_EQ(serial_number_in(collections[i].read_to_end()),
                      "ZN20240020" + std::string(i < 10 ? "0" : "") + std::to_string(i));
    }
    fleet.resume(3);
    EXPECT_EQ(serial_number_in(collections[3].read_to_end()), "ZN2024002003");
}

TEST(Fleet, HasADaemonAgainWhereOneEnded) {
    const Fleet fleet(2);
    EXPECT_EQ(serial_number_of(1), "ZN2024002001");
    const pid_t before = fleet.pid(1);
    kill(before, SIGKILL);
    EXPECT_TRUE(eventually([&] { return fleet.pid(1) != before; }));
    EXPECT_TRUE(eventually([] { return Visit(1).taken(); }));
    EXPECT_EQ(serial_number_of(1), "ZN2024002001");
}

TEST(Fleet, RevivesTheDead) {
    Fleet fleet(2);
    fleet.kill(0);
    EXPECT_FALSE(Visit(0).taken());
    fleet.revive(0);
    EXPECT_EQ(serial_number_of(0), "ZN2024002000");
}

TEST(Fleet, StoresInTheDatabaseOfTheModuleThatWasAsked) {
    const std::string kBrightness = "SELECT Brillo FROM EntradaAV WHERE IdEntradaAV = 1";
    const Fleet fleet(2);
    Visit(1).send(frame(3, "0A 4D"));
    EXPECT_EQ(info_of(Visit(1).read_to_end(), 3), Bytes());
    EXPECT_EQ(Database(Fleet::conf_db(0)).value(kBrightness), "61");
    EXPECT_EQ(Database(Fleet::conf_db(1)).value(kBrightness), "77");
}

}  // namespace
