// What comes of a call of the master's library, as a text; and what it leaves.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "master/failure.h"
#include "master/session.h"

namespace master {

using namespace std::chrono_literals;

inline constexpr char kLockFile[] = "/tmp/zondar-127.0.0.1-8001.lock";

// The mark of a program that went away before its answer came.
inline bool marked() {
    return std::filesystem::file_size(kLockFile) != 0;
}

inline std::string text_of(const Failure& failure) {
    constexpr const char* kStages[] = {"resolve", "lock",     "connect", "resync", "answer",
                                       "code",    "sequence", "command", "refused"};
    return std::string(kStages[static_cast<std::size_t>(failure.stage())]) + ": " + failure.what();
}

// What comes of a call: the number of bytes that it returns, or its failure.
template <typename Call>
std::string outcome_of(Call call) {
    try {
        return std::to_string(call().size()) + " bytes";
    } catch (const Failure& failure) {
        return text_of(failure);
    }
}

inline std::string outcome(const Request& request, const Settings& settings = {}) {
    return outcome_of([&] { return Session(settings).ask(request); });
}

// So long that a test which waits for it does not end.
constexpr auto kForEver = 1h;
constexpr auto kShort = 300ms;

// A program beside this one. Its status is 0 when `act` returned true.
template <typename Act>
pid_t in_another_process(Act act) {
    const pid_t pid = fork();
    if (pid == 0)
        _exit(act() ? 0 : 1);
    return pid;
}

inline int status_of(pid_t pid) {
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

}  // namespace master
