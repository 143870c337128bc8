// Reads model files: PLY (text and both binary forms), STL (text and binary) and OBJ with its materials.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "mesh.h"

namespace scansteps::viewer {

/// The format is that of the name's ending. Throws FileError that says what is wrong with the file.
Mesh readModel(const std::string& path);

// The input is not trusted: sizes are checked against what is there before memory is taken. These throw
// std::runtime_error.

/// Elements "vertex" (x, y, z, and red, green, blue, nx, ny, nz, u or s, v or t) and "face" (lists named
/// vertex_index or vertex_indices; and red, green, blue). Faces of more than three corners become fans.
Mesh parsePly(std::string_view bytes);
/// Equal corners become one vertex. Attribute words with bit 15 set are colours.
Mesh parseStl(std::string_view bytes);
/// `fileOf` returns the contents of a file beside the model, "" when there is none.
Mesh parseObj(std::string_view bytes, const std::function<std::string(const std::string&)>& fileOf);

}  // namespace scansteps::viewer
