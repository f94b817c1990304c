// The main of a fuzz target without a fuzzer: feeds every file of the folders on the command line
// to the target. Fails when a folder is missing or empty.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// Sorted, so that each run is the same.
std::vector<fs::path> files_in(const char* folder) {
    std::vector<fs::path> files;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder, none)) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// An exit of the code under test must not pass for the end of the replay.
bool at_the_end = false;

void fail_unless_at_the_end() {
    if (!at_the_end)
        std::_Exit(1);
}

// Exactly as long as the input, so that a sanitizer sees a read beyond its end.
void replay(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> text{std::istreambuf_iterator<char>(file), {}};
    const std::vector<std::uint8_t> input(text.begin(), text.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FOLDER...\n", argv[0]);
        return 2;
    }
    if (std::atexit(fail_unless_at_the_end) != 0)
        return 1;
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::vector<fs::path> files = files_in(argv[i]);
        if (files.empty()) {
            std::fprintf(stderr, "%s: no inputs\n", argv[i]);
            return 1;
        }
        for (const fs::path& path : files) {
            // The last line names the input that a crash is due to.
            std::printf("%s\n", path.c_str());
            std::fflush(stdout);
            replay(path);
        }
        replayed += files.size();
    }
    at_the_end = true;
    std::printf("%zu inputs replayed\n", replayed);
    return 0;
}
