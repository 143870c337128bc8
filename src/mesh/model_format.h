// File formats of models, chosen by file name.
#pragma once

#include <string_view>

namespace scansteps::mesh {

enum class ModelFormat
{
    None,
    Ply,
    Flt,
    Obj,
    Stl,
};

/// The format given by the last of ".ply", ".flt", ".obj", ".stl" (or all in capitals), in this order, found
/// anywhere in the name.
ModelFormat modelFormat(std::string_view name);

}  // namespace scansteps::mesh
