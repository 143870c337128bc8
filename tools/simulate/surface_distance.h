// Distances of a closed model to the true surface.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "deviation.h"
#include "mesh.h"

namespace scansteps::simulate {

/// Distances of points to a mesh, which has to exist as long. Triangles lie in a grid of cells.
class SurfaceDistance
{
  public:
    explicit SurfaceDistance(const Mesh& mesh);
    /// Distance to the nearest triangle, positive on its outer side; `limit` (in mm) or more counts as limit.
    double operator()(const Eigen::Vector3d& point, double limit) const;

  private:
    Eigen::Vector3i cellOf(const Eigen::Vector3d& point) const;
    static std::uint64_t keyOf(const Eigen::Vector3i& cell);
    void search(const Eigen::Vector3i& cell, const Eigen::Vector3d& point, double& best, int& triangle) const;

    const Mesh& mesh_;
    double cell_ = 1;
    std::unordered_map<std::uint64_t, std::vector<int>> cells_;
};

/// A model of all sides. Triangles from `measured` on fill holes.
struct ClosedModel
{
    Mesh mesh;
    std::size_t measured = 0;
};

struct ClosedDeviation
{
    Statistics measured;  ///< of vertices of measured triangles; without expectedRms
    Statistics filled;    ///< of vertices that only fill holes
    std::size_t measuredTriangles = 0, filledTriangles = 0;
    std::int64_t openSides = 0;    ///< sides with one triangle
    std::int64_t sharedSides = 0;  ///< sides with more than two triangles
    std::int64_t euler = 0;        ///< vertices - sides + triangles, without unused vertices
};

/// Compares the vertices of a model with the true surface, both in the same coordinates.
ClosedDeviation deviationOf(const ClosedModel& model, const Mesh& truth);

/// The last mesh in a recording; its "Filled" tells which triangles fill holes. Or a PLY file, by its ending.
ClosedModel readModel(const std::string& name);

}  // namespace scansteps::simulate
