// The plug-ins of the process. They are never unloaded: texts that they threw may still be read.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

struct Plugin
{
    std::unique_ptr<SharedLibrary> library;
    PluginInfo info;
};

/// Loads a plug-in, unless that file is loaded already, and adds its steps to the table. Throws FileError
/// that names the file.
const Plugin& loadPlugin(const std::filesystem::path& file);
/// The plug-in that has this kind; null when none has.
const Plugin* pluginOf(std::string_view kind);
std::vector<const Plugin*> loadedPlugins();

/// Files of plug-ins in a folder, sorted. Throws FileError if the folder cannot be read.
std::vector<std::filesystem::path> pluginFiles(const std::filesystem::path& folder);

/// The address of an exported function. Throws FileError that names file and function.
void* symbolOf(const SharedLibrary& library, const std::string& name);

}  // namespace scansteps::host
