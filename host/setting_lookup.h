// Finding settings in the table of kinds by path, for several kinds at once.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "pipeline.h"

namespace scansteps::host {

/// The kinds of the pipeline's steps, in order.
std::vector<const StepInfo*> kindsOf(const Pipeline& pipeline);
/// The first setting of that path.
const SettingInfo* findSettingAmong(const std::vector<const StepInfo*>& kinds, std::string_view path);
/// "trh" of "OCV.trh".
std::string lastPart(std::string_view path);

}  // namespace scansteps::host
