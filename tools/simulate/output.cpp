#include "output.h"

#include <fmt/format.h>
#include <plugins/images/encode.h>
#include <plugins/scan/checked_json.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "pfm_file.h"
#include "ply_file.h"
#include "sensor.h"

namespace scansteps::simulate {
namespace {

namespace fs = std::filesystem;

void writePng(const fs::path& name, int width, int height, int channels, std::span<const std::uint8_t> bytes)
{
    const std::vector<std::uint8_t> file = imageio::encodePng({width, height, channels, 8, bytes});
    scan::writeTextFile(name.string(), {reinterpret_cast<const char*>(file.data()), file.size()}, "picture");
}

bool wants(const Scene& scene, const char* map)
{
    return std::find(scene.truth.begin(), scene.truth.end(), map) != scene.truth.end();
}

void writeTruth(const Scene& scene, Truth& truth, const fs::path& folder, const std::string& number,
                int threads)
{
    blur(truth.amplitude, scene.sensor.defocus, threads);
    const bool patterns = std::holds_alternative<PatternLight>(scene.light);
    const auto map = [&](const char* name, const Image& image, bool exists) {
        if (exists && wants(scene, name)) writePfm((folder / (name + number + ".pfm")).string(), image);
    };
    map("depth", truth.depth, true);
    map("columns", truth.columns, patterns);
    map("rows", truth.rows, patterns);
    map("amplitude", truth.amplitude, true);
    if (wants(scene, "mask"))
        writePng(folder / ("mask" + number + ".png"), truth.depth.width, truth.depth.height, 1, truth.mask);
}

nlohmann::json poseJson(const scan::Pose& pose)
{
    nlohmann::json rotation = nlohmann::json::array();
    for (int i = 0; i < 9; ++i) rotation.push_back(pose.rotation(i / 3, i % 3));
    return {{"rotation", rotation},
            {"translation", {pose.translation.x(), pose.translation.y(), pose.translation.z()}}};
}

void writePoses(const Scene& scene, double exposure, const fs::path& folder)
{
    nlohmann::json poses = nlohmann::json::array();
    for (const scan::Pose& pose : scene.poses) {
        nlohmann::json objects = nlohmann::json::array();
        for (const Object& object : scene.objects) {
            nlohmann::json entry = poseJson(pose * object.pose);
            entry["shape"] = object.shape;
            objects.push_back(entry);
        }
        poses.push_back({{"frame", poseJson(pose)}, {"objects", objects}});
    }
    const nlohmann::json file = {
        {"description", "object to camera coordinates, and frame to camera coordinates"},
        {"exposure", exposure},
        {"poses", poses}};
    scan::writeTextFile((folder / "poses.json").string(), file.dump(1) + "\n", "truth");
}

}  // namespace

void writeSeries(const Scene& scene, const OutputOptions& options, void (*progress)(std::size_t, std::size_t))
{
    const fs::path folder = options.folder;
    fs::create_directories(folder / "truth");
    scan::writeCalibration((folder / "calibration.json").string(), scene.calibration);
    const double exposure = exposureOf(scene, options.threads);
    writePoses(scene, exposure, folder / "truth");
    for (std::size_t i = 0; options.meshes && i < scene.objects.size(); ++i)
        if (scene.objects[i].mesh)
            writePly((folder / "truth" / fmt::format("object{}.ply", i)).string(), *scene.objects[i].mesh);

    const bool manyFolders = scene.poses.size() > 1 && std::holds_alternative<PatternLight>(scene.light);
    std::uint32_t picture = 0;
    for (std::size_t pose = 0; pose < scene.poses.size(); ++pose) {
        Rendering rendering = render(scene, scene.poses[pose], exposure, options.threads);
        const fs::path pictures = manyFolders ? folder / fmt::format("pose{:02}", pose) : folder;
        fs::create_directories(pictures);
        std::uint32_t number = manyFolders ? 0 : picture;
        for (Image& light : rendering.pictures) {
            const int width = light.width;
            const int height = light.height;
            const int channels = light.channels;
            const auto grey = expose(std::move(light), scene.sensor, scene.seed, picture++, options.threads);
            writePng(pictures / fmt::format("img{:04}.png", number++), width, height, channels, grey);
        }
        const std::string suffix = scene.poses.size() > 1 ? fmt::format("{:04}", pose) : std::string();
        if (options.truth) writeTruth(scene, rendering.truth, folder / "truth", suffix, options.threads);
        if (progress != nullptr) progress(pose + 1, scene.poses.size());
    }
}

}  // namespace scansteps::simulate
