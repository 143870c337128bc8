// Fusion of views into one surface.
#pragma once

#include <cstdint>
#include <vector>

#include "integrate.h"
#include "mesh_repair.h"

namespace scansteps::scan {

struct FusionSettings
{
    double voxel = 0.5;     ///< mm
    double truncation = 4;  ///< largest distance that is stored, voxels
    RangeLimits range;
    RepairLimits repair;
    std::size_t memory = std::size_t{2} << 30;  ///< bytes for range images, voxels and the surface
};

struct FusedMesh
{
    SurfaceMesh surface;
    std::vector<float> normals;  ///< of the vertices, unit length
    std::vector<float> colours;  ///< red, green, blue per triangle, 0 to 255
    Repair repair;               ///< triangles from repair.measuredTriangles on fill holes
    std::size_t blocks = 0;
};

class Fusion
{
  public:
    explicit Fusion(const FusionSettings& settings);
    /// Adds a view with the motion from object to camera coordinates. Returns the number of triangles left
    /// out because they show their back. Throws a C string that names sfuse.memory before more is used.
    std::int64_t add(const ViewMesh& mesh, const Pose& pose);
    /// Memory for `bytes` that the caller keeps; throws as add() does.
    void reserve(std::size_t bytes);
    std::size_t views() const { return views_.size(); }
    /// The surface of all views in object coordinates; the fusion is empty afterwards. Filled triangles have
    /// the mean colour.
    FusedMesh finish();

  private:
    struct View
    {
        RangeImage image;
        VoxelGrid grid;
        Pose pose;
    };
    std::vector<VoxelBlock*> blocksNear(const View& view);
    std::vector<float> coloursOf(const FusedMesh& mesh) const;

    FusionSettings settings_;
    VoxelBlocks blocks_;
    std::vector<std::uint32_t> stamps_;  // the view that last met each block
    std::vector<View> views_;
    std::size_t reserved_ = 0;
};

}  // namespace scansteps::scan
