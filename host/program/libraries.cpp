// Loads the step library and the plug-ins for the commands that know steps.
#include <new>

#include "commands.h"
#include "interrupts.h"
#include "library/descriptors.h"
#include "output.h"

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

}  // namespace scansteps::host
