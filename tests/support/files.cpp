#include "tests/support/files.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

void make_board() {
    if (std::system(ZONDAR_SOURCE_DIR "/board/make /quelt") != 0)
        throw std::runtime_error("board/make failed");
}

void write_file(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

void write_script(const std::string& path, const std::string& lines) {
    write_file(path, "#!/bin/sh\n" + lines + "\n");
    fs::permissions(path, fs::perms::owner_all);
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
