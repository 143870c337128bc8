// Meshes as PLY files, as much of the format as the model files of this project and common programs use.
#pragma once

#include <string>

#include "mesh.h"

namespace scansteps::simulate {

/// Reads vertices and faces (polygons are split into triangles) of a PLY file, plain or binary little-endian.
/// Throws a C string that names the file and the reason.
Mesh readPly(const std::string& name);
/// Writes binary little-endian, with normals if the mesh has them.
void writePly(const std::string& name, const Mesh& mesh);

}  // namespace scansteps::simulate
