// Commands that are programs of their own, scansteps-NAME: plug-ins bring them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace scansteps::host {

/// The program of a command, in the folder of plug-ins or beside this program; never in PATH. Empty where
/// there is none.
std::filesystem::path externalCommand(const std::string& name);
/// Names of all that there are.
std::vector<std::string> externalCommands();
/// Runs it with the standard streams of this program; returns its exit code. Throws FileError.
int runExternal(const std::filesystem::path& program, const std::vector<std::string>& arguments);

}  // namespace scansteps::host
