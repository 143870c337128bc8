// See console.h: Windows first, then POSIX.
#include "console.h"

#ifdef _WIN32
#include <windows.h>
// After windows.h.
#include <shellapi.h>

#include "library/platform.h"
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace scansteps::host {

#ifdef _WIN32

std::vector<std::string> utf8Arguments(int argc, char** argv)
{
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr) return {argv, argv + argc};
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i) arguments.push_back(utf8FromPath(std::filesystem::path(wide[i])));
    LocalFree(wide);
    return arguments;
}

int terminalWidth()
{
    CONSOLE_SCREEN_BUFFER_INFO information;
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &information) == 0) return 80;
    return information.srWindow.Right - information.srWindow.Left + 1;
}

#else

std::vector<std::string> utf8Arguments(int argc, char** argv)
{
    return {argv, argv + argc};
}

int terminalWidth()
{
    winsize size{};
    const bool told = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    return told ? size.ws_col : 80;
}

#endif

}  // namespace scansteps::host
