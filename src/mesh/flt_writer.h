// OpenFlight scene files, format revision 16.0.
#pragma once

#include <string>

#include "mesh/texture_files.h"

namespace scansteps::mesh {

/// Writes PATH and, for a mesh with pictures, the texture pages BASE.jpg, BASE_1.jpg, ... beside it, all of
/// which appear together at the end. Record tree: header, colour palette, texture palette entries, vertex
/// palette (double precision, each vertex with the mean colour of its triangles, and u, v where there are
/// pictures); one group; one object a texture page; one face with a vertex list a triangle, two-sided, unlit,
/// with the triangle's colour (white where a picture gives it, or without colours).
/// Returns false, silently, when the file cannot be opened; throws when the mesh does not hold together or
/// its palette is beyond what the format can count. Takes 20 bytes a vertex besides what the layout takes.
bool saveFlt(const std::string& path, const TexturedModel& model);

}  // namespace scansteps::mesh
