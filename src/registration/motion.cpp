// Robust estimation of motions from point pairs: hypotheses, refinement, covariance.
#include "registration/motion.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <complex>
#include <random>

namespace scansteps::registration {
namespace {

using Normal = Eigen::Matrix<double, 8, 8>;
// The leading rows and columns that belong to the parameters of a model.
using PartOfNormal = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, 0, 8, 8>;

struct Pair
{
    Eigen::Vector2d from, to;
    double limit;  // residual that corresponds to one pixel of the level, in frame units
};

// False for motions that no change of view produces: mirrored, degenerate, or with a corner near the horizon.
bool plausible(const Eigen::Matrix3d& motion)
{
    if (!motion.allFinite()) return false;
    for (const double x : {-1.0, 1.0})
        for (const double y : {-1.0, 1.0})
            if (motion(2, 0) * x + motion(2, 1) * y + motion(2, 2) < 0.2) return false;
    const double area = motion.topLeftCorner<2, 2>().determinant();
    return area > 0.02 && area < 50;
}

class Estimator
{
  public:
    Estimator(std::span<const PointPair> pairs, MotionModel model, int width, int height, std::uint32_t seed,
              Scratch scratch)
        : model_(model), width_(width), height_(height), units_(width, height), random_(seed), pairs_(scratch)
    {
        pairs_.reserve(pairs.size());
        for (const PointPair& p : pairs)
            pairs_.push_back({units_.point(p.x1, p.y1), units_.point(p.x2, p.y2), p.size / units_.scale()});
    }

    MotionEstimate run()
    {
        MotionEstimate result;
        if (pairs_.size() < 3) return result;
        const bool bends = int(model_) > int(MotionModel::similarity);
        const double first = bends ? 12 : 4;  // pixels: how far a similarity may deviate from the true motion
        Eigen::Matrix3d best = hypothesise(first);
        double limit = first;
        for (const MotionModel stage : {std::min(model_, MotionModel::affine), model_})
            for (int i = 0; i < 4; ++i, limit = std::max(limit * 0.7, kLimit))
                best = improve(best, stage, limit);
        for (int i = 0; i < 4; ++i) best = improve(best, model_, kLimit);
        if (!plausible(best)) return result;
        result = judge(best);
        if (result.inliers > 0) compareWithHomography(best, result);
        return result;
    }

  private:
    static constexpr double kLimit = 2;  // maximum residual of an inlier, in pixels of the level
    static constexpr int kTries = 3000;

    double residual(const Eigen::Matrix3d& motion, const Pair& pair, double limit) const
    {
        return (transformed(motion, pair.from) - pair.to).squaredNorm() /
               (pair.limit * pair.limit * limit * limit);
    }

    // A similarity z -> a z + b through two pairs, in complex numbers; a rigid motion has |a| = 1.
    bool throughTwo(const Pair& p, const Pair& q, Eigen::Matrix3d& motion) const
    {
        using C = std::complex<double>;
        const C from(q.from.x() - p.from.x(), q.from.y() - p.from.y());
        const C to(q.to.x() - p.to.x(), q.to.y() - p.to.y());
        if (std::norm(from) < 0.01 || std::norm(to) < 0.0025) return false;
        C a = to / from;
        const double scale = std::abs(a);
        if (scale < 0.2 || scale > 5) return false;
        if (model_ == MotionModel::rigid) {
            if (scale < 0.9 || scale > 1.1) return false;
            a /= scale;
        }
        const Eigen::Vector2d from0 = (p.from + q.from) / 2;
        const Eigen::Vector2d to0 = (p.to + q.to) / 2;
        motion << a.real(), -a.imag(), 0, a.imag(), a.real(), 0, 0, 0, 1;
        motion.topRightCorner<2, 1>() = to0 - motion.topLeftCorner<2, 2>() * from0;
        return true;
    }

    Eigen::Matrix3d hypothesise(double limit)
    {
        Eigen::Matrix3d best = Eigen::Matrix3d::Identity();
        double bestCost = double(pairs_.size());
        double tries = kTries;
        for (int i = 0; i < int(tries); ++i) {
            // draws from the best pairs first, and gradually from all
            const std::size_t pool =
                std::min(pairs_.size(), std::size_t(16 + std::uint64_t(i) * pairs_.size() / (kTries / 8)));
            const Pair& p = pairs_[random_() % pool];
            const Pair& q = pairs_[random_() % pool];
            Eigen::Matrix3d motion;
            if (&p == &q || !throughTwo(p, q, motion)) continue;
            double cost = 0;
            std::size_t inliers = 0;
            for (const Pair& pair : pairs_) {
                const double r = residual(motion, pair, limit);
                inliers += r < 1;
                cost += std::min(r, 1.0);
                if (cost >= bestCost) break;
            }
            if (cost >= bestCost) continue;
            bestCost = cost;
            best = motion;
            const double share = double(inliers) / double(pairs_.size());
            tries =
                std::clamp(std::log(1e-6) / std::log(1 - share * share * 0.25 - 1e-9), 200.0, double(kTries));
        }
        return best;
    }

    // One weighted least-squares step; pairs beyond the limit have zero weight.
    Eigen::Matrix3d improve(const Eigen::Matrix3d& motion, MotionModel model, double limit) const
    {
        Normal normal = Normal::Zero();
        MotionStep right = MotionStep::Zero();
        for (const Pair& pair : pairs_) {
            const double r = residual(motion, pair, limit);
            if (!(r < 1)) continue;
            const double weight = (1 - r) * (1 - r) / (pair.limit * pair.limit);
            const Eigen::Vector2d q = transformed(motion, pair.from);
            const auto derivatives = motionDerivatives(q);
            normal += weight * derivatives.transpose() * derivatives;
            right += weight * derivatives.transpose() * (pair.to - q);
        }
        const int n = int(model);
        const Eigen::LDLT<PartOfNormal> solver(normal.topLeftCorner(n, n) +
                                               1e-9 * normal.trace() * PartOfNormal::Identity(n, n));
        MotionStep step = MotionStep::Zero();
        step.head(n) = solver.solve(right.head(n));
        if (!step.allFinite() || step.norm() > 1) return motion;
        return applyStep(motion, step, model);
    }

    MotionEstimate judge(const Eigen::Matrix3d& motion) const
    {
        MotionEstimate result;
        Normal normal = Normal::Zero();
        double squares = 0;
        int inliers = 0;
        for (const Pair& pair : pairs_) {
            const double r = residual(motion, pair, kLimit);
            if (!(r < 1)) continue;
            ++inliers;
            squares += r * kLimit * kLimit;
            const auto derivatives = motionDerivatives(transformed(motion, pair.from));
            normal += derivatives.transpose() * derivatives / (pair.limit * pair.limit);
        }
        const int freedom = 2 * inliers - int(model_);
        if (inliers < 8 || freedom <= 0) return result;
        result.motion = units_.toPixels(motion);
        result.inliers = inliers;
        result.deviation =
            cornerDeviation(normal, motion, model_, units_, width_, height_) * std::sqrt(squares / freedom);
        return result;
    }

    // The homography that the same pairs lead to, starting from far more of them than agree with the motion.
    void compareWithHomography(const Eigen::Matrix3d& motion, MotionEstimate& result) const
    {
        if (model_ == MotionModel::homography) return;
        Eigen::Matrix3d richer = motion;
        double limit = 32;
        for (const MotionModel stage :
             {MotionModel::similarity, MotionModel::affine, MotionModel::homography})
            for (int i = 0; i < 4; ++i, limit = std::max(limit * 0.8, kLimit))
                richer = improve(richer, stage, limit);
        for (int i = 0; i < 4; ++i) richer = improve(richer, MotionModel::homography, kLimit);
        if (!plausible(richer)) return;
        double squares = 0, saved = 0;
        int inliers = 0;
        for (const Pair& pair : pairs_) {
            const double r = residual(richer, pair, kLimit);
            saved += std::min(residual(motion, pair, kLimit), 1.0) - std::min(r, 1.0);
            if (!(r < 1)) continue;
            ++inliers;
            squares += r;
        }
        const int freedom = 2 * inliers - int(MotionModel::homography);
        if (freedom > 0 && squares > 0) result.richerGain = saved * freedom / squares;
        for (const double x : {0.0, width_ - 1.0})
            for (const double y : {0.0, height_ - 1.0}) {
                const Eigen::Vector2d p = units_.point(x, y);
                result.richerShift +=
                    (transformed(richer, p) - transformed(motion, p)).norm() * units_.scale() / 4;
            }
    }

    MotionModel model_;
    int width_, height_;
    FrameUnits units_;
    std::mt19937 random_;
    std::pmr::vector<Pair> pairs_;
};

}  // namespace

FrameUnits::FrameUnits(int width, int height)
    : cx_((width - 1) / 2.0), cy_((height - 1) / 2.0), scale_(std::max({width, height, 2}) / 2.0)
{
}

Eigen::Matrix3d FrameUnits::toPixels(const Eigen::Matrix3d& motion) const
{
    Eigen::Matrix3d in, out;
    in << 1 / scale_, 0, -cx_ / scale_, 0, 1 / scale_, -cy_ / scale_, 0, 0, 1;
    out << scale_, 0, cx_, 0, scale_, cy_, 0, 0, 1;
    const Eigen::Matrix3d pixels = out * motion * in;
    return pixels / pixels(2, 2);
}

Eigen::Matrix3d FrameUnits::fromPixels(const Eigen::Matrix3d& motion) const
{
    Eigen::Matrix3d in, out;
    in << 1 / scale_, 0, -cx_ / scale_, 0, 1 / scale_, -cy_ / scale_, 0, 0, 1;
    out << scale_, 0, cx_, 0, scale_, cy_, 0, 0, 1;
    const Eigen::Matrix3d units = in * motion * out;
    return units / units(2, 2);
}

Eigen::Matrix<double, 2, 8> motionDerivatives(const Eigen::Vector2d& q)
{
    const double x = q.x();
    const double y = q.y();
    Eigen::Matrix<double, 2, 8> d;
    d << 1, 0, -y, x, x, y, x * x, x * y,  //
        0, 1, x, y, -y, x, x * y, y * y;
    return d;
}

Eigen::Matrix3d applyStep(const Eigen::Matrix3d& motion, const MotionStep& s, MotionModel model)
{
    Eigen::Matrix3d small;
    if (model == MotionModel::rigid)
        small << std::cos(s[2]), -std::sin(s[2]), s[0], std::sin(s[2]), std::cos(s[2]), s[1], 0, 0, 1;
    else
        small << 1 + s[3] + s[4], s[5] - s[2], s[0], s[5] + s[2], 1 + s[3] - s[4], s[1], -s[6], -s[7], 1;
    const Eigen::Matrix3d result = small * motion;
    return result / result(2, 2);
}

double cornerDeviation(const Normal& normal, const Eigen::Matrix3d& motion, MotionModel model,
                       const FrameUnits& units, int width, int height)
{
    const int n = int(model);
    const Eigen::FullPivLU<PartOfNormal> solver(normal.topLeftCorner(n, n));
    if (!solver.isInvertible()) return 1e9;
    const PartOfNormal covariance = solver.inverse();
    double sum = 0;
    for (const double x : {0.0, width - 1.0})
        for (const double y : {0.0, height - 1.0}) {
            const Eigen::Matrix<double, 2, 8> d = motionDerivatives(transformed(motion, units.point(x, y)));
            const Eigen::Matrix<double, 2, Eigen::Dynamic, 0, 2, 8> part = d.leftCols(n);
            sum += std::sqrt(std::max((part * covariance * part.transpose()).trace(), 0.0));
        }
    return sum / 4 * units.scale();
}

MotionEstimate estimateMotion(std::span<const PointPair> pairs, MotionModel model, int width, int height,
                              std::uint32_t seed, Scratch scratch)
{
    return Estimator(pairs, model, width, height, seed, scratch).run();
}

}  // namespace scansteps::registration
