// What the two forms of a pipeline, JSON and one-line descriptions, share.
#pragma once

#include <optional>
#include <string>

#include "scansteps/host.h"

namespace scansteps::host {

/// Throws UsageError that names the nearest kind.
const StepInfo& stepNamed(const std::string& kind);
/// The value of a text, of the kind that the setting (may be null) declares, else of the kind it looks like.
/// Nothing for `false` and `null`. Throws UsageError.
std::optional<varitype> valueFromText(const std::string& text, const SettingInfo* setting,
                                      const std::string& where);
/// `prefix` precedes the messages of the JSON parser.
Pipeline pipelineFromJson(const std::string& text, const std::string& prefix);

}  // namespace scansteps::host
