// Projection, distortion and its inverse.
#include "camera_model.h"

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <limits>

namespace scansteps::scan {

Eigen::Vector2d CameraModel::project(const Eigen::Vector3d& point) const
{
    return distort(point.head<2>() / point.z()).cwiseProduct(focal) + centre;
}

Eigen::Vector2d CameraModel::distort(const Eigen::Vector2d& normalised) const
{
    const auto& [k1, k2, p1, p2, k3] = distortion;
    const double x = normalised.x(), y = normalised.y();
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
    return {x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x),
            y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y};
}

Eigen::Matrix2d CameraModel::distortionJacobian(const Eigen::Vector2d& normalised) const
{
    const auto& [k1, k2, p1, p2, k3] = distortion;
    const double x = normalised.x(), y = normalised.y();
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
    const double slope = k1 + r2 * (2 * k2 + r2 * 3 * k3);  // of radial, by r^2
    const double mixed = 2 * x * y * slope + 2 * p1 * x + 2 * p2 * y;
    Eigen::Matrix2d jacobian;
    jacobian << radial + 2 * x * x * slope + 2 * p1 * y + 6 * p2 * x, mixed,  //
        mixed, radial + 2 * y * y * slope + 6 * p1 * y + 2 * p2 * x;
    return jacobian;
}

Eigen::Vector2d CameraModel::undistort(const Eigen::Vector2d& distorted) const
{
    if (!hasDistortion()) return distorted;
    constexpr int kMaxSteps = 50;
    Eigen::Vector2d estimate = distorted;
    for (int step = 0; step < kMaxSteps; ++step) {
        const Eigen::Vector2d miss = distort(estimate) - distorted;
        const Eigen::Matrix2d jacobian = distortionJacobian(estimate);
        // Beyond the fold of the distortion, points move inwards: no pixel shows them.
        if (!(jacobian.determinant() > 0)) break;
        const Eigen::Vector2d change = jacobian.inverse() * miss;
        estimate -= change;
        if (change.squaredNorm() < 1e-30) return estimate;
        // The last bits may alternate.
        if (step > 10 && change.squaredNorm() < 1e-24) return estimate;
    }
    return Eigen::Vector2d::Constant(std::numeric_limits<double>::quiet_NaN());
}

Eigen::Vector2d CameraModel::normalised(const Eigen::Vector2d& pixel) const
{
    return undistort((pixel - centre).cwiseQuotient(focal));
}

Eigen::Vector3d CameraModel::ray(const Eigen::Vector2d& pixel) const
{
    return normalised(pixel).homogeneous().normalized();
}

}  // namespace scansteps::scan
