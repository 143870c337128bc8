// Runs another program and takes what it prints.
#pragma once

#include <string>
#include <vector>

namespace scansteps::host {

struct ToolResult
{
    int exit = -1;  ///< 127: there is no such program
    std::string out, err;
};

/// Without a shell; looked for in PATH. Interrupts of the terminal do not reach it; it ends with this
/// process.
ToolResult runTool(const std::vector<std::string>& words);

}  // namespace scansteps::host
