#include "master/text_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace master {

namespace {

constexpr std::size_t kLargestFile = std::size_t{4} << 20U;

}  // namespace

std::optional<std::string> read_if_there(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                               &std::fclose);
    if (!file && (errno == ENOENT || errno == ENOTDIR))
        return std::nullopt;
    std::string text(kLargestFile + 1, '\0');
    if (file)
        text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    if (!file || std::ferror(file.get()) != 0)
        throw std::invalid_argument(fmt::format("{}: {}", path, std::strerror(errno)));
    if (text.size() > kLargestFile)
        throw std::invalid_argument(fmt::format("{}: more than 4 MiB", path));
    return text;
}

}  // namespace master
