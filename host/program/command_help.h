// What the parser says of a command, without the parser: for completion and manual pages.
#pragma once

#include <string>
#include <vector>

namespace scansteps::host {

struct OptionHelp
{
    std::vector<std::string> names;   ///< "-V", "--version"; empty for an argument that has its place
    std::string type;                 ///< what it takes, such as "FILE"; empty for a flag
    std::vector<std::string> values;  ///< all that may be given, where these are few
    std::string what, standard;       ///< explanation; default, may be empty
    bool required = false, repeats = false;
};

struct CommandHelp
{
    std::string name;  ///< empty for the program itself
    std::string what;
    std::string footer;
    std::vector<OptionHelp> options;
};

/// Answers `scansteps __complete WORD...`, which the completion files of the shells call: one line for each
/// continuation of the last word, the whole word, a tab and an explanation. The line ":files" asks the shell
/// to add names of files, ":folders" those of folders.
int complete(const std::vector<CommandHelp>& commands, std::vector<std::string> words);

/// Answers `scansteps __man FOLDER`: writes scansteps.1 and scansteps-COMMAND.1. Throws FileError.
int manualPages(const std::vector<CommandHelp>& commands, const std::string& folder);

}  // namespace scansteps::host
