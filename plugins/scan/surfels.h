// Views thinned out for registration: oriented points on a grid of cells, with a tree to search them.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "range_image.h"

namespace scansteps::scan {

/// Oriented points; camera coordinates, millimetres.
class Surfels
{
  public:
    /// Means of the vertices and normals in each cell of a grid with this pitch (mm). Cells with a vertex
    /// that is not `inner` are borders.
    Surfels(const ViewMesh& mesh, const std::vector<Eigen::Vector3f>& normals, const std::vector<bool>& inner,
            float pitch);
    ~Surfels();
    Surfels(Surfels&&) noexcept;
    Surfels& operator=(Surfels&&) noexcept;

    std::size_t size() const { return points.size(); }
    /// The nearest surfel within `reach` mm, if there is one.
    std::optional<std::size_t> nearest(const Eigen::Vector3f& point, float reach) const;

    std::vector<Eigen::Vector3f> points, normals;
    std::vector<bool> isBorder;

  private:
    struct Tree;
    std::unique_ptr<Tree> tree_;
};

/// Unit normals of the vertices, weighted by the area of their triangles; zero for vertices without triangle.
std::vector<Eigen::Vector3f> vertexNormals(const ViewMesh& mesh);

/// Whether vertices are more than `rings` triangles away from the border of the mesh.
std::vector<bool> innerVertices(const ViewMesh& mesh, int rings);

/// Median length of the triangles' sides, mm; 0 for a mesh without triangles.
float medianSide(const ViewMesh& mesh);

}  // namespace scansteps::scan
