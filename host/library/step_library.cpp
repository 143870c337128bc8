// Finds and loads the step library and the plug-ins beside it as any host would.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "platform.h"
#include "plugins.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace fs = std::filesystem;

namespace {

void tell(const Log& log, LogLevel level, const std::string& text)
{
    if (log) log(level, text);
}

void loadNamed(const std::string& file, const Log& log)
{
    const std::size_t before = loadedPlugins().size();
    const PluginInfo& info = loadPlugin(pathFromUtf8(file)).info;
    if (loadedPlugins().size() == before) return tell(log, LogLevel::Info, file + " is loaded already");
    tell(log, LogLevel::Info,
         fmt::format("plug-in {} {}: {}, {} kinds", info.name, info.version, file, info.kinds.size()));
}

std::vector<fs::path> existing(const std::vector<fs::path>& folders)
{
    std::vector<fs::path> found;
    for (const fs::path& folder : folders) {
        std::error_code error;
        const fs::path place = fs::canonical(folder, error);
        if (!error && fs::is_directory(place, error) && std::ranges::find(found, place) == found.end())
            found.push_back(place);
    }
    return found;
}

// The folders of plug-ins that belong to the step library, else to the program. From a library in a
// multi-arch folder, lib/<triplet>, lib/scansteps is reached too.
std::vector<fs::path> pluginFolders(const fs::path& library)
{
    std::vector<fs::path> near, own;
    if (const fs::path folder = library.parent_path(); !folder.empty())
        near = {folder / "scansteps", folder / ".." / "lib" / "scansteps", folder / ".." / "scansteps"};
    for (const fs::path& folder : libraryFolders()) own.push_back(folder / "scansteps");
    const auto found = existing(near);
    return found.empty() ? existing(own) : found;
}

void loadFolder(const fs::path& folder, const Log& log)
{
    std::vector<fs::path> files;
    try {
        files = pluginFiles(folder);
    } catch (const FileError& error) {
        tell(log, LogLevel::Warning, std::string("plug-ins are left out: ") + error.what());
    }
    for (const fs::path& file : files) {
        try {
            loadNamed(utf8FromPath(file.lexically_normal()), log);
        } catch (const FileError& error) {
            tell(log, LogLevel::Warning, std::string(error.what()) + ": left out");
        }
    }
}

// Where the step library lies; without a folder where only the system's loader may find it.
fs::path libraryFile(const std::string& path)
{
    const std::string given = path.empty() ? environmentVariable("SCANSTEPS_LIBRARY") : path;
    if (!given.empty()) {
        const fs::path file = pathFromUtf8(given);
        return file.has_parent_path() ? file : "." / file;
    }
    for (const fs::path& folder : libraryFolders())
        if (fs::exists(folder / libraryFileName())) return folder / libraryFileName();
    return libraryFileName();
}

}  // namespace

StepLibrary::StepLibrary(const std::string& path, const std::vector<std::string>& plugins, const Log& log)
{
    const fs::path place = libraryFile(path);
    // No second place is tried when this one fails: glibc's loader can keep a library for which memory ran
    // out, without its thread-local variables, and gives it out when it is asked for by name.
    std::string error;
    library_ = SharedLibrary::open(place, error);
    if (!library_)
        throw FileError{fmt::format("cannot load the step library: {}: {}", utf8FromPath(place), error)};
    tell(log, LogLevel::Info, "step library: " + utf8FromPath(library_->path().lexically_normal()));
    for (const fs::path& folder : pluginFolders(library_->path())) loadFolder(folder, log);
    for (const std::string& file : splitPathList(environmentVariable("SCANSTEPS_PLUGINS")))
        loadNamed(file, log);
    for (const std::string& file : plugins) loadNamed(file, log);
}

StepLibrary::~StepLibrary() = default;

void StepLibrary::setHandles(HandleTable* table) const
{
    const auto set = [&](const SharedLibrary& library) {
        reinterpret_cast<void (*)(HandleTable*)>(symbolOf(library, "set_handles"))(table);
    };
    set(*library_);
    for (const Plugin* plugin : loadedPlugins()) set(*plugin->library);
}

std::unique_ptr<cChain> StepLibrary::create(const std::string& kind) const
{
    const Plugin* plugin = pluginOf(kind);
    const SharedLibrary& library = plugin == nullptr ? *library_ : *plugin->library;
    return std::unique_ptr<cChain>(reinterpret_cast<cChain* (*)()>(symbolOf(library, "create_" + kind))());
}

std::vector<PluginInfo> StepLibrary::plugins()
{
    std::vector<PluginInfo> result;
    for (const Plugin* plugin : loadedPlugins()) result.push_back(plugin->info);
    return result;
}

}  // namespace scansteps::host
