#include "tests/exporter/exporter.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "tests/support/files.h"
#include "tests/support/wait.h"

namespace {

constexpr char kErr[] = "/tmp/exporter.err";

int connect_to_exporter() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9801);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

void send_all(int descriptor, const std::string& bytes) {
    [[maybe_unused]] const ssize_t sent =
        send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

std::string read_to_end(int descriptor) {
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = read(descriptor, part.data(), part.size())) > 0;)
        text.append(part.data(), static_cast<std::size_t>(count));
    return text;
}

}  // namespace

Reply exchange(const std::string& request) {
    const int descriptor = connect_to_exporter();
    if (descriptor == -1)
        return {};
    send_all(descriptor, request);
    const std::string text = read_to_end(descriptor);
    close(descriptor);
    const std::size_t end = text.find("\r\n\r\n");
    if (!text.starts_with("HTTP/1.1 ") || end == std::string::npos)
        return {};
    return {std::stoi(text.substr(9)), text.substr(0, end + 2), text.substr(end + 4)};
}

void send_and_leave(const std::string& bytes) {
    const int descriptor = connect_to_exporter();
    send_all(descriptor, bytes);
    close(descriptor);
}

Reply get(const std::string& path, const std::string& headers) {
    return exchange("GET " + path + " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n" + headers +
                    "\r\n");
}

std::string page(const std::string& path, const std::string& headers) {
    const Reply reply = get(path, headers);
    EXPECT_EQ(reply.status, 200) << path << "\n" << reply.body;
    return reply.body;
}

std::string patience(const std::string& seconds) {
    return "X-Prometheus-Scrape-Timeout-Seconds: " + seconds + "\r\n";
}

std::string sample(std::string_view exposition, std::string_view series) {
    const std::string wanted = "\n" + std::string(series) + " ";
    const std::size_t found = exposition.find(wanted);
    if (found == std::string_view::npos)
        return "";
    const std::size_t value = found + wanted.size();
    return std::string(exposition.substr(value, exposition.find('\n', value) - value));
}

std::string failed_stage(std::string_view exposition) {
    for (const char* const stage : {"resolve", "lock", "connect", "resync", "answer", "code",
                                    "sequence", "command", "refused"}) {
        if (sample(exposition, "zondar_probe_failed{stage=\"" + std::string(stage) + "\"}") == "1")
            return stage;
    }
    return "";
}

Exporter::Exporter(const std::string& targets, const std::vector<std::string>& words) {
    write_file(kTargets, targets);
    std::vector<std::string> all = {ZONDAR_EXPORTER, "--targets", kTargets};
    all.insert(all.end(), words.begin(), words.end());
    pid_ = fork();
    if (pid_ == 0) {
        dup2(open("/dev/null", O_RDWR), STDIN_FILENO);
        dup2(open(kErr, O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        std::vector<char*> arguments;
        for (std::string& word : all)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    if (!eventually([] { return get("/-/healthy").status == 200; }))
        throw std::runtime_error("the exporter does not answer: " + err());
}

Exporter::~Exporter() {
    if (!reaped_) {
        kill(pid_, SIGTERM);
        EXPECT_EQ(wait(), 0) << err();
    }
}

std::string Exporter::err() const {
    return read_file(kErr);
}

int Exporter::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

ProgramRun run_exporter(const std::vector<std::string>& words) {
    std::vector<std::string> all = {ZONDAR_EXPORTER};
    all.insert(all.end(), words.begin(), words.end());
    return run_program(all);
}
