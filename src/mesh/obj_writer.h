// Wavefront OBJ with its material file and texture pages.
#pragma once

#include <string>

#include "mesh/texture_files.h"

namespace scansteps::mesh {

/// Writes PATH, and beside it BASE.mtl and the texture pages BASE.jpg, BASE_1.jpg, ... All of them appear
/// under their names together at the end. Coordinates have six significant digits. Texture coordinates of
/// pixel (column, row) on a page of width W are (column + 0.5) / W and (W - 1 - row + 0.5) / W. A mesh with
/// at most one picture keeps its vertices and triangles in order and every vertex has the "vt" line of the
/// same number; with several pictures triangles are grouped by page and shared vertices may have further
/// "vt" lines, after all vertices. Returns false, silently, when the files cannot be opened; throws when the
/// mesh does not hold together. Prints the time of its stages.
bool saveObj(const std::string& path, const TexturedModel& model);

/// The OBJ file alone, which names BASE.mtl.
void writeObj(AtomicFile& file, const TexturedModel& model, const TextureLayout& layout,
              const std::string& base);

}  // namespace scansteps::mesh
