// Calibration from simulated boards: corners against the truth, parameters against their standard deviations.
#include <gtest/gtest.h>
#include <plugins/scan/calibrate/board.h>
#include <plugins/scan/calibrate/bundle.h>
#include <plugins/scan/calibrate/stage_fit.h>
#include <tools/simulate/philox.h>
#include <tools/simulate/render.h>
#include <tools/simulate/sensor.h>

#include <Eigen/Geometry>

#include <numbers>

namespace scansteps::scan {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

CameraModel trueCamera()
{
    CameraModel camera;
    camera.size = {640, 480};
    camera.focal = {900, 903};
    camera.centre = {322, 236};
    camera.distortion = {-0.15, 0.1, 0.001, -0.0008, 0.02};
    return camera;
}

simulate::Scene boardScene(bool dots)
{
    return simulate::parseScene(
        std::string(R"({"calibration": {"unit": "mm", "camera": {"size": [640, 480], "focal": [900, 903],
        "centre": [322, 236], "distortion": [-0.15, 0.1, 0.001, -0.0008, 0.02]}}, "light": {"type": "lamp", "level": 180},
        "ambient": 20, "sensor": {"samples": 8, "defocus": 0.6, "read": 2},
        "objects": [{"shape": "board", "squares": [10, 7], "pitch": 20, "dots": )") +
            (dots ? "true" : "false") + "}]}",
        "");
}

GreyImage picture(const simulate::Scene& scene, const Pose& pose)
{
    auto light = simulate::render(scene, pose, 1, 2).pictures[0];
    GreyImage image{light.width, light.height, {}};
    for (const std::uint8_t value : simulate::expose(light, scene.sensor, 5, 0, 2))
        image.values.push_back(value);
    return image;
}

Pose poseAt(const Vector3d& turn, const Vector3d& at)
{
    const double angle = turn.norm();
    return {Eigen::AngleAxisd(angle, turn / angle).toRotationMatrix(), at};
}

/// Distance of each corner from the truth; the squares' middle is the origin of the board of the simulator.
double cornerRms(const Board& board, const Pose& pose, int flip = 0)
{
    double sum = 0;
    for (const BoardCorner& corner : board.corners) {
        // Square A is column 4, row 3 of 10 x 7.
        const Vector3d on(20 * (corner.index.x() + 4 - 5.0), 20 * (corner.index.y() + 3 - 3.5), 0);
        Vector2d expected = trueCamera().project(pose * on);
        if (flip > 0) expected.x() = flip - 1 - expected.x();
        sum += (corner.pixel - expected).squaredNorm();
    }
    return std::sqrt(sum / double(2 * board.corners.size()));
}

TEST(CalibrateBoard, CornersWithinATwentiethOfAPixel)
{
    struct Case
    {
        Vector3d turn, at;
        std::size_t corners;  ///< at least
    };
    const simulate::Scene scene = boardScene(true);
    for (const auto& [turn, at, corners] : {Case{{0.1, 0.05, 0.02}, {0, 0, 500}, 54},
                                            {{0.6, 0.1, 0.4}, {10, -10, 480}, 54},
                                            {{-0.3, -0.6, 3.0}, {0, 10, 520}, 54},
                                            {{0.1, 0.2, 1.5}, {90, 20, 500}, 25}}) {
        const Pose pose = poseAt(turn, at);
        GreyImage image = picture(scene, pose);
        const Board board = findBoard(image);
        EXPECT_GE(board.corners.size(), corners);
        EXPECT_LE(board.corners.size(), 54U);
        EXPECT_TRUE(board.located);
        EXPECT_FALSE(board.mirrored);
        EXPECT_LT(cornerRms(board, pose), 0.05) << turn.transpose();

        for (int y = 0; y < image.height; ++y)
            std::reverse(image.values.begin() + std::ptrdiff_t{y} * image.width,
                         image.values.begin() + std::ptrdiff_t{y + 1} * image.width);
        const Board flipped = findBoard(image);
        EXPECT_TRUE(flipped.mirrored);
        EXPECT_LT(cornerRms(flipped, pose, image.width), 0.05);
    }
}

TEST(CalibrateBoard, WithoutDotsAndWithoutBoard)
{
    const Board plain = findBoard(picture(boardScene(false), poseAt({0.2, 0.3, 0.1}, {0, 0, 500})));
    EXPECT_EQ(plain.corners.size(), 54U);
    EXPECT_FALSE(plain.located);
    EXPECT_TRUE(findBoard({64, 48, std::vector<float>(64 * 48, 100)}).corners.empty());
    EXPECT_TRUE(findBoard({}).corners.empty());
}

/// Corners of 15 boards with normal noise.
std::vector<PlaneView> noisyViews(const CameraModel& camera, std::uint32_t seed, double noise)
{
    std::vector<PlaneView> views;
    for (std::uint32_t v = 0; v < 15; ++v) {
        const double around = 2 * std::numbers::pi * v / 15;
        const Pose pose = poseAt({0.5 * std::cos(around), 0.5 * std::sin(around), 0.3 * std::cos(3 * around)},
                                 {30 * std::cos(2 * around), 25 * std::sin(2 * around), 420 + 6.0 * v});
        PlaneView& view = views.emplace_back();
        for (int i = 0; i < 54; ++i) {
            const Vector2d at(20 * (i % 9 - 4), 20 * (i / 9 - 2.5));
            const auto random = simulate::philox({static_cast<std::uint32_t>(i), v, seed, 0}, {7, 8});
            const auto [dx, dy] = simulate::normalPair(random[0], random[1]);
            view.plane.push_back(at);
            view.pixels.push_back(camera.project(pose * Vector3d(at.x(), at.y(), 0)) +
                                  noise * Vector2d(dx, dy));
        }
    }
    return views;
}

TEST(CalibrateCamera, ParametersWithinThreeDeviations)
{
    const CameraModel camera = trueCamera();
    const CameraParameters truth = parametersOf(camera);
    int within = 0;
    double squares = 0;
    for (std::uint32_t seed = 0; seed < 50; ++seed) {
        std::vector<PlaneView> views = noisyViews(camera, seed, 0.04);
        views[3].pixels[7] += Vector2d(9, -4);  // a corner that is wrong
        const CameraSolution solution = solveCamera(views, camera.size);
        EXPECT_NEAR(solution.noise, 0.04, 0.004);
        EXPECT_GE(solution.outliers, 1U);
        for (int i = 0; i < 9; ++i) {
            const double deviations = (parametersOf(solution.camera)[i] - truth[i]) / solution.deviations[i];
            within += std::abs(deviations) < 3;
            squares += deviations * deviations;
        }
    }
    EXPECT_GE(within, 446);                 // 99 % of 450
    EXPECT_NEAR(squares / 450, 1.0, 0.35);  // and the deviations are no larger than need be
}

TEST(CalibrateCamera, RefusesWhatDoesNotDetermineIt)
{
    std::vector<PlaneView> views = noisyViews(trueCamera(), 1, 0);
    EXPECT_THROW(solveCamera({views[0], views[1]}, {640, 480}), const char*);
    EXPECT_THROW(solveCamera({}, {640, 480}), const char*);
}

TEST(CalibrateStage, FindsTurntableAndRail)
{
    const CameraModel camera = trueCamera();
    const Vector3d axis = Vector3d(0.05, -0.9, -0.3).normalized();
    const Vector3d point(4, 30, 480);
    const Vector3d way = Vector3d(1, 0.2, -0.1).normalized();
    for (const bool linear : {false, true}) {
        std::vector<PlaneView> views(7);
        for (std::size_t v = 0; v < views.size(); ++v) {
            const Eigen::Matrix3d turn =
                Eigen::AngleAxisd(double(v) * 8 * std::numbers::pi / 180, axis).toRotationMatrix();
            const Pose step = linear ? Pose{Eigen::Matrix3d::Identity(), 10.0 * double(v) * way}
                                     : Pose{turn, point - turn * point};
            const Pose pose = step * poseAt({-0.5, 0.3, 0.1}, {0, 0, 480});
            for (int i = 0; i < 54; ++i) {
                const auto random = simulate::philox(
                    {static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(v), 3, 0}, {1, 2});
                const auto [dx, dy] = simulate::normalPair(random[0], random[1]);
                const Vector3d at(20 * (i % 9 - 4), 20 * (i / 9 - 2), 0);
                views[v].plane.push_back(at.head<2>());
                views[v].pixels.push_back(camera.project(pose * at) + 0.03 * Vector2d(dx, dy));
            }
        }
        const StageSolution solution = solveStage(camera, views, linear);
        EXPECT_NEAR(solution.pixelRms, 0.03, 0.003);
        if (linear) {
            const auto& rail = std::get<LinearStage>(solution.stage);
            EXPECT_NEAR(rail.step, 10, 0.02);
            EXPECT_LT((rail.direction - way).norm(), 0.002);
        } else {
            const auto& table = std::get<Turntable>(solution.stage);
            EXPECT_NEAR(table.step, 8, 0.01);
            EXPECT_LT((table.axis - axis).norm(), 0.002);
            EXPECT_LT((table.point - point).cross(axis).norm(), 0.2);
        }
        if (!linear) {
            EXPECT_THROW(solveStage(camera, {views[0], views[0], views[0]}, false), const char*);
        }
    }
}

}  // namespace
}  // namespace scansteps::scan
