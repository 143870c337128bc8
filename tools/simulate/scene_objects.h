// The objects of a scene: shapes and surfaces from the JSON that describes them.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "scene.h"

namespace scansteps::simulate {

/// A rotation (matrix or rotation vector) and a translation, either may be missing.
scan::Pose poseOf(const nlohmann::json& value);
/// An object that conforms to the schema of scenes. File names are relative to `folder`.
Object objectOf(const nlohmann::json& value, const std::string& folder);

}  // namespace scansteps::simulate
