// Writes Wavefront OBJ with its material file and texture pages.
#pragma once

#include <string>

#include "mesh/texture_files.h"

namespace scansteps::mesh {

/// Writes PATH and, in the same folder, BASE.mtl and the texture pages BASE.jpg, BASE_1.jpg, ...; all files
/// appear together at the end. Coordinates have six significant digits. The texture coordinates of pixel
/// (column, row) on a page of width W are (column + 0.5) / W and (W - 1 - row + 0.5) / W. With at most one
/// picture, vertices and triangles stay in order and each vertex has the "vt" line of the same number; with
/// several pictures, triangles are grouped by page and shared vertices may have additional "vt" lines, after
/// those of all vertices. Returns false, silently, when the files cannot be opened; throws when the mesh is
/// invalid. Prints the duration of its stages.
bool saveObj(const std::string& path, const TexturedModel& model);

/// Writes the OBJ file only, which refers to BASE.mtl.
void writeObj(AtomicFile& file, const TexturedModel& model, const TextureLayout& layout,
              const std::string& base);

}  // namespace scansteps::mesh
