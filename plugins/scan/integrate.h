// Signed distances of a view added to voxels.
#pragma once

#include <span>

#include "range_image.h"
#include "voxel_blocks.h"

namespace scansteps::scan {

/// Where voxels lie for a view: the voxel with the integer coordinates (i, j, k) is at
/// origin + i * step.col(0) + j * step.col(1) + k * step.col(2) in its camera coordinates, millimetres.
struct VoxelGrid
{
    Eigen::Matrix3d step = Eigen::Matrix3d::Identity();
    Eigen::Vector3d origin = Eigen::Vector3d::Zero();
};

/// Adds the distance of each voxel to the tangent plane of the surface on its ray, positive in front of it,
/// at most `truncation` mm, with the weight of the view. Voxels further behind the surface remain as they
/// are. Curless and Levoy, "A volumetric method for building complex models from range images" (1996).
void integrateView(const RangeImage& view, const VoxelGrid& grid, float truncation,
                   std::span<VoxelBlock* const> blocks);
namespace scalar {
void integrateView(const RangeImage& view, const VoxelGrid& grid, float truncation,
                   std::span<VoxelBlock* const> blocks);
}  // namespace scalar

}  // namespace scansteps::scan
