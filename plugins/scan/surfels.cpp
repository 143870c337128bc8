// Surfels of views; the tree is nanoflann's.
#include "surfels.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <nanoflann.hpp>
#include <unordered_map>
#include <utility>

namespace scansteps::scan {
namespace {

using Vector = Eigen::Vector3f;

Vector vertexOf(const ViewMesh& mesh, std::size_t n)
{
    return Eigen::Map<const Vector>(&mesh.vertices[3 * n]);
}

// What nanoflann asks of a set of points.
struct Cloud
{
    explicit Cloud(std::vector<Vector> all) : points(std::move(all)) {}
    std::size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(std::size_t n, std::size_t axis) const { return points[n][int(axis)]; }
    template <class Box>
    bool kdtree_get_bbox(Box&) const
    {
        return false;
    }
    std::vector<Vector> points;
};

std::uint64_t cellOf(const Vector& point, float pitch)
{
    std::uint64_t key = 0;
    for (const float value : point) {
        const float cell = std::clamp(std::floor(value / pitch), -1048576.0F, 1048575.0F);
        key = key << 21 | std::uint64_t(std::int64_t(cell) + 1048576);
    }
    return key;
}

}  // namespace

struct Surfels::Tree
{
    explicit Tree(std::vector<Vector> points) : cloud(std::move(points)), index(3, cloud, {12}) {}
    Cloud cloud;
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3> index;
};

Surfels::Surfels(Surfels&&) noexcept = default;
Surfels& Surfels::operator=(Surfels&&) noexcept = default;
Surfels::~Surfels() = default;

Surfels::Surfels(const ViewMesh& mesh, const std::vector<Vector>& vertexNormals,
                 const std::vector<bool>& inner, float pitch)
{
    std::unordered_map<std::uint64_t, std::size_t> cells;
    std::vector<float> counts, outer;
    for (std::size_t n = 0; n < vertexNormals.size(); ++n) {
        if (vertexNormals[n].isZero()) continue;
        const Vector point = vertexOf(mesh, n);
        const auto [cell, isNew] = cells.try_emplace(cellOf(point, pitch), points.size());
        if (isNew) {
            points.push_back(Vector::Zero());
            normals.push_back(Vector::Zero());
            counts.push_back(0);
            outer.push_back(0);
        }
        points[cell->second] += point;
        normals[cell->second] += vertexNormals[n];
        counts[cell->second] += 1;
        if (!inner[n]) outer[cell->second] += 1;
    }
    for (std::size_t n = 0; n < points.size(); ++n) {
        points[n] /= counts[n];
        normals[n].normalize();
        isBorder.push_back(outer[n] > counts[n] / 2);
    }
    tree_ = std::make_unique<Tree>(points);
}

std::optional<std::size_t> Surfels::nearest(const Vector& point, float reach) const
{
    std::uint32_t found = 0;
    float distance2 = reach * reach;
    nanoflann::KNNResultSet<float, std::uint32_t> result(1);
    result.init(&found, &distance2);
    distance2 = reach * reach;  // init() has removed the bound
    tree_->index.findNeighbors(result, point.data(), nanoflann::SearchParams());
    if (result.size() == 0) return {};
    return found;
}

std::vector<Vector> vertexNormals(const ViewMesh& mesh)
{
    std::vector<Vector> normals(mesh.vertices.size() / 3, Vector::Zero());
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const Vector a = vertexOf(mesh, mesh.indices[i]), b = vertexOf(mesh, mesh.indices[i + 1]),
                     c = vertexOf(mesh, mesh.indices[i + 2]);
        const Vector normal = (b - a).cross(c - a);
        for (std::size_t k = i; k < i + 3; ++k) normals[mesh.indices[k]] += normal;
    }
    for (Vector& normal : normals)
        if (const float length = normal.norm(); length > 0) normal /= length;
    return normals;
}

std::vector<bool> innerVertices(const ViewMesh& mesh, int rings)
{
    const std::size_t count = mesh.vertices.size() / 3;
    // Around an inner vertex each neighbour is once the start and once the end of a side that faces it.
    std::vector<std::int64_t> balance(count, 0);
    std::vector<bool> outer(count, true);
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        for (std::size_t k = 0; k < 3; ++k) {
            const std::uint32_t at = mesh.indices[i + k];
            balance[at] += std::int64_t{mesh.indices[i + (k + 1) % 3]} + 1;
            balance[at] -= std::int64_t{mesh.indices[i + (k + 2) % 3]} + 1;
            outer[at] = false;
        }
    for (std::size_t n = 0; n < count; ++n)
        if (balance[n] != 0) outer[n] = true;
    for (int ring = 0; ring < rings; ++ring) {
        std::vector<bool> next = outer;
        for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
            if (outer[mesh.indices[i]] || outer[mesh.indices[i + 1]] || outer[mesh.indices[i + 2]])
                for (std::size_t k = i; k < i + 3; ++k) next[mesh.indices[k]] = true;
        outer = std::move(next);
    }
    outer.flip();
    return outer;
}

float medianSide(const ViewMesh& mesh)
{
    std::vector<float> sides;
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        sides.push_back((vertexOf(mesh, mesh.indices[i]) - vertexOf(mesh, mesh.indices[i + 1])).norm());
    if (sides.empty()) return 0;
    const auto middle = sides.begin() + std::ptrdiff_t(sides.size() / 2);
    std::nth_element(sides.begin(), middle, sides.end());
    return *middle;
}

}  // namespace scansteps::scan
