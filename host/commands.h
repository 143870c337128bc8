// The subcommands of the program. Each adds itself to the parser and returns what is to be run when it is
// chosen.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace scansteps::host {

using Command = std::function<int()>;

Command addRun(CLI::App& app);
Command addCheck(CLI::App& app);
Command addSteps(CLI::App& app);
Command addInspect(CLI::App& app);
Command addDevices(CLI::App& app);
Command addReceive(CLI::App& app);

}  // namespace scansteps::host
