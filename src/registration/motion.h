// Geometric change between two views from pairs of points: rigid, similarity, affine or homography. The
// registration steps and the edge steps that follow the camera share it.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <span>

#include "core/scratch_arena.h"

namespace scansteps::registration {

/// The value is the number of parameters.
enum class MotionModel
{
    rigid = 3,
    similarity = 4,
    affine = 6,
    homography = 8,
};

struct PointPair
{
    double x1, y1;  ///< pixel of the first view
    double x2, y2;  ///< pixel of the second
    double size;    ///< uncertainty of the pair in pixels of the second view, up to a common factor
};

/// Coordinates in which a frame spans about -1 to 1, and motions are well conditioned.
class FrameUnits
{
  public:
    FrameUnits(int width, int height);
    Eigen::Matrix3d toPixels(const Eigen::Matrix3d& motion) const;
    Eigen::Matrix3d fromPixels(const Eigen::Matrix3d& motion) const;
    Eigen::Vector2d point(double x, double y) const { return {(x - cx_) / scale_, (y - cy_) / scale_}; }
    double scale() const { return scale_; }

  private:
    double cx_, cy_, scale_;
};

using MotionStep = Eigen::Matrix<double, 8, 1>;

/// Derivatives of a moved point q by the parameters of a small motion after it: two shifts, rotation, scale,
/// two shears, two perspective terms; a model uses the first of them.
Eigen::Matrix<double, 2, 8> motionDerivatives(const Eigen::Vector2d& q);

/// The motion with a small step of `model` applied after it.
Eigen::Matrix3d applyStep(const Eigen::Matrix3d& motion, const MotionStep& step, MotionModel model);

inline Eigen::Vector2d moved(const Eigen::Matrix3d& motion, const Eigen::Vector2d& p)
{
    const Eigen::Vector3d q = motion * Eigen::Vector3d(p.x(), p.y(), 1);
    return q.head<2>() / q.z();
}

struct MotionEstimate
{
    Eigen::Matrix3d motion = Eigen::Matrix3d::Identity();  ///< pixel (x, y, 1), first view to second
    int inliers = 0;         ///< pairs that agree with it; 0: nothing trustworthy was found
    double deviation = 1e9;  ///< expected error of the frame's corners in pixels, from the covariance
};

/// Robust estimate. Hypotheses from two pairs each (M. Fischler and R. Bolles, "Random Sample Consensus",
/// CACM 1981, scored as P. Torr and A. Zisserman, "MLESAC", CVIU 2000), always similarities; the best is
/// grown into the model by least squares with robust weights and a limit that shrinks from step to step,
/// after O. Chum, J. Matas and J. Kittler, "Locally Optimized RANSAC", DAGM 2003. Pairs are tried best
/// first, so they should be ordered. The same pairs give the same result on every run.
MotionEstimate estimateMotion(std::span<const PointPair> pairs, MotionModel model, int width, int height,
                              std::uint32_t seed = 1, Scratch scratch = {});

/// Expected mean error of the frame's corners for a normal matrix in the parameters of a step, for unit
/// variance of its residuals. A huge value when it is singular.
double cornerDeviation(const Eigen::Matrix<double, 8, 8>& normal, const Eigen::Matrix3d& motion,
                       MotionModel model, const FrameUnits& units, int width, int height);

}  // namespace scansteps::registration
