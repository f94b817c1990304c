// Which modules a word means: a host, a name from the files of targets, a condition on their
// labels.
//
// These files have the JSON format of Prometheus' file-based discovery, so that one list serves
// both. Errors are std::invalid_argument with one line.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace master {

constexpr std::uint16_t kModulePort = 8001;

struct Target {
    std::string host = "127.0.0.1";  // a name or an IPv4 address
    std::uint16_t port = kModulePort;
    std::string name = {};  // the label `name`; empty without one
    std::map<std::string, std::string> labels = {};
};

// "host:port", behind the name of one that has it: "sur-1 (10.0.0.5:8001)".
std::string name_of(const Target& target);

// Of "HOST" or "HOST:PORT".
Target parse_target(std::string_view word, std::uint16_t default_port = kModulePort);

// The targets of such a file, in its order, what stands there twice once.
std::vector<Target> parse_targets(std::string_view json);
std::vector<Target> read_targets_file(const std::string& path);

// Where the files of targets are: that of the machine, that of the user.
std::vector<std::string> targets_files();

struct Selection {
    std::vector<std::string> words = {};  // hosts, names, or several of them with commas between
    bool all = false;                     // every target of the files, too
    // "label=value" or "label!=value"; what meets all of them is left. Without words they choose
    // from all.
    std::vector<std::string> where = {};
};

// What the files of targets hold. Files that are missing are none; a broken one is an error as soon
// as it could matter.
class Inventory {
  public:
    explicit Inventory(std::vector<std::string> paths = targets_files());

    [[nodiscard]] const std::vector<Target>& targets() const;
    // In the order of the words and, where one means several, of the files; each module once.
    [[nodiscard]] std::vector<Target> select(const Selection& selection,
                                             std::uint16_t default_port = kModulePort) const;

  private:
    [[nodiscard]] std::vector<Target> named(const std::string& name) const;
    [[nodiscard]] std::vector<Target> meant_by(const std::string& word,
                                               std::uint16_t default_port) const;

    std::vector<std::string> paths_;
    std::vector<Target> targets_;
    std::string error_;  // of a broken file
};

}  // namespace master
