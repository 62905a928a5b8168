// Runs a target on kept files: each argument is a file, or a folder whose files are all taken.
#include "fuzz.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

static std::vector<fs::path> files_of(int argc, char** argv)
{
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path path = fs::absolute(argv[i]);
        if (!fs::is_directory(path)) {
            files.push_back(path);
            continue;
        }
        for (const auto& entry : fs::directory_iterator(path))
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The name goes out first, so that the last one shown is the one that failed.
int main(int argc, char** argv)
{
    const std::vector<fs::path> files = files_of(argc, argv);
    for (const fs::path& path : files) {
        std::printf("%s\n", path.c_str());
        std::fflush(stdout);
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
