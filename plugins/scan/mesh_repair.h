// Meshes made manifold and closed: fragments dropped, holes filled.
#pragma once

#include <cstdint>
#include <vector>

#include "marching_cubes.h"

namespace scansteps::scan {

struct RepairLimits
{
    double fragment = 10;  ///< least area of a connected part, mm^2
    double close = 0;      ///< largest extent of a hole that is filled, mm; 0: none
};

struct Repair
{
    std::int64_t fragments = 0;         ///< parts that were dropped
    std::int64_t closed = 0;            ///< holes that were filled
    std::int64_t open = 0;              ///< holes that remain
    double largestOpen = 0;             ///< extent of the largest of them, mm
    std::size_t measuredVertices = 0;   ///< vertices before those of fillings
    std::size_t measuredTriangles = 0;  ///< triangles before those of fillings
};

/// Drops small parts, triangles around vertices where two borders meet, and unused vertices, then fills
/// holes. A filling hangs between the hole's border like a soap film: rings of vertices towards its middle,
/// coarser from ring to ring, that a Laplace equation puts in place. Long or bent holes are first divided at
/// their narrow places. After this each side has exactly two triangles, or one at the border of an open hole.
/// New vertices and triangles follow the others. The extent of a hole is the diagonal of the box around it.
Repair repairMesh(SurfaceMesh& mesh, const RepairLimits& limits);

/// The directed sides of triangles that no other triangle has in the opposite direction.
std::vector<std::array<std::uint32_t, 2>> borderSides(const SurfaceMesh& mesh);

}  // namespace scansteps::scan
