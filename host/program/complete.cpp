// scansteps __complete: what a shell offers when the user presses Tab.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>

#include "command_help.h"
#include "complete_words.h"
#include "output.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

const OptionHelp* optionNamed(const CommandHelp& command, std::string_view name)
{
    for (const OptionHelp& option : command.options)
        if (std::ranges::find(option.names, name) != option.names.end()) return &option;
    return nullptr;
}

// The tab is none of the characters that answer() lets pass.
void print(const std::vector<Continuation>& found)
{
    for (const Continuation& one : found)
        std::fputs((printable(one.word) + "\t" + printable(one.what) + "\n").c_str(), stdout);
}

void printLike(std::string_view begun, const std::string& word, const std::string& what)
{
    if (word.starts_with(begun)) print({{word, what}});
}

// The words of a command line after the command, taken apart.
struct Written
{
    std::vector<std::string> options;       // their names
    std::vector<std::string> arguments;     // that are not options
    const OptionHelp* expecting = nullptr;  // the option whose value the last word is
};

Written takeApart(const CommandHelp& command, const std::vector<std::string>& words)
{
    Written written;
    for (const std::string& word : words) {
        if (written.expecting != nullptr) {
            written.expecting = nullptr;
        } else if (word.starts_with('-') && word.size() > 1) {
            const std::string name = word.substr(0, word.find('='));
            written.options.push_back(name);
            const OptionHelp* option = optionNamed(command, name);
            if (option != nullptr && !option->type.empty() && name == word) written.expecting = option;
        } else {
            written.arguments.push_back(word);
        }
    }
    return written;
}

// Loads what the command line names, for the kinds of plug-ins; what is wrong with it is not the time to say.
std::unique_ptr<StepLibrary> loadQuietly(const std::vector<std::string>& words)
{
    std::string library;
    std::vector<std::string> plugins;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i] == "--library") library = words[i + 1];
        if (words[i] == "--plugin") plugins.push_back(words[i + 1]);
    }
    try {
        return std::make_unique<StepLibrary>(library, plugins);
    } catch (const FileError&) {
        return nullptr;
    }
}

// Continuations of what an option or argument takes.
void printValues(const OptionHelp& option, std::string_view begun, const Written& written)
{
    for (const std::string& value : option.values) printLike(begun, value, "");
    const std::string& type = option.type;
    if (type == "PIPELINE") {
        print(pipelinesLike(begun));
        if (begun.find(' ') == std::string_view::npos) answer(":files");
    } else if (type == "PATH=VALUE") {
        print(assignmentsLike(begun, written.arguments.empty() ? "" : written.arguments[0]));
    } else if (type == "KIND") {
        print(kindsLike(begun));
    } else if (type == "DIR") {
        answer(":folders");
    } else if (type.find("FILE") != std::string::npos || type == "RECORDING" || type == "LIB" ||
               type == "PATH") {
        answer(":files");
    }
}

void printOptions(const CommandHelp& command, std::string_view begun, const Written& written)
{
    for (const OptionHelp& option : command.options) {
        const bool given = std::ranges::any_of(option.names, [&](const std::string& name) {
            return std::ranges::find(written.options, name) != written.options.end();
        });
        if (option.names.empty() || (given && !option.repeats)) continue;
        printLike(begun, option.names.back(), option.what);
    }
}

void printCommands(const std::vector<CommandHelp>& commands, std::string_view begun)
{
    for (const CommandHelp& command : commands)
        if (!command.name.empty()) printLike(begun, command.name, command.what);
}

void completeCommand(const CommandHelp& command, const std::vector<std::string>& words,
                     std::string_view begun)
{
    const auto library = loadQuietly(words);
    const Written written = takeApart(command, words);
    if (written.expecting != nullptr) return printValues(*written.expecting, begun, written);
    if (begun.starts_with('-')) return printOptions(command, begun, written);
    std::size_t place = written.arguments.size();
    for (const OptionHelp& option : command.options) {
        if (!option.names.empty()) continue;
        if (place == 0 || option.repeats) return printValues(option, begun, written);
        --place;
    }
    printOptions(command, begun, written);
}

}  // namespace

int complete(const std::vector<CommandHelp>& commands, std::vector<std::string> words)
{
    const std::string begun = words.empty() ? "" : words.back();
    if (words.size() < 2) {
        printCommands(commands, begun);
        printLike(begun, "help", "Explains a command");
        printLike(begun, "version", "Prints the version");
        if (begun.starts_with('-')) printOptions(commands.front(), begun, {});
        return kEnded;
    }
    words.pop_back();
    const std::string name = words.front();
    words.erase(words.begin());
    if (name == "help") {
        if (words.empty()) printCommands(commands, begun);
        return kEnded;
    }
    const auto command = std::ranges::find(commands, name, &CommandHelp::name);
    if (command != commands.end() && !name.empty()) completeCommand(*command, words, begun);
    return kEnded;
}

}  // namespace scansteps::host
