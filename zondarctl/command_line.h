// The command line of zondarctl: its options, its commands, and what is wrong with its words.
#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zondarctl/commands.h"

namespace zondarctl {

// How many modules a command asks.
enum class Asks : std::uint8_t { none, one, several };

// What the words of a command line ask for.
struct Invocation {
    Options options = {};
    Style style = {};
    std::size_t at_once = 32;  // modules
    Asks asks = Asks::none;
    std::vector<Target> targets = {};
    bool several = false;  // even when it turned out to be one
    // Reads the words of the command; what does the work, once for each module.
    std::function<Run()> prepare = {};
};

class CommandLine {
  public:
    CommandLine();

    // Throws CLI::ParseError. How errors are told is known before anything is parsed.
    void parse(int argc, char** argv);
    // Finds the modules that are meant; throws a UsageError.
    void select_targets();

    // The words of the command: "slave register".
    [[nodiscard]] std::string command() const;
    // What is wrong with the words, in one line.
    [[nodiscard]] std::string problem(const CLI::ParseError& error) const;

    CLI::App& app() { return app_; }
    [[nodiscard]] bool is_check() const { return check_->parsed(); }
    [[nodiscard]] const Invocation& invocation() const { return it_; }
    // The module that is asked; nothing when it is none, or several.
    [[nodiscard]] std::optional<Target> target() const;

  private:
    // What is behind the words of a command; CLI11 fills it.
    struct CommandWords {
        std::optional<int> block = {};
        Words names = {};
        std::string first = {};
        std::string second = {};
        std::optional<std::string> value = {};
        bool flag = false;
        unsigned sequence = 0;
        WatchOptions watch = {};
        CheckOptions check = {};
        RestoreOptions restore = {};
        std::map<std::string, std::string> slave = {};  // by the names of the fields
    };

    void add_options();
    void add_reading();
    void add_describing();
    void add_writing();
    void add_carrying();
    void add_slaves();
    void add_field(CLI::App& command, const protocol::Field& field);
    void add_offline();
    CLI::App* add(CLI::App& parent, const std::string& name, const std::string& help, Asks asks,
                  std::function<Run()> prepare, std::function<void()> parsed = {});
    void choose_target_of_copy();
    void show_help();
    [[nodiscard]] std::vector<Target> targets_of(const Selection& selection) const;
    Report watch_on(const Options& options);

    CLI::App app_{"The master's side of a television head-end module."};
    CLI::App* check_ = nullptr;
    Invocation it_;
    CommandWords words_;
    Inventory inventory_;
    Words hosts_;
    Words where_;
    bool all_ = false;
    int port_ = 8001;
    std::optional<double> timeout_;
};

}  // namespace zondarctl
