#include "zhang.h"

#include <scansteps/error.h>

#include <Eigen/Geometry>
#include <Eigen/SVD>

#include <cmath>

namespace scansteps::scan {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector2d;
using Eigen::Vector3d;

/// Moves points to their mean and scales them to a mean distance of sqrt(2).
Matrix3d normalisation(const std::vector<Vector2d>& points)
{
    Vector2d mean = Vector2d::Zero();
    for (const Vector2d& p : points) mean += p / double(points.size());
    double distance = 0;
    for (const Vector2d& p : points) distance += (p - mean).norm() / double(points.size());
    const double scale = std::sqrt(2.0) / std::max(distance, 1e-12);
    Matrix3d result;
    result << scale, 0, -scale * mean.x(), 0, scale, -scale * mean.y(), 0, 0, 1;
    return result;
}

/// The row of Zhang's equations for h_i^T B h_j, with B = (b0, 0, b1; 0, b2, b3; b1, b3, b4).
Eigen::Matrix<double, 1, 5> equation(const Matrix3d& h, int i, int j)
{
    Eigen::Matrix<double, 1, 5> row;
    row << h(0, i) * h(0, j), h(0, i) * h(2, j) + h(2, i) * h(0, j), h(1, i) * h(1, j),
        h(1, i) * h(2, j) + h(2, i) * h(1, j), h(2, i) * h(2, j);
    return row;
}

/// With the principal point in the middle: two unknowns, 1 / fx² and 1 / fy².
Vector2d focalFromMiddle(const std::vector<Matrix3d>& homographies)
{
    Eigen::MatrixXd equations(2 * static_cast<Eigen::Index>(homographies.size()), 2);
    Eigen::VectorXd right(equations.rows());
    Eigen::Index row = 0;
    for (const Matrix3d& h : homographies) {
        equations.row(row) << h(0, 0) * h(0, 1), h(1, 0) * h(1, 1);
        right[row++] = -h(2, 0) * h(2, 1);
        equations.row(row) << h(0, 0) * h(0, 0) - h(0, 1) * h(0, 1), h(1, 0) * h(1, 0) - h(1, 1) * h(1, 1);
        right[row++] = h(2, 1) * h(2, 1) - h(2, 0) * h(2, 0);
    }
    const Vector2d inverse = equations.jacobiSvd(Eigen::ComputeThinU | Eigen::ComputeThinV).solve(right);
    if (!(inverse.minCoeff() > 0))
        fail(
            "calibrate: the boards do not tell the focal length; tilt them by 30 degrees or so in different "
            "directions");
    return inverse.cwiseInverse().cwiseSqrt();
}

}  // namespace

Matrix3d homography(const PlaneView& view)
{
    const Matrix3d fromPlane = normalisation(view.plane);
    const Matrix3d fromPixels = normalisation(view.pixels);
    Eigen::Matrix<double, 9, 9> normal = Eigen::Matrix<double, 9, 9>::Zero();
    for (std::size_t i = 0; i < view.plane.size(); ++i) {
        const Vector3d p = fromPlane * view.plane[i].homogeneous();
        const Vector3d q = fromPixels * view.pixels[i].homogeneous();
        Eigen::Matrix<double, 2, 9> rows = Eigen::Matrix<double, 2, 9>::Zero();
        rows.block<1, 3>(0, 0) = p.transpose();
        rows.block<1, 3>(0, 6) = -q.x() * p.transpose();
        rows.block<1, 3>(1, 3) = p.transpose();
        rows.block<1, 3>(1, 6) = -q.y() * p.transpose();
        normal += rows.transpose() * rows;
    }
    const Eigen::JacobiSVD<Eigen::Matrix<double, 9, 9>> svd(normal, Eigen::ComputeFullV);
    const Eigen::Matrix<double, 9, 1> h = svd.matrixV().col(8);
    Matrix3d scaled;
    scaled << h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], h[8];
    Matrix3d result = fromPixels.inverse() * scaled * fromPlane;
    result /= result.norm();
    // The plane lies before the camera.
    return result.row(2) * view.plane.front().homogeneous() < 0 ? Matrix3d(-result) : result;
}

CameraModel zhangCamera(const std::vector<PlaneView>& views, const Eigen::Vector2i& size)
{
    if (views.size() < 3) fail("calibrate: at least three pictures of the board are needed");
    CameraModel camera;
    camera.size = size;
    camera.centre = (size.cast<double>() - Vector2d::Ones()) / 2;
    // Pixels around the middle and divided by the size keep the equations well-conditioned.
    const double scale = size.maxCoeff();
    Matrix3d shift;
    shift << 1 / scale, 0, -camera.centre.x() / scale, 0, 1 / scale, -camera.centre.y() / scale, 0, 0, 1;
    std::vector<Matrix3d> homographies;
    Eigen::MatrixXd equations(2 * static_cast<Eigen::Index>(views.size()), 5);
    for (const PlaneView& view : views) {
        Matrix3d h = shift * homography(view);
        h /= h.col(0).norm();
        const auto row = 2 * static_cast<Eigen::Index>(homographies.size());
        equations.row(row) = equation(h, 0, 1);
        equations.row(row + 1) = equation(h, 0, 0) - equation(h, 1, 1);
        homographies.push_back(h);
    }
    Eigen::VectorXd b = equations.jacobiSvd(Eigen::ComputeFullV).matrixV().col(4);
    if (b[0] < 0) b = -b;
    const double u = -b[1] / b[0];
    const double v = -b[3] / b[2];
    const double lambda = b[4] - b[1] * b[1] / b[0] - b[3] * b[3] / b[2];
    const bool sound = b[0] > 0 && b[2] > 0 && lambda > 0 && std::abs(u) < 0.25 && std::abs(v) < 0.25;
    if (sound) {
        camera.focal = scale * Vector2d(std::sqrt(lambda / b[0]), std::sqrt(lambda / b[2]));
        camera.centre += scale * Vector2d(u, v);
    } else {
        camera.focal = scale * focalFromMiddle(homographies);
    }
    return camera;
}

Pose planePose(const CameraModel& camera, const PlaneView& view)
{
    PlaneView ideal = view;
    for (Vector2d& pixel : ideal.pixels) pixel = camera.normalised(pixel);
    const Matrix3d h = homography(ideal);
    const double scale = 2 / (h.col(0).norm() + h.col(1).norm());
    Matrix3d rough;
    rough << scale * h.col(0), scale * h.col(1), scale * scale * h.col(0).cross(h.col(1));
    const Eigen::JacobiSVD<Matrix3d> svd(rough, Eigen::ComputeFullU | Eigen::ComputeFullV);
    return {svd.matrixU() * svd.matrixV().transpose(), scale * h.col(2)};
}

}  // namespace scansteps::scan
