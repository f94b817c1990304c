// A master and a daemon that is killed and started again all the time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "master/failure.h"
#include "master/line.h"
#include "master/parameters.h"
#include "master/requests.h"
#include "master/session.h"
#include "tests/support/daemon.h"
#include "tests/support/database.h"
#include "tests/support/files.h"
#include "tests/support/frames.h"
#include "tests/support/master.h"
#include "tests/support/syslog_reader.h"
#include "tests/support/wait.h"

namespace fs = std::filesystem;

namespace master {

namespace {

// Whether the process has a socket of port 8001 in this state, as the kernel has it: asking by a
// connection would be an exchange of its own. A script that a killed daemon was about to start can
// have its sockets for a moment longer.
bool has_socket(pid_t pid, const std::string& state) {
    std::ifstream table("/proc/net/tcp");
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string local;
        std::string found;
        std::string inode;
        fields >> inode >> local >> inode >> found;
        for (int i = 0; i < 6; ++i)
            fields >> inode;
        if (!local.ends_with(":1F41") || found != state)
            continue;
        std::error_code none;
        for (const auto& file :
             fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", none)) {
            if (fs::read_symlink(file.path(), none) == "socket:[" + inode + "]")
                return true;
        }
    }
    return false;
}

bool comes_up(Daemon& daemon) {
    const auto listens = [&] { return has_socket(daemon.pid(), "0A"); };
    return eventually([&] { return listens() || !daemon.running(); }) && daemon.running();
}

// Kills the daemon and starts it again until the end of its life: after some answers, at a time
// that has nothing to do with the exchanges. Before each start another process writes the number of
// the start into the database.
class Restarts {
  public:
    Restarts()
        : thread_([this] {
              while (!ended_)
                  live_and_die();
          }) {}
    ~Restarts() {
        ended_ = true;
        thread_.join();
    }
    Restarts(const Restarts&) = delete;
    Restarts& operator=(const Restarts&) = delete;

    // Even while no daemon listens, odd while one does, and another number for each daemon.
    [[nodiscard]] unsigned phase() const { return phase_; }
    // How many daemons there have been.
    [[nodiscard]] unsigned starts() const { return starts_; }
    void count_answer() { ++answers_; }

  private:
    void live_and_die() {
        run_elsewhere(kConfDb, "UPDATE ServiciosSalida SET LCN = " + std::to_string(starts_ + 1) +
                                   " WHERE IdServicio = 0");
        ++starts_;
        Daemon daemon;
        EXPECT_TRUE(comes_up(daemon)) << "daemon " << starts_ << ": " << daemon.err();
        ++phase_;
        const unsigned enough = answers_ + life_(random_);
        EXPECT_TRUE(eventually([&] { return ended_ || answers_ >= enough; }));
        std::this_thread::sleep_for(std::chrono::microseconds(pause_(random_)));
        ++phase_;
        EXPECT_EQ(daemon.stop(SIGKILL), 1000 + SIGKILL) << daemon.err();
    }

    std::minstd_rand random_{1};
    std::uniform_int_distribution<unsigned> life_{0, 60};  // answers
    std::uniform_int_distribution<int> pause_{0, 10'000};  // microseconds
    std::atomic<unsigned> phase_ = 0;
    std::atomic<unsigned> starts_ = 0;
    std::atomic<unsigned> answers_ = 0;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

const Parameter& kCounter = *find_parameter("ServiciosSalida.0.SID");
const Parameter& kStart = *find_parameter("ServiciosSalida.0.LCN");

const Deadline kLong{kPatience};

// A daemon whose end comes between a connection and what is said on it has closed it first.
TEST(Connection, LeavesThePortFreeWhenTheDaemonIsKilledBeforeAnythingIsSaid) {
    make_board();
    std::optional<Daemon> daemon(std::in_place);
    ASSERT_TRUE(comes_up(*daemon));
    {
        Socket connection(address_of({}, kLong), kLong);
        // It blocks in the read of what it has accepted.
        ASSERT_TRUE(eventually([&] { return has_socket(daemon->pid(), "01"); }));
        EXPECT_EQ(daemon->stop(SIGKILL), 1000 + SIGKILL);
        connection.send_all({}, kLong);
    }
    daemon.emplace();
    EXPECT_TRUE(comes_up(*daemon)) << daemon->err();
}

// The same of one that answers somebody else on it, and lives.
TEST(Connection, LeavesThePortFreeWhenTheDaemonClosesItBeforeAnythingIsSaid) {
    make_board();
    std::optional<Daemon> daemon(std::in_place);
    send_request(frame(4));
    {
        Socket connection(address_of({}, kLong), kLong);
        pollfd end{connection.descriptor(), POLLRDHUP, 0};
        ASSERT_EQ(poll(&end, 1, 20'000), 1);
        connection.send_all({}, kLong);
        bool any = false;
        EXPECT_TRUE(connection.read_to_end(kLong, any));
        EXPECT_TRUE(any);
    }
    EXPECT_EQ(daemon->stop(SIGKILL), 1000 + SIGKILL);
    daemon.emplace();
    EXPECT_TRUE(comes_up(*daemon)) << daemon->err();
}

TEST(Endurance, OfAThousandExchangesNoneIsWrongAndNoneIsLostWithoutAKill) {
    make_board();
    const SyslogReader log;
    Restarts restarts;
    Settings settings;
    settings.retries = 0;
    settings.timeout = std::chrono::seconds(60);

    unsigned exchanges = 0;
    unsigned answers = 0;
    // What the module can hold: what was written last, and what was written without an answer.
    std::vector<unsigned> possible = {101};
    for (unsigned value = 1000; exchanges < 1000 && !HasFailure(); ++value) {
        // Whether it had an answer; it must, if no kill hit it.
        const auto exchange = [&](const Request& request, Bytes& info) {
            ++exchanges;
            const unsigned before = restarts.phase();
            try {
                info = Session(settings).ask(request);
                ++answers;
                restarts.count_answer();
                return true;
            } catch (const Failure& failure) {
                const bool listened = before % 2 == 1 && restarts.phase() == before;
                EXPECT_FALSE(listened) << "exchange " << exchanges << ": " << failure.what();
                EXPECT_TRUE(failure.stage() == Stage::connect || failure.stage() == Stage::answer)
                    << "exchange " << exchanges << ": " << failure.what();
                if (failure.stage() == Stage::connect) {
                    EXPECT_TRUE(eventually([&] { return restarts.phase() % 2 == 1; }));
                }
                return false;
            }
        };
        Bytes info;
        possible.push_back(value);
        if (exchange(write_request(kCounter, value), info))
            possible = {value};
        const unsigned starts_before = restarts.starts();
        if (exchange(block_request(1), info)) {
            const unsigned found = std::get<std::uint32_t>(value_in(kCounter, info));
            EXPECT_THAT(possible, testing::Contains(found)) << "exchange " << exchanges;
            possible = {found};
            const unsigned start = std::get<std::uint32_t>(value_in(kStart, info));
            EXPECT_GE(start, starts_before) << "exchange " << exchanges;
            EXPECT_LE(start, restarts.starts()) << "exchange " << exchanges;
        }
        if (exchange(identification_request(), info)) {
            EXPECT_EQ(std::string(info.begin() + 17, info.begin() + 29), "ZN2024000123");
        }
    }
    std::printf("%u exchanges, %u answers, %u starts\n", exchanges, answers, restarts.starts());
    EXPECT_GE(restarts.starts(), 15U);
    EXPECT_GE(answers, 500U);
    EXPECT_EQ(log.count("bind error"), 0);
}

}  // namespace

}  // namespace master
