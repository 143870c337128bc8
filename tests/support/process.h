// Runs the real program in a test and keeps what it printed and how it ended.
#pragma once

#include <cstdlib>
#include <string>

#include "support/temp_dir.h"

#ifndef _WIN32
#include <sys/wait.h>
#endif

namespace scansteps::test {

struct ProgramResult
{
    int exitCode = -1;
    std::string out, err;
};

/// Runs a shell line (quote with double quotes).
inline ProgramResult runCommand(const std::string& command, const std::string& input = "")
{
    const TempDir folder;
    const std::string in = folder.write("in", input);
    std::string line =
        command + " <\"" + in + "\" >\"" + (folder / "out") + "\" 2>\"" + (folder / "err") + "\"";
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

/// Runs `scansteps` with arguments as a shell line.
inline ProgramResult runProgram(const std::string& arguments, const std::string& input = "")
{
    return runCommand("\"" SCANSTEPS_BIN_DIR "/scansteps\" " + arguments, input);
}

}  // namespace scansteps::test
