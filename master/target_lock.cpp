#include "master/target_lock.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "master/failure.h"

namespace master {

namespace {

constexpr std::chrono::milliseconds kPause{10};

// With the first in the queue while the lock is free.
constexpr std::chrono::seconds kPatience{1};

// Bytes of the file, whether it has them or not: who queues has the first one locked meanwhile, and
// then one of the others.
constexpr off_t kTicket = 0;
constexpr off_t kFirstPlace = 1;
constexpr off_t kToTheEnd = 0;

std::string path_for(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    const char* const folder = access("/run/lock", W_OK) == 0 ? "/run/lock" : "/tmp";
    return fmt::format("{}/zondar-{}-{}.lock", folder, text.data(), ntohs(address.sin_port));
}

// An existing file first: in a shared folder only its owner may open it for creation. Writable for
// all, since any user's program may leave its mark; -1 as long as its owner has not made it so.
int try_to_open(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    constexpr mode_t kForAll = 0666;
    int descriptor = open(path.c_str(), kFlags);
    if (descriptor == -1 && errno == ENOENT) {
        descriptor = open(path.c_str(), kFlags | O_CREAT, kForAll);
        if (descriptor != -1)
            fchmod(descriptor, kForAll);
    }
    return descriptor;
}

int open_lock(const std::string& path) {
    constexpr int kAttempts = 20;
    for (int attempt = 1;; ++attempt) {
        const int descriptor = try_to_open(path);
        if (descriptor != -1)
            return descriptor;
        const int error = errno;
        if (error != EACCES || attempt == kAttempts)
            throw Failure(Stage::lock, fmt::format("cannot lock the target: {}: {}", path,
                                                   std::strerror(error)));
        std::this_thread::sleep_for(kPause);
    }
}

// What keeps `length` bytes from `start` on from being locked; l_type is F_UNLCK when nothing does.
struct flock in_the_way(int descriptor, off_t start, off_t length) {
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_start = start;
    range.l_len = length;
    fcntl(descriptor, F_OFD_GETLK, &range);
    return range;
}

bool set_byte(int descriptor, off_t byte, short type) {
    struct flock range {};
    range.l_type = type;
    range.l_start = byte;
    range.l_len = 1;
    return fcntl(descriptor, F_OFD_SETLK, &range) == 0;
}

// ": zondarctl, process 1234"; empty when the system does not tell.
std::string holder_of(int descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    const std::string wanted =
        fmt::format("{:02x}:{:02x}:{}", major(status.st_dev), minor(status.st_dev), status.st_ino);
    std::ifstream table("/proc/locks");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string advisory;
        std::string mode;
        std::string process;
        std::string file;
        words >> number >> kind >> advisory >> mode >> process >> file;
        std::string name;
        if (kind == "FLOCK" && file == wanted &&
            std::getline(std::ifstream("/proc/" + process + "/comm"), name))
            return fmt::format(": {}, process {}", name, process);
    }
    return "";
}

template <typename Condition>
void wait_for(Condition condition, int descriptor, const Deadline& deadline) {
    while (!condition()) {
        if (deadline.passed())
            throw Failure(Stage::lock,
                          "another program is asking this module" + holder_of(descriptor));
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace

TargetLock::TargetLock(const sockaddr_in& address, const Deadline& deadline)
    : TargetLock(open_lock(path_for(address))) {
    wait_for([this] { return queue(); }, descriptor_, deadline);
    free_since_ = std::chrono::steady_clock::now();
    wait_for([this] { return first_in_queue() || nobody_takes_it(); }, descriptor_, deadline);
    wait_for([this] { return flock(descriptor_, LOCK_EX | LOCK_NB) == 0; }, descriptor_, deadline);
    set_byte(descriptor_, place_, F_UNLCK);
}

TargetLock::~TargetLock() {
    close(descriptor_);
}

// Takes the place behind all others.
bool TargetLock::queue() {
    if (!set_byte(descriptor_, kTicket, F_WRLCK))
        return false;
    place_ = kFirstPlace;
    for (;;) {
        const struct flock other = in_the_way(descriptor_, place_, kToTheEnd);
        // One without an end is none of ours.
        if (other.l_type == F_UNLCK || other.l_len == 0)
            break;
        place_ = other.l_start + other.l_len;
    }
    const bool queued = set_byte(descriptor_, place_, F_WRLCK);
    set_byte(descriptor_, kTicket, F_UNLCK);
    return queued;
}

bool TargetLock::first_in_queue() const {
    return place_ == kFirstPlace ||
           in_the_way(descriptor_, kFirstPlace, place_ - kFirstPlace).l_type == F_UNLCK;
}

// A program that was stopped in the queue keeps its place, and must not keep all others out.
bool TargetLock::nobody_takes_it() {
    const auto now = std::chrono::steady_clock::now();
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        free_since_ = now;
        return false;
    }
    if (now - free_since_ > kPatience)
        return true;
    flock(descriptor_, LOCK_UN);
    return false;
}

off_t TargetLock::size() const {
    struct stat status {};
    fstat(descriptor_, &status);
    return status.st_size;
}

// A mark that cannot be made only costs a repeated time-out.
void TargetLock::resize(off_t size) const {
    [[maybe_unused]] const int result = ftruncate(descriptor_, size);
}

}  // namespace master
