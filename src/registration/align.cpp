// Gauss-Newton alignment of two views by grey values, and the choice of support points.
#include "registration/align.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>

namespace scansteps::registration {
namespace {

constexpr int kCell = 8;
constexpr int kBorder = 2 * kCell;
constexpr int kGain = 8;  // indices of gain and offset, after the parameters of the motion
constexpr int kOffset = 9;

using Normal = Eigen::Matrix<double, 10, 10>;
using Right = Eigen::Matrix<double, 10, 1>;

struct Sample
{
    double value, dx, dy;
};

// Bilinear value and its central differences one pixel to each side. The point must be two pixels inside the
// image.
Sample sampleAt(grey::GreyView image, double x, double y)
{
    const int ix = int(x);
    const int iy = int(y);
    const double fx = x - ix;
    const double fy = y - iy;
    double rows[4][4];
    for (int j = 0; j < 4; ++j) {
        const std::uint8_t* p = image.row(iy + j - 1) + ix - 1;
        for (int i = 0; i < 4; ++i) rows[j][i] = p[i];
    }
    const auto along = [fx](const double* r, int i) { return r[i] + fx * (r[i + 1] - r[i]); };
    const double above = along(rows[1], 1);
    const double below = along(rows[2], 1);
    const double left = along(rows[1], 0) * (1 - fy) + along(rows[2], 0) * fy;
    const double right = along(rows[1], 2) * (1 - fy) + along(rows[2], 2) * fy;
    const double up = along(rows[0], 1) * (1 - fy) + above * fy;
    const double down = below * (1 - fy) + along(rows[3], 1) * fy;
    return {above + fy * (below - above), (right - left) / 2, (down - up) / 2};
}

// A support point as both views see it.
struct Observation
{
    Eigen::Vector2d q;  // frame units of the second view
    double here;
    Sample there;
};

class Aligner
{
  public:
    Aligner(grey::GreyView first, grey::GreyView second, std::span<const SupportPoint> support,
            MotionModel model, Scratch scratch)
        : first_(first),
          second_(second),
          support_(support),
          model_(model),
          units_(first.width, first.height),
          observations_(scratch),
          errors_(scratch)
    {
        observations_.reserve(support.size());
        errors_.reserve(support.size());
    }

    Alignment run(const Eigen::Matrix3d& start, int steps)
    {
        Eigen::Matrix3d motion = units_.fromPixels(start);
        double gain = 1;
        double offset = 0;
        sample(motion);
        fitGrey(gain, offset);
        for (int i = 0; i < steps; ++i) {
            const double scale = residualScale(gain, offset);
            Right step;
            if (!solve(gain, offset, scale, step)) break;
            motion = applyStep(motion, step.head<8>(), model_);
            gain += step[kGain];
            offset += step[kOffset];
            sample(motion);
            if (step.head<8>().norm() * units_.scale() < 0.002) break;
        }
        Alignment result;
        result.motion = units_.toPixels(motion);
        result.correlation = correlation();
        result.deviation = deviation(motion, gain, offset);
        return result;
    }

  private:
    // Samples the second view at the transformed support points.
    void sample(const Eigen::Matrix3d& motion)
    {
        observations_.clear();
        for (const SupportPoint& s : support_) {
            const Eigen::Vector2d q = transformed(motion, units_.point(double(s.x), double(s.y)));
            const Eigen::Vector2d p =
                q * units_.scale() + Eigen::Vector2d(first_.width - 1, first_.height - 1) / 2;
            if (!(p.x() >= 2 && p.y() >= 2 && p.x() < second_.width - 3 && p.y() < second_.height - 3))
                continue;
            const auto x = std::size_t(s.x);
            observations_.push_back({q, double(first_.row(int(s.y))[x]), sampleAt(second_, p.x(), p.y())});
        }
    }

    double error(const Observation& s, double gain, double offset) const
    {
        return gain * s.here + offset - s.there.value;
    }

    void fitGrey(double& gain, double& offset) const
    {
        double n = 1e-9, a = 0, b = 0, aa = 1e-9, ab = 0;
        for (const Observation& s : observations_)
            n += 1, a += s.here, b += s.there.value, aa += s.here * s.here, ab += s.here * s.there.value;
        const double variance = aa / n - a / n * (a / n);
        gain = variance > 1 ? std::clamp((ab / n - a / n * (b / n)) / variance, 0.3, 3.0) : 1;
        offset = b / n - gain * a / n;
    }

    // Robust scale of the errors: 1.5 times their median absolute value, at least two grey levels.
    double residualScale(double gain, double offset)
    {
        errors_.clear();
        for (const Observation& s : observations_) errors_.push_back(std::abs(error(s, gain, offset)));
        if (errors_.empty()) return 1;
        const auto middle = errors_.begin() + std::ptrdiff_t(errors_.size() / 2);
        std::nth_element(errors_.begin(), middle, errors_.end());
        return std::max(1.5 * *middle, 2.0);
    }

    static double weightOf(double error, double scale)
    {
        const double t = error / (4.7 * scale);  // Tukey's weights
        return t * t < 1 ? (1 - t * t) * (1 - t * t) : 0;
    }

    Normal normalOf(double gain, double offset, double scale, Right& right) const
    {
        Normal normal = Normal::Zero();
        right.setZero();
        const int n = int(model_);
        for (const Observation& s : observations_) {
            const double e = error(s, gain, offset);
            const double weight = weightOf(e, scale);
            if (weight == 0) continue;
            Right row;
            row.head<8>() =
                (Eigen::RowVector2d(s.there.dx, s.there.dy) * motionDerivatives(s.q)).transpose() *
                units_.scale();
            for (int i = n; i < 8; ++i) row[i] = 0;
            row[kGain] = -s.here;
            row[kOffset] = -1;
            normal.selfadjointView<Eigen::Lower>().rankUpdate(row, weight);
            right += weight * e * row;
        }
        for (int i = n; i < 8; ++i) normal(i, i) = 1;
        normal = normal.selfadjointView<Eigen::Lower>();
        return normal;
    }

    bool solve(double gain, double offset, double scale, Right& step) const
    {
        if (observations_.size() < 40) return false;
        Right right;
        const Normal normal = normalOf(gain, offset, scale, right);
        step = normal.ldlt().solve(right);
        return step.allFinite() && step.head<8>().norm() < 0.2;
    }

    double correlation() const
    {
        double n = 0, a = 0, b = 0, aa = 0, bb = 0, ab = 0;
        for (const Observation& s : observations_) {
            const double v = s.there.value;
            n += 1, a += s.here, b += v, aa += s.here * s.here, bb += v * v, ab += s.here * v;
        }
        const double va = aa * n - a * a;
        const double vb = bb * n - b * b;
        return va > 0 && vb > 0 ? (ab * n - a * b) / std::sqrt(va * vb) : 0;
    }

    double deviation(const Eigen::Matrix3d& motion, double gain, double offset)
    {
        if (observations_.size() < 40) return 1e9;
        const double scale = residualScale(gain, offset);
        Right right;
        const Normal normal = normalOf(gain, offset, scale, right);
        const Eigen::Matrix<double, 8, 2> mixed = normal.block<8, 2>(0, kGain);
        const Eigen::Matrix2d grey = normal.block<2, 2>(kGain, kGain);
        const Eigen::Matrix<double, 8, 8> left =
            normal.topLeftCorner<8, 8>() - mixed * grey.ldlt().solve(mixed.transpose());
        return scale * cornerDeviation(left, motion, model_, units_, first_.width, first_.height);
    }

    grey::GreyView first_, second_;
    std::span<const SupportPoint> support_;
    MotionModel model_;
    FrameUnits units_;
    std::pmr::vector<Observation> observations_;
    std::pmr::vector<double> errors_;
};

}  // namespace

void steepestPixels(grey::GreyView image, std::vector<SupportPoint>& points, float minGradient)
{
    points.clear();
    const int limit =
        int(4 * minGradient * minGradient);  // for squared differences of samples two pixels apart
    for (int top = kBorder; top + kCell + kBorder <= image.height; top += kCell)
        for (int left = kBorder; left + kCell + kBorder <= image.width; left += kCell) {
            int best = limit;
            SupportPoint at{-1, -1};
            for (int y = top; y < top + kCell; ++y) {
                const std::uint8_t* row = image.row(y);
                for (int x = left; x < left + kCell; ++x) {
                    const int dx = row[x + 1] - row[x - 1];
                    const int dy = row[x + image.stride] - row[x - image.stride];
                    if (dx * dx + dy * dy < best) continue;
                    best = dx * dx + dy * dy + 1;
                    at = {float(x), float(y)};
                }
            }
            if (at.x >= 0) points.push_back(at);
        }
}

Alignment alignMotion(grey::GreyView first, grey::GreyView second, std::span<const SupportPoint> support,
                      MotionModel model, const Eigen::Matrix3d& start, int steps, Scratch scratch)
{
    return Aligner(first, second, support, model, scratch).run(start, steps);
}

}  // namespace scansteps::registration
