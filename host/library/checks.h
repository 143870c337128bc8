// The parts of checkPipeline(), one file each.
#pragma once

#include <string>
#include <vector>

#include "scansteps/host.h"

namespace scansteps::host {

/// Required settings that nothing sets.
void checkRequired(const Pipeline& pipeline, std::vector<Finding>& findings);
/// Neighbours whose types do not fit ("ANY" fits everything, part by part).
void checkTypes(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings);
/// Neighbours of which one takes other frames than the other gives.
void checkFrames(const Pipeline& pipeline, std::vector<Finding>& findings);
/// Inputs and folders that are missing, files that would be overwritten or read and written in one run.
void checkFiles(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings);

}  // namespace scansteps::host
