// Steps and their settings as the page is told of them.
#pragma once

#include <nlohmann/json.hpp>

#include "scansteps/host.h"

namespace scansteps::viewer {

/// Everything about a step of the pipeline that does not change while it runs.
nlohmann::json stepJson(const host::Pipeline& pipeline, std::size_t step);
/// The value that a setting of a step has in the pipeline, or its default; null when it has neither.
nlohmann::json settingValue(const host::Pipeline& pipeline, std::size_t step, const SettingInfo& setting);

}  // namespace scansteps::viewer
