// How the program ends: its exit codes, and the errors of its own that lead to them.
#pragma once

#include <string>

namespace scansteps::host {

/// Exit codes of the program.
enum ExitCode : int
{
    kEnded = 0,
    kUsage = 2,
    kMisfit = 3,
    kStepFailed = 4,
    kFileFailed = 5,
    kInterrupted = 130,
};

/// A command line or a pipeline file that is wrong: exit code 2.
struct UsageError
{
    std::string message;
};

/// A file or connection of the host's own that failed: exit code 5.
struct FileError
{
    std::string message;
};

}  // namespace scansteps::host
