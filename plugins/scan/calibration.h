// Calibration files: what is known about camera, projector, laser and stage of a scanner.
#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "camera_model.h"

namespace scansteps::scan {

struct Camera : CameraModel
{
    std::optional<double> rms;  ///< reprojection error of the calibration in pixels
};

struct Projector : CameraModel
{
    Pose pose;  ///< camera to projector coordinates
    std::optional<double> rms;
};

/// normal * X + offset = 0 in camera coordinates, millimetres.
struct LaserPlane
{
    Eigen::Vector3d normal = Eigen::Vector3d::UnitX();
    double offset = 0;
    std::optional<double> rms;  ///< millimetres
};

/// Positive steps turn right-handed about the axis, which passes through `point`; camera coordinates.
struct Turntable
{
    Eigen::Vector3d axis = Eigen::Vector3d::UnitY();
    Eigen::Vector3d point = Eigen::Vector3d::Zero();
    double step = 0;  ///< degrees
    std::optional<double> rms;
};

struct LinearStage
{
    Eigen::Vector3d direction = Eigen::Vector3d::UnitX();
    double step = 0;  ///< millimetres
    std::optional<double> rms;
};

using Stage = std::variant<Turntable, LinearStage>;

struct Calibration
{
    Camera camera;
    std::optional<Projector> projector;
    std::optional<LaserPlane> laser;
    std::optional<Stage> stage;
};

/// Reads calibration.json. Rotations have to be orthonormal and directions of unit length to 1e-3, which
/// files written with few digits keep; they are made so exactly. Errors are thrown C strings that begin with
/// "calibration: " and the JSON path of the offending value, such as "/projector/rotation".
Calibration parseCalibration(std::string_view text);
Calibration readCalibration(const std::string& fileName);
/// The text of calibration.json; every number reads back as it was.
std::string calibrationJson(const Calibration& calibration);
void writeCalibration(const std::string& fileName, const Calibration& calibration);

/// The schema of the file, draft 7.
extern const std::string_view kCalibrationSchema;

}  // namespace scansteps::scan
