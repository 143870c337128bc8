// scansteps new-step: writes the files of a new step, a plug-in of its own or one of the source tree.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "commands.h"
#include "library/platform.h"
#include "library/usage_hints.h"
#include "new_step_templates.h"
#include "output.h"
#include "scansteps/steps.h"

namespace scansteps::host {

namespace fs = std::filesystem;

namespace {

void checkName(const std::string& name)
{
    const auto isLower = [](char c) { return c >= 'a' && c <= 'z'; };
    const auto isAllowed = [&](char c) { return isLower(c) || (c >= '0' && c <= '9'); };
    if (name.size() > 32 || !isLower(name[0]) || !std::ranges::all_of(name, isAllowed))
        throw UsageError{fmt::format(
            "{} cannot be the name of a step: up to 32 lower-case letters and digits, a letter first",
            inQuotes(name))};
    if (findStep(name) != nullptr) throw UsageError{fmt::format("the kind \"{}\" exists already", name)};
}

void replaceAll(std::string& text, std::string_view what, std::string_view by)
{
    for (auto at = text.find(what); at != text.npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

// In the tree the project around it finds what it needs.
std::string withoutProject(const std::string& text)
{
    return "# The plug-in @kind@, and its test.\n" + text.substr(text.find("scansteps_add_plugin("));
}

void write(const fs::path& file, const std::string& text)
{
    errno = 0;
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) throw FileError{cannot("write", utf8FromPath(file))};
}

}  // namespace

int newStep(const NewStepOptions& options)
{
    const auto library = loadLibrary(options);  // whose kinds are taken
    checkName(options.name);
    const bool isProject = !options.project.empty();
    const fs::path folder = isProject ? pathFromUtf8(options.project) : fs::path("plugins") / options.name;
    std::error_code error;
    if (!isProject &&
        !(fs::exists("plugins/CMakeLists.txt", error) && fs::exists("src/core/steps.def", error)))
        throw UsageError{
            "this is not the root of the source tree; --plugin-project DIR makes a project of its own"};
    if (fs::exists(folder, error) && !fs::is_empty(folder, error))
        throw UsageError{fmt::format("{} exists and is not empty", utf8FromPath(folder))};
    fs::create_directories(folder, error);
    if (error) throw FileError{fmt::format("cannot create {}: {}", utf8FromPath(folder), error.message())};

    std::string className = options.name;
    className[0] = static_cast<char>(className[0] - 'a' + 'A');
    for (const auto& [file, content] : kNewStepTemplates) {
        std::string name(file), text(content);
        if (name == "CMakeLists.txt" && !isProject) text = withoutProject(text);
        replaceAll(name, "KIND", options.name);
        replaceAll(text, "@kind@", options.name);
        replaceAll(text, "@Class@", className);
        write(folder / name, text);
        answer("{}", utf8FromPath((folder / name).lexically_normal().generic_u8string()));
    }
    return kEnded;
}

}  // namespace scansteps::host
