#include "scene.h"

#include <plugins/images/decode.h>
#include <plugins/scan/checked_json.h>
#include <plugins/scan/patterns.h>
#include <scansteps/error.h>

#include <Eigen/Geometry>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <numbers>

#include "scene_objects.h"

namespace scansteps::simulate {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

scan::Calibration calibrationOf(const json& value, const std::string& folder)
{
    return value.is_string() ? scan::readCalibration((fs::path(folder) / value.get<std::string>()).string())
                             : scan::parseCalibration(value.dump());
}

GreyPicture readPicture(const std::string& name)
{
    const std::string bytes = scan::readTextFile(name, "scene");
    imageio::Picture picture;
    try {
        picture = imageio::openPictures({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()})
                      ->next({});
    } catch (const imageio::DecodeError& error) {
        failf("scene: %.300s: %.300s", name.c_str(), error.what());
    }
    GreyPicture grey{picture.width(), picture.height(), {}};
    const auto pixels = static_cast<std::size_t>(grey.width) * static_cast<std::size_t>(grey.height);
    for (std::size_t i = 0; i < pixels; ++i)
        grey.grey.push_back(
            picture.isGrey() ? static_cast<std::uint8_t>(picture.pixels.elements<std::uint16_t>()[i] - 32768)
                             : picture.pixels.elements<std::uint8_t>()[3 * i + 1]);
    return grey;
}

std::vector<GreyPicture> picturesOf(const json& value, const std::string& folder)
{
    const fs::path name =
        value.is_string() ? fs::path(folder) / value.get<std::string>() : fs::path(folder) / "x";
    const scan::PatternSeries series =
        value.is_string() ? scan::readPatternSeries(name.string()) : scan::parsePatternSeries(value.dump());
    std::vector<GreyPicture> pictures;
    for (std::size_t i = 0; i < series.patterns.size(); ++i) {
        const fs::path file = series.files.empty() ? fs::path() : name.parent_path() / series.files[i];
        if (!series.files.empty() && fs::is_regular_file(file)) {
            pictures.push_back(readPicture(file.string()));
            if (pictures.back().width != series.width || pictures.back().height != series.height)
                failf("scene: the picture %.300s has not the size of the projector", file.string().c_str());
        } else {
            pictures.push_back({series.width, series.height, patternPicture(series, series.patterns[i])});
        }
    }
    return pictures;
}

Eigen::Vector3d originOf(const json& value)
{
    const std::vector<double> origin = value.value("origin", std::vector<double>{0, 0, 0});
    return {origin[0], origin[1], origin[2]};
}

Light lightOf(const json& value, const scan::Calibration& calibration, const std::string& folder)
{
    const std::string type = value["type"].get<std::string>();
    if (type == "lamp") return LampLight{originOf(value), value.value("level", 200.0)};
    if (type == "laser") {
        if (!calibration.laser) fail("scene: the calibration has no laser");
        return LaserLight{originOf(value), value.value("peak", 150.0), value.value("sigma", 0.2),
                          value.value("dark", true)};
    }
    if (!calibration.projector) fail("scene: the calibration has no projector");
    PatternLight light;
    light.pictures = picturesOf(value["patterns"], folder);
    const Eigen::Vector2i size = calibration.projector->size;
    if (light.pictures.front().width != size.x() || light.pictures.front().height != size.y())
        fail("scene: the patterns have not the size of the projector");
    light.response = {value.value("gamma", 1.0), value.value("spread", 0.0), value.value("black", 0.0)};
    light.white = value.value("white", light.white);
    light.distance = value.value("distance", 0.0);
    return light;
}

Sensor sensorOf(const json& value)
{
    Sensor sensor;
    sensor.samples = value.value("samples", sensor.samples);
    sensor.defocus = value.value("defocus", sensor.defocus);
    sensor.offset = value.value("offset", sensor.offset);
    sensor.read = value.value("read", sensor.read);
    sensor.shot = value.value("shot", sensor.shot);
    sensor.colour = value.value("colour", sensor.colour);
    return sensor;
}

/// The motion of `steps` steps of the stage, in camera coordinates.
scan::Pose stageMotion(const scan::Stage& stage, int steps)
{
    if (const auto* linear = std::get_if<scan::LinearStage>(&stage))
        return {Eigen::Matrix3d::Identity(), steps * linear->step * linear->direction};
    const auto& table = std::get<scan::Turntable>(stage);
    const double angle = steps * table.step * std::numbers::pi / 180;
    const Eigen::Matrix3d rotation = Eigen::AngleAxisd(angle, table.axis).toRotationMatrix();
    return {rotation, table.point - rotation * table.point};
}

std::vector<scan::Pose> posesOf(const json& value, const scan::Calibration& calibration)
{
    std::vector<scan::Pose> poses;
    if (value.is_array()) {
        for (const json& pose : value) poses.push_back(poseOf(pose));
        return poses;
    }
    if (!calibration.stage) fail("scene: /poses/count needs a calibration with a stage");
    const scan::Pose first = value.contains("first") ? poseOf(value["first"]) : scan::Pose();
    for (int i = 0; i < value["count"].get<int>(); ++i)
        poses.push_back(stageMotion(*calibration.stage, i) * first);
    return poses;
}

}  // namespace

Scene parseScene(std::string_view text, const std::string& folder)
{
    const json value = scan::checkedJson(text, kSceneSchema, "scene");
    Scene scene;
    scene.calibration = calibrationOf(value["calibration"], folder);
    if (value.contains("sensor")) scene.sensor = sensorOf(value["sensor"]);
    scene.light = lightOf(value["light"], scene.calibration, folder);
    scene.ambient = value.value("ambient", 0.0);
    scene.bounces = value.value("bounces", 0);
    scene.seed = value.value("seed", std::uint64_t{1});
    for (const json& object : value["objects"]) scene.objects.push_back(objectOf(object, folder));
    scene.poses =
        value.contains("poses") ? posesOf(value["poses"], scene.calibration) : std::vector<scan::Pose>(1);
    scene.truth =
        value.value("truth", std::vector<std::string>{"depth", "columns", "rows", "amplitude", "mask"});
    return scene;
}

}  // namespace scansteps::simulate
