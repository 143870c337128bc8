// Writes OpenFlight scene files, format revision 16.0.
#pragma once

#include <string>

#include "mesh/texture_files.h"

namespace scansteps::mesh {

/// Writes PATH and, for a mesh with pictures, the texture pages BASE.jpg, BASE_1.jpg, ... in the same folder;
/// all files appear together at the end. Record tree: header, colour palette, texture palette entries, vertex
/// palette (double precision; each vertex with the mean colour of its triangles, and u, v if there are
/// pictures); one group; one object per texture page; per triangle a face, two-sided and unlit, with the
/// triangle's colour (white with pictures or without colours) and a vertex list. Returns false, silently,
/// when the file cannot be opened; throws when the mesh is invalid or too large for the format. Uses 20 bytes
/// per vertex besides the layout.
bool saveFlt(const std::string& path, const TexturedModel& model);

}  // namespace scansteps::mesh
