// The zero surface of the signed distances in voxel blocks, as triangles.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "voxel_blocks.h"

namespace scansteps::scan {

/// Triangles of a cell with the corners (x, y, z), x in the lowest bit, by the mask of its negative corners.
/// Edges have the number 4 * axis + n: the n-th edge along this axis, in the order of their lower corners.
using CellTriangles = std::vector<std::array<std::uint8_t, 3>>;
const std::array<CellTriangles, 256>& cellTable();
/// Lower corner of an edge.
int lowerCorner(int edge);

struct SurfaceMesh
{
    std::vector<float> vertices;  ///< x, y, z in mm
    std::vector<std::uint32_t>
        indices;  ///< three per triangle, counter-clockwise seen from the positive side
};

/// Marching cubes, Lorensen and Cline (1987), in the cells of eight voxels that were all seen. On a face with
/// two negative corners across from one another these are always separated, and no triangle's side lies in a
/// face other than along its contour, so that the surface has no cracks and each side has at most two
/// triangles; only at the border of what was seen it has one. Vertices are shared and lie at least 0.2 % of a
/// voxel from a voxel's centre, so that no triangle is degenerate.
SurfaceMesh extractSurface(const VoxelBlocks& blocks, double voxel);

}  // namespace scansteps::scan
