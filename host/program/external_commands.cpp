// See external_commands.h: what all systems share, then Windows, then POSIX.
#include "external_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "library/platform.h"
#include "scansteps/host.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace scansteps::host {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kPrefix = "scansteps-";
#ifdef _WIN32
constexpr std::string_view kEnding = ".exe";
#else
constexpr std::string_view kEnding = "";
#endif

bool isRunnable(const fs::path& file)
{
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return false;
#ifdef _WIN32
    return true;
#else
    return ::access(file.c_str(), X_OK) == 0;
#endif
}

bool isCommandName(std::string_view name)
{
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '_';
    };
    return !name.empty() && name[0] != '-' && std::ranges::all_of(name, isAllowed);
}

std::vector<fs::path> commandFolders()
{
    std::vector<fs::path> folders;
    for (const fs::path& folder : libraryFolders()) folders.push_back(folder / "scansteps");
    folders.push_back(executableFolder());
    return folders;
}

}  // namespace

fs::path externalCommand(const std::string& name)
{
    if (!isCommandName(name)) return {};
    for (const fs::path& folder : commandFolders()) {
        const fs::path file = folder / fmt::format("{}{}{}", kPrefix, name, kEnding);
        if (isRunnable(file)) return file;
    }
    return {};
}

std::vector<std::string> externalCommands()
{
    std::set<std::string> names;
    for (const fs::path& folder : commandFolders()) {
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
            const std::string file = utf8FromPath(it->path().filename());
            if (!file.starts_with(kPrefix) || !file.ends_with(kEnding)) continue;
            const std::string name =
                file.substr(kPrefix.size(), file.size() - kPrefix.size() - kEnding.size());
            if (isCommandName(name) && isRunnable(it->path())) names.insert(name);
        }
    }
    return {names.begin(), names.end()};
}

#ifdef _WIN32

namespace {

// As programs split their command line: quotes are escaped, and the backslashes before a quote doubled.
std::wstring quoted(const std::wstring& argument)
{
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"') text.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text.append(backslashes, L'\\') + L'"';
}

// The command shares the console and decides itself what Ctrl-C means.
BOOL WINAPI leaveToCommand(DWORD)
{
    return TRUE;
}

}  // namespace

int runExternal(const fs::path& program, const std::vector<std::string>& arguments)
{
    std::wstring line = quoted(program.wstring());
    for (const std::string& argument : arguments) line += L" " + quoted(pathFromUtf8(argument).wstring());
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    SetConsoleCtrlHandler(leaveToCommand, TRUE);
    if (CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start,
                       &process) == 0)
        throw FileError{fmt::format("cannot run {}: error {}", utf8FromPath(program), GetLastError())};
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = kFileFailed;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return static_cast<int>(code);
}

#else

int runExternal(const fs::path& program, const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = {program.native()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execv(program.c_str(), pointers.data());
    throw FileError{cannot("run", program.native())};
}

#endif

}  // namespace scansteps::host
