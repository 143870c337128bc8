// Patches for holes of meshes.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstdint>
#include <vector>

namespace scansteps::scan {

/// The filling of one hole. Vertices below the border's size are those of the border, in its order.
struct Patch
{
    std::vector<Eigen::Vector3d> vertices;  ///< the border, then new ones
    std::vector<std::array<std::uint32_t, 3>> triangles;
};

/// Fills a border of at least three points. Triangles have the direction of the border.
Patch fillHole(const std::vector<Eigen::Vector3d>& border);

}  // namespace scansteps::scan
