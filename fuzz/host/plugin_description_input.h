// What the fuzz target of plug-in descriptions does with its input, shared with the test that replays the
// corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "library/plugin_description.h"
#include "scansteps/plugin.h"

namespace scansteps::fuzzing {

/// Aborts unless a description that is refused comes with a message, and one that is accepted describes
/// itself again.
inline void readPluginDescription(const std::uint8_t* data, std::size_t size)
{
    const auto again = [](const host::PluginDescription& description) {
        return pluginJson(description.name.c_str(), description.version.c_str(), description.steps);
    };
    try {
        const std::string first = again(host::readDescription({reinterpret_cast<const char*>(data), size}));
        if (again(host::readDescription(first)) != first) std::abort();
    } catch (const host::FileError& error) {
        if (*error.what() == '\0') std::abort();
    }
}

}  // namespace scansteps::fuzzing
