// ASCII PLY: a mesh with a colour on each triangle, or a cloud with a colour on each point.
#pragma once

#include "core/atomic_file.h"
#include "mesh/mesh.h"

namespace scansteps::mesh {

/// Coordinates are cut toward zero to four decimals (float product v * 10000, truncated) and then written
/// with six significant digits; colours are truncated. Throws when the mesh does not hold together
/// (checkGeometry, checkColours) or a coordinate times 10000 does not fit into 32 bits. Takes no memory but
/// the file's block.
void writePly(AtomicFile& file, const Mesh& mesh);
void writePly(AtomicFile& file, const Cloud& cloud);

}  // namespace scansteps::mesh
