// First estimates of a camera and of its poses from pictures of a plane.
#pragma once

#include <plugins/scan/camera_model.h>

#include <Eigen/Core>
#include <vector>

namespace scansteps::scan {

/// Points of a plane in millimetres and where they are in a picture.
struct PlaneView
{
    std::vector<Eigen::Vector2d> plane;
    std::vector<Eigen::Vector2d> pixels;
};

/// The projective map that takes the points of the plane to the pixels with the least algebraic error, in
/// normalised coordinates (Hartley, "In defense of the eight-point algorithm", 1997). At least four points,
/// no three on a line.
Eigen::Matrix3d homography(const PlaneView& view);

/// Focal lengths and principal point without distortion, from at least three views whose planes are tilted
/// against each other (Zhang, "A flexible new technique for camera calibration", 2000, with zero skew). Where
/// the views do not tell the principal point it is the middle of the picture. Throws a C string when they do
/// not tell the focal lengths.
CameraModel zhangCamera(const std::vector<PlaneView>& views, const Eigen::Vector2i& size);

/// The pose of the plane: its coordinates (x, y, 0) to camera coordinates.
Pose planePose(const CameraModel& camera, const PlaneView& view);

}  // namespace scansteps::scan
