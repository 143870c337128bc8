// Gauss-Newton alignment of two views by patches, and its expected error.
#include "registration/align.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>

namespace scansteps::registration {
namespace {

constexpr int kPixels = kPatchSide * kPatchSide;
constexpr double kCentre = (kPatchSide - 1) / 2.0;
constexpr double kMinLength = 1.5 * kPatchSide;  // a standard deviation of 1.5 grey levels
constexpr double kNoise = 1.0;                   // least deviation of a pixel after smoothing, grey levels
constexpr double kDependence = 1.3;              // neighbouring patches err together; see bench/ACCURACY.md
constexpr double kPull = 0.05;                   // keeps the displacement of patches on straight edges small

using Normal = Eigen::Matrix<double, 8, 8>;
using Jacobian = Eigen::Matrix<double, 2, 8>;

double dot(const PatchValues& a, const PatchValues& b)
{
    std::array<float, kPatchSide> sums{};
    for (std::size_t i = 0; i < kPixels; i += kPatchSide)
        for (std::size_t k = 0; k < kPatchSide; ++k) sums[k] += a[i + k] * b[i + k];
    double sum = 0;
    for (const float s : sums) sum += double(s);
    return sum;
}

// Subtracts the mean, which it returns.
double centre(PatchValues& values)
{
    double sum = 0;
    for (const float v : values) sum += double(v);
    for (float& v : values) v -= float(sum / kPixels);
    return sum / kPixels;
}

void removePart(PatchValues& values, const PatchValues& unit)
{
    const auto part = float(dot(values, unit));
    for (std::size_t i = 0; i < kPixels; ++i) values[i] -= part * unit[i];
}

bool cut(grey::GreyView image, int left, int top, Patch& patch)
{
    for (int y = 0; y < kPatchSide; ++y) {
        const std::uint8_t* row = image.row(top + y) + left;
        for (int x = 0; x < kPatchSide; ++x) {
            const auto i = std::size_t(y * kPatchSide + x);
            patch.shape[i] = row[x];
            patch.dx[i] = float(row[x + 1] - row[x - 1]) / 2;
            patch.dy[i] = float(row[x + image.stride] - row[x - image.stride]) / 2;
        }
    }
    centre(patch.shape);
    const double length = std::sqrt(dot(patch.shape, patch.shape));
    if (length < kMinLength) return false;
    patch.length = float(length);
    for (float& v : patch.shape) v /= float(length);
    for (PatchValues* gradient : {&patch.dx, &patch.dy}) {
        centre(*gradient);
        removePart(*gradient, patch.shape);
    }
    patch.x = float(left + kCentre);
    patch.y = float(top + kCentre);
    patch.form = {dot(patch.dx, patch.dx), dot(patch.dx, patch.dy), dot(patch.dy, patch.dy)};
    return true;
}

// How a patch lies in the second view.
struct Reading
{
    Jacobian jacobian;     // of its displacement, in pixels of the first view
    Eigen::Matrix2d form;  // information about the displacement, per squared grey level of noise
    Eigen::Vector2d pull;  // form times the displacement
    double correlation = 0;
    double precision = 0;  // 1 / variance of the noise, in grey levels of the first view
    double distance = 0;   // length of the displacement
    double weight = 0;
};

class Aligner
{
  public:
    Aligner(std::span<const Patch> patches, grey::GreyView second, MotionModel model, double minCorrelation,
            Scratch scratch)
        : patches_(patches),
          second_(second),
          model_(model),
          minCorrelation_(minCorrelation),
          units_(second.width, second.height),
          readings_(scratch),
          distances_(scratch)
    {
        readings_.reserve(patches.size());
        distances_.reserve(patches.size());
    }

    Alignment run(const Eigen::Matrix3d& start, int steps)
    {
        Alignment result{.motion = start};
        for (int i = 0; i < steps; ++i) {
            read(result.motion);
            MotionStep step;
            if (!solve(step)) break;
            const Eigen::Matrix3d next = advanced(result.motion, step);
            if (!next.allFinite()) break;
            result.motion = next;
            if (step.norm() * units_.scale() < 0.003) break;
        }
        read(result.motion);
        judge(result);
        return result;
    }

  private:
    Eigen::Matrix3d advanced(const Eigen::Matrix3d& motion, const MotionStep& step) const
    {
        const Eigen::Matrix3d back = units_.fromPixels(motion.inverse());
        const Eigen::Matrix3d next = units_.toPixels(applyStep(back, step, model_)).inverse();
        return next / next(2, 2);
    }

    // Derivatives of the motion at a pixel, by its row and column.
    static Eigen::Matrix2d localMap(const Eigen::Matrix3d& m, double x, double y, Eigen::Vector2d& at)
    {
        const Eigen::Vector3d q = m * Eigen::Vector3d(x, y, 1);
        at = q.head<2>() / q.z();
        Eigen::Matrix2d map = m.topLeftCorner<2, 2>();
        map -= at * m.block<1, 2>(2, 0);
        return map / q.z();
    }

    // The second view's values under a patch. The map must keep them inside.
    void sample(const Eigen::Vector2d& at, const Eigen::Matrix2d& map, PatchValues& values) const
    {
        const auto a = float(map(0, 0)), b = float(map(0, 1)), c = float(map(1, 0)), d = float(map(1, 1));
        for (int y = 0; y < kPatchSide; ++y)
            for (int x = 0; x < kPatchSide; ++x) {
                const float u = float(x) - float(kCentre), v = float(y) - float(kCentre);
                const float px = float(at.x()) + a * u + b * v;
                const float py = float(at.y()) + c * u + d * v;
                const int ix = int(px), iy = int(py);
                const float fx = px - float(ix), fy = py - float(iy);
                const std::uint8_t* p = second_.row(iy) + ix;
                const std::uint8_t* q = p + second_.stride;
                const float above = float(p[0]) + fx * float(p[1] - p[0]);
                const float below = float(q[0]) + fx * float(q[1] - q[0]);
                values[std::size_t(y * kPatchSide + x)] = above + fy * (below - above);
            }
    }

    bool isInside(const Eigen::Vector2d& at, const Eigen::Matrix2d& map) const
    {
        const double rx = kCentre * (std::abs(map(0, 0)) + std::abs(map(0, 1))) + 1;
        const double ry = kCentre * (std::abs(map(1, 0)) + std::abs(map(1, 1))) + 1;
        return at.x() >= rx && at.y() >= ry && at.x() < second_.width - 1 - rx &&
               at.y() < second_.height - 1 - ry;
    }

    void read(const Eigen::Matrix3d& motion)
    {
        readings_.clear();
        PatchValues values;
        for (const Patch& patch : patches_) {
            Eigen::Vector2d at;
            const Eigen::Matrix2d map = localMap(motion, double(patch.x), double(patch.y), at);
            if (!isInside(at, map)) continue;
            sample(at, map, values);
            centre(values);
            readings_.push_back(compared(patch, values));
        }
        weigh();
    }

    // Gradients inside a patch in the second view, relative to those in the first.
    static double sharpness(const Patch& patch, const PatchValues& values)
    {
        float along = 0, squares = 0;
        for (std::size_t y = 1; y + 1 < kPatchSide; ++y)
            for (std::size_t x = 1; x + 1 < kPatchSide; ++x) {
                const std::size_t i = y * kPatchSide + x;
                const float tx = patch.shape[i + 1] - patch.shape[i - 1];
                const float ty = patch.shape[i + kPatchSide] - patch.shape[i - kPatchSide];
                along += tx * (values[i + 1] - values[i - 1]) +
                         ty * (values[i + kPatchSide] - values[i - kPatchSide]);
                squares += tx * tx + ty * ty;
            }
        return squares > 0 ? double(along) / (double(squares) * double(patch.length)) : 0;
    }

    Reading compared(const Patch& patch, const PatchValues& values) const
    {
        Reading r;
        r.form << patch.form[0], patch.form[1], patch.form[1], patch.form[2];
        const double squares = dot(values, values);
        const double along = dot(values, patch.shape);
        const double gain = along / double(patch.length);
        r.correlation = squares > 0 ? along / std::sqrt(squares) : 0;
        r.jacobian = motionDerivatives(units_.point(double(patch.x), double(patch.y))) * units_.scale();
        if (gain < 0.05) {
            r.correlation = std::min(r.correlation, 0.0);
            r.pull.setZero();
            return r;
        }
        r.pull = Eigen::Vector2d(dot(values, patch.dx), dot(values, patch.dy)) / gain;
        // A view that is less sharp moves the pull less than its own gradients promise.
        r.form *= std::clamp(sharpness(patch, values) / gain, 0.1, 1.5);
        const double soft = kPull * (r.form(0, 0) + r.form(1, 1)) + 1e-9;
        const Eigen::Vector2d displacement = (r.form + soft * Eigen::Matrix2d::Identity()).inverse() * r.pull;
        r.distance = displacement.norm();
        const double rest =
            squares / (gain * gain) - double(patch.length) * double(patch.length) - displacement.dot(r.pull);
        r.precision = 1 / (std::max(rest, 0.0) / (kPixels - 4) + kNoise * kNoise);
        return r;
    }

    // Patches that do not look alike, or whose displacement differs from what most have, have no weight.
    void weigh()
    {
        distances_.clear();
        for (const Reading& r : readings_)
            if (r.correlation > kMinWeighted) distances_.push_back(r.distance);
        if (distances_.empty()) return;
        const auto middle = distances_.begin() + std::ptrdiff_t(distances_.size() / 2);
        std::nth_element(distances_.begin(), middle, distances_.end());
        const double limit = std::max(4 * *middle, 0.3);
        for (Reading& r : readings_) {
            const double t = r.distance / limit;
            if (r.correlation > kMinWeighted && t < 1) r.weight = (1 - t * t) * (1 - t * t) * r.precision;
        }
    }

    Normal normalOf(MotionStep& right) const
    {
        Normal normal = Normal::Zero();
        right.setZero();
        for (const Reading& r : readings_) {
            if (r.weight == 0) continue;
            normal += r.weight * r.jacobian.transpose() * r.form * r.jacobian;
            right += r.weight * r.jacobian.transpose() * r.pull;
        }
        return normal;
    }

    bool solve(MotionStep& step) const
    {
        if (readings_.size() < kMinPatches) return false;
        MotionStep right;
        Normal normal = normalOf(right);
        const int n = int(model_);
        using Part = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, 0, 8, 8>;
        const Part part = normal.topLeftCorner(n, n) + 1e-9 * normal.trace() * Part::Identity(n, n);
        step.setZero();
        step.head(n) = part.ldlt().solve(right.head(n));
        return step.allFinite() && step.norm() < 0.3;
    }

    void judge(Alignment& result) const
    {
        result.visible = int(readings_.size());
        for (const Reading& r : readings_)
            result.agreeing += r.correlation >= minCorrelation_ && r.weight > 0;
        if (result.agreeing < int(kMinPatches)) return;
        MotionStep right;
        const Normal normal = normalOf(right);
        result.deviation = deviation(normal, result.motion);
    }

    double deviation(const Normal& normal, const Eigen::Matrix3d& motion) const
    {
        const int n = int(model_);
        using Part = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, 0, 8, 8>;
        const Eigen::FullPivLU<Part> solver(normal.topLeftCorner(n, n));
        if (!solver.isInvertible()) return 1e9;
        const Part inverse = solver.inverse();
        Part scatter = Part::Zero(n, n);
        int count = 0;
        for (const Reading& r : readings_) {
            if (r.weight == 0) continue;
            const Eigen::Matrix<double, Eigen::Dynamic, 1, 0, 8, 1> score =
                r.weight * r.jacobian.leftCols(n).transpose() * r.pull;
            scatter += score * score.transpose();
            ++count;
        }
        if (2 * count <= n) return 1e9;
        const Part covariance = inverse * scatter * inverse * (2.0 * count / (2.0 * count - n));
        double sum = 0;
        for (const double x : {0.0, second_.width - 1.0})
            for (const double y : {0.0, second_.height - 1.0}) {
                Eigen::Vector2d at;
                const Eigen::Matrix<double, 2, Eigen::Dynamic, 0, 2, 8> part =
                    localMap(motion, x, y, at) * units_.scale() *
                    motionDerivatives(units_.point(x, y)).leftCols(n);
                sum += std::sqrt(std::max((part * covariance * part.transpose()).trace(), 0.0));
            }
        return kDependence * sum / 4;
    }

    static constexpr std::size_t kMinPatches = 6;
    static constexpr double kMinWeighted = 0.5;  // correlation

    std::span<const Patch> patches_;
    grey::GreyView second_;
    MotionModel model_;
    double minCorrelation_;
    FrameUnits units_;
    std::pmr::vector<Reading> readings_;
    std::pmr::vector<double> distances_;
};

}  // namespace

void cutPatches(grey::GreyView image, std::span<const SupportPoint> points, std::vector<Patch>& patches)
{
    patches.clear();
    for (const SupportPoint& p : points) {
        const int left = int(p.x) - kPatchSide / 2 + 1;
        const int top = int(p.y) - kPatchSide / 2 + 1;
        if (left < 1 || top < 1 || left + kPatchSide + 1 > image.width || top + kPatchSide + 1 > image.height)
            continue;
        patches.emplace_back();
        if (!cut(image, left, top, patches.back())) patches.pop_back();
    }
}

Alignment alignMotion(std::span<const Patch> patches, grey::GreyView second, MotionModel model,
                      const Eigen::Matrix3d& start, double minCorrelation, int steps, Scratch scratch)
{
    return Aligner(patches, second, model, minCorrelation, scratch).run(start, steps);
}

}  // namespace scansteps::registration
