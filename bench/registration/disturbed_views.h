// Views of 640 × 480 of a photograph under known motions, and what goes wrong with real views: uneven light,
// occlusion, low contrast, blur, noise. Everything follows from the seeds.
#pragma once

#include <Eigen/Core>
#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "../../tests/support/warp.h"

namespace scansteps::bench {

inline constexpr int kWidth = test::kWarpWidth;
inline constexpr int kHeight = test::kWarpHeight;

/// A view before noise and rounding, rows × columns grey levels.
using GreyPlane = std::vector<float>;

/// A photograph that covers the views 1.5 times or less. Beyond its borders it is reflected.
class Photograph
{
  public:
    explicit Photograph(const test::Image& image)
        : zoom_(std::min(image.width / double(kWidth), image.height / double(kHeight))),
          left_((image.width - zoom_ * kWidth) / 2),
          top_((image.height - zoom_ * kHeight) / 2),
          pad_(image.width * 3 / 5),
          width_(image.width + 2 * pad_),
          height_(image.height + 2 * pad_)
    {
        const std::vector<float> grey = test::greyPlaneOf(image);
        const auto fold = [](int v, int n) {
            v = (v % (2 * n) + 2 * n) % (2 * n);
            return std::size_t(v < n ? v : 2 * n - 1 - v);
        };
        padded_.reserve(std::size_t(width_) * std::size_t(height_));
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_; ++x)
                padded_.push_back(grey[fold(y - pad_, image.height) * std::size_t(image.width) +
                                       fold(x - pad_, image.width)]);
    }

    /// The view whose pixel p shows what pixel toFirst p of the untransformed view shows; each pixel is the
    /// mean of 2 × 2 samples, interpolated after Catmull and Rom.
    GreyPlane view(const Eigen::Matrix3d& toFirst) const
    {
        // a sample of the photograph lies at zoom * p + (left, top), counted from the outer edges of pixels
        Eigen::Matrix3d toPhoto;
        toPhoto << zoom_, 0, left_ + zoom_ / 2 - 0.5, 0, zoom_, top_ + zoom_ / 2 - 0.5, 0, 0, 1;
        const Eigen::Matrix3d m = toPhoto * toFirst;
        GreyPlane out(std::size_t{kWidth} * kHeight, 0.0F);
        for (const double dy : {-0.25, 0.25})
            for (const double dx : {-0.25, 0.25})
                for (int y = 0; y < kHeight; ++y) {
                    Eigen::Vector3d p = m * Eigen::Vector3d(dx, y + dy, 1);
                    float* to = out.data() + std::ptrdiff_t{y} * kWidth;
                    for (int x = 0; x < kWidth; ++x, p += m.col(0))
                        *to++ += sample(float(p.x() / p.z()), float(p.y() / p.z())) / 4;
                }
        return out;
    }

  private:
    static std::array<float, 4> weights(float t)
    {
        return {((2 - t) * t - 1) * t / 2, ((3 * t - 5) * t * t + 2) / 2, ((4 - 3 * t) * t + 1) * t / 2,
                (t - 1) * t * t / 2};
    }
    float sample(float x, float y) const
    {
        x = std::clamp(x + float(pad_), 1.0F, float(width_ - 3));
        y = std::clamp(y + float(pad_), 1.0F, float(height_ - 3));
        const int ix = int(x);
        const int iy = int(y);
        const auto wx = weights(x - float(ix));
        const auto wy = weights(y - float(iy));
        const float* p = padded_.data() + std::ptrdiff_t{iy - 1} * width_ + ix - 1;
        float sum = 0;
        for (int j = 0; j < 4; ++j, p += width_)
            sum += wy[std::size_t(j)] * (wx[0] * p[0] + wx[1] * p[1] + wx[2] * p[2] + wx[3] * p[3]);
        return sum;
    }

    double zoom_, left_, top_;
    int pad_, width_, height_;
    std::vector<float> padded_;
};

/// How far a random motion may go; angles in degrees, shifts in pixels. Perspective is that of the two lower
/// elements for each pixel from the centre.
struct MotionRange
{
    double angle = 30, minScale = 0.7, maxScale = 1.4, minShift = 0, maxShift = 32, perspective = 1e-4,
           shear = 0;
    double minBeyond = 0;  ///< shear and perspective are at least this share of their maximum
};

inline double uniform(std::mt19937& random, double low, double high)
{
    return low + (high - low) * (double(random()) / 4294967296.0);
}

inline Eigen::Matrix3d randomMotion(std::mt19937& random, const MotionRange& r)
{
    const auto symmetric = [&](double most) {
        const double v = uniform(random, -1, 1);
        return most * std::copysign(r.minBeyond + (1 - r.minBeyond) * std::abs(v), v);
    };
    const double angle = uniform(random, -r.angle, r.angle) * std::numbers::pi / 180;
    const double scale = std::exp(uniform(random, std::log(r.minScale), std::log(r.maxScale)));
    const double shift = uniform(random, r.minShift, r.maxShift);
    const double course = uniform(random, 0, 2 * std::numbers::pi);
    const double c = scale * std::cos(angle);
    const double s = scale * std::sin(angle);
    const double k = symmetric(r.shear);
    Eigen::Matrix3d centre, back, inner, sheared;
    centre << 1, 0, -kWidth / 2.0, 0, 1, -kHeight / 2.0, 0, 0, 1;
    back << 1, 0, kWidth / 2.0, 0, 1, kHeight / 2.0, 0, 0, 1;
    inner << c, -s, shift * std::cos(course), s, c, shift * std::sin(course), symmetric(r.perspective),
        symmetric(r.perspective), 1;
    sheared << 1 + k, k, 0, k, 1 - k, 0, 0, 0, 1;
    return back * inner * sheared * centre;
}

/// Changes a view; the same random numbers for the same seed.
using Disturbance = void (*)(GreyPlane& view, std::mt19937& random);

inline void multiply(GreyPlane& view, double (*factor)(double x, double y))
{
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            view[std::size_t(y) * kWidth + std::size_t(x)] *=
                float(factor(x / (kWidth - 1.0), y / (kHeight - 1.0)));
}

inline void none(GreyPlane&, std::mt19937&) {}
inline void brightness(GreyPlane& view, std::mt19937& random)
{
    const auto gain = float(uniform(random, 0.8, 1.2));
    for (float& v : view) v *= gain;
}
inline void lightFromOneSide(GreyPlane& view, std::mt19937&)
{
    multiply(view, [](double x, double) { return 0.35 + 0.95 * x; });
}
inline void vignette(GreyPlane& view, std::mt19937&)
{
    multiply(view, [](double x, double y) {
        const double u = 2 * x - 1;
        const double v = (2 * y - 1) * 0.75;
        return 1 - 0.6 * (u * u + v * v) / (1 + 0.75 * 0.75);
    });
}
inline void gamma22(GreyPlane& view, std::mt19937&)
{
    for (float& v : view) v = 255 * std::pow(std::max(v, 0.0F) / 255, 2.2F);
}
template <int From, int To>
void range(GreyPlane& view, std::mt19937&)
{
    for (float& v : view) v = float(From) + v * float(To - From) / 255;
}

/// Correlates rows and columns with a symmetric kernel that is given by its half from the centre on.
inline void filter(GreyPlane& view, const std::vector<float>& half, bool rows, bool columns)
{
    const int n = int(half.size());
    const auto pass = [&](int dx, int dy) {
        const GreyPlane in = view;
        const auto at = [&](int x, int y) {
            return in[std::size_t(std::clamp(y, 0, kHeight - 1)) * kWidth +
                      std::size_t(std::clamp(x, 0, kWidth - 1))];
        };
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                float sum = half[0] * at(x, y);
                for (int i = 1; i < n; ++i)
                    sum += half[std::size_t(i)] * (at(x + i * dx, y + i * dy) + at(x - i * dx, y - i * dy));
                view[std::size_t(y) * kWidth + std::size_t(x)] = sum;
            }
    };
    if (rows) pass(1, 0);
    if (columns) pass(0, 1);
}
inline void gauss(GreyPlane& view, double sigma)
{
    std::vector<float> half;
    float sum = 0;
    for (int i = 0; i <= int(3.5 * sigma); ++i) {
        half.push_back(float(std::exp(-i * i / (2 * sigma * sigma))));
        sum += (i > 0 ? 2.0F : 1.0F) * half.back();
    }
    for (float& w : half) w /= sum;
    filter(view, half, true, true);
}
inline void blur3(GreyPlane& view, std::mt19937&)
{
    gauss(view, 3);
}
inline void motionBlur11(GreyPlane& view, std::mt19937&)
{
    filter(view, std::vector<float>(6, 1 / 11.0F), true, false);
}
inline void blurAndGamma(GreyPlane& view, std::mt19937& random)
{
    gauss(view, 1.5);
    gamma22(view, random);
}

/// Covers `share` of the view with a rectangle of the photograph `other`.
inline void occlude(GreyPlane& view, double share, const GreyPlane& other, std::mt19937& random)
{
    const int width = int(kWidth * std::sqrt(share) * uniform(random, 0.85, 1 / 0.85));
    const int w = std::min(width, kWidth);
    const int h = std::min(int(share * kWidth * kHeight / w), kHeight);
    const int left = int(uniform(random, 0, kWidth - w + 1));
    const int top = int(uniform(random, 0, kHeight - h + 1));
    for (int y = top; y < top + h; ++y)
        std::copy_n(other.begin() + y * kWidth + left, w, view.begin() + y * kWidth + left);
}

/// The view as a camera gives it: with Gaussian noise, rounded, clamped to 0 to 255.
inline std::vector<std::uint8_t> photographed(const GreyPlane& view, double noise, std::mt19937& random)
{
    std::vector<std::uint8_t> out;
    out.reserve(view.size());
    for (const float v : view) {
        const double radius = std::sqrt(-2 * std::log(1 - uniform(random, 0, 1)));
        const double normal = radius * std::cos(uniform(random, 0, 2 * std::numbers::pi));
        out.push_back(std::uint8_t(std::clamp(std::lround(double(v) + noise * normal), 0L, 255L)));
    }
    return out;
}

}  // namespace scansteps::bench
