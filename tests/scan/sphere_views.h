// Views of a sphere, ray-cast from its closed form.
#pragma once

#include <plugins/scan/fusion.h>
#include <plugins/scan/grid_mesh.h>

#include <Eigen/Geometry>
#include <random>
#include <vector>

namespace scansteps::scan {

inline constexpr double kRadius = 20, kDistance = 300, kFocal = 1000;
inline constexpr int kSide = 160;

struct SphereView
{
    GridMesh mesh;
    Pose pose;

    ViewMesh view() const { return {mesh.vertices, mesh.indices, mesh.colours, {}}; }
};

/// The sphere around the origin of the object from the direction that `rotation` turns to the camera, with
/// noise along the rays (mm). Points above the height `cut` are left out, so that the sphere has a hole
/// there.
inline SphereView sphereView(const Eigen::Matrix3d& rotation, double noise = 0, double cut = 1e9)
{
    std::mt19937 random(unsigned(1000 + 1000 * rotation(0, 0) + 100 * rotation(1, 2)));
    std::normal_distribution<double> normal(0, 1);
    const Pose pose{rotation, {0, 0, kDistance}};
    std::vector<std::int32_t> index(std::size_t(kSide) * kSide, -1);
    std::vector<float> points, colours;
    for (int i = 0; i < kSide * kSide; ++i) {
        const Eigen::Vector3d ray =
            Eigen::Vector3d(i % kSide - kSide / 2, i / kSide - kSide / 2, kFocal).normalized();
        const double along = ray.z() * kDistance;
        const double root = along * along - kDistance * kDistance + kRadius * kRadius;
        if (root < 0) continue;
        const Eigen::Vector3d point = ray * (along - std::sqrt(root) + noise * normal(random));
        if ((pose.inverse() * point).y() > cut) continue;
        index[std::size_t(i)] = std::int32_t(points.size() / 3);
        for (int axis = 0; axis < 3; ++axis) points.push_back(float(point[axis]));
        colours.insert(colours.end(), {200, 100, 50});
    }
    return {meshOfGrid({index, kSide, kSide, points, colours}, {}), pose};
}

/// Turns to six sides, those of a cube.
inline std::vector<Eigen::Matrix3d> sixSides()
{
    std::vector<Eigen::Matrix3d> turns;
    for (int k = 0; k < 4; ++k)
        turns.push_back(Eigen::AngleAxisd(k * M_PI / 2, Eigen::Vector3d::UnitY()).toRotationMatrix());
    for (const double sign : {-1.0, 1.0})
        turns.push_back(Eigen::AngleAxisd(sign * M_PI / 2, Eigen::Vector3d::UnitX()).toRotationMatrix());
    return turns;
}

}  // namespace scansteps::scan
