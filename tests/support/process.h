// Runs the real program in a test and keeps what it printed and how it ended.
#pragma once

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/wait.h>
#endif

namespace scansteps::test {

struct ProgramResult
{
    int exitCode = -1;
    std::string out, err;
};

#ifdef _WIN32

// A file that a child process inherits.
class InheritedFile
{
  public:
    InheritedFile(const std::filesystem::path& path, DWORD access, DWORD creation)
    {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        handle_ = CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, creation,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    InheritedFile(const InheritedFile&) = delete;
    InheritedFile& operator=(const InheritedFile&) = delete;
    ~InheritedFile() { CloseHandle(handle_); }
    HANDLE get() const { return handle_; }

  private:
    HANDLE handle_;
};

// Without a shell, whose quoting rules and code page would alter the arguments.
inline int runWithFiles(const std::string& command, const std::filesystem::path& folder)
{
    const InheritedFile in(folder / "in", GENERIC_READ, OPEN_EXISTING);
    const InheritedFile out(folder / "out", GENERIC_WRITE, CREATE_ALWAYS);
    const InheritedFile err(folder / "err", GENERIC_WRITE, CREATE_ALWAYS);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = in.get();
    start.hStdOutput = out.get();
    start.hStdError = err.get();
    std::wstring line = std::filesystem::path(std::u8string(command.begin(), command.end())).wstring();
    PROCESS_INFORMATION process{};
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process) ==
        0)
        return -1;
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 0;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return static_cast<int>(exitCode);
}

#else

inline int runWithFiles(const std::string& command, const std::filesystem::path& folder)
{
    const std::string base = "\"" + folder.string();
    const std::string line = command + " <" + base + "/in\" >" + base + "/out\" 2>" + base + "/err\"";
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

#endif

/// Runs a program with its arguments, quoted with double quotes, as a command line. -1 where there is no
/// such program (a shell's 127 on other systems).
inline ProgramResult runCommand(const std::string& command, const std::string& input = "")
{
    const TempDir folder;
    folder.write("in", input);
    ProgramResult result{runWithFiles(command, folder.path()), "", ""};
    result.out = readFile(folder.path() / "out");
    result.err = readFile(folder.path() / "err");
    return result;
}

/// Runs `scansteps` with a line of arguments.
inline ProgramResult runProgram(const std::string& arguments, const std::string& input = "")
{
    return runCommand("\"" SCANSTEPS_BIN_DIR "/scansteps\" " + arguments, input);
}

/// Arguments of the program, and how it has to answer them.
struct Answer
{
    std::string arguments;
    int exitCode;
    std::string err, out = {};  ///< parts of standard error and standard output
    std::string errLacks = "\1", outLacks = "\1";
    std::string input = {};
};

inline void expectAnswers(const std::vector<Answer>& answers)
{
    for (const Answer& a : answers) {
        SCOPED_TRACE(a.arguments + a.input);
        const ProgramResult result = runProgram(a.arguments, a.input);
        EXPECT_EQ(result.exitCode, a.exitCode) << result.out << result.err;
        EXPECT_THAT(result.err, testing::HasSubstr(a.err));
        EXPECT_THAT(result.out, testing::HasSubstr(a.out));
        EXPECT_THAT(result.err, testing::Not(testing::HasSubstr(a.errLacks)));
        EXPECT_THAT(result.out, testing::Not(testing::HasSubstr(a.outLacks)));
        if (a.exitCode >= 4) {
            EXPECT_THAT(result.err, testing::HasSubstr("scansteps: error: "));
        }
    }
}

}  // namespace scansteps::test
