// What the mesh or cloud of a record is: counts, bounds, colours, pictures.
#pragma once

#include <string>

#include "library/json_values.h"

namespace scansteps::host {

/// An object with "mesh" and "images", or "cloud", as far as the record holds them; empty without a model. An
/// entry that does not hold together has "error" with the reason instead of what could not be read.
Json describeModel(const Struct& record);

/// The same as lines for people, each indented by two blanks; "" for an empty object.
std::string modelText(const Json& model);

}  // namespace scansteps::host
