// scansteps __man: manual pages in man(7) macros, from what the parser knows of the commands and from the
// table of steps. The build calls it; nothing in the pages is written by hand twice.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cctype>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "command_help.h"
#include "commands.h"
#include "library/json_values.h"
#include "library/platform.h"
#include "scansteps/host.h"
#include "scansteps/steps.h"

namespace scansteps::host {

namespace {

// Text as the formatter takes it: hyphens of options stay what they are, a line never begins with a control
// character.
std::string roff(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool beginsLine = i == 0 || text[i - 1] == '\n';
        if (beginsLine && (c == '.' || c == '\'')) result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
    }
    return result;
}

std::string bold(std::string_view text)
{
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text)
{
    return "\\fI" + roff(text) + "\\fR";
}

// The day of the build, or the one that a reproducible build names.
std::string today()
{
    const std::string given = environmentVariable("SOURCE_DATE_EPOCH");
    const std::time_t seconds = given.empty() ? std::time(nullptr) : std::time_t(std::stoll(given));
    return fmt::format("{:%Y-%m-%d}", fmt::gmtime(seconds));
}

std::string head(const std::string& page, int section, const std::string& what)
{
    std::string title = page;
    for (char& c : title) c = char(std::toupper(static_cast<unsigned char>(c)));
    return fmt::format(
        ".\\\" Made by the program itself; do not edit.\n.TH {} {} \"{}\" \"scansteps {}\" \"scansteps "
        "manual\"\n"
        ".SH NAME\n{} \\- {}\n",
        roff(title), section, today(), SCANSTEPS_VERSION, roff(page), roff(what));
}

std::string option(const OptionHelp& option)
{
    std::string names;
    for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + bold(name);
    std::string takes = option.type;
    if (!option.values.empty()) takes = fmt::format("{}", fmt::join(option.values, "|"));
    if (option.names.empty())
        names = italic(option.type);
    else if (!takes.empty())
        names += " " + italic(takes);
    std::string text = fmt::format(".TP\n{}\n{}.", names, roff(option.what));
    if (!option.standard.empty()) text += " Default: " + roff(option.standard) + ".";
    if (option.required && !option.names.empty()) text += " Must be given.";
    if (option.repeats && !option.names.empty()) text += " May be repeated.";
    return text + "\n";
}

std::string options(const CommandHelp& command)
{
    std::string text;
    for (const bool named : {false, true})
        for (const OptionHelp& one : command.options)
            if (one.names.empty() != named) text += option(one);
    return text;
}

std::string synopsis(const CommandHelp& command)
{
    std::string line = bold("scansteps " + command.name) + " [" + italic("OPTIONS") + "]";
    for (const OptionHelp& one : command.options)
        if (one.names.empty()) line += one.required ? " " + italic(one.type) : " [" + italic(one.type) + "]";
    return ".SH SYNOPSIS\n" + line + "\n";
}

// "Exit codes: 0 the run ended; 2 ...": the beginning of the program's footer, as a list.
std::string exitStatus(std::string_view footer)
{
    std::string text = ".SH EXIT STATUS\n";
    std::string codes(footer.substr(0, footer.find(".\n\n")));
    codes.erase(0, codes.find(':') + 2);
    for (std::size_t at = 0; at < codes.size();) {
        std::size_t end = codes.find("; ", at);
        if (end == std::string::npos) end = codes.size();
        const std::string one = codes.substr(at, end - at);
        const std::size_t blank = one.find(' ');
        text += fmt::format(".TP\n{}\n{}\n", bold(one.substr(0, blank)), roff(one.substr(blank + 1)));
        at = end + 2;
    }
    return text;
}

std::string example(const std::string& footer)
{
    const std::size_t at = footer.rfind("\n  ");
    return at == std::string::npos ? "" : ".SH EXAMPLES\n.EX\n" + roff(footer.substr(at + 3)) + "\n.EE\n";
}

constexpr const char* kPipelines =
    ".SH PIPELINES\n"
    "A pipeline is a file whose name ends in .json, \\fB\\-\\fR for standard input, or a text in which \"!\" "
    "separates the\n"
    "steps and each step is followed by its settings, PATH=VALUE. A setting named without its family is "
    "looked up among\n"
    "the settings of that step: \\fBtrl=40\\fR is short for \\fBOCV.trl=40\\fR. Values with blanks stand in "
    "quotes.\n"
    "\\fBscansteps steps\\fR lists the kinds of steps, \\fBscansteps steps \\fIKIND\\fR the settings of one, "
    "and\n"
    ".BR scansteps\\-kinds (7)\nall of them.\n";

constexpr const char* kEnvironment =
    ".SH ENVIRONMENT\n"
    ".TP\n.B SCANSTEPS_LIBRARY\nThe step library to load; the option \\fB\\-\\-library\\fR wins. Without "
    "both it is looked for\n"
    "beside the program, in ../lib and its multi\\-arch folder, and on the loader's path.\n"
    ".TP\n.B SCANSTEPS_PLUGINS\nPlug\\-ins to load beside it, separated by colons. Those in the folder "
    "scansteps of "
    "the library's folder, and of lib,\nneed no naming.\n"
    ".TP\n.B SCANSTEPS_LOG\nWhat is reported: \\fBerror\\fR, as with \\fB\\-\\-quiet\\fR, "
    "\\fBwarning\\fR, as without an option, or \\fBinfo\\fR, as with\n\\fB\\-v\\fR: also what is "
    "loaded, which settings are merged, and which records a step drops. The options win.\n";

std::string programPage(const std::vector<CommandHelp>& commands)
{
    const CommandHelp& program = commands.front();
    std::string text = head("scansteps", 1, program.what);
    text +=
        ".SH SYNOPSIS\n" + bold("scansteps") + " " + italic("COMMAND") + " [" + italic("ARGUMENT") + "...]\n";
    text +=
        ".SH DESCRIPTION\n"
        "Loads the step library, links its steps into a chain as the pipeline says, and drives the chain "
        "frame by "
        "frame.\nWhat the steps print goes to standard output; progress, a table of times, warnings and "
        "errors go to "
        "standard error.\n";
    text += ".SH COMMANDS\n";
    std::string pages;
    for (const CommandHelp& command : commands) {
        if (command.name.empty()) continue;
        text += fmt::format(".TP\n{}\n{}; see\n.BR scansteps\\-{} (1).\n", bold(command.name),
                            roff(command.what), roff(command.name));
        pages += fmt::format(".BR scansteps\\-{} (1),\n", roff(command.name));
    }
    text += ".TP\n" + bold("help") + " [" + italic("COMMAND") + "]\nExplains a command.\n";
    text += ".SH OPTIONS\n" + options(program) + kPipelines + exitStatus(program.footer) + kEnvironment;
    return text + example(program.footer) + ".SH SEE ALSO\n" + pages + ".BR scansteps\\-kinds (7)\n";
}

std::string commandPage(const CommandHelp& program, const CommandHelp& command)
{
    std::string text = head("scansteps-" + command.name, 1, command.what) + synopsis(command);
    text += ".SH OPTIONS\n" + options(command);
    for (const OptionHelp& one : command.options)
        if (one.names.empty() && one.type == "PIPELINE") text += kPipelines;
    text += exitStatus(program.footer);
    for (const OptionHelp& one : command.options)
        if (one.names == std::vector<std::string>{"--library"}) text += kEnvironment;
    return text + example(command.footer) + ".SH SEE ALSO\n.BR scansteps (1),\n.BR scansteps\\-kinds (7)\n";
}

std::string setting(const SettingInfo& setting)
{
    std::string facts = kindTypeName(setting.kind);
    if (setting.required) facts += ", required";
    if (setting.presence) facts = "its presence counts";
    if (setting.hasDefault())
        facts += ", default " + (setting.kind == Kind::String ? fmt::format("\"{}\"", setting.text)
                                                              : fmt::format("{}", setting.number));
    return fmt::format(".TP\n{} ({})\n{}\n", bold(setting.path), roff(facts), roff(setting.doc));
}

std::string kindsPage()
{
    std::string text = head("scansteps-kinds", 7, "kinds of steps and their settings");
    text +=
        ".SH DESCRIPTION\nThe steps of the step library and of the plug\\-ins that come with it, for the "
        "pipelines of\n.BR scansteps\\-run (1).\nKinds of further plug\\-ins are listed by\n"
        ".B scansteps steps\nand explained by\n.BR \"scansteps steps \" \\fIKIND\\fR.\n";
    for (const auto& [plugin, kinds] : stepsByPlugin())
        for (const StepInfo* info : kinds) {
            text += fmt::format(".SH {}\n{}.{}{}\n.PP\nClass {}, in {}, out {}; frames: {} in, {} out.\n",
                                roff(info->kind), roff(info->summary), info->source ? " A source." : "",
                                plugin.empty() ? "" : " Of the plug\\-in " + roff(plugin) + ".",
                                info->className, roff(info->typeIn), roff(info->typeOut),
                                pixelsName(info->frames.in), pixelsName(info->frames.out));
            for (const SettingInfo& one : info->settings) text += setting(one);
        }
    return text + ".SH SEE ALSO\n.BR scansteps (1),\n.BR scansteps\\-steps (1)\n";
}

void write(const std::filesystem::path& folder, const std::string& name, const std::string& text)
{
    std::ofstream file(folder / pathFromUtf8(name), std::ios::binary);
    file << text;
    file.close();
    if (!file) throw FileError{cannot("write", name)};
}

}  // namespace

int manualPages(const std::vector<CommandHelp>& commands, const std::string& folder)
{
    const auto library = loadLibrary({});  // and the plug-ins
    const auto place = pathFromUtf8(folder);
    std::error_code error;
    for (const char* section : {"man1", "man7"}) std::filesystem::create_directories(place / section, error);
    write(place, "man1/scansteps.1", programPage(commands));
    for (const CommandHelp& command : commands)
        if (!command.name.empty())
            write(place, "man1/scansteps-" + command.name + ".1", commandPage(commands.front(), command));
    write(place, "man7/scansteps-kinds.7", kindsPage());
    return kEnded;
}

}  // namespace scansteps::host
