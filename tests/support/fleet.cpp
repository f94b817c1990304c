#include "tests/support/fleet.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "tests/support/files.h"
#include "tests/support/wait.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{50};

std::string folder(std::size_t i) {
    return "/tmp/fleet/" + std::to_string(i);
}

// As the kernel has it: asking by a connection would be an exchange.
bool listens(std::size_t i) {
    std::ostringstream row;
    row << std::uppercase << std::hex << std::setfill('0') << ": " << std::setw(8)
        << inet_addr(Fleet::address(i).c_str()) << ":1F41 00000000:0000 0A ";
    return read_file("/proc/net/tcp").find(row.str()) != std::string::npos;
}

std::string sanitizer_options() {
    const char* const given = std::getenv("ASAN_OPTIONS");
    return std::string(given == nullptr ? "" : given) + ":verify_asan_link_order=0";
}

}  // namespace

Fleet::Fleet(std::size_t size) : modules_(size) {
    make_board();
    for (std::size_t i = 0; i < size; ++i) {
        fs::remove_all(folder(i));
        fs::create_directories(folder(i));
        fs::copy("/quelt", board(i), fs::copy_options::recursive);
        write_file(board(i) + "/conf/quelt_numserie", serial_number(i) + "\n");
        start(i);
    }
    for (std::size_t i = 0; i < size; ++i) {
        if (!eventually([i] { return listens(i); }))
            throw std::runtime_error("no daemon at " + address(i) + ": " +
                                     modules_[i].daemon->err());
    }
    keeper_ = std::thread([this] { keep_alive(); });
}

Fleet::~Fleet() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    keeper_.join();
    for (const Module& module : modules_)
        module.daemon->send(SIGKILL);
    for (const Module& module : modules_)
        module.daemon->wait();
}

std::string Fleet::address(std::size_t i) {
    return "127.1." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
}

std::string Fleet::serial_number(std::size_t i) {
    return "ZN202400" + std::to_string(2000 + i);
}

std::string Fleet::board(std::size_t i) {
    return folder(i) + "/quelt";
}

std::string Fleet::conf_db(std::size_t i) {
    return board(i) + "/db/config_local.sqlite";
}

std::string Fleet::temp_db(std::size_t i) {
    return board(i) + "/db/temp_local.sqlite";
}

pid_t Fleet::pid(std::size_t i) const {
    const std::lock_guard lock(mutex_);
    return modules_[i].daemon->pid();
}

void Fleet::hang(std::size_t i) {
    const std::lock_guard lock(mutex_);
    modules_[i].daemon->send(SIGSTOP);
    EXPECT_TRUE(eventually([pid = modules_[i].daemon->pid()] {
        siginfo_t stopped{};
        waitid(P_PID, static_cast<id_t>(pid), &stopped, WSTOPPED | WNOHANG);
        return stopped.si_pid == pid;
    }));
}

void Fleet::resume(std::size_t i) {
    const std::lock_guard lock(mutex_);
    modules_[i].daemon->send(SIGCONT);
}

void Fleet::kill(std::size_t i) {
    const std::lock_guard lock(mutex_);
    modules_[i].dead = true;
    modules_[i].daemon->stop(SIGKILL);
    // A script that it was about to start has its sockets for a moment longer.
    EXPECT_TRUE(eventually([i] { return !listens(i); }));
}

void Fleet::revive(std::size_t i) {
    {
        const std::lock_guard lock(mutex_);
        modules_[i].dead = false;
        start(i);
    }
    EXPECT_TRUE(eventually([i] { return listens(i); }));
}

void Fleet::start(std::size_t i) {
    modules_[i].daemon.reset();
    modules_[i].daemon = std::make_unique<Daemon>(Daemon::Setup{
        .options = {"-p", ""},
        .launcher = {ZONDAR_ON_BOARD, board(i), "/usr/bin/env",
                     std::string("LD_PRELOAD=") + ZONDAR_OWN_ADDRESS, "ZONDAR_BIND=" + address(i),
                     "ASAN_OPTIONS=" + sanitizer_options()},
        .output = folder(i) + "/daemon",
    });
}

void Fleet::keep_alive() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        for (std::size_t i = 0; i < modules_.size(); ++i) {
            if (!modules_[i].dead && !modules_[i].daemon->running())
                start(i);
        }
        lock.unlock();
        std::this_thread::sleep_for(kBetweenLooks);
        lock.lock();
    }
}
