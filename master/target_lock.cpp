#include "master/target_lock.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "master/failure.h"

namespace master {

namespace {

constexpr std::chrono::milliseconds kPause{10};

std::string path_for(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    const char* const folder = access("/run/lock", W_OK) == 0 ? "/run/lock" : "/tmp";
    return fmt::format("{}/zondar-{}-{}.lock", folder, text.data(), ntohs(address.sin_port));
}

// An existing file first: in a shared folder only its owner may open it for creation. Writable for
// all, since any user's program may leave its mark.
int open_lock(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    constexpr mode_t kForAll = 0666;
    int descriptor = open(path.c_str(), kFlags);
    if (descriptor == -1 && errno == ENOENT) {
        descriptor = open(path.c_str(), kFlags | O_CREAT, kForAll);
        if (descriptor != -1)
            fchmod(descriptor, kForAll);
    }
    if (descriptor == -1)
        throw Failure(Stage::lock,
                      fmt::format("cannot lock the target: {}: {}", path, std::strerror(errno)));
    return descriptor;
}

}  // namespace

TargetLock::TargetLock(const sockaddr_in& address, const Deadline& deadline)
    : descriptor_(open_lock(path_for(address))) {
    while (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        if (deadline.passed()) {
            close(descriptor_);
            throw Failure(Stage::lock, "another program is asking this module");
        }
        std::this_thread::sleep_for(kPause);
    }
}

TargetLock::~TargetLock() {
    close(descriptor_);
}

bool TargetLock::unsettled() const {
    struct stat status {};
    return fstat(descriptor_, &status) == 0 && status.st_size != 0;
}

// By the file's size alone. A mark that cannot be made only costs a repeated time-out.
void TargetLock::set_unsettled(bool unsettled) const {
    [[maybe_unused]] const int result = ftruncate(descriptor_, unsettled ? 1 : 0);
}

}  // namespace master
