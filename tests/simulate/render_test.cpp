// Rendered scenes against closed forms, and whole series against those bundled with the project.
#include <gtest/gtest.h>
#include <tools/simulate/output.h>

#include <filesystem>
#include <numbers>

#include "support/temp_dir.h"

namespace scansteps::simulate {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

const std::string kCamera =
    R"("unit": "mm", "camera": {"size": [64, 48], "focal": [120, 121], "centre": [31.5, 23.5],
    "distortion": [-0.1, 0.05, 0.001, -0.001, 0]})";
const std::string kProjector =
    R"(, "projector": {"size": [128, 64], "focal": [200, 200], "centre": [63.5, 31.5],
    "distortion": [0.02, 0, 0, 0, 0], "rotation": [1, 0, 0, 0, 1, 0, 0, 0, 1], "translation": [-100, 0, 0]})";
const std::string kPatterns =
    R"("light": {"type": "patterns", "patterns": {"size": [128, 64], "period": 16, "shifts": 3,
    "rows": false, "patterns": [{"kind": "white"}, {"kind": "black"}, {"kind": "gray", "axis": "column", "bit": 2, "inverse": false},
    {"kind": "gray", "axis": "column", "bit": 2, "inverse": true}, {"kind": "gray", "axis": "column", "bit": 1, "inverse": false},
    {"kind": "gray", "axis": "column", "bit": 1, "inverse": true}, {"kind": "gray", "axis": "column", "bit": 0, "inverse": false},
    {"kind": "gray", "axis": "column", "bit": 0, "inverse": true}, {"kind": "phase", "axis": "column", "shift": 0},
    {"kind": "phase", "axis": "column", "shift": 1}, {"kind": "phase", "axis": "column", "shift": 2}]}, "white": 200)";

Scene sceneOf(const std::string& devices, const std::string& light, const std::string& objects)
{
    return parseScene(
        R"({"calibration": {)" + kCamera + devices + "}, " + light + R"(, "objects": [)" + objects + "]}",
        "");
}

// A sphere before a wall: depth on every ray, the projector's pixel of every lit point, and its shadow on the
// wall.
TEST(SimulateRender, TruthOfSphereAndPlane)
{
    const Scene scene = sceneOf(kProjector, kPatterns + "}",
                                R"({"shape": "sphere", "radius": 40, "pose": {"translation": [0, 0, 500]}},
                                   {"shape": "plane", "size": [2000, 2000], "pose": {"translation": [0, 0, 600]}})");
    const Truth truth = render(scene, {}, exposureOf(scene, 2), 2).truth;
    int shaded = 0;
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            const Vector3d ray = scene.calibration.camera.ray(Vector2d(x, y));
            const double along = ray.z() * 500;
            const double square = 1600 - (250000 - along * along);
            const double distance = square > 0 ? along - std::sqrt(square) : 600 / ray.z();
            const Vector3d point = distance * ray;
            ASSERT_NEAR(truth.depth.at(x, y), point.z(), 1e-4);
            const Vector3d projector(100, 0, 0);
            const Vector3d way = point - projector;
            const double nearest = (Vector3d(0, 0, 500) - projector).dot(way.normalized());
            const double miss = (projector + nearest * way.normalized() - Vector3d(0, 0, 500)).norm();
            const Vector2d place =
                scene.calibration.projector->project(scene.calibration.projector->pose * point);
            const bool inside =
                place.x() >= -0.5 && place.y() >= -0.5 && place.x() < 127.5 && place.y() < 63.5;
            const bool lit = inside && (square > 0 ? (point - Vector3d(0, 0, 500)).dot(-way) > 0 : miss > 40);
            ASSERT_EQ(!std::isnan(truth.columns.at(x, y)), lit) << x << ' ' << y;
            ASSERT_EQ(truth.mask[truth.depth.index(x, y)] > 0, lit);
            shaded += inside && !lit;
            if (!lit) continue;
            ASSERT_NEAR(truth.columns.at(x, y), place.x(), 1e-4);
            ASSERT_NEAR(truth.rows.at(x, y), place.y(), 1e-4);
        }
    }
    EXPECT_GT(shaded, 20);
}

// A wall that faces camera and projector: inverse square, cosine, white and black.
TEST(SimulateRender, LightOfAWall)
{
    const Scene scene =
        sceneOf(kProjector, kPatterns + R"(, "distance": 500, "black": 0.1, "gamma": 2.2})",
                R"({"shape": "plane", "size": [2000, 2000], "pose": {"translation": [0, 0, 500]},
                                    "surface": {"colour": 0.5}})");
    const Rendering rendering = render(scene, {}, exposureOf(scene, 1), 2);
    const Vector3d ray = scene.calibration.camera.ray(Vector2d(40, 20));
    const Vector3d way = ray * (500 / ray.z()) - Vector3d(100, 0, 0);
    const double difference = 200 * 0.5 * std::pow(500 / way.norm(), 3);
    const double white = rendering.pictures[0].at(40, 20);
    const double black = rendering.pictures[1].at(40, 20);
    EXPECT_NEAR(white - black, difference, 0.01);
    EXPECT_NEAR(black / white, 0.1, 1e-5);
    EXPECT_NEAR(rendering.truth.amplitude.at(40, 20), difference / 2, 0.01);
}

// The line of a laser on a wall, integrated over pixels.
TEST(SimulateRender, LaserHasItsProfile)
{
    const Scene scene =
        sceneOf(R"(, "laser": {"plane": [1, 0, 0, 0]})",
                R"("light": {"type": "laser", "origin": [0, 0, 0], "sigma": 8, "peak": 150})",
                R"({"shape": "plane", "size": [2000, 2000], "pose": {"translation": [0, 0, 600]}})");
    const Rendering rendering = render(scene, {}, 1, 1);
    ASSERT_EQ(rendering.pictures.size(), 2U);
    EXPECT_EQ(rendering.pictures[0].at(31, 23), 0);
    double total = 0;
    for (int x = 0; x < 64; ++x) total += rendering.pictures[1].at(x, 23) * 600 / 120;  // mm a pixel
    EXPECT_NEAR(total, 0.8 * 150 * 8 * std::sqrt(2 * std::numbers::pi), 5);
}

// Two walls at right angles light each other, and only then.
TEST(SimulateRender, BouncesReachTheShade)
{
    Scene scene = sceneOf(
        "", R"("light": {"type": "lamp", "origin": [-500, 0, 0]})",
        R"({"shape": "box", "size": [400, 400, 10], "pose": {"rotation": [0, 45, 0], "translation": [-140, 0, 560]}},
                             {"shape": "box", "size": [400, 400, 10], "pose": {"rotation": [0, -80, 0], "translation": [60, 0, 560]}})");
    const auto total = [&] {
        const Rendering rendering = render(scene, {}, 1, 2);
        double sum = 0;
        for (const float value : rendering.pictures[0].values) sum += value;
        return sum;
    };
    const double direct = total();
    scene.bounces = 2;
    EXPECT_GT(total(), direct * 1.02);
}

TEST(SimulateProjector, PixelsAreSquaresWithPointSpread)
{
    GreyPicture picture{40, 41, std::vector<std::uint8_t>(1640)};
    for (std::size_t i = 20; i < 1640; i += 40) picture.grey[i] = 255;
    for (const double spread : {0.0, 0.4, 1.5}) {
        const ProjectedPicture projected(picture, {.spread = spread});
        GreyPicture other = picture;  // the same line, by way of the general evaluation
        other.grey[0] = 1;
        const ProjectedPicture general(other, {.spread = spread});
        double total = 0;
        for (int i = 0; i < 4000; ++i) {
            const double u = (i + 0.5) / 100 - 0.5;
            total += projected.at(static_cast<float>(u), 20) / 100;
            if (i > 1000) {
                ASSERT_NEAR(projected.at(static_cast<float>(u), 20), general.at(static_cast<float>(u), 20),
                            2e-4);
            }
        }
        EXPECT_NEAR(total, 1, 1e-3);
        const double centre = spread > 0 ? std::erf(0.5 / (spread * std::sqrt(2.0))) : 1;
        EXPECT_NEAR(projected.at(20, 20), centre, 1e-4);
        EXPECT_EQ(projected.at(-0.6F, 20), 0);
    }
    picture.grey.assign(1640, 128);
    EXPECT_NEAR(ProjectedPicture(picture, {.gamma = 2.2}).at(5, 20), std::pow(128 / 255.0, 2.2), 1e-6);
}

TEST(SimulateScene, ErrorsNameTheirPlace)
{
    const std::string lamp = R"("light": {"type": "lamp"})";
    struct Case
    {
        std::string devices, light, objects, expected;
    };
    const Case cases[] = {
        {"", lamp, R"({"shape": "cube"})", "/objects/0"},
        {"", lamp, R"({"shape": "sphere", "radius": -1})", "/objects/0/radius"},
        {"", lamp, R"({"shape": "sphere", "colour": 1})", "/objects/0"},
        {"", lamp, R"({"shape": "file"})", "names no"},
        {"", lamp, R"({"shape": "file", "file": "missing.ply"})", "missing.ply"},
        {"", lamp, R"({"shape": "box", "size": [1, 2]})", "size"},
        {"", lamp, R"({"shape": "plane", "pose": {"rotation": [1, 1, 0, 0, 1, 0, 0, 0, 1]}})", "rotation"},
        {"", R"("light": {"type": "laser", "origin": [0, 0, 0]})", R"({"shape": "plane"})", "laser"},
        {"", kPatterns + "}", R"({"shape": "plane"})", "projector"},
        {"", lamp + R"(, "poses": {"count": 3})", R"({"shape": "plane"})", "stage"},
        {"", lamp + R"(, "sensor": {"samples": 2})", R"({"shape": "plane"})", "/sensor/samples"},
    };
    for (const Case& c : cases) {
        try {
            sceneOf(c.devices, c.light, c.objects);
            ADD_FAILURE() << c.expected;
        } catch (const char* reason) {
            EXPECT_NE(std::string(reason).find(c.expected), std::string::npos) << reason;
        }
    }
}

// The bundled series come out again, whatever the number of threads.
TEST(SimulateSeries, RerunGivesTheBundledFiles)
{
    for (const std::string name : {"structured_light", "laser"}) {
        const std::filesystem::path bundled =
            std::filesystem::path(SCANSTEPS_SOURCE_DIR) / "examples/scan" / name;
        const test::TempDir out;
        const Scene scene = parseScene(test::readFile(bundled / "scene.json"), bundled.string());
        writeSeries(scene, {.folder = out.path().string(), .threads = 3}, nullptr);
        int compared = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(out.path())) {
            if (!entry.is_regular_file()) continue;
            const auto relative = std::filesystem::relative(entry.path(), out.path());
            EXPECT_TRUE(test::readFile(entry.path()) == test::readFile(bundled / relative)) << relative;
            ++compared;
        }
        EXPECT_GE(compared, 24);
    }
}

}  // namespace
}  // namespace scansteps::simulate
