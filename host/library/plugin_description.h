// What a plug-in says of itself: the JSON of its scansteps_describe(), which is untrusted, as a table of
// steps.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "scansteps/host.h"

namespace scansteps::host {

/// A table of steps that owns what it refers to. It may be moved, but not copied.
struct PluginDescription
{
    PluginDescription() = default;
    PluginDescription(const PluginDescription&) = delete;
    PluginDescription& operator=(const PluginDescription&) = delete;
    PluginDescription(PluginDescription&&) = default;
    PluginDescription& operator=(PluginDescription&&) = default;

    std::string name, version;
    std::vector<StepInfo> steps;
    std::deque<std::vector<SettingInfo>> settings;
    std::deque<std::string> texts;
};

inline constexpr std::size_t kMaxDescription = std::size_t{4} << 20;

/// Throws FileError that names the place: for another interface number, a missing or unknown value, a value
/// of the wrong type, a kind that stands there twice. A plug-in none of whose settings has a role gets
/// SettingRole::Unknown for its texts, except those that describe frames.
PluginDescription readDescription(std::string_view json);

}  // namespace scansteps::host
