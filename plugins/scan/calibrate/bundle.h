// The camera and the poses of all boards that together explain the corners best.
#pragma once

#include "zhang.h"

namespace scansteps::scan {

/// Order of parameters and their deviations: fx, fy, cx, cy, k1, k2, p1, p2, k3.
using CameraParameters = Eigen::Matrix<double, 9, 1>;
CameraParameters parametersOf(const CameraModel& camera);

struct CameraSolution
{
    CameraModel camera;
    CameraParameters deviations;  ///< standard deviations of the parameters
    std::vector<Pose> poses;      ///< of the boards, to camera coordinates
    std::vector<double>
        viewRms;       ///< reprojection error of each view: root mean square of both coordinates, pixels
    double rms = 0;    ///< of all
    double noise = 0;  ///< standard deviation of a coordinate of a corner, from robust statistics, pixels
    std::vector<std::vector<Eigen::Vector2d>> residuals;  ///< of every corner: model minus picture
    std::size_t outliers = 0;                             ///< corners more than five times the noise off
};

/// Minimises the reprojection error of all views over camera, distortion and poses (Levenberg–Marquardt). A
/// first solution under Huber's loss gives the noise; the second one scales the loss to 2.5 times that.
/// Deviations come from the inverse of the normal equations and the noise. Throws a C string when the views
/// do not determine the camera.
CameraSolution solveCamera(const std::vector<PlaneView>& views, const Eigen::Vector2i& size);

}  // namespace scansteps::scan
