// Meshes of pixel grids.
#include "grid_mesh.h"

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

namespace scansteps::scan {
namespace {

using Vector = Eigen::Vector3f;
using Corners = std::array<std::int32_t, 3>;

class Mesher
{
  public:
    Mesher(const GridPoints& grid, const MeshLimits& limits)
        : grid_(grid),
          minCosine2_(limits.angle >= 90
                          ? -1
                          : std::pow(std::cos(limits.angle * std::numbers::pi_v<float> / 180), 2.0F)),
          maxEdge2_(limits.edge > 0 ? limits.edge * limits.edge : std::numeric_limits<float>::max()),
          vertexOf_(grid.points.size() / 3, -1)
    {
    }

    GridMesh mesh()
    {
        for (std::size_t y = 0; y + 1 < grid_.height; ++y) {
            const std::int32_t* top = grid_.index.data() + y * grid_.width;
            const std::int32_t* bottom = top + grid_.width;
            for (std::size_t x = 0; x + 1 < grid_.width; ++x)
                addCell(top[x], top[x + 1], bottom[x], bottom[x + 1]);
        }
        addVertices();
        return std::move(mesh_);
    }

  private:
    Vector point(std::int32_t n) const { return Eigen::Map<const Vector>(&grid_.points[3 * std::size_t(n)]); }

    void addCell(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d)
    {
        const int missing = (a < 0) + (b < 0) + (c < 0) + (d < 0);
        if (missing > 1) return;
        if (missing == 1) {
            add(a < 0   ? Corners{b, c, d}
                : b < 0 ? Corners{a, c, d}
                : c < 0 ? Corners{a, d, b}
                        : Corners{a, c, b});
            return;
        }
        if ((point(a) - point(d)).squaredNorm() < (point(b) - point(c)).squaredNorm()) {
            add({a, c, d});
            add({a, d, b});
        } else {
            add({a, c, b});
            add({b, c, d});
        }
    }

    void add(const Corners& corners)
    {
        const Vector p = point(corners[0]), q = point(corners[1]), r = point(corners[2]);
        const Vector normal = (q - p).cross(r - p);
        const float along = normal.dot(p);
        const float longest = std::max({(q - p).squaredNorm(), (r - p).squaredNorm(), (r - q).squaredNorm()});
        if (longest > maxEdge2_ || along * along < minCosine2_ * normal.squaredNorm() * p.squaredNorm() ||
            (minCosine2_ >= 0 && along > 0)) {
            ++mesh_.steep;
            return;
        }
        for (const std::int32_t n : corners) {
            std::int32_t& vertex = vertexOf_[std::size_t(n)];
            if (vertex < 0) {
                vertex = vertexCount_++;
                mesh_.vertices.insert(mesh_.vertices.end(), {point(n).x(), point(n).y(), point(n).z()});
                mesh_.normals.insert(mesh_.normals.end(), {0.0F, 0.0F, 0.0F});
            }
            Eigen::Map<Vector>(&mesh_.normals[3 * std::size_t(vertex)]) += normal;
            mesh_.indices.push_back(std::uint32_t(vertex));
        }
        for (std::size_t channel = 0; channel < 3; ++channel) {
            float sum = 0;
            for (const std::int32_t n : corners) sum += grid_.colours[3 * std::size_t(n) + channel];
            mesh_.colours.push_back(sum / 3);
        }
    }

    void addVertices()
    {
        mesh_.pixels.resize(2 * std::size_t(vertexCount_));
        for (std::size_t i = 0; i < grid_.index.size(); ++i) {
            if (grid_.index[i] < 0 || vertexOf_[std::size_t(grid_.index[i])] < 0) continue;
            const auto vertex = std::size_t(vertexOf_[std::size_t(grid_.index[i])]);
            mesh_.pixels[2 * vertex] = float(i % grid_.width);
            mesh_.pixels[2 * vertex + 1] = float(i / grid_.width);
        }
        for (std::size_t v = 0; v < std::size_t(vertexCount_); ++v)
            Eigen::Map<Vector>(&mesh_.normals[3 * v]).normalize();
    }

    const GridPoints& grid_;
    float minCosine2_, maxEdge2_;
    std::vector<std::int32_t> vertexOf_;
    std::int32_t vertexCount_ = 0;
    GridMesh mesh_;
};

}  // namespace

GridMesh meshOfGrid(const GridPoints& grid, const MeshLimits& limits)
{
    return Mesher(grid, limits).mesh();
}

}  // namespace scansteps::scan
