// Values of records converted and shown as pipeline files have them, for code that knows nothing of JSON.
#pragma once

#include <optional>
#include <string>

#include "scansteps/record.h"

namespace scansteps::host {

/// The value converted to that kind. Nothing where the value is of a kind that a pipeline can only force.
/// Throws UsageError, which begins with `where`, for a value that does not fit.
std::optional<varitype> converted(const varitype& value, Kind kind, const std::string& where);
/// One line of JSON.
std::string lineOf(const varitype& value);

}  // namespace scansteps::host
