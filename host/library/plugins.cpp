// See plugins.h.
#include "plugins.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

#include "plugin_description.h"
#include "scansteps/plugin.h"

namespace scansteps::host {

namespace fs = std::filesystem;

namespace {

struct Loaded
{
    std::recursive_mutex mutex;
    std::deque<Plugin> plugins;
    std::deque<PluginDescription> descriptions;
};

Loaded& loaded()
{
    static auto& all = *new Loaded;
    return all;
}

const char* textFrom(const SharedLibrary& library, const std::string& function)
{
    return reinterpret_cast<const char* (*)()>(symbolOf(library, function))();
}

PluginDescription describe(const SharedLibrary& library)
{
    const char* text = textFrom(library, "scansteps_describe");
    if (text == nullptr) throw FileError{"scansteps_describe returns nothing"};
    // One more than may be: longer texts are refused without reading on.
    const void* end = std::memchr(text, 0, kMaxDescription + 1);
    return readDescription(
        {text, end == nullptr ? kMaxDescription + 1 : std::size_t(static_cast<const char*>(end) - text)});
}

std::string definedBy(const StepInfo& info)
{
    const Plugin* plugin = pluginOf(info.kind);
    return fmt::format(
        "class {} of {}", info.className,
        plugin == nullptr ? "the step library" : fmt::format("{} {}", plugin->info.name, plugin->info.file));
}

// That the exported functions are there and agree with the description, and that the kind is new.
void checkStep(const SharedLibrary& library, const StepInfo& info)
{
    const std::string kind = info.kind;
    if (const StepInfo* other = findStep(kind))
        throw FileError{fmt::format("its kind \"{}\" (class {}) exists already ({})", kind, info.className,
                                    definedBy(*other))};
    symbolOf(library, "create_" + kind);
    const std::pair<const char*, const char*> types[] = {{"getTypeIn", info.typeIn},
                                                         {"getTypeOut", info.typeOut}};
    for (const auto& [function, declared] : types) {
        const char* type = textFrom(library, function + kind);
        if (type == nullptr || std::strcmp(type, declared) != 0)
            throw FileError{fmt::format("{}{} returns another type than scansteps_describe names, {}",
                                        function, kind, declared)};
    }
}

bool isSame(const fs::path& a, const fs::path& b)
{
    std::error_code error;
    return a == b || fs::equivalent(a, b, error);
}

}  // namespace

void* symbolOf(const SharedLibrary& library, const std::string& name)
{
    void* symbol = library.symbol(name);
    if (symbol == nullptr) throw FileError{fmt::format("{} has no {}", utf8FromPath(library.path()), name)};
    return symbol;
}

const Plugin& loadPlugin(const fs::path& given)
{
    Loaded& all = loaded();
    const std::lock_guard lock(all.mutex);
    std::error_code error;
    const fs::path file =
        fs::absolute(given, error);  // without a folder the loader would search its own path
    for (const Plugin& plugin : all.plugins)
        if (isSame(plugin.library->path(), file)) return plugin;
    const std::string name = utf8FromPath(given);
    std::string reason;
    auto library = SharedLibrary::openPlugin(file, reason);
    if (!library) throw FileError{fmt::format("cannot load the plug-in {}: {}", name, reason)};
    try {
        if (library->symbol("scansteps_describe") == nullptr)
            throw FileError{"it is no plug-in: it has no scansteps_describe"};
        symbolOf(*library, "set_handles");
        PluginDescription description = describe(*library);
        for (const StepInfo& info : description.steps) checkStep(*library, info);
        const auto& kept = all.descriptions.emplace_back(std::move(description));
        addSteps(kept.steps);
        PluginInfo info{kept.name, kept.version, name, {}};
        for (const StepInfo& step : kept.steps) info.kinds.emplace_back(step.kind);
        all.plugins.push_back({std::move(library), std::move(info)});
        return all.plugins.back();
    } catch (const FileError& failed) {
        throw FileError{fmt::format("cannot load the plug-in {}: {}", name, failed.what())};
    }
}

const Plugin* pluginOf(std::string_view kind)
{
    Loaded& all = loaded();
    const std::lock_guard lock(all.mutex);
    for (const Plugin& plugin : all.plugins)
        if (std::ranges::find(plugin.info.kinds, kind) != plugin.info.kinds.end()) return &plugin;
    return nullptr;
}

std::vector<const Plugin*> loadedPlugins()
{
    Loaded& all = loaded();
    const std::lock_guard lock(all.mutex);
    std::vector<const Plugin*> result;
    for (const Plugin& plugin : all.plugins) result.push_back(&plugin);
    return result;
}

std::vector<fs::path> pluginFiles(const fs::path& folder)
{
    std::vector<fs::path> files;
    std::error_code error;
    fs::directory_iterator it;
    do {
        it = fs::directory_iterator(folder, error);
    } while (error == std::errc::interrupted);
    for (; !error && it != fs::directory_iterator(); it.increment(error))
        if (it->path().extension() == fs::path(libraryFileName()).extension()) files.push_back(it->path());
    if (error) throw FileError{fmt::format("cannot read {}: {}", utf8FromPath(folder), error.message())};
    std::ranges::sort(files);
    return files;
}

}  // namespace scansteps::host
