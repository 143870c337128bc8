// Finds and loads the step library as any host would.
#include <fmt/format.h>

#include <filesystem>
#include <vector>

#include "platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

StepLibrary::StepLibrary(const std::string& path)
{
    const std::string fromEnvironment = environmentVariable("SCANSTEPS_LIBRARY");
    std::vector<std::filesystem::path> places;
    if (!path.empty())
        places = {pathFromUtf8(path)};
    else if (!fromEnvironment.empty())
        places = {pathFromUtf8(fromEnvironment)};
    else {
        for (const auto& folder : libraryFolders())
            if (std::filesystem::exists(folder / libraryFileName()))
                places.push_back(folder / libraryFileName());
        places.emplace_back(libraryFileName());
    }
    std::string errors;
    for (auto place : places) {
        // A given path is a file; without a folder the loader would search its own path.
        if ((!path.empty() || !fromEnvironment.empty()) && !place.has_parent_path()) place = "." / place;
        std::string error;
        library_ = SharedLibrary::open(place, error);
        if (library_) return;
        errors += fmt::format("{}{}: {}", errors.empty() ? "" : "; ", utf8FromPath(place), error);
    }
    throw FileError{"cannot load the step library: " + errors};
}

StepLibrary::~StepLibrary() = default;

template <class Function>
Function* StepLibrary::function(const std::string& name) const
{
    void* symbol = library_->symbol(name);
    if (symbol == nullptr) throw FileError{fmt::format("{} has no {}", utf8FromPath(library_->path()), name)};
    return reinterpret_cast<Function*>(symbol);
}

void StepLibrary::setHandles(HandleTable* table) const
{
    function<void(HandleTable*)>("set_handles")(table);
}

std::unique_ptr<cChain> StepLibrary::create(const std::string& kind) const
{
    return std::unique_ptr<cChain>(function<cChain*()>("create_" + kind)());
}

}  // namespace scansteps::host
