// The modules that may be asked: those of the files of targets, read again when they change.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "master/targets.h"

namespace exporter {

// "host:port", whatever name the target has.
std::string address_of(const master::Target& target);

class TargetList {
  public:
    struct File {
        std::string path;
        std::vector<master::Target> targets = {};  // of the last reading that went well
        std::chrono::system_clock::time_point read = {};
        std::string error = {};  // of the last reading; empty when it went well
        struct stat seen = {};
    };

    // Throws std::invalid_argument when one of the files is missing or broken.
    explicit TargetList(std::vector<std::string> paths);

    // Looks, at most once a second, whether a file has changed. True when one was read, or could
    // not be: its targets of before stay then.
    bool refresh();

    // By "host" or "host:port", else by a name; null when there is none.
    [[nodiscard]] const master::Target* find(const std::string& word) const;
    // In the order of the files, each module once.
    [[nodiscard]] const std::vector<master::Target>& targets() const { return targets_; }
    [[nodiscard]] const std::vector<File>& files() const { return files_; }
    // Of targets(), by address.
    [[nodiscard]] const std::map<std::string, std::size_t>& addresses() const { return addresses_; }

  private:
    void collect();

    std::vector<File> files_;
    std::chrono::steady_clock::time_point looked_{};
    std::vector<master::Target> targets_;
    std::map<std::string, std::size_t> addresses_;
    std::map<std::string, std::size_t> names_;
};

}  // namespace exporter
