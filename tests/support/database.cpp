#include "tests/support/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string_view>

namespace {

// sqlite3's own program, which waits for whoever is reading or writing.
[[noreturn]] void become_sqlite3(const std::string& path, const char* sql) {
    execlp("sqlite3", "sqlite3", "-bail", "-cmd", ".timeout 5000", path.c_str(), sql, nullptr);
    _exit(127);
}

}  // namespace

Database::Database(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
        throw std::runtime_error(path + ": " + sqlite3_errmsg(handle_));
}

Database::~Database() {
    sqlite3_close(handle_);
}

void Database::run(const std::string& sql) const {
    if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(handle_));
}

std::vector<std::vector<std::string>> Database::rows(const std::string& sql) const {
    std::vector<std::vector<std::string>> rows;
    const auto add = [](void* to, int columns, char** values, char**) {
        std::vector<std::string> row;
        for (int i = 0; i < columns; ++i)
            row.emplace_back(values[i] == nullptr ? "NULL" : values[i]);
        static_cast<std::vector<std::vector<std::string>>*>(to)->push_back(row);
        return 0;
    };
    if (sqlite3_exec(handle_, sql.c_str(), add, &rows, nullptr) != SQLITE_OK)
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(handle_));
    return rows;
}

std::string Database::value(const std::string& sql) const {
    return rows(sql).at(0).at(0);
}

void run_elsewhere(const std::string& path, const std::string& sql) {
    const pid_t process = fork();
    if (process == 0) {
        become_sqlite3(path, sql.c_str());
    }
    int status = -1;
    waitpid(process, &status, 0);
    if (status != 0)
        throw std::runtime_error("sqlite3 failed: " + sql);
}

// The process reads the pipe to the end before it ends, and says so
// once it has the lock.
ForeignLock::ForeignLock(const std::string& path) {
    std::array<int, 2> commands{};
    std::array<int, 2> replies{};
    if (pipe2(commands.data(), O_CLOEXEC) != 0 || pipe2(replies.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
        dup2(commands[0], STDIN_FILENO);
        dup2(replies[1], STDOUT_FILENO);
        become_sqlite3(path, nullptr);
    }
    close(commands[0]);
    close(replies[1]);
    keep_ = commands[1];
    constexpr std::string_view kLock = "BEGIN EXCLUSIVE;\nSELECT 'locked';\n";
    std::array<char, 16> reply{};
    const bool locked = write(keep_, kLock.data(), kLock.size()) == std::ssize(kLock) &&
                        read(replies[0], reply.data(), reply.size()) > 0;
    close(replies[0]);
    if (!locked)
        throw std::runtime_error("no lock on " + path);
}

ForeignLock::~ForeignLock() {
    release();
}

void ForeignLock::release() {
    if (process_ < 0)
        return;
    close(keep_);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}
