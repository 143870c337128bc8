#include "stage_fit.h"

#include <ceres/ceres.h>
#include <ceres/rotation.h>
#include <scansteps/error.h>

#include <Eigen/Geometry>

#include <array>
#include <cmath>
#include <numbers>

namespace scansteps::scan {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

/// The error of a corner after `step` steps, in pixels. Unknowns: the board's first pose (rotation vector,
/// translation) and the motion (rotation vector of a step, point of the axis; or, for a linear stage, zero
/// and the way of a step).
struct StepError
{
    Vector2d plane, undistorted, focal;  ///< normalised coordinates of the corner's pixel
    double step;
    bool linear;

    template <class T>
    bool operator()(const T* pose, const T* motion, T* residual) const
    {
        const T board[3] = {T(plane.x()), T(plane.y()), T(0)};
        T point[3];
        ceres::AngleAxisRotatePoint(pose, board, point);
        for (int i = 0; i < 3; ++i) point[i] += pose[3 + i];
        if (linear) {
            for (int i = 0; i < 3; ++i) point[i] += T(step) * motion[3 + i];
        } else {
            const T turn[3] = {T(step) * motion[0], T(step) * motion[1], T(step) * motion[2]};
            T arm[3] = {point[0] - motion[3], point[1] - motion[4], point[2] - motion[5]};
            T turned[3];
            ceres::AngleAxisRotatePoint(turn, arm, turned);
            for (int i = 0; i < 3; ++i) point[i] = turned[i] + motion[3 + i];
        }
        if (!(point[2] > T(0))) return false;
        residual[0] = focal.x() * (point[0] / point[2] - undistorted.x());
        residual[1] = focal.y() * (point[1] / point[2] - undistorted.y());
        return true;
    }
};

using Six = std::array<double, 6>;

Vector3d rotationVector(const Eigen::Matrix3d& rotation)
{
    const Eigen::AngleAxisd turn(rotation);
    return turn.angle() * turn.axis();
}

/// The mean motion from view to view: rotation vector and point of the axis, or the way.
Six firstMotion(const std::vector<Pose>& poses, bool linear)
{
    const double count = double(poses.size() - 1);
    Vector3d way = (poses.back().translation - poses.front().translation) / count;
    if (linear) return {0, 0, 0, way.x(), way.y(), way.z()};
    Vector3d turn = Vector3d::Zero();
    Eigen::Matrix3d normal = Eigen::Matrix3d::Zero();
    Vector3d right = Vector3d::Zero();
    for (std::size_t i = 1; i < poses.size(); ++i) {
        const Pose motion = poses[i] * poses[i - 1].inverse();
        turn += rotationVector(motion.rotation) / count;
        // A point of the axis stays where it is: (1 - R) p = t.
        const Eigen::Matrix3d still = Eigen::Matrix3d::Identity() - motion.rotation;
        normal += still.transpose() * still;
        right += still.transpose() * motion.translation;
    }
    if (!(turn.norm() > 1e-3)) fail("calibrate: the board does not turn from picture to picture");
    const Vector3d axis = turn.normalized();
    // Of the points of the axis, the one nearest to the board.
    normal += axis * axis.transpose();
    right += axis * axis.dot(poses.front().translation);
    const Vector3d point = normal.ldlt().solve(right);
    return {turn.x(), turn.y(), turn.z(), point.x(), point.y(), point.z()};
}

Stage stageOf(const Six& motion, bool linear, double rms)
{
    const Vector3d turn(motion[0], motion[1], motion[2]);
    const Vector3d rest(motion[3], motion[4], motion[5]);
    if (linear) return LinearStage{rest.normalized(), rest.norm(), rms};
    return Turntable{turn.normalized(), rest, turn.norm() * 180 / std::numbers::pi, rms};
}

}  // namespace

StageSolution solveStage(const CameraModel& camera, const std::vector<PlaneView>& views, bool linear)
{
    if (views.size() < 3) fail("calibrate: at least three pictures of the board on the stage are needed");
    std::vector<Pose> poses;
    for (const PlaneView& view : views) poses.push_back(planePose(camera, view));
    Six motion = firstMotion(poses, linear);
    const Vector3d turn = rotationVector(poses[0].rotation);
    const Vector3d& at = poses[0].translation;
    Six pose{turn.x(), turn.y(), turn.z(), at.x(), at.y(), at.z()};
    ceres::Problem problem;
    std::size_t count = 0;
    for (std::size_t v = 0; v < views.size(); ++v) {
        for (std::size_t i = 0; i < views[v].plane.size(); ++i, ++count)
            problem.AddResidualBlock(new ceres::AutoDiffCostFunction<StepError, 2, 6, 6>(new StepError{
                                         views[v].plane[i], camera.normalised(views[v].pixels[i]),
                                         camera.focal, double(v), linear}),
                                     new ceres::HuberLoss(1), pose.data(), motion.data());
    }
    ceres::Solver::Options options;
    options.linear_solver_type = ceres::DENSE_QR;
    options.max_num_iterations = 200;
    options.logging_type = ceres::SILENT;
    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    if (!summary.IsSolutionUsable()) fail("calibrate: no motion explains the corners");
    if (linear && !(Vector3d(motion[3], motion[4], motion[5]).norm() > 1e-3))
        fail("calibrate: the board does not move from picture to picture");
    ceres::Problem::EvaluateOptions plain;
    plain.apply_loss_function = false;
    double cost = 0;
    problem.Evaluate(plain, &cost, nullptr, nullptr, nullptr);
    const double pixels = std::sqrt(2 * cost / double(2 * count));
    const double perPixel = at.z() / camera.focal.mean();
    return {stageOf(motion, linear, pixels * perPixel), pixels};
}

}  // namespace scansteps::scan
