// Loads the step library and the plug-ins for the commands that know steps.
#include <new>

#include "commands.h"
#include "interrupts.h"
#include "library/descriptors.h"
#include "library/plugins.h"
#include "output.h"
#include "scansteps/plugin.h"

namespace scansteps::host {

namespace {

// What libraries throw while they are initialised does not get past the loader. Nothing has been started
// then.
[[noreturn]] void endOutOfMemory()
{
    descriptor::writeAll(descriptor::kErrors,
                         "scansteps: error: out of memory while the step library was loaded\n");
    endAtOnce(kFileFailed);
}

void log(LogLevel level, const std::string& text)
{
    if (level == LogLevel::Warning)
        warn("{}", text);
    else
        inform("{}", text);
}

}  // namespace

std::unique_ptr<StepLibrary> loadLibrary(const LibraryOptions& options)
{
    const auto handler = std::set_new_handler(endOutOfMemory);
    auto library = std::make_unique<StepLibrary>(options.library, options.plugins, log);
    std::set_new_handler(handler);
    return library;
}

std::map<std::string, std::vector<const StepInfo*>> stepsByPlugin()
{
    std::map<std::string, std::vector<const StepInfo*>> kinds;
    for (const StepInfo& info : stepTable()) {
        const Plugin* plugin = pluginOf(info.kind);
        kinds[plugin != nullptr ? plugin->info.name : ""].push_back(&info);
    }
    return kinds;
}

}  // namespace scansteps::host
