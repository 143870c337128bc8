// Writes binary STL with a 5-5-5 colour in the attribute word of each triangle.
#pragma once

#include "core/atomic_file.h"
#include "mesh/mesh.h"

namespace scansteps::mesh {

/// The normal of a triangle is a third of the sum of its vertices' normals (vertexNormals), shorter than 1 at
/// creases. Throws when the mesh is invalid (checkGeometry, checkColours). Uses 16 bytes per vertex besides
/// the file's buffer. Returns the range of the indices.
IndexRange writeStl(AtomicFile& file, const Mesh& mesh);

}  // namespace scansteps::mesh
