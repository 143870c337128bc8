// Summarises the mesh or point cloud of a record: counts, bounds, colours, pictures.
#pragma once

#include <string>

#include "library/json_values.h"

namespace scansteps::host {

/// An object with "mesh" and "images", or "cloud", as far as the record holds them; empty without a model. An
/// inconsistent entry has "error" with the reason instead of what could not be read.
Json describeModel(const Struct& record);

/// The same as readable lines, each indented by two spaces; "" for an empty object.
std::string modelText(const Json& model);

}  // namespace scansteps::host
