#include "exporter/target_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace exporter {

namespace {

using File = TargetList::File;

std::string in_lower_case(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool same(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           one.st_size == other.st_size && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec &&
           one.st_ctim.tv_sec == other.st_ctim.tv_sec &&
           one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
}

// What is wrong with a file may be a word of a megabyte.
std::string shortened(std::string_view text) {
    constexpr std::size_t kLongest = 300;
    return std::string(text.substr(0, kLongest)) + (text.size() > kLongest ? "..." : "");
}

// Reads it when it is another one than was seen, and again as long as that fails: a lack of open
// files ends without a change of the file. A pipe would be waited for.
bool refresh(File& file) {
    struct stat now {};
    if (stat(file.path.c_str(), &now) != 0)
        now = {};
    const bool is_new = !same(now, file.seen);
    if (!is_new && now.st_ino != 0 && file.error.empty())
        return false;
    file.seen = now;
    const std::string error_before = file.error;
    try {
        if (now.st_ino != 0 && !S_ISREG(now.st_mode))
            throw std::invalid_argument(fmt::format("{}: no regular file", file.path));
        file.targets = master::read_targets_file(file.path);
        file.read = std::chrono::system_clock::now();
        file.error.clear();
    } catch (const std::invalid_argument& problem) {
        file.error = shortened(problem.what());
    }
    return is_new || file.error != error_before;
}

}  // namespace

std::string address_of(const master::Target& target) {
    return in_lower_case(fmt::format("{}:{}", target.host, target.port));
}

TargetList::TargetList(std::vector<std::string> paths) {
    for (std::string& path : paths)
        files_.push_back({.path = std::move(path)});
    refresh();
    for (const File& file : files_) {
        if (!file.error.empty())
            throw std::invalid_argument(file.error);
    }
}

bool TargetList::refresh() {
    const auto now = std::chrono::steady_clock::now();
    if (looked_ != std::chrono::steady_clock::time_point{} &&
        now - looked_ < std::chrono::seconds(1))
        return false;
    looked_ = now;
    bool changed = false;
    for (File& file : files_)
        changed = exporter::refresh(file) || changed;
    if (changed)
        collect();
    return changed;
}

void TargetList::collect() {
    targets_.clear();
    addresses_.clear();
    names_.clear();
    for (const File& file : files_) {
        for (const master::Target& target : file.targets) {
            if (!addresses_.emplace(address_of(target), targets_.size()).second)
                continue;
            if (!target.name.empty())
                names_.emplace(in_lower_case(target.name), targets_.size());
            targets_.push_back(target);
        }
    }
}

const master::Target* TargetList::find(const std::string& word) const {
    try {
        const auto found = addresses_.find(address_of(master::parse_target(word)));
        if (found != addresses_.end())
            return &targets_[found->second];
    } catch (const std::invalid_argument&) {  // no address, but it may be a name
    }
    const auto named = names_.find(in_lower_case(word));
    return named == names_.end() ? nullptr : &targets_[named->second];
}

}  // namespace exporter
