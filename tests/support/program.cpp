#include "tests/support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace {

[[noreturn]] void become(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

int status_of(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// False at the end of the stream.
bool read_some(int descriptor, std::string& into) {
    std::array<char, 4096> part{};
    const ssize_t count = read(descriptor, part.data(), part.size());
    if (count > 0)
        into.append(part.data(), static_cast<std::size_t>(count));
    return count > 0;
}

// Both to their ends, whichever has something.
void read_both(int out, int err, ProgramRun& run) {
    pollfd streams[] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* const texts[] = {&run.out, &run.err};
    while (streams[0].fd != -1 || streams[1].fd != -1) {
        poll(streams, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (streams[i].fd != -1 && streams[i].revents != 0 &&
                !read_some(streams[i].fd, *texts[i])) {
                close(streams[i].fd);
                streams[i].fd = -1;
            }
        }
    }
}

}  // namespace

ProgramRun run_program(const std::vector<std::string>& words, const std::string& input) {
    return run_program(words, input, [](int) {});
}

ProgramRun run_program(const std::vector<std::string>& words, const std::string& input,
                       const std::function<void(int pid)>& meanwhile) {
    int in[2];
    int out[2];
    int err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        become(words);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    [[maybe_unused]] const ssize_t written = write(in[1], input.data(), input.size());
    close(in[1]);
    meanwhile(pid);
    ProgramRun run;
    read_both(out[0], err[0], run);
    run.status = status_of(pid);
    return run;
}

ProgramRun run_on_terminal(const std::vector<std::string>& words, const std::string& typed) {
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid == 0)
        become(words);
    [[maybe_unused]] const ssize_t written = write(terminal, typed.data(), typed.size());
    ProgramRun run;
    while (read_some(terminal, run.out)) {
    }
    close(terminal);
    run.status = status_of(pid);
    return run;
}
