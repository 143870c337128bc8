// The pinhole camera with lens distortion that cameras and projectors share, and poses between coordinate
// systems. Lengths are millimetres; x points right, y down, z away from the camera.
#pragma once

#include <Eigen/Core>
#include <array>

namespace scansteps::scan {

/// A camera, or a projector as a camera that works in reverse. Pixel (0, 0) is the centre of the first pixel,
/// so the image covers -0.5 to size - 0.5.
struct CameraModel
{
    Eigen::Vector2i size = Eigen::Vector2i::Zero();    ///< width, height in pixels
    Eigen::Vector2d focal = Eigen::Vector2d::Ones();   ///< focal length over pixel pitch, per axis
    Eigen::Vector2d centre = Eigen::Vector2d::Zero();  ///< principal point in pixels
    std::array<double, 5> distortion{};                ///< k1, k2, p1, p2, k3

    /// Pixel of a point in the coordinates of this camera. Not finite for z = 0; the caller checks z > 0.
    Eigen::Vector2d project(const Eigen::Vector3d& point) const;
    /// Where the lens takes the normalised coordinates (x / z, y / z) of a point. Brown, "Close-range camera
    /// calibration", Photogrammetric Engineering 37 (1971), with three radial and two tangential terms:
    ///   x' = x (1 + k1 r^2 + k2 r^4 + k3 r^6) + 2 p1 x y + p2 (r^2 + 2 x^2)
    ///   y' = y (1 + k1 r^2 + k2 r^4 + k3 r^6) + p1 (r^2 + 2 y^2) + 2 p2 x y
    Eigen::Vector2d distort(const Eigen::Vector2d& normalised) const;
    /// The inverse of distort(), by Newton's method, to about 1e-15. NaN where the distortion has no inverse.
    Eigen::Vector2d undistort(const Eigen::Vector2d& distorted) const;
    /// Undistorted normalised coordinates of a pixel. NaN as above.
    Eigen::Vector2d normalised(const Eigen::Vector2d& pixel) const;
    /// Unit vector along the ray of a pixel, in the coordinates of this camera.
    Eigen::Vector3d ray(const Eigen::Vector2d& pixel) const;
    /// Jacobian of distort().
    Eigen::Matrix2d distortionJacobian(const Eigen::Vector2d& normalised) const;
    bool hasDistortion() const { return distortion != std::array<double, 5>{}; }
};

/// A rigid motion: X' = rotation * X + translation.
struct Pose
{
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    Eigen::Vector3d translation = Eigen::Vector3d::Zero();

    Eigen::Vector3d operator*(const Eigen::Vector3d& point) const { return rotation * point + translation; }
    /// First `other`, then this pose.
    Pose operator*(const Pose& other) const
    {
        return {rotation * other.rotation, rotation * other.translation + translation};
    }
    Pose inverse() const { return {rotation.transpose(), -(rotation.transpose() * translation)}; }
};

}  // namespace scansteps::scan
