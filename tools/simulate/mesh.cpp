#include "mesh.h"

#include <Eigen/Geometry>

#include <cmath>
#include <numbers>

namespace scansteps::simulate {
namespace {

using Eigen::Vector3d;

void addQuad(Mesh& mesh, int a, int b, int c, int d)
{
    mesh.triangles.push_back({a, b, c});
    mesh.triangles.push_back({a, c, d});
}

/// A four-sided face with vertices of its own, so that its edges stay sharp.
void addFace(Mesh& mesh, const Vector3d& a, const Vector3d& b, const Vector3d& c, const Vector3d& d)
{
    const int first = static_cast<int>(mesh.vertices.size());
    mesh.vertices.insert(mesh.vertices.end(), {a, b, c, d});
    addQuad(mesh, first, first + 1, first + 2, first + 3);
}

Vector3d knotPoint(int p, int q, double radius, double t)
{
    const double r = radius * (2 + std::cos(q * t)) / 3;
    return {r * std::cos(p * t), r * std::sin(p * t), -radius / 3 * std::sin(q * t)};
}

}  // namespace

void Mesh::smooth()
{
    normals.assign(vertices.size(), Vector3d::Zero());
    for (const auto& t : triangles) {
        const Vector3d& a = vertices[static_cast<std::size_t>(t[0])];
        const Vector3d area = (vertices[static_cast<std::size_t>(t[1])] - a)
                                  .cross(vertices[static_cast<std::size_t>(t[2])] - a);
        for (const int v : t) normals[static_cast<std::size_t>(v)] += area;
    }
    for (Vector3d& normal : normals) normal.normalize();
}

Mesh knotMesh(int p, int q, double radius, double tube, int along, int around)
{
    Mesh mesh;
    const double full = 2 * std::numbers::pi;
    for (int i = 0; i < along; ++i) {
        const double t = full * i / along;
        const Vector3d centre = knotPoint(p, q, radius, t);
        const Vector3d tangent =
            (knotPoint(p, q, radius, t + 1e-4) - knotPoint(p, q, radius, t - 1e-4)).normalized();
        const Vector3d side = tangent.cross(centre).normalized();
        const Vector3d up = side.cross(tangent);
        for (int j = 0; j < around; ++j) {
            const double s = full * j / around;
            mesh.vertices.push_back(centre + tube * (std::cos(s) * up + std::sin(s) * side));
        }
    }
    for (int i = 0; i < along; ++i) {
        for (int j = 0; j < around; ++j) {
            const int i1 = (i + 1) % along;
            const int j1 = (j + 1) % around;
            addQuad(mesh, i * around + j, i * around + j1, i1 * around + j1, i1 * around + j);
        }
    }
    mesh.smooth();
    return mesh;
}

Mesh boxMesh(const Vector3d& size)
{
    Mesh mesh;
    const Vector3d half = size / 2;
    for (int axis = 0; axis < 3; ++axis) {
        for (const double sign : {-1.0, 1.0}) {
            Vector3d n = Vector3d::Zero();
            Vector3d u = Vector3d::Zero();
            Vector3d v = Vector3d::Zero();
            n[axis] = sign * half[axis];
            u[(axis + 1) % 3] = half[(axis + 1) % 3];
            v[(axis + 2) % 3] = sign * half[(axis + 2) % 3];
            addFace(mesh, n - u - v, n + u - v, n + u + v, n - u + v);
        }
    }
    return mesh;
}

Mesh staircaseMesh(const std::vector<double>& heights, double tread, double width, double base)
{
    Mesh mesh;
    const double half = width / 2;
    const double left = -tread * static_cast<double>(heights.size() + 1) / 2;
    // The outline in x and z, from the foot of the first riser to that of the back.
    std::vector<std::array<double, 2>> outline{{left, 0}};
    double x = left;
    double z = base;
    for (std::size_t i = 0; i <= heights.size(); ++i) {
        outline.push_back({x, z});
        x += tread;
        outline.push_back({x, z});
        if (i < heights.size()) z += heights[i];
    }
    outline.push_back({x, 0});
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const auto [x0, z0] = outline[i];
        const auto [x1, z1] = outline[(i + 1) % outline.size()];
        addFace(mesh, {x0, -half, z0}, {x1, -half, z1}, {x1, half, z1}, {x0, half, z0});
    }
    // The sides, one upright quad below each tread.
    for (std::size_t i = 1; i + 2 < outline.size(); i += 2) {
        const auto [x0, top] = outline[i];
        const double x1 = x0 + tread;
        addFace(mesh, {x0, -half, 0}, {x1, -half, 0}, {x1, -half, top}, {x0, -half, top});
        addFace(mesh, {x0, half, top}, {x1, half, top}, {x1, half, 0}, {x0, half, 0});
    }
    return mesh;
}

}  // namespace scansteps::simulate
