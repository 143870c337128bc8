// Rays against closed forms, and generated meshes against their volumes.
#include <gtest/gtest.h>
#include <tools/simulate/body.h>
#include <tools/simulate/ply_file.h>

#include <Eigen/Geometry>

#include <numbers>

#include "support/temp_dir.h"

namespace scansteps::simulate {
namespace {

using Eigen::Vector3d;
constexpr double kFar = std::numeric_limits<double>::infinity();

/// By the divergence theorem; wrong unless the mesh is closed and its triangles are turned outwards.
double volume(const Mesh& mesh)
{
    double sum = 0;
    for (const auto& t : mesh.triangles) {
        const auto corner = [&](int i) {
            return mesh.vertices[static_cast<std::size_t>(t[static_cast<std::size_t>(i)])];
        };
        sum += corner(0).dot(corner(1).cross(corner(2))) / 6;
    }
    return sum;
}

Mesh movedAway(Mesh mesh)
{
    for (Vector3d& vertex : mesh.vertices) vertex += Vector3d(300, -200, 100);
    return mesh;
}

TEST(SimulateBody, SphereIsHitWhereItShouldBe)
{
    const auto sphere = sphereBody(50);
    for (const double x : {0.0, 10.0, -49.9}) {
        const auto hit = sphere->intersect({{x, 0, -600}, {0, 0, 2}}, kFar);
        ASSERT_TRUE(hit);
        EXPECT_NEAR(hit->point.z(), -std::sqrt(2500 - x * x), 1e-9);
        EXPECT_NEAR(hit->distance, (600 + hit->point.z()) / 2, 1e-9);
        EXPECT_TRUE(hit->normal.isApprox(hit->point / 50, 1e-9));
    }
    EXPECT_FALSE(sphere->intersect({{50.01, 0, -600}, {0, 0, 1}}, kFar));
    EXPECT_FALSE(sphere->intersect({{0, 0, -600}, {0, 0, 1}}, 549.9));
    const auto inside = sphere->intersect({{0, 0, 0}, {0, 1, 0}}, kFar);
    ASSERT_TRUE(inside);
    EXPECT_NEAR(inside->normal.y(), -1, 1e-12);  // towards the ray
}

TEST(SimulateBody, PlaneAndMeshAgreeToDoublePrecision)
{
    const auto plane = rectangleBody(100, 60);
    const auto box = meshBody(boxMesh({100, 60, 2}));
    for (double x = -60; x <= 60; x += 7.3) {
        const Vector3d from(5, -3, -600);
        const Ray toPlane{from, Vector3d(x, x / 3, 0) - from};
        const Ray toBox{from - Vector3d(0, 0, 1), toPlane.direction};  // its face is 1 mm nearer
        const auto a = plane->intersect(toPlane, kFar);
        const auto b = box->intersect(toBox, kFar);
        EXPECT_EQ(a.has_value(), std::abs(x) < 50);
        ASSERT_EQ(a.has_value(), b.has_value());
        if (!a) continue;
        EXPECT_NEAR(a->distance, b->distance, 1e-12);
        EXPECT_TRUE(a->normal.isApprox(b->normal));
        EXPECT_TRUE(box->blocks(toBox, 1.1));
        EXPECT_FALSE(box->blocks(toBox, 0.9));
    }
}

TEST(SimulateBody, StepsHaveTheirHeights)
{
    const std::vector<double> heights{0.1, 0.2, 0.5, 10};
    const auto stairs = meshBody(staircaseMesh(heights, 20, 80, 5));
    double expected = 5;
    for (std::size_t i = 0; i <= heights.size(); ++i) {
        const auto hit = stairs->intersect({{-40 + 20 * double(i), 3, 600}, {0, 0, -1}}, kFar);
        ASSERT_TRUE(hit);
        EXPECT_NEAR(hit->point.z(), expected, 1e-9);
        if (i < heights.size()) expected += heights[i];
    }
}

TEST(SimulateMesh, BodiesAreClosedAndTurnedOutwards)
{
    EXPECT_NEAR(volume(movedAway(boxMesh({10, 20, 3}))), 600, 1e-6);
    EXPECT_NEAR(volume(movedAway(staircaseMesh({1, 2}, 10, 50, 5))), 10 * 50 * (5 + 6 + 8), 1e-6);
    // A tube whose section is a regular polygon; Pappus: its area times the length of the centre line.
    const Mesh knot = knotMesh(2, 3, 60, 10, 2000, 60);
    double length = 0;
    const auto centre = [](double t) -> Vector3d {
        const double r = 20 * (2 + std::cos(3 * t));
        return {r * std::cos(2 * t), r * std::sin(2 * t), -20 * std::sin(3 * t)};
    };
    for (int i = 0; i < 2000; ++i)
        length += (centre(std::numbers::pi * (i + 1) / 1000) - centre(std::numbers::pi * i / 1000)).norm();
    const double area = 100 * 30 * std::sin(2 * std::numbers::pi / 60);
    EXPECT_NEAR(volume(movedAway(knot)) / (area * length), 1, 1e-3);
    const double bust = volume(bustMesh(180, 200, 200));
    EXPECT_GT(bust, 4e5);
    EXPECT_NEAR(volume(movedAway(bustMesh(180, 200, 200))), bust, bust * 1e-9);
}

TEST(SimulateMesh, PlyFilesComeBack)
{
    const test::TempDir folder;
    const Mesh mesh = knotMesh(2, 3, 60, 10, 40, 12);
    writePly(folder / "knot.ply", mesh);
    const Mesh read = readPly(folder / "knot.ply");
    EXPECT_EQ(read.triangles, mesh.triangles);
    ASSERT_EQ(read.vertices.size(), mesh.vertices.size());
    EXPECT_NEAR((read.vertices.back() - mesh.vertices.back()).norm(), 0, 1e-5);
    const std::string head =
        "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n";
    const std::string faces =
        "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0 1 0 0 1 1 0 0 1 0\n";
    EXPECT_EQ(readPly(folder.write("q.ply", head + faces + "4 0 1 2 3\n")).triangles.size(), 2U);
    for (const std::string& text :
         {std::string("plough"), head, head + faces + "4 0 1 2", head + faces + "3 0 1 4\n"})
        EXPECT_THROW(readPly(folder.write("bad.ply", text)), const char*) << text;
}

}  // namespace
}  // namespace scansteps::simulate
