#include "bundle.h"

#include <ceres/ceres.h>
#include <ceres/rotation.h>
#include <scansteps/error.h>

#include <Eigen/Geometry>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace scansteps::scan {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using PoseParameters = std::array<double, 6>;  // rotation vector, translation

/// The error of one corner; CameraModel::project() for the types of automatic differentiation.
struct CornerError
{
    Vector2d plane, pixel;

    template <class T>
    bool operator()(const T* camera, const T* pose, T* residual) const
    {
        const T board[3] = {T(plane.x()), T(plane.y()), T(0)};
        T point[3];
        ceres::AngleAxisRotatePoint(pose, board, point);
        const T z = point[2] + pose[5];
        if (!(z > T(0))) return false;
        const T x = (point[0] + pose[3]) / z;
        const T y = (point[1] + pose[4]) / z;
        const T r = x * x + y * y;
        const T radial = T(1) + r * (camera[4] + r * (camera[5] + r * camera[8]));
        const T dx = x * radial + T(2) * camera[6] * x * y + camera[7] * (r + T(2) * x * x);
        const T dy = y * radial + camera[6] * (r + T(2) * y * y) + T(2) * camera[7] * x * y;
        residual[0] = camera[0] * dx + camera[2] - T(pixel.x());
        residual[1] = camera[1] * dy + camera[3] - T(pixel.y());
        return true;
    }
};

PoseParameters parametersOf(const Pose& pose)
{
    const Eigen::AngleAxisd turn(pose.rotation);
    const Vector3d vector = turn.angle() * turn.axis();
    return {vector.x(),           vector.y(),           vector.z(),
            pose.translation.x(), pose.translation.y(), pose.translation.z()};
}

Pose poseOf(const PoseParameters& p)
{
    const Vector3d vector(p[0], p[1], p[2]);
    const double angle = vector.norm();
    const Vector3d axis = angle > 0 ? Vector3d(vector / angle) : Vector3d::UnitX();
    return {Eigen::AngleAxisd(angle, axis).toRotationMatrix(), {p[3], p[4], p[5]}};
}

CameraModel cameraOf(const CameraParameters& p, const Eigen::Vector2i& size)
{
    CameraModel camera;
    camera.size = size;
    camera.focal = {p[0], p[1]};
    camera.centre = {p[2], p[3]};
    camera.distortion = {p[4], p[5], p[6], p[7], p[8]};
    return camera;
}

/// The unknowns and the problem that refers to them.
struct Bundle
{
    CameraParameters camera;
    std::vector<PoseParameters> poses;

    std::unique_ptr<ceres::Problem> problem(const std::vector<PlaneView>& views, double lossScale)
    {
        auto result = std::make_unique<ceres::Problem>();
        for (std::size_t v = 0; v < views.size(); ++v)
            for (std::size_t i = 0; i < views[v].plane.size(); ++i)
                result->AddResidualBlock(new ceres::AutoDiffCostFunction<CornerError, 2, 9, 6>(
                                             new CornerError{views[v].plane[i], views[v].pixels[i]}),
                                         new ceres::HuberLoss(lossScale), camera.data(), poses[v].data());
        return result;
    }

    void solve(ceres::Problem& problem) const
    {
        ceres::Solver::Options options;
        options.linear_solver_type = ceres::DENSE_SCHUR;
        options.max_num_iterations = 200;
        options.function_tolerance = 1e-12;
        options.parameter_tolerance = 1e-12;
        options.num_threads = 1;
        options.logging_type = ceres::SILENT;
        ceres::Solver::Summary summary;
        ceres::Solve(options, &problem, &summary);
        if (!summary.IsSolutionUsable()) fail("calibrate: no camera explains the corners");
    }

    CameraParameters deviations(ceres::Problem& problem, double noise)
    {
        ceres::Covariance::Options options;
        options.algorithm_type = ceres::DENSE_SVD;
        options.null_space_rank = 0;
        options.apply_loss_function = false;
        ceres::Covariance covariance(options);
        Eigen::Matrix<double, 9, 9, Eigen::RowMajor> block;
        const std::vector<std::pair<const double*, const double*>> blocks{{camera.data(), camera.data()}};
        if (!covariance.Compute(blocks, &problem) ||
            !covariance.GetCovarianceBlock(camera.data(), camera.data(), block.data()))
            fail("calibrate: the boards do not determine the camera; show them at more places and tilts");
        return noise * block.diagonal().cwiseMax(0).cwiseSqrt();
    }
};

void fillResiduals(const std::vector<PlaneView>& views, CameraSolution& solution)
{
    solution.residuals.clear();
    solution.viewRms.clear();
    std::vector<double> sizes;
    double total = 0;
    for (std::size_t v = 0; v < views.size(); ++v) {
        auto& list = solution.residuals.emplace_back();
        double sum = 0;
        for (std::size_t i = 0; i < views[v].plane.size(); ++i) {
            const Vector2d& at = views[v].plane[i];
            list.push_back(solution.camera.project(solution.poses[v] * Vector3d(at.x(), at.y(), 0)) -
                           views[v].pixels[i]);
            sum += list.back().squaredNorm();
            sizes.push_back(std::abs(list.back().x()));
            sizes.push_back(std::abs(list.back().y()));
        }
        total += sum;
        solution.viewRms.push_back(std::sqrt(sum / double(2 * list.size())));
    }
    solution.rms = std::sqrt(total / double(sizes.size()));
    // The median of the absolute value of a normal deviate is 0.6745 of its standard deviation; fitting has
    // used up some of the scatter.
    std::nth_element(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2),
                     sizes.end());
    const double unknowns = 9 + 6 * double(views.size());
    const double freedom = std::max(1.0, double(sizes.size()) - unknowns);
    solution.noise = sizes[sizes.size() / 2] / 0.6745 * std::sqrt(double(sizes.size()) / freedom);
    solution.outliers = 0;
    for (const auto& list : solution.residuals)
        for (const Vector2d& residual : list) solution.outliers += residual.norm() > 5 * solution.noise;
}

}  // namespace

CameraParameters parametersOf(const CameraModel& camera)
{
    CameraParameters p;
    p << camera.focal, camera.centre, camera.distortion[0], camera.distortion[1], camera.distortion[2],
        camera.distortion[3], camera.distortion[4];
    return p;
}

CameraSolution solveCamera(const std::vector<PlaneView>& views, const Eigen::Vector2i& size)
{
    const CameraModel first = zhangCamera(views, size);
    Bundle bundle{parametersOf(first), {}};
    for (const PlaneView& view : views) bundle.poses.push_back(parametersOf(planePose(first, view)));
    CameraSolution solution;
    const auto solve = [&](double lossScale) {
        const auto problem = bundle.problem(views, lossScale);
        bundle.solve(*problem);
        solution.camera = cameraOf(bundle.camera, size);
        solution.poses.clear();
        for (const PoseParameters& pose : bundle.poses) solution.poses.push_back(poseOf(pose));
        fillResiduals(views, solution);
        solution.deviations = bundle.deviations(*problem, solution.noise);
    };
    solve(1);
    solve(std::max(2.5 * solution.noise, 1e-6));
    return solution;
}

}  // namespace scansteps::scan
