// Estimates the motion between two views from pairs of points: rigid, similarity, affine or homography.
// Shared by the registration steps and ccanny5, ccanny5old and ccanny7.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <span>

#include "core/scratch_arena.h"

namespace scansteps::registration {

/// Values are the numbers of parameters.
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
    double x2, y2;  ///< pixel of the second view
    double size;    ///< relative uncertainty of the pair, in pixels of the second view
};

/// Normalised coordinates in which a frame spans about -1 to 1, so that motions are well conditioned.
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

/// Derivatives of a transformed point q with respect to the parameters of a small motion applied to it: two
/// translations, rotation, scale, two shears, two perspective terms. A model uses the first of them.
Eigen::Matrix<double, 2, 8> motionDerivatives(const Eigen::Vector2d& q);

/// The motion followed by a small step of `model`.
Eigen::Matrix3d applyStep(const Eigen::Matrix3d& motion, const MotionStep& step, MotionModel model);

/// The point p transformed by a motion.
inline Eigen::Vector2d transformed(const Eigen::Matrix3d& motion, const Eigen::Vector2d& p)
{
    const Eigen::Vector3d q = motion * Eigen::Vector3d(p.x(), p.y(), 1);
    return q.head<2>() / q.z();
}

struct MotionEstimate
{
    Eigen::Matrix3d motion = Eigen::Matrix3d::Identity();  ///< pixel (x, y, 1), first view to second
    int inliers = 0;         ///< pairs that agree with it; 0: no reliable motion was found
    double deviation = 1e9;  ///< expected error of the frame's corners in pixels, from the covariance
    double richerGain = 0;   ///< by how much the best homography reduces the squared residuals, in units of
                             ///< their variance; 0 for homographies
    double richerShift = 0;  ///< how far that one moves the frame's corners from `motion`, mean, pixels
};

/// Robust estimate. Hypotheses are similarities or rigid motions from two pairs each (M. Fischler and R.
/// Bolles, "Random Sample Consensus", CACM 1981, scored as in P. Torr and A. Zisserman, "MLESAC", CVIU 2000).
/// The best one is refined to the model by least squares with robust weights and a limit that shrinks from
/// step to step, after O. Chum, J. Matas and J. Kittler, "Locally Optimized RANSAC", DAGM 2003. Pairs should
/// be ordered best first, as the first ones are tried first. Deterministic: the same pairs and seed give the
/// same result.
MotionEstimate estimateMotion(std::span<const PointPair> pairs, MotionModel model, int width, int height,
                              std::uint32_t seed = 1, Scratch scratch = {});

/// Expected mean error of the frame's corners in pixels, from the normal matrix of a step for residuals of
/// unit variance. 1e9 when the matrix is singular.
double cornerDeviation(const Eigen::Matrix<double, 8, 8>& normal, const Eigen::Matrix3d& motion,
                       MotionModel model, const FrameUnits& units, int width, int height);

}  // namespace scansteps::registration
