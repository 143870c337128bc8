// Pictures for triangles: visibility, seams and brightness on a sphere in front of several cameras.
#include <plugins/scan/picture_gains.h>
#include <plugins/scan/texture_choice.h>

#include "scan/sphere_views.h"
#include "support/process.h"
#include "support/test.h"

namespace scansteps::scan {
namespace {

CameraModel smallCamera()
{
    CameraModel camera;
    camera.size = {kSide, kSide};
    camera.focal = {kFocal, kFocal};
    camera.centre = {kSide / 2, kSide / 2};
    camera.distortion = {-0.1, 0.05, 1e-3, -1e-3, 0};
    return camera;
}

// A sphere of the colour 120, in front of cameras that turn by 60 degrees, whose light falls off to the
// sides; the second picture is half as bright.
struct Studio
{
    FusedMesh mesh;
    std::vector<Pose> poses;
    std::vector<std::vector<std::uint8_t>> bytes;
    std::vector<Picture> pictures;
    std::vector<Visibility> views;

    Studio()
    {
        FusionSettings settings;
        settings.voxel = 1;
        Fusion fusion(settings);
        for (const Eigen::Matrix3d& turn : sixSides()) {
            const SphereView view = sphereView(turn);
            fusion.add(view.view(), view.pose);
        }
        mesh = fusion.finish();
        const CameraModel camera = smallCamera();
        for (int k = 0; k < 3; ++k) {
            poses.push_back({Eigen::AngleAxisd(k * M_PI / 3, Eigen::Vector3d::UnitY()).toRotationMatrix(),
                             {0, 0, kDistance}});
            auto& picture = bytes.emplace_back();
            for (int i = 0; i < kSide * kSide; ++i) {
                const Eigen::Vector3d ray = camera.ray({i % kSide, i / kSide});
                const double along = ray.z() * kDistance;
                const double root = along * along - kDistance * kDistance + kRadius * kRadius;
                const Eigen::Vector3d normal =
                    (ray * (along - std::sqrt(std::max(root, 0.0))) - Eigen::Vector3d(0, 0, kDistance)) /
                    kRadius;
                const double light = (0.6 - 0.4 * normal.z()) * (k == 1 ? 0.5 : 1);
                picture.insert(picture.end(), 3, std::uint8_t(root > 0 ? 200 * light : 0));
            }
            views.push_back(visibilityOf(model(), camera, poses.back(), {}));
        }
        for (const auto& picture : bytes) pictures.push_back({picture, kSide, kSide});
    }
    TextureModel model() const { return {mesh.surface.vertices, mesh.surface.indices}; }
    Eigen::Vector3d middleOf(std::size_t t) const
    {
        Eigen::Vector3d sum = Eigen::Vector3d::Zero();
        for (std::size_t i = 3 * t; i < 3 * t + 3; ++i)
            sum += Eigen::Map<const Eigen::Vector3f>(&mesh.surface.vertices[3 * mesh.surface.indices[i]])
                       .cast<double>();
        return sum / 3;
    }
};

TEST(ScanTexture, isSeenWhereNothingIsInFrontAndFarFromContours)
{
    const Studio studio;
    for (std::size_t t = 0; t < studio.views[0].scores.size(); ++t) {
        // Seen from the camera at (0, 0, -300), the border of the sphere is at z = -20 * 20 / 300.
        const double z = studio.middleOf(t).z() / kRadius;
        if (z < -0.55) {
            EXPECT_GT(studio.views[0].scores[t], 0.3) << z;
        }
        if (z > -0.15) {
            EXPECT_EQ(studio.views[0].scores[t], 0) << z;
        }
    }
}

TEST(ScanTexture, takesTheNearestPictureInOnePartEach)
{
    const Studio studio;
    const std::vector<int> labels = choosePictures(studio.model(), studio.views, {});
    const auto neighbours = neighboursOf(studio.model());
    int seams = 0;
    for (std::size_t t = 0; t < labels.size(); ++t) {
        const Eigen::Vector3d middle = studio.middleOf(t) / kRadius;
        double best = 0.3, second = 0.3;  // cosines, roughly
        int nearest = -1;
        for (std::size_t k = 0; k < 3; ++k) {
            const double cosine = -(studio.poses[k].rotation * middle).z();
            second = std::max(second, std::min(cosine, best));
            if (cosine > best) {
                best = cosine;
                nearest = int(k);
            }
        }
        if (best > 0.5 && best - second > 0.2) {
            EXPECT_EQ(labels[t], nearest) << middle;
        }
        for (const std::int32_t n : neighbours[t])
            seams += n >= 0 && labels[std::size_t(n)] > labels[t] && labels[t] >= 0;
    }
    // Two seams around a good half of the sphere, with triangles of about 0.7 mm.
    EXPECT_GT(seams, 2 * 30);
    EXPECT_LT(seams, 2 * 110);
}

TEST(ScanTexture, makesPicturesEquallyBright)
{
    Studio studio;
    const std::vector<GainField> gains = matchPictures(studio.model(), studio.views, studio.pictures);
    for (std::size_t k = 0; k < 3; ++k) applyGains(gains[k], kSide, studio.bytes[k]);
    double squares = 0, brightness = 0;
    int count = 0;
    const CameraModel camera = smallCamera();
    for (std::size_t t = 0; t < studio.views[0].scores.size(); ++t) {
        if (studio.views[0].scores[t] < 0.4F || studio.views[1].scores[t] < 0.4F) continue;
        std::array<double, 2> grey;
        for (std::size_t k = 0; k < 2; ++k) {
            const Eigen::Vector2d pixel = camera.project(studio.poses[k] * studio.middleOf(t));
            grey[k] = studio.bytes[k][3 * (std::size_t(std::lround(pixel.y())) * kSide +
                                           std::size_t(std::lround(pixel.x())))];
        }
        squares += std::pow(std::log(grey[0] / grey[1]), 2);
        brightness += grey[0];
        ++count;
    }
    EXPECT_GT(count, 200);
    EXPECT_LT(std::sqrt(squares / count), 0.06);  // 0.7 before
    EXPECT_NEAR(brightness / count, 130, 30);
}

TEST(ScanTexture, avoidsShade)
{
    Studio studio;
    std::ranges::fill(studio.bytes[1], std::uint8_t{5});
    std::vector<std::int32_t> filled(studio.views[0].scores.size(), 0);
    for (std::size_t t = 0; t < filled.size(); t += 2) filled[t] = 1;
    const std::vector<float> before = studio.views[1].scores, clear = studio.views[0].scores;
    avoidShade(studio.model(), filled, studio.pictures, studio.views);
    EXPECT_EQ(studio.views[0].scores, clear);
    for (std::size_t t = 0; t < before.size(); ++t)
        if (filled[t] != 0) {
            EXPECT_EQ(studio.views[1].scores[t], 0);
        } else if (clear[t] > 0) {
            EXPECT_FLOAT_EQ(studio.views[1].scores[t], 0.05F * before[t]);
        } else if (studio.views[2].scores[t] == 0) {
            EXPECT_EQ(studio.views[1].scores[t], before[t]);
        }
}

}  // namespace
}  // namespace scansteps::scan
