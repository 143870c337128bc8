// Fusion of views: kernels against scalar versions, surfaces against closed forms and their topology.
#include <plugins/scan/fusion.h>
#include <plugins/scan/hole_filling.h>

#include "scan/sphere_views.h"
#include "support/test.h"

namespace scansteps::scan {
namespace {

struct Topology
{
    std::size_t open = 0, shared = 0;  // sides with one triangle, and with more than two
    int euler = 0;

    explicit Topology(const SurfaceMesh& mesh)
    {
        std::map<std::pair<std::uint32_t, std::uint32_t>, int> sides;
        std::set<std::uint32_t> used(mesh.indices.begin(), mesh.indices.end());
        for (std::size_t i = 0; i < mesh.indices.size(); ++i) {
            const auto [a, b] = std::minmax(mesh.indices[i], mesh.indices[i % 3 == 2 ? i - 2 : i + 1]);
            ++sides[{a, b}];
        }
        for (const auto& [side, count] : sides) {
            open += count == 1;
            shared += count > 2;
        }
        euler = int(used.size()) - int(sides.size()) + int(mesh.indices.size() / 3);
    }
};

Eigen::Vector3d vertexOf(const SurfaceMesh& mesh, std::uint32_t n)
{
    return Eigen::Map<const Eigen::Vector3f>(&mesh.vertices[3 * n]).cast<double>();
}

FusionSettings halfMillimetre()
{
    FusionSettings settings;
    settings.voxel = 0.5;
    return settings;
}

FusedMesh fuse(const FusionSettings& settings, double noise, double cut = 1e9)
{
    Fusion fusion(settings);
    for (const Eigen::Matrix3d& turn : sixSides()) {
        const SphereView view = sphereView(turn, noise, cut);
        fusion.add(view.view(), view.pose);
    }
    return fusion.finish();
}

TEST(ScanIntegration, isTheSameOnEveryInstructionSet)
{
    const SphereView view = sphereView(sixSides()[1], 0.05, 12);
    const RangeImage image = rangeImageOf(view.view(), {});
    VoxelGrid grid{view.pose.rotation * 0.7, view.pose.translation};
    VoxelBlocks blocks;
    for (int i = 0; i < 6 * 6 * 6; ++i) blocks.findOrAdd({i % 6 - 3, i / 6 % 6 - 3, i / 36 - 3});
    const auto integrated = [&](auto* integrate) {
        std::vector<VoxelBlock> copies;
        for (std::size_t n = 0; n < blocks.size(); ++n) copies.push_back(blocks[n]);
        std::vector<VoxelBlock*> list;
        for (VoxelBlock& block : copies) list.push_back(&block);
        integrate(image, grid, 2.8F, list);
        return copies;
    };
    const std::vector<VoxelBlock> expected = integrated(scalar::integrateView);
    int seen = 0;
    for (const VoxelBlock& block : expected)
        for (const float weight : block.weight) seen += weight > 0;
    EXPECT_GT(seen, 10000);
    forEachTarget([&] {
        const std::vector<VoxelBlock> got = integrated(integrateView);
        for (std::size_t n = 0; n < got.size(); ++n)
            ASSERT_TRUE(got[n].sum == expected[n].sum && got[n].weight == expected[n].weight) << n;
    });
}

// Random signs meet all 256 cases of a cell, next to all that can be their neighbours.
TEST(ScanSurface, hasNoCracksHoweverTheSignsAre)
{
    std::mt19937 random(3);
    VoxelBlocks blocks;
    for (int n = 0; n < 64; ++n) {
        const Eigen::Vector3i place(n % 4 - 2, n / 4 % 4 - 2, n / 16 - 2);
        VoxelBlock& block = blocks[blocks.findOrAdd(place)];
        for (int v = 0; v < kBlockVoxels; ++v) {
            const Eigen::Vector3i voxel = 8 * place + Eigen::Vector3i(v % 8, v / 8 % 8, v / 64);
            const bool isBorder = voxel.minCoeff() == -16 || voxel.maxCoeff() == 15;
            block.sum[std::size_t(v)] = isBorder ? 1.0F : float(random() % 2000) / 1000 - 1;
            block.weight[std::size_t(v)] = 1;
        }
    }
    const SurfaceMesh mesh = extractSurface(blocks, 1);
    const Topology topology(mesh);
    EXPECT_GT(mesh.indices.size(), 100000U);
    EXPECT_EQ(topology.open, 0U);
    EXPECT_EQ(topology.shared, 0U);
    EXPECT_TRUE(borderSides(mesh).empty());
}

TEST(ScanFusion, makesAClosedSphereOfSixViews)
{
    constexpr double kNoise = 0.05;
    const FusedMesh mesh = fuse(halfMillimetre(), kNoise);
    const Topology topology(mesh.surface);
    EXPECT_EQ(topology.open + topology.shared, 0U);
    EXPECT_EQ(topology.euler, 2);
    double squares = 0, sum = 0;
    const std::size_t count = mesh.surface.vertices.size() / 3;
    for (std::uint32_t n = 0; n < count; ++n) {
        const Eigen::Vector3d vertex = vertexOf(mesh.surface, n);
        const double error = vertex.norm() - kRadius;
        squares += error * error;
        sum += error;
        EXPECT_GT(vertex.dot(Eigen::Map<const Eigen::Vector3f>(&mesh.normals[3 * n]).cast<double>()),
                  0.8 * kRadius);
    }
    // Cells of the views are 0.3 mm wide: a vertex averages several points.
    EXPECT_LT(std::sqrt(squares / double(count)), kNoise);
    EXPECT_LT(std::abs(sum / double(count)), 0.01);
    EXPECT_NEAR(mesh.colours[0], 200, 1);
    EXPECT_NEAR(mesh.colours[1], 100, 1);
}

TEST(ScanFusion, keepsHolesOrFillsThemUpToASize)
{
    FusionSettings settings = halfMillimetre();
    constexpr double kCut = 16;  // a hole of 24 mm
    const FusedMesh open = fuse(settings, 0, kCut);
    EXPECT_EQ(Topology(open.surface).euler, 1);
    EXPECT_EQ(open.repair.open, 1);
    EXPECT_NEAR(open.repair.largestOpen, 24 * std::sqrt(2), 4);
    settings.repair.close = 25;
    EXPECT_EQ(fuse(settings, 0, kCut).repair.closed, 0);
    settings.repair.close = 50;
    const FusedMesh closed = fuse(settings, 0, kCut);
    const Topology topology(closed.surface);
    EXPECT_EQ(topology.open + topology.shared, 0U);
    EXPECT_EQ(topology.euler, 2);
    EXPECT_EQ(closed.repair.measuredTriangles, open.surface.indices.size() / 3);
    for (std::size_t i = 3 * closed.repair.measuredTriangles; i < closed.surface.indices.size(); ++i) {
        const Eigen::Vector3d vertex = vertexOf(closed.surface, closed.surface.indices[i]);
        EXPECT_NEAR(vertex.y(), kCut, 1.5);
    }
}

TEST(ScanFusion, endsBeforeItUsesMoreMemoryThanAllowed)
{
    FusionSettings settings = halfMillimetre();
    settings.memory = std::size_t{4} << 20;
    try {
        fuse(settings, 0);
        ADD_FAILURE() << "no error";
    } catch (const char* reason) {
        EXPECT_THAT(reason, HasSubstr("sfuse.memory = 4 MB"));
    }
}

TEST(ScanHoles, longAndBentBordersAreFilledWithinThem)
{
    // A horseshoe, 4 mm wide, bent around a circle of 20 mm: a disc over it would have ten times its area.
    std::vector<Eigen::Vector3d> border;
    const auto add = [&](double radius, double angle) {
        border.emplace_back(radius * std::cos(angle), radius * std::sin(angle), 0);
    };
    for (int i = 0; i <= 200; ++i) add(22, i * 0.025);
    for (int i = 200; i >= 0; --i) add(18, i * 0.025);
    const Patch patch = fillHole(border);
    SurfaceMesh mesh;
    double area = 0;
    for (const Eigen::Vector3d& vertex : patch.vertices)
        for (int axis = 0; axis < 3; ++axis) mesh.vertices.push_back(float(vertex[axis]));
    for (const auto& t : patch.triangles) {
        mesh.indices.insert(mesh.indices.end(), t.begin(), t.end());
        area += (patch.vertices[t[1]] - patch.vertices[t[0]])
                    .cross(patch.vertices[t[2]] - patch.vertices[t[0]])
                    .norm() /
                2;
    }
    const Topology topology(mesh);
    EXPECT_EQ(topology.open, border.size());
    EXPECT_EQ(topology.shared, 0U);
    EXPECT_EQ(topology.euler, 1);
    EXPECT_NEAR(area, 4 * 20 * 5, 20);
}

}  // namespace
}  // namespace scansteps::scan
