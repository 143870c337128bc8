// What differs between the systems for a program on the command line: arguments, the terminal, the null
// device.
#pragma once

#include <string>
#include <vector>

namespace scansteps::host {

/// Command-line arguments as UTF-8.
std::vector<std::string> utf8Arguments(int argc, char** argv);
/// Columns of the terminal at standard error, or 80 if unknown.
int terminalWidth();

#ifdef _WIN32
inline constexpr const char* kNullDevice = "NUL";
#else
inline constexpr const char* kNullDevice = "/dev/null";
#endif

}  // namespace scansteps::host
