// Nearest points of meshes by a grid of cells, and the statistics of closed models.
#include "surface_distance.h"

#include <scansteps/error.h>
#include <scansteps/stream.h>
#include <scansteps/vertex_lists.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <string_view>
#include <tuple>

#include "ply_file.h"

namespace scansteps::simulate {
namespace {

using Vector = Eigen::Vector3d;

// Ericson, "Real-Time Collision Detection" (2005), section 5.1.5.
Vector nearestOnTriangle(const Vector& p, const Vector& a, const Vector& b, const Vector& c)
{
    const Vector ab = b - a, ac = c - a, ap = p - a;
    const double d1 = ab.dot(ap), d2 = ac.dot(ap);
    if (d1 <= 0 && d2 <= 0) return a;
    const Vector bp = p - b;
    const double d3 = ab.dot(bp), d4 = ac.dot(bp);
    if (d3 >= 0 && d4 <= d3) return b;
    const double vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0) return a + ab * (d1 / (d1 - d3));
    const Vector cp = p - c;
    const double d5 = ab.dot(cp), d6 = ac.dot(cp);
    if (d6 >= 0 && d5 <= d6) return c;
    const double vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0) return a + ac * (d2 / (d2 - d6));
    const double va = d3 * d6 - d5 * d4;
    if (va <= 0 && d4 >= d3 && d5 >= d6) return b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
    const double sum = va + vb + vc;
    return a + ab * (vb / sum) + ac * (vc / sum);
}

// The first vertex at the same place: at seams of textures vertices are doubled.
std::vector<int> firstAtPlace(const Mesh& mesh)
{
    std::vector<int> order(mesh.vertices.size()), first(mesh.vertices.size());
    std::iota(order.begin(), order.end(), 0);
    const auto place = [&](int n) {
        const Vector& v = mesh.vertices[std::size_t(n)];
        return std::tuple(v.x(), v.y(), v.z());
    };
    std::ranges::sort(order, {}, place);
    for (std::size_t i = 0; i < order.size(); ++i) {
        const bool isSame = i > 0 && place(order[i]) == place(order[i - 1]);
        first[std::size_t(order[i])] = isSame ? first[std::size_t(order[i - 1])] : order[i];
    }
    return first;
}

void addTopology(const Mesh& mesh, ClosedDeviation& deviation)
{
    const std::vector<int> first = firstAtPlace(mesh);
    std::vector<std::array<int, 2>> sides;
    std::vector<bool> isUsed(mesh.vertices.size(), false);
    for (const auto& t : mesh.triangles)
        for (std::size_t i = 0; i < 3; ++i) {
            const auto [low, high] =
                std::minmax(first[std::size_t(t[i])], first[std::size_t(t[(i + 1) % 3])]);
            sides.push_back({low, high});
            isUsed[std::size_t(low)] = isUsed[std::size_t(high)] = true;
        }
    std::ranges::sort(sides);
    std::int64_t different = 0;
    for (std::size_t i = 0; i < sides.size(); ++different) {
        std::size_t end = i;
        while (end < sides.size() && sides[end] == sides[i]) ++end;
        deviation.openSides += end - i == 1;
        deviation.sharedSides += end - i > 2;
        i = end;
    }
    deviation.euler =
        std::ranges::count(isUsed, true) - different + static_cast<std::int64_t>(mesh.triangles.size());
}

ClosedModel modelOf(const varitype& record)
{
    const varitype tria = record["tria"];
    const auto vertices = floatList(tria, "Vertices", 3);
    const auto indices = indexList(tria, "Indices", 3);
    ClosedModel model;
    for (std::size_t i = 0; i < vertices.size(); i += 3)
        model.mesh.vertices.emplace_back(double(vertices[i]), double(vertices[i + 1]),
                                         double(vertices[i + 2]));
    for (std::size_t i = 0; i < indices.size(); i += 3) {
        for (std::size_t k = i; k < i + 3; ++k)
            if (indices[k] >= model.mesh.vertices.size()) fail("deviation: a triangle names no vertex");
        model.mesh.triangles.push_back({int(indices[i]), int(indices[i + 1]), int(indices[i + 2])});
    }
    model.measured = model.mesh.triangles.size();
    if (!tria.has("Filled")) return model;
    const auto filled = intList(tria, "Filled");
    model.measured = std::size_t(std::ranges::find_if(filled, [](int f) { return f != 0; }) - filled.begin());
    return model;
}

}  // namespace

SurfaceDistance::SurfaceDistance(const Mesh& mesh) : mesh_(mesh)
{
    double sum = 0;
    for (const auto& t : mesh.triangles)
        sum += (mesh.vertices[std::size_t(t[0])] - mesh.vertices[std::size_t(t[1])]).norm();
    cell_ = std::max(1e-6, 2 * sum / double(mesh.triangles.size()));
    for (std::size_t n = 0; n < mesh.triangles.size(); ++n) {
        Eigen::AlignedBox3d box;
        for (const int corner : mesh.triangles[n]) box.extend(mesh.vertices[std::size_t(corner)]);
        const Eigen::Vector3i low = cellOf(box.min()), high = cellOf(box.max());
        for (int z = low.z(); z <= high.z(); ++z)
            for (int y = low.y(); y <= high.y(); ++y)
                for (int x = low.x(); x <= high.x(); ++x) cells_[keyOf({x, y, z})].push_back(int(n));
    }
}

Eigen::Vector3i SurfaceDistance::cellOf(const Vector& point) const
{
    return (point / cell_).array().floor().cast<int>();
}

std::uint64_t SurfaceDistance::keyOf(const Eigen::Vector3i& cell)
{
    const auto part = [](int value) { return std::uint64_t(value + (1 << 20)) & 0x1FFFFF; };
    return part(cell.x()) | part(cell.y()) << 21 | part(cell.z()) << 42;
}

void SurfaceDistance::search(const Eigen::Vector3i& cell, const Vector& point, double& best,
                             int& triangle) const
{
    const auto found = cells_.find(keyOf(cell));
    if (found == cells_.end()) return;
    for (const int n : found->second) {
        const auto& t = mesh_.triangles[std::size_t(n)];
        const Vector nearest =
            nearestOnTriangle(point, mesh_.vertices[std::size_t(t[0])], mesh_.vertices[std::size_t(t[1])],
                              mesh_.vertices[std::size_t(t[2])]);
        const double distance = (point - nearest).norm();
        if (distance >= best) continue;
        best = distance;
        triangle = n;
    }
}

double SurfaceDistance::operator()(const Vector& point, double limit) const
{
    const Eigen::Vector3i middle = cellOf(point);
    double best = limit;
    int triangle = -1;
    // Shell by shell of cells; a further one cannot have anything nearer than its distance.
    for (int shell = 0; (shell - 1) * cell_ < best; ++shell)
        for (int z = -shell; z <= shell; ++z)
            for (int y = -shell; y <= shell; ++y) {
                const bool isFace = std::abs(z) == shell || std::abs(y) == shell;
                for (int x = -shell; x <= shell; x += isFace || shell == 0 ? 1 : 2 * shell)
                    search(middle + Eigen::Vector3i(x, y, z), point, best, triangle);
            }
    if (triangle < 0) return limit;
    const auto& t = mesh_.triangles[std::size_t(triangle)];
    const Vector a = mesh_.vertices[std::size_t(t[0])];
    const Vector normal =
        (mesh_.vertices[std::size_t(t[1])] - a).cross(mesh_.vertices[std::size_t(t[2])] - a);
    return normal.dot(point - a) < 0 ? -best : best;
}

ClosedDeviation deviationOf(const ClosedModel& model, const Mesh& truth)
{
    constexpr double kLimit = 10;  // mm
    ClosedDeviation deviation;
    deviation.measuredTriangles = model.measured;
    deviation.filledTriangles = model.mesh.triangles.size() - model.measured;
    addTopology(model.mesh, deviation);
    enum class Use : std::uint8_t
    {
        None,
        Filled,
        Measured
    };
    std::vector<Use> use(model.mesh.vertices.size(), Use::None);
    for (std::size_t t = model.mesh.triangles.size(); t-- > 0;)
        for (const int corner : model.mesh.triangles[t])
            use[std::size_t(corner)] = t < model.measured ? Use::Measured : Use::Filled;
    const SurfaceDistance distance(truth);
    Collector measured, filled;
    for (std::size_t n = 0; n < use.size(); ++n)
        if (use[n] != Use::None)
            (use[n] == Use::Measured ? measured : filled).add(distance(model.mesh.vertices[n], kLimit), 0);
    deviation.measured = measured.statistics();
    deviation.filled = filled.statistics();
    return deviation;
}

ClosedModel readModel(const std::string& name)
{
    if (name.ends_with(".ply")) {
        ClosedModel model{readPly(name), 0};
        model.measured = model.mesh.triangles.size();
        return model;
    }
    BIOfs file(name, BIOfs::Mode::Read);
    if (!file.isOpen()) failf("deviation: cannot read %s", name.c_str());
    ClosedModel model;
    while (!file.atEnd()) {
        const varitype record = readRecord(file);
        if (record.kind() == Kind::Struct && record.has("tria")) model = modelOf(record);
    }
    if (model.mesh.triangles.empty()) failf("deviation: %s holds no mesh", name.c_str());
    return model;
}

}  // namespace scansteps::simulate
