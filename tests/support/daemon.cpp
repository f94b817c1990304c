#include "tests/support/daemon.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/support/files.h"
#include "tests/support/master.h"
#include "tests/support/wait.h"

std::string daemon_path() {
    return ZONDAR_DAEMON;
}

namespace {

constexpr std::chrono::seconds kLongestLife{60};

void redirect(const std::string& path, int descriptor) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
    dup2(file, descriptor);
    close(file);
}

// Those of the whole run, for a daemon whose test brings none.
std::vector<std::string> launcher_of_the_run() {
    const char* const words = std::getenv("ZONDAR_DAEMON_LAUNCHER");
    std::istringstream stream(words == nullptr ? "" : words);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::vector<std::string> command(const Daemon::Setup& setup) {
    std::vector<std::string> words =
        setup.launcher.empty() ? launcher_of_the_run() : setup.launcher;
    words.push_back(daemon_path());
    words.insert(words.end(), setup.options.begin(), setup.options.end());
    words.insert(words.end(), setup.paths.begin(), setup.paths.end());
    return words;
}

}  // namespace

Daemon::Daemon(const Setup& setup) : output_(setup.output) {
    std::vector<std::string> words = command(setup);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    const std::string out_path = output_ + ".out";
    const std::string err_path = output_ + ".err";
    pid_ = fork();
    if (pid_ == 0) {
        redirect(out_path, STDOUT_FILENO);
        redirect(err_path, STDERR_FILENO);
        std::signal(SIGPIPE, SIG_IGN);
        setup.prepare();
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    if (pid_ == -1)
        throw std::runtime_error("cannot fork");
}

// By SIGTERM, so that a sanitizer has its say at the end.
Daemon::~Daemon() {
    if (running()) {
        deliver(pid_, SIGTERM);
        if (!eventually([this] { return !running(); })) {
            send(SIGKILL);
            reap(0);
        }
    }
    EXPECT_THAT(err(), testing::Not(testing::HasSubstr("Sanitizer")));
    EXPECT_THAT(err(), testing::Not(testing::HasSubstr("== ")));  // of valgrind
}

bool Daemon::reap(int options) {
    if (!reaped_ && waitpid(pid_, &status_, options) == pid_)
        reaped_ = true;
    return reaped_;
}

bool Daemon::running() {
    return !reap(WNOHANG);
}

void Daemon::send(int signal) const {
    kill(pid_, signal);
}

int Daemon::wait() {
    if (!eventually([this] { return !running(); }, kLongestLife))
        return -1;
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 1000 + WTERMSIG(status_);
}

int Daemon::stop(int signal) {
    deliver(pid_, signal);
    return wait();
}

void Daemon::deliver(pid_t pid, int signal) {
    kill(pid, signal);
#ifdef __SANITIZE_THREAD__
    nudge();  // the thread sanitizer holds a signal back until accept has come back
#endif
}

std::string Daemon::out() const {
    return read_file(output_ + ".out");
}

std::string Daemon::err() const {
    return read_file(output_ + ".err");
}
