// What a command of zondarctl has to say, for people and for scripts.
#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "master/answers.h"
#include "master/failure.h"
#include "master/targets.h"
#include "master/text.h"

namespace zondarctl {

using namespace master;  // the tool speaks in its terms

using Json = nlohmann::ordered_json;

// The exit status is the same for all commands, but for `check`.
enum Status : int {
    kDone = 0,
    kRefusedOrDifferent = 1,
    kUsage = 2,
    kNoConnection = 3,
    kNoAnswer = 4,
    kWrongCode = 5,
    kWrongSequence = 6,
    kOtherCommand = 7,
    kLocked = 8,
};

// What the user asked for cannot be done, whatever the module says.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Error {
    std::string stage;
    std::string message;
    Outcome outcome = Outcome::none;  // of what was to change something
    bool of_module = false;           // the message is about the module that was asked
};

// One line for people; the cells of neighbouring lines with as many of them are aligned.
struct TextLine {
    enum class Look : std::uint8_t { plain, heading, alert };
    std::vector<std::string> cells;
    Look look = Look::plain;
};

struct Report {
    Json data = Json::object();
    std::vector<TextLine> lines = {};
    // Heading and content of each column, where several modules are shown as a table.
    std::vector<std::pair<std::string, std::string>> row = {};
    int status = kDone;
    std::optional<Error> error = {};

    void line(std::vector<std::string> cells, TextLine::Look look = TextLine::Look::plain) {
        lines.push_back({std::move(cells), look});
    }
    // The error becomes the report's, and with it the status.
    void fail(const Failure& failure);
    // The same when something was changed before, and only its outcome could not be seen.
    void fail_to_read_back(const Failure& failure);
    void fail(int new_status, const std::string& stage, const std::string& message);
};

// How reports are printed.
struct Style {
    bool json = false;
    bool compact = false;  // JSON on one line
    bool color = false;
};

using Elapsed = std::chrono::steady_clock::duration;

// What a command has to say of one of the modules that it asked.
struct ModuleReport {
    Target target;
    Report report;
    Elapsed elapsed;
};

// True when standard output is a terminal that may be coloured.
bool color_wanted();

// The report on standard output, its error in one line on standard error. What standard output does
// not take is an error of its own there, and leaves the stream's error indicator set.
void print(const Report& report, std::string_view command, const std::optional<Target>& target,
           Elapsed elapsed, const Style& style);

// The same of several modules: a table with a row for each, below `heading` if there is one, or a
// list.
void print(const std::vector<ModuleReport>& modules, std::string_view command,
           const std::string& heading, const Style& style);

// The lines of a report as people read them, aligned.
std::string text_of(const std::vector<TextLine>& lines, bool color = false);

// On standard output or standard error. False when not all could be written; what was asked of the
// module is done all the same.
bool write_text(std::FILE* stream, std::string_view text);

// Adds a text of any encoding: one that is not UTF-8 is shown as well as it can be and has its
// bytes beside it, under the name with "_hex".
void put_text(Json& object, const std::string& key, const std::string& text);

// The same for a value of an answer.
void put_item(Json& object, const std::string& key, const Item& item);
Json to_json(const Items& items);

// As people read it.
std::string shown(const Item& item);
void put_lines(Report& report, const Items& items);

}  // namespace zondarctl
