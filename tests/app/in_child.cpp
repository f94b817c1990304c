#include "tests/app/in_child.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/support/files.h"

namespace {

constexpr char kOut[] = "/tmp/child.out";
constexpr char kErr[] = "/tmp/child.err";
constexpr unsigned kLongestLife_s = 60;

void redirect(const char* path, int descriptor) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
    dup2(file, descriptor);
    close(file);
}

[[noreturn]] void live(int gate, const std::function<void()>& body) {
    alarm(kLongestLife_s);
    redirect(kOut, STDOUT_FILENO);
    redirect(kErr, STDERR_FILENO);
    char byte = 0;
    if (read(gate, &byte, 1) == 1)
        body();
    std::exit(kCameBack);
}

}  // namespace

// The child is made before the log's thread: only then may it make threads of its own.
ChildEnd in_child(const std::function<void()>& body) {
    int gate[2];
    if (pipe(gate) != 0)
        throw std::runtime_error("cannot make a pipe");
    const pid_t pid = fork();
    if (pid == 0)
        live(gate[0], body);

    const SyslogReader log;
    const auto start = std::chrono::steady_clock::now();
    if (write(gate[1], "", 1) != 1)
        throw std::runtime_error("cannot open the gate");
    int status = 0;
    waitpid(pid, &status, 0);
    const auto end = std::chrono::steady_clock::now();
    close(gate[0]);
    close(gate[1]);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), log.lines(),
            read_file(kOut), read_file(kErr), end - start};
}
