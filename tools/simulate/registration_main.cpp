// scansteps-registration: how accurately and how fast views are registered. Ray-casts eight views of the bust
// 45 degrees apart, with noise along the rays and first estimates that are off, and prints JSON.
#include <fmt/format.h>
#include <plugins/scan/checked_json.h>
#include <plugins/scan/grid_mesh.h>
#include <plugins/scan/view_alignment.h>
#include <plugins/scan/view_record.h>

#include <CLI/CLI.hpp>
#include <Eigen/Geometry>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>

#include "body.h"
#include "ply_file.h"

namespace {

using namespace scansteps;
using Eigen::Vector3d;

constexpr double kDistance = 610, kDegrees = 180 / std::numbers::pi;
const Vector3d kCentre(0, 0, kDistance);

struct Options
{
    double focal = 2500, noise = 0.04, turn = 5, shift = 10;
    int views = 8;
    unsigned seed = 1;
    std::string out;
};

struct View
{
    scan::GridMesh mesh;
    scan::Pose truth, estimate;
};

scan::GridMesh meshOf(const simulate::Body& body, const scan::Pose& toObject, const Options& o, int number)
{
    std::mt19937 random(o.seed + unsigned(number));
    std::normal_distribution<double> noise(0, o.noise);
    const int side = int(0.36 * o.focal);
    std::vector<std::int32_t> index(std::size_t(side) * std::size_t(side), -1);
    std::vector<float> points;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const Vector3d ray = Vector3d(int(i) % side - side / 2, int(i) / side - side / 2, o.focal) / o.focal;
        const auto hit = body.intersect({toObject.translation, toObject.rotation * ray}, 1e9);
        if (!hit) continue;
        index[i] = std::int32_t(points.size() / 3);
        const Vector3d point = ray * (hit->distance + noise(random));
        for (const double value : point) points.push_back(float(value));
    }
    return scan::meshOfGrid({index, std::size_t(side), std::size_t(side), points, points}, {});
}

std::vector<View> viewsOf(const Options& o)
{
    const auto body = simulate::meshBody(simulate::bustMesh(190, 500, 500));
    scan::Pose object{Eigen::Matrix3d::Identity(), kCentre};
    object.rotation << 0, 1, 0, 0, 0, -1, -1, 0, 0;
    std::mt19937 random(o.seed);
    std::normal_distribution<double> normal(0, 1);
    const auto direction = [&] {
        return Vector3d(normal(random), normal(random), normal(random)).normalized();
    };
    std::vector<View> views;
    for (int i = 0; i < o.views; ++i) {
        const scan::Pose truth =
            scan::stageMotion(scan::Turntable{Vector3d::UnitY(), kCentre, 360.0 / o.views, {}}, i);
        scan::Pose off;
        if (i > 0) {
            off.rotation = Eigen::AngleAxisd(o.turn / kDegrees, direction()).toRotationMatrix();
            off.translation = kCentre - off.rotation * kCentre + o.shift * direction();
        }
        views.push_back({meshOf(*body, (truth * object).inverse(), o, i), truth, truth * off});
    }
    return views;
}

nlohmann::json matrixOf(const scan::Pose& pose)
{
    nlohmann::json rows = nlohmann::json::array();
    for (int i = 0; i < 3; ++i)
        rows.push_back({pose.rotation(i, 0), pose.rotation(i, 1), pose.rotation(i, 2), pose.translation[i]});
    rows.push_back({0, 0, 0, 1});
    return rows;
}

// What other programs need to register the same views.
void writeViews(const std::vector<View>& views, const std::string& folder)
{
    std::filesystem::create_directories(folder);
    nlohmann::json poses = nlohmann::json::array();
    for (const View& view : views) {
        simulate::Mesh mesh;
        for (std::size_t i = 0; i < view.mesh.vertices.size(); i += 3) {
            mesh.vertices.emplace_back(
                Eigen::Map<const Eigen::Vector3f>(&view.mesh.vertices[i]).cast<double>());
            mesh.normals.emplace_back(
                Eigen::Map<const Eigen::Vector3f>(&view.mesh.normals[i]).cast<double>());
        }
        simulate::writePly(folder + fmt::format("/view{}.ply", poses.size()), mesh);
        poses.push_back({{"truth", matrixOf(view.truth)}, {"estimate", matrixOf(view.estimate)}});
    }
    scan::writeTextFile(folder + "/poses.json", poses.dump(1) + "\n", "views");
}

void measure(const Options& o)
{
    const std::vector<View> views = viewsOf(o);
    if (!o.out.empty()) writeViews(views, o.out);
    const auto start = std::chrono::steady_clock::now();
    scan::ViewAlignment alignment({});
    for (const View& view : views)
        alignment.add({view.mesh.vertices, view.mesh.indices, {}, {}}, view.estimate);
    const auto fits = alignment.finish();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    double degrees = 0, mm = 0;
    std::size_t points = 0, failed = 0;
    for (std::size_t i = 0; i < views.size(); ++i) {
        points += views[i].mesh.vertices.size() / 3;
        failed += fits[i].state != scan::FitState::Good;
        const scan::Pose &pose = fits[i].pose, &truth = views[i].truth;
        degrees = std::max(degrees,
                           kDegrees * Eigen::AngleAxisd(pose.rotation * truth.rotation.transpose()).angle());
        mm = std::max(mm, (pose * kCentre - truth * kCentre).norm());
    }
    const nlohmann::ordered_json json = {
        {"views", views.size()}, {"points", points}, {"failed", failed},
        {"degrees", degrees},    {"mm", mm},         {"seconds", seconds.count()}};
    fmt::print("{}\n", json.dump());
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Measures the registration of simulated views.", "scansteps-registration");
    Options options;
    app.add_option("--focal", options.focal, "focal length in pixels (2500)")->check(CLI::Range(100, 10000));
    app.add_option("--noise", options.noise, "noise of depths in mm (0.04)")->check(CLI::Range(0.0, 10.0));
    app.add_option("--turn", options.turn, "error of the first estimates in degrees (5)");
    app.add_option("--shift", options.shift, "error of the first estimates in mm (10)");
    app.add_option("--views", options.views, "views around the bust (8)")->check(CLI::Range(2, 100));
    app.add_option("--seed", options.seed, "of noise and estimates (1)");
    app.add_option("--out", options.out, "folder for the views as PLY files, and their poses");
    CLI11_PARSE(app, argc, argv);
    try {
        measure(options);
    } catch (const char* reason) {
        fmt::print(stderr, "scansteps-registration: error: {}\n", reason);
        return 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "scansteps-registration: error: {}\n", error.what());
        return 2;
    }
    return 0;
}
