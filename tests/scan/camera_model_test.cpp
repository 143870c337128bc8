// Camera model, poses, and calibration files.
#include <plugins/scan/calibration.h>
#include <plugins/scan/patterns.h>

#include <Eigen/Geometry>

#include "support/test.h"

namespace scansteps::scan {
namespace {

Projector strongLens()
{
    Projector lens;
    lens.size = {1280, 960};
    lens.focal = {1400, 1410};
    lens.centre = {650, 470};
    lens.distortion = {-0.25, 0.12, 1e-3, -2e-3, -0.03};
    lens.pose.rotation = Eigen::AngleAxisd(0.3, Eigen::Vector3d(1, 2, 3).normalized()).toRotationMatrix();
    lens.pose.translation = {-200, 1, 30};
    lens.rms = 0.07;
    return lens;
}

TEST(ScanCameraModel, undistortingInvertsTheDistortionToTheLastPixel)
{
    const Projector lens = strongLens();
    for (int y = 0; y <= 960; y += 60)
        for (int x = 0; x <= 1280; x += 64) {
            const Eigen::Vector2d pixel(x - 0.5, y - 0.5);
            const Eigen::Vector3d ray = lens.ray(pixel);
            EXPECT_NEAR(ray.norm(), 1, 1e-12);
            EXPECT_LT((lens.project(ray * 700) - pixel).norm(), 1e-9) << x << ", " << y;
        }
    // A point worked out by hand: r^2 = 0.05.
    CameraModel one = lens;
    one.distortion = {0.1, 0.2, 0.01, 0.02, 0.3};
    const double radial = 1 + 0.1 * 0.05 + 0.2 * 0.0025 + 0.3 * 0.000125;
    const Eigen::Vector2d expected(0.1 * radial + 2 * 0.01 * 0.02 + 0.02 * (0.05 + 0.02),
                                   0.2 * radial + 0.01 * (0.05 + 0.08) + 2 * 0.02 * 0.02);
    EXPECT_LT((one.distort({0.1, 0.2}) - expected).norm(), 1e-15);
    one.distortion = {-1, 0, 0, 0, 0};  // folds at r = 0.577, where r' = 0.385
    EXPECT_TRUE(one.undistort({0.5, 0}).hasNaN());
    EXPECT_NEAR(one.distort(one.undistort({0.38, 0})).x(), 0.38, 1e-12);
}

TEST(ScanCameraModel, posesComposeAndInvert)
{
    const Pose a = strongLens().pose;
    const Pose b{a.rotation.transpose(), {3, 4, 5}};
    const Eigen::Vector3d point(7, -8, 9);
    EXPECT_LT((((a * b) * point) - (a * (b * point))).norm(), 1e-12);
    EXPECT_LT((a.inverse() * (a * point) - point).norm(), 1e-12);
}

Calibration wholeCalibration()
{
    Calibration all;
    static_cast<CameraModel&>(all.camera) = strongLens();
    all.projector = strongLens();
    all.laser = LaserPlane{{0.6, 0, 0.8}, -480.25, 0.02};
    all.stage = Turntable{{0, 1, 0}, {1, 2, 600}, 0.5, {}};
    return all;
}

TEST(ScanCalibration, readsBackWhatItWrote)
{
    Calibration all = wholeCalibration();
    for (const Stage& stage :
         {Stage(Turntable{{0, 1, 0}, {1, 2, 600}, 0.5, {}}), Stage(LinearStage{{1, 0, 0}, -0.1, 0.3})}) {
        all.stage = stage;
        const std::string text = calibrationJson(all);
        const Calibration back = parseCalibration(text);
        EXPECT_EQ(calibrationJson(back), text);
        EXPECT_EQ(back.stage->index(), stage.index());
        EXPECT_EQ(back.projector->pose.rotation, all.projector->pose.rotation);
        EXPECT_EQ(back.projector->distortion, all.projector->distortion);
        EXPECT_EQ(back.laser->offset, -480.25);
        EXPECT_EQ(back.projector->rms, 0.07);
        EXPECT_EQ(back.camera.rms, std::nullopt);
    }
}

TEST(ScanCalibration, namesThePathOfWhatDoesNotConform)
{
    const std::string good = calibrationJson(wholeCalibration());
    // What is replaced, by what, and the beginning of the message.
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"\"unit\": \"mm\"", "\"unit\": \"inch\"", "calibration: /unit: "},
        {"\"unit\": \"mm\",", "", "calibration: /: Missing required property 'unit'"},
        {"1400.0", "0", "calibration: /camera/focal/0: "},
        {"1400.0", "\"far\"", "calibration: /camera/focal/0: "},
        {"1400.0", "1e999", "calibration: [json.exception"},
        {"1400.0,", "", "calibration: /camera/focal: "},
        {"\"focal\"", "\"focus\"", "calibration: /camera: "},
        {"-480.25", "-480.25, 1", "calibration: /laser/plane: "},
        {"0.6,", "0.7,", "calibration: /laser/plane: has no unit normal"},
        {"-200.0", "{}", "calibration: /projector/translation/0: "},
        {"\"step\": 0.5", "\"step\": 0", "calibration: /stage/step: is 0"},
        {"\"axis\"", "\"axes\"", "calibration: /stage: "},
        {"\"point\"", "\"direction\": [1, 0, 0], \"point\"", "calibration: /stage: "},
        {"\"stage\"", "\"table\"", "calibration: /: "},
        {"{", "", "calibration: [json.exception"},
    };
    for (const auto& [from, to, message] : cases) {
        std::string text = good;
        const auto at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        text.replace(at, from.size(), to);
        const std::string got = thrownText([&] { parseCalibration(text); });
        EXPECT_THAT(got, StartsWith(message)) << from << " -> " << to;
    }
    Calibration mirrored = wholeCalibration();
    mirrored.projector->pose.rotation.row(0) *= -1;
    EXPECT_EQ(thrownText([&] { parseCalibration(calibrationJson(mirrored)); }),
              "calibration: /projector/rotation: is no rotation: it mirrors");
    mirrored.projector->pose.rotation.row(0) *= 0.99;
    EXPECT_EQ(thrownText([&] { parseCalibration(calibrationJson(mirrored)); }),
              "calibration: /projector/rotation: is no rotation: its rows are not orthonormal");
    EXPECT_EQ(thrownText([] { readCalibration("no/such.json"); }), "calibration: cannot read no/such.json");
}

}  // namespace
}  // namespace scansteps::scan
