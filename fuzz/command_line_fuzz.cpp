// The command line. Input: the words behind the program's name, each with a NUL behind it.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "app/cmdline.h"
#include "fuzz/exits.h"
#include "fuzz/require.h"

namespace {

using Words = std::vector<std::string>;

Words words_of(const std::uint8_t* data, std::size_t size) {
    Words words = {"zondar_net_receiver"};
    const std::uint8_t* const end = data + size;
    while (data < end) {
        const std::uint8_t* const nul = std::find(data, end, 0);
        words.emplace_back(data, nul);
        data = nul == end ? end : nul + 1;
    }
    return words;
}

// The words as a process gets them, each on a heap block of its own length, so that a sanitizer
// sees a read beyond its end.
class Arguments {
  public:
    explicit Arguments(const Words& words) {
        for (const std::string& word : words) {
            blocks_.push_back(std::make_unique<char[]>(word.size() + 1));
            std::copy(word.begin(), word.end(), blocks_.back().get());
            pointers_.push_back(blocks_.back().get());
        }
        pointers_.push_back(nullptr);
    }
    [[nodiscard]] int count() const { return static_cast<int>(blocks_.size()); }
    char** vector() { return pointers_.data(); }
    // In the order in which the parser leaves them.
    [[nodiscard]] Words words() const { return {pointers_.begin(), pointers_.end() - 1}; }

  private:
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::vector<char*> pointers_;
};

// What became of a command line.
struct Outcome {
    std::optional<int> status = {};  // it ended the process
    std::string error = {};          // thrown
    int syslog_level = 0;
    int stdout_log_level = 0;
    bool log_to_stderr = false;
    bool daemon_mode = false;
    bool show_version = false;
    std::string pidfile = {};
    Words words = {};  // of a good one: all of them, in the parser's order
    std::size_t first_positional = 0;
};

Outcome outcome_of(const Words& words) {
    Arguments arguments(words);
    Outcome outcome;
    // An exit leaves it where it stands, with all its members there: they come before the options.
    alignas(Cmdline) std::array<std::byte, sizeof(Cmdline)> place;
    auto* const cmdline = reinterpret_cast<Cmdline*>(place.data());
    try {
        outcome.status = exit_status_of(
            [&] { new (place.data()) Cmdline(arguments.count(), arguments.vector()); });
    } catch (const std::string& error) {
        outcome.error = error;
        return outcome;
    }
    if (!outcome.status) {
        outcome.syslog_level = cmdline->s();
        outcome.stdout_log_level = cmdline->l();
        outcome.log_to_stderr = cmdline->t();
        outcome.daemon_mode = cmdline->d();
        outcome.show_version = cmdline->v();
        outcome.pidfile = cmdline->p();
        outcome.first_positional = static_cast<std::size_t>(cmdline->first_positional());
        outcome.words = arguments.words();
        REQUIRE(!cmdline->h());
    }
    cmdline->~Cmdline();
    return outcome;
}

void check_error(const std::string& error) {
    constexpr const char* kErrors[] = {
        "parameter range error: s must be >= 0", "parameter range error: s must be <= 5",
        "parameter range error: l must be >= 0", "parameter range error: l must be <= 127"};
    REQUIRE(std::ranges::find(kErrors, error) != std::end(kErrors));
}

Words sorted(Words words) {
    std::ranges::sort(words);
    return words;
}

// The ranges; the paths last, none of the words lost; and the words in that order mean the same.
void check_accepted(const Words& words, const Outcome& outcome) {
    REQUIRE(outcome.syslog_level >= 0 && outcome.syslog_level <= 5);
    REQUIRE(outcome.stdout_log_level >= 0 && outcome.stdout_log_level <= 127);
    REQUIRE(outcome.first_positional >= 1 && outcome.first_positional <= words.size());
    REQUIRE(outcome.words[0] == words[0]);
    REQUIRE(sorted(outcome.words) == sorted(words));
    const Outcome again = outcome_of(outcome.words);
    REQUIRE(!again.status && again.error.empty());
    REQUIRE(again.syslog_level == outcome.syslog_level);
    REQUIRE(again.stdout_log_level == outcome.stdout_log_level);
    REQUIRE(again.log_to_stderr == outcome.log_to_stderr);
    REQUIRE(again.daemon_mode == outcome.daemon_mode);
    REQUIRE(again.show_version == outcome.show_version);
    REQUIRE(again.pidfile == outcome.pidfile);
    REQUIRE(again.words == outcome.words);
    REQUIRE(again.first_positional == outcome.first_positional);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Words words = words_of(data, size);
    const Outcome outcome = outcome_of(words);
    if (!outcome.error.empty())
        check_error(outcome.error);
    else if (outcome.status)
        REQUIRE(*outcome.status == 0 || *outcome.status == 1);
    else
        check_accepted(words, outcome);
    return 0;
}
