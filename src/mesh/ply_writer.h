// Writes ASCII PLY: a mesh with a colour per triangle, or a cloud with a colour per point.
#pragma once

#include "core/atomic_file.h"
#include "mesh/mesh.h"

namespace scansteps::mesh {

/// Coordinates are truncated toward zero to four decimals (v * 10000, truncated) and then written with six
/// significant digits; colours are truncated. Throws when the model is invalid (checkGeometry, checkColours,
/// checkCloud) or a coordinate times 10000 does not fit 32 bits. Uses no memory besides the file's buffer.
void writePly(AtomicFile& file, const Mesh& mesh);
void writePly(AtomicFile& file, const Cloud& cloud);

}  // namespace scansteps::mesh
