// Finds settings by path among those of several steps.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "scansteps/host.h"

namespace scansteps::host {

/// What the table says of the pipeline's steps, in order.
std::vector<const StepInfo*> infosOf(const Pipeline& pipeline);
/// The first setting of that path.
const SettingInfo* findSettingAmong(const std::vector<const StepInfo*>& infos, std::string_view path);
/// "trh" of "OCV.trh".
std::string lastPart(std::string_view path);

}  // namespace scansteps::host
