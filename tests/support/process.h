// Runs the real program in a test and keeps what it printed and how it ended.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#ifndef _WIN32
#include <sys/wait.h>
#endif

namespace scansteps::test {

/// A folder of its own for every test, removed at the end.
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string("scansteps_") + info->test_suite_name() + "_" + info->name();
        for (char& c : name)
            if (c == '/') c = '_';
        path_ = std::filesystem::temp_directory_path() / (name + "_" + std::to_string(std::rand()));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }
    /// A path inside, with forward slashes.
    std::string file(const std::string& name) const { return (path_ / name).generic_string(); }
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path_ / name, std::ios::binary) << content;
        return file(name);
    }

  private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct ProgramResult
{
    int exitCode = -1;
    std::string out, err;
};

/// Runs `scansteps` with arguments as a shell line (quote with double quotes).
inline ProgramResult runProgram(const std::string& arguments, const std::string& input = "")
{
    const TemporaryFolder folder;
    const std::string in = folder.write("in", input);
    std::string line = "\"" SCANSTEPS_BIN_DIR "/scansteps\" " + arguments + " <\"" + in + "\" >\"" +
                       folder.file("out") + "\" 2>\"" + folder.file("err") + "\"";
#ifdef _WIN32
    line = "\"" + line + "\"";  // the shell takes the outer quotes off
    ProgramResult result{std::system(line.c_str()), "", ""};
#else
    const int status = std::system(line.c_str());
    ProgramResult result{WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), "", ""};
#endif
    result.out = readFile(folder.path() / "out");
    result.err = readFile(folder.path() / "err");
    return result;
}

}  // namespace scansteps::test
