// Calibration files. The schema checks kinds, sizes and ranges; this file what a schema cannot say.
#include "calibration.h"

#include <Eigen/Dense>
#include <nlohmann/json.hpp>
#include <vector>

#include "checked_json.h"

namespace scansteps::scan {
namespace {

using Json = nlohmann::ordered_json;
using In = nlohmann::json;

constexpr const char* kWhat = "calibration";
constexpr double kTolerance = 1e-3;

template <int n>
Eigen::Vector<double, n> vectorOf(const In& list)
{
    Eigen::Vector<double, n> result;
    for (int i = 0; i < n; ++i) result[i] = list[static_cast<std::size_t>(i)].get<double>();
    return result;
}

Eigen::Vector3d unitVector(const In& list, const std::string& path)
{
    const auto vector = vectorOf<3>(list);
    if (std::abs(vector.norm() - 1) > kTolerance) failAt(kWhat, path, "is not of unit length");
    return vector.normalized();
}

std::optional<double> rmsOf(const In& in)
{
    return in.contains("rms") ? std::optional(in["rms"].get<double>()) : std::nullopt;
}

template <class Model>
Model modelOf(const In& in)
{
    Model model;
    model.size = {in["size"][0].get<int>(), in["size"][1].get<int>()};
    model.focal = vectorOf<2>(in["focal"]);
    model.centre = vectorOf<2>(in["centre"]);
    for (std::size_t i = 0; i < 5; ++i) model.distortion[i] = in["distortion"][i].get<double>();
    model.rms = rmsOf(in);
    return model;
}

Eigen::Matrix3d rotationOf(const In& in, const std::string& path)
{
    const auto list = vectorOf<9>(in);
    const Eigen::Matrix3d matrix =
        Eigen::Matrix3d(Eigen::Map<const Eigen::Matrix3d>(list.data())).transpose();
    if ((matrix * matrix.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff() > kTolerance)
        failAt(kWhat, path, "is no rotation: its rows are not orthonormal");
    if (matrix.determinant() < 0) failAt(kWhat, path, "is no rotation: it mirrors");
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(matrix, Eigen::ComputeFullU | Eigen::ComputeFullV);
    const Eigen::Matrix3d nearest = svd.matrixU() * svd.matrixV().transpose();
    // What was exact to the last digits stays as it is.
    return (nearest - matrix).cwiseAbs().maxCoeff() < 1e-12 ? matrix : nearest;
}

Projector projectorOf(const In& in)
{
    auto projector = modelOf<Projector>(in);
    projector.pose.rotation = rotationOf(in["rotation"], "/projector/rotation");
    projector.pose.translation = vectorOf<3>(in["translation"]);
    if (projector.pose.translation.norm() == 0)
        failAt(kWhat, "/projector/translation", "is 0: without a baseline there is no depth");
    return projector;
}

LaserPlane laserOf(const In& in)
{
    const auto plane = vectorOf<4>(in["plane"]);
    const double length = plane.head<3>().norm();
    if (std::abs(length - 1) > kTolerance) failAt(kWhat, "/laser/plane", "has no unit normal");
    return {plane.head<3>() / length, plane[3] / length, rmsOf(in)};
}

Stage stageOf(const In& in)
{
    const double step = in["step"].get<double>();
    if (step == 0) failAt(kWhat, "/stage/step", "is 0");
    if (in.contains("axis"))
        return Turntable{unitVector(in["axis"], "/stage/axis"), vectorOf<3>(in["point"]), step, rmsOf(in)};
    return LinearStage{unitVector(in["direction"], "/stage/direction"), step, rmsOf(in)};
}

template <class Vector>
Json listOf(const Vector& vector)
{
    Json list = Json::array();
    for (Eigen::Index i = 0; i < vector.size(); ++i) list.push_back(vector[i]);
    return list;
}

void addRms(Json& out, const std::optional<double>& rms)
{
    if (rms) out["rms"] = *rms;
}

template <class Model>
Json jsonOf(const Model& model)
{
    Json out;
    out["size"] = listOf(model.size);
    out["focal"] = listOf(model.focal);
    out["centre"] = listOf(model.centre);
    out["distortion"] = model.distortion;
    addRms(out, model.rms);
    return out;
}

Json jsonOfStage(const Stage& stage)
{
    Json out;
    if (const auto* table = std::get_if<Turntable>(&stage)) {
        out["axis"] = listOf(table->axis);
        out["point"] = listOf(table->point);
    } else {
        out["direction"] = listOf(std::get<LinearStage>(stage).direction);
    }
    std::visit(
        [&](const auto& any) {
            out["step"] = any.step;
            addRms(out, any.rms);
        },
        stage);
    return out;
}

}  // namespace

Calibration parseCalibration(std::string_view text)
{
    const In in = checkedJson(text, kCalibrationSchema, kWhat);
    Calibration result;
    result.camera = modelOf<Camera>(in["camera"]);
    if (in.contains("projector")) result.projector = projectorOf(in["projector"]);
    if (in.contains("laser")) result.laser = laserOf(in["laser"]);
    if (in.contains("stage")) result.stage = stageOf(in["stage"]);
    return result;
}

Calibration readCalibration(const std::string& fileName)
{
    return parseCalibration(readTextFile(fileName, kWhat));
}

std::string calibrationJson(const Calibration& calibration)
{
    Json out;
    out["unit"] = "mm";
    out["camera"] = jsonOf(calibration.camera);
    if (const auto& projector = calibration.projector) {
        out["projector"] = jsonOf(*projector);
        const Eigen::Matrix3d rows = projector->pose.rotation.transpose();
        out["projector"]["rotation"] = listOf(rows.reshaped());
        out["projector"]["translation"] = listOf(projector->pose.translation);
    }
    if (const auto& laser = calibration.laser) {
        out["laser"]["plane"] = listOf(laser->normal.homogeneous());
        out["laser"]["plane"][3] = laser->offset;
        addRms(out["laser"], laser->rms);
    }
    if (calibration.stage) out["stage"] = jsonOfStage(*calibration.stage);
    return out.dump(2) + "\n";
}

void writeCalibration(const std::string& fileName, const Calibration& calibration)
{
    writeTextFile(fileName, calibrationJson(calibration), kWhat);
}

}  // namespace scansteps::scan
