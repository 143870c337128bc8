// Clean-up of extracted surfaces.
#include "mesh_repair.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <numeric>
#include <unordered_map>

#include "hole_filling.h"

namespace scansteps::scan {
namespace {

using Vector = Eigen::Vector3d;

Vector vertexOf(const SurfaceMesh& mesh, std::uint32_t n)
{
    return Eigen::Map<const Eigen::Vector3f>(&mesh.vertices[3 * std::size_t(n)]).cast<double>();
}

// Removes the triangles for which `isDropped` holds.
template <class Predicate>
void dropTriangles(SurfaceMesh& mesh, Predicate isDropped)
{
    std::size_t kept = 0;
    for (std::size_t t = 0; t < mesh.indices.size() / 3; ++t) {
        if (isDropped(t)) continue;
        std::copy_n(mesh.indices.begin() + std::ptrdiff_t(3 * t), 3,
                    mesh.indices.begin() + std::ptrdiff_t(3 * kept));
        ++kept;
    }
    mesh.indices.resize(3 * kept);
}

std::int64_t dropFragments(SurfaceMesh& mesh, double leastArea)
{
    std::vector<std::uint32_t> parent(mesh.vertices.size() / 3);
    std::iota(parent.begin(), parent.end(), 0U);
    const auto root = [&](std::uint32_t n) {
        while (parent[n] != n) n = parent[n] = parent[parent[n]];
        return n;
    };
    for (std::size_t i = 0; i < mesh.indices.size(); i += 3) {
        const std::uint32_t a = root(mesh.indices[i]), b = root(mesh.indices[i + 1]);
        parent[std::max(a, b)] = std::min(a, b);
        const std::uint32_t low = std::min(a, b), c = root(mesh.indices[i + 2]);
        parent[std::max(low, c)] = std::min(low, c);
    }
    std::vector<float> area(parent.size(), 0);
    for (std::size_t i = 0; i < mesh.indices.size(); i += 3) {
        const Vector p = vertexOf(mesh, mesh.indices[i]);
        area[root(mesh.indices[i])] += float(
            (vertexOf(mesh, mesh.indices[i + 1]) - p).cross(vertexOf(mesh, mesh.indices[i + 2]) - p).norm() /
            2);
    }
    const auto count = std::ranges::count_if(area, [&](float a) { return a > 0 && double(a) < leastArea; });
    if (count > 0)
        dropTriangles(mesh,
                      [&](std::size_t t) { return double(area[root(mesh.indices[3 * t])]) < leastArea; });
    return count;
}

// Where two borders meet in a vertex, its triangles go, until there is no such vertex.
void separateBorders(SurfaceMesh& mesh)
{
    while (true) {
        std::vector<std::uint32_t> starts;
        for (const auto& side : borderSides(mesh)) starts.push_back(side[0]);
        std::ranges::sort(starts);
        std::vector<bool> isShared(mesh.vertices.size() / 3, false);
        bool any = false;
        for (std::size_t i = 1; i < starts.size(); ++i)
            if (starts[i] == starts[i - 1]) any = isShared[starts[i]] = true;
        if (!any) return;
        dropTriangles(mesh, [&](std::size_t t) {
            return isShared[mesh.indices[3 * t]] || isShared[mesh.indices[3 * t + 1]] ||
                   isShared[mesh.indices[3 * t + 2]];
        });
    }
}

void dropUnused(SurfaceMesh& mesh, std::vector<std::array<std::uint32_t, 2>>& sides)
{
    constexpr std::uint32_t kUnused = ~0U;
    std::vector<std::uint32_t> number(mesh.vertices.size() / 3, kUnused);
    for (const std::uint32_t n : mesh.indices) number[n] = 0;
    std::uint32_t count = 0;
    for (std::size_t n = 0; n < number.size(); ++n) {
        if (number[n] == kUnused) continue;
        std::copy_n(mesh.vertices.begin() + std::ptrdiff_t(3 * n), 3,
                    mesh.vertices.begin() + std::ptrdiff_t(3) * count);
        number[n] = count++;
    }
    mesh.vertices.resize(3 * std::size_t(count));
    for (std::uint32_t& n : mesh.indices) n = number[n];
    for (auto& side : sides) side = {number[side[0]], number[side[1]]};
}

// The borders of holes, each against the direction of its sides: as a filling has them.
std::vector<std::vector<std::uint32_t>> bordersOf(const std::vector<std::array<std::uint32_t, 2>>& sides)
{
    std::unordered_map<std::uint32_t, std::uint32_t> before;
    for (const auto& side : sides) before[side[1]] = side[0];
    std::vector<std::vector<std::uint32_t>> borders;
    for (const auto& side : sides) {
        std::vector<std::uint32_t> border;
        for (auto at = before.find(side[1]); at != before.end();) {
            border.push_back(at->first);
            const std::uint32_t following = at->second;
            before.erase(at);
            at = before.find(following);
        }
        if (!border.empty()) borders.push_back(std::move(border));
    }
    return borders;
}

void fill(SurfaceMesh& mesh, const std::vector<std::uint32_t>& border, const std::vector<Vector>& places)
{
    const Patch patch = fillHole(places);
    const auto first = std::uint32_t(mesh.vertices.size() / 3);
    for (std::size_t i = border.size(); i < patch.vertices.size(); ++i)
        for (int axis = 0; axis < 3; ++axis) mesh.vertices.push_back(float(patch.vertices[i][axis]));
    for (const auto& triangle : patch.triangles)
        for (const std::uint32_t n : triangle)
            mesh.indices.push_back(n < border.size() ? border[n] : first + n - std::uint32_t(border.size()));
}

}  // namespace

std::vector<std::array<std::uint32_t, 2>> borderSides(const SurfaceMesh& mesh)
{
    // Around an inner vertex every neighbour both follows and precedes: the differences of their hashes
    // add up to 0. Only triangles with two other vertices can have a side at the border.
    const auto hash = [](std::uint32_t n) {
        const std::uint64_t mixed = (n + 1) * 0x9E3779B97F4A7C15ULL;
        return (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9ULL;
    };
    std::vector<std::uint64_t> sums(mesh.vertices.size() / 3, 0);
    for (std::size_t i = 0; i < mesh.indices.size(); i += 3) {
        const std::uint32_t* t = &mesh.indices[i];
        const std::array<std::uint64_t, 3> h{hash(t[0]), hash(t[1]), hash(t[2])};
        sums[t[0]] += h[1] - h[2];
        sums[t[1]] += h[2] - h[0];
        sums[t[2]] += h[0] - h[1];
    }
    std::vector<std::array<std::uint32_t, 2>> sides, opposite;
    for (std::size_t i = 0; i < mesh.indices.size(); ++i) {
        const std::uint32_t a = mesh.indices[i], b = mesh.indices[i % 3 == 2 ? i - 2 : i + 1];
        if (sums[a] == 0 || sums[b] == 0) continue;
        sides.push_back({a, b});
        opposite.push_back({b, a});
    }
    std::ranges::sort(sides);
    std::ranges::sort(opposite);
    std::vector<std::array<std::uint32_t, 2>> border;
    std::ranges::set_difference(sides, opposite, std::back_inserter(border));
    return border;
}

Repair repairMesh(SurfaceMesh& mesh, const RepairLimits& limits)
{
    Repair repair;
    separateBorders(mesh);  // which may cut parts off
    repair.fragments = dropFragments(mesh, limits.fragment);
    auto sides = borderSides(mesh);
    dropUnused(mesh, sides);
    repair.measuredVertices = mesh.vertices.size() / 3;
    repair.measuredTriangles = mesh.indices.size() / 3;
    for (const auto& border : bordersOf(sides)) {
        std::vector<Vector> places;
        Eigen::AlignedBox3d box;
        for (const std::uint32_t n : border) {
            places.push_back(vertexOf(mesh, n));
            box.extend(places.back());
        }
        const double extent = box.diagonal().norm();
        if (extent <= limits.close) {
            fill(mesh, border, places);
            ++repair.closed;
        } else {
            ++repair.open;
            repair.largestOpen = std::max(repair.largestOpen, extent);
        }
    }
    return repair;
}

}  // namespace scansteps::scan
