// The board's other processes: connections to its databases beside the one under test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct sqlite3;

// A connection of the test's own. It fails the test's way, by a throw with SQLite's message.
class Database {
  public:
    explicit Database(const std::string& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    [[nodiscard]] sqlite3* handle() const { return handle_; }
    void run(const std::string& sql) const;
    // All rows, each value in SQLite's text form, "NULL" for an SQL NULL.
    [[nodiscard]] std::vector<std::vector<std::string>> rows(const std::string& sql) const;
    // The first value of the first row.
    [[nodiscard]] std::string value(const std::string& sql) const;

  private:
    sqlite3* handle_ = nullptr;
};

// Runs SQL in another process, to its end.
void run_elsewhere(const std::string& path, const std::string& sql);

// An exclusive lock on a database, held by another process until it is released.
class ForeignLock {
  public:
    explicit ForeignLock(const std::string& path);
    ~ForeignLock();
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;

    // The database is free on return.
    void release();

  private:
    int keep_ = -1;  // the process holds the lock until this is closed
    pid_t process_ = -1;
};
