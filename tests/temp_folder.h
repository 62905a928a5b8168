// tests/temp_folder.h - a folder of its own for one test, gone afterwards.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velmora {

struct temp_folder {
    std::filesystem::path path;

    explicit temp_folder(const std::filesystem::path& in = std::filesystem::temp_directory_path())
    {
        std::string name = in / "velmora-XXXXXX";
        path = mkdtemp(name.data());
    }
    ~temp_folder()
    {
        std::filesystem::remove_all(path);
    }
    temp_folder(const temp_folder&) = delete;
    temp_folder& operator=(const temp_folder&) = delete;

    void write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(path / name, std::ios::binary) << bytes;
    }
    std::string read(const std::string& name) const
    {
        std::ifstream in(path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    bool has(const std::string& name) const
    {
        return std::filesystem::exists(path / name);
    }
};

} // namespace velmora
