// The requests that are measured, and the SQL statements that they cannot do without.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct mensaje;
struct sqlite3;

// Opens ConfDB and TempDB; false when it fails.
bool open_databases(const char* configuration, const char* state);

// Of the requests that alternate, the one of an even or of an odd round. Null when there is none of
// the name.
const mensaje* request(std::string_view name, int round);

// Through the processor.
std::unique_ptr<mensaje> carry_out(const mensaje& request);

struct Statement {
    sqlite3* database;
    std::string text;
};

// The very statements of a request, with SQLite alone.
class BareStatements {
  public:
    // Learns them from two rounds of the request, which are carried out, an odd one before them.
    explicit BareStatements(std::string_view name);
    void run(int round) const;

  private:
    std::vector<Statement> rounds_[2];
};
