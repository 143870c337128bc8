// See platform.h: the standard library first, then Windows, then POSIX.
#include "platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <system_error>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <link.h>
#endif

namespace scansteps::host {

std::filesystem::path pathFromUtf8(const std::string& text)
{
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string utf8FromPath(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::string cannot(const char* verb, const std::string& name)
{
    const std::string reason = std::generic_category().message(errno);
    return std::string("cannot ") + verb + " " + name + ": " + reason;
}

std::vector<std::filesystem::path> libraryFolders()
{
    const auto program = executableFolder();
    const auto prefix = program / "..";
    std::vector<std::filesystem::path> folders;
    for (const auto& folder :
         {program, prefix / "lib", prefix / SCANSTEPS_LIBDIR, prefix / "lib" / SCANSTEPS_MULTIARCH}) {
        std::error_code error;
        const auto place = std::filesystem::canonical(folder, error);
        if (!error && std::ranges::find(folders, place) == folders.end()) folders.push_back(place);
    }
    return folders;
}

std::string environmentVariable(const char* name)
{
#ifdef _WIN32
    const std::string narrow(name);
    const wchar_t* value = _wgetenv(std::wstring(narrow.begin(), narrow.end()).c_str());
    return value == nullptr ? "" : utf8FromPath(std::filesystem::path(value));
#else
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
#endif
}

std::vector<std::string> splitPathList(const std::string& list)
{
#ifdef _WIN32
    constexpr char kSeparator = ';';
#else
    constexpr char kSeparator = ':';
#endif
    std::vector<std::string> entries;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(kSeparator, begin), list.size());
        if (end > begin) entries.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return entries;
}

#ifdef _WIN32

bool hasOtherNames(const std::filesystem::path& path)
{
    const HANDLE file = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION facts{};
    const bool linked = GetFileInformationByHandle(file, &facts) != 0 && facts.nNumberOfLinks > 1;
    CloseHandle(file);
    return linked;
}

std::filesystem::path executableFolder()
{
    wchar_t path[32768];
    const DWORD length = GetModuleFileNameW(nullptr, path, 32768);
    return std::filesystem::path(std::wstring(path, length)).parent_path();
}

namespace {

// The system's text for an error of its own interface, without the line break at its end.
std::string systemText(DWORD code)
{
    wchar_t text[512];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  0, text, DWORD(std::size(text)), nullptr);
    while (length > 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.')) --length;
    if (length == 0) return "error " + std::to_string(code);
    return utf8FromPath(std::filesystem::path(std::wstring(text, length)));
}

}  // namespace

std::unique_ptr<SharedLibrary> SharedLibrary::open(const std::filesystem::path& path, std::string& error)
{
    HMODULE library = LoadLibraryW(path.c_str());
    if (library == nullptr) {
        error = systemText(GetLastError());
        return nullptr;
    }
    wchar_t full[32768];
    const DWORD length = GetModuleFileNameW(library, full, 32768);
    return std::unique_ptr<SharedLibrary>(
        new SharedLibrary(reinterpret_cast<void*>(library),
                          length == 0 ? path : std::filesystem::path(std::wstring(full, length))));
}

std::unique_ptr<SharedLibrary> SharedLibrary::openPlugin(const std::filesystem::path& path,
                                                         std::string& error)
{
    const std::wstring native = std::filesystem::path(path).make_preferred().wstring();
    HMODULE library = LoadLibraryExW(native.c_str(), nullptr,
                                     LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    if (library == nullptr) {
        error = systemText(GetLastError());
        return nullptr;
    }
    return std::unique_ptr<SharedLibrary>(new SharedLibrary(reinterpret_cast<void*>(library), path));
}

SharedLibrary::~SharedLibrary()
{
    FreeLibrary(reinterpret_cast<HMODULE>(library_));
}

void* SharedLibrary::symbol(const std::string& name) const
{
    return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(library_), name.c_str()));
}

const char* libraryFileName()
{
    return "scansteps.dll";
}

#else

bool hasOtherNames(const std::filesystem::path& path)
{
    std::error_code error;
    const auto count = std::filesystem::hard_link_count(path, error);
    return !error && count > 1;
}

std::filesystem::path executableFolder()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

std::unique_ptr<SharedLibrary> SharedLibrary::open(const std::filesystem::path& path, std::string& error)
{
    // The library stays mapped until the program ends: texts that it threw may still be read, and the
    // runtimes it brings (OpenMP) never free what they allocate when loaded.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        error = dlerror();
        return nullptr;
    }
    // Where the loader found it.
    link_map* map = nullptr;
    const bool told = dlinfo(library, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && *map->l_name != 0;
    return std::unique_ptr<SharedLibrary>(new SharedLibrary(library, told ? map->l_name : path));
}

std::unique_ptr<SharedLibrary> SharedLibrary::openPlugin(const std::filesystem::path& path,
                                                         std::string& error)
{
    return open(path, error);
}

SharedLibrary::~SharedLibrary()
{
    dlclose(library_);
}

void* SharedLibrary::symbol(const std::string& name) const
{
    return dlsym(library_, name.c_str());
}

const char* libraryFileName()
{
    return "libscansteps.so";
}

#endif

}  // namespace scansteps::host
