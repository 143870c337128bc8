// A folder of its own for one test, removed with everything in it at the end. Its name has no digits, as
// every digit of a path is part of the counter of numbered files.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace scansteps::test {

/// Path of a name in UTF-8, which is what the library and the program take names for on every system.
inline std::filesystem::path pathOf(const std::string& utf8)
{
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

class TempDir
{
  public:
    TempDir()
    {
        std::random_device random;
        do {
            std::string name = "scansteps-";
            for (int i = 0; i < 12; ++i) name += char('a' + random() % 26);
            path_ = std::filesystem::temp_directory_path() / name;
        } while (!std::filesystem::create_directory(path_));
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }
    /// Path of a file in the folder, in UTF-8 with forward slashes.
    std::string operator/(const std::string& name) const
    {
        const std::u8string text = (path_ / pathOf(name)).generic_u8string();
        return {text.begin(), text.end()};
    }

    /// Writes a file and returns its path.
    std::string write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(path_ / pathOf(name), std::ios::binary) << bytes;
        return *this / name;
    }

    /// What is in the folder now, in alphabetical order.
    std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << "cannot read " << path;
    return {std::istreambuf_iterator<char>(file), {}};
}
inline std::string readFile(const std::string& utf8)
{
    return readFile(pathOf(utf8));
}
inline std::string readFile(const char* utf8)
{
    return readFile(pathOf(utf8));
}

}  // namespace scansteps::test
