// Pairs of views with known truth: a photograph, and the same warped by a random homography, with other
// brightness and with noise. For the tests and programs that measure how well views are matched.
#pragma once

#include <Eigen/Core>
#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "images.h"

namespace scansteps::test {

/// Limits of random warps. Angles in degrees, the shift as a fraction of the width.
struct WarpRange
{
    double angle = 30;
    double minScale = 0.7, maxScale = 1.4;
    double shift = 0.05;
    double perspective = 1e-4;  ///< of the two lower elements, for each pixel from the centre
    double brightness = 0.2;
    double noise = 5;
};

inline constexpr int kWarpWidth = 640;
inline constexpr int kWarpHeight = 480;

struct WarpedPair
{
    std::vector<std::uint8_t> first, second;  ///< 480 rows of 640 samples
    Eigen::Matrix3d truth;                    ///< pixel (x, y, 1) of the first to the second, up to a factor
};

class WarpSource
{
  public:
    explicit WarpSource(const Image& photo)
        : width_(photo.width), height_(photo.height), grey_(greyPlaneOf(photo))
    {
    }

    /// The same seed gives the same pair.
    WarpedPair pair(unsigned seed, const WarpRange& range) const
    {
        std::mt19937 random(seed);
        WarpedPair out;
        out.truth = randomWarp(random, range);
        out.first = view(Eigen::Matrix3d::Identity(), 1.0, range.noise, random);
        const double gain = 1 + uniform(random, -range.brightness, range.brightness);
        out.second = view(out.truth.inverse(), gain, range.noise, random);
        return out;
    }

    static double uniform(std::mt19937& random, double low, double high)
    {
        return low + (high - low) * (double(random()) / 4294967296.0);
    }

  private:
    static Eigen::Matrix3d randomWarp(std::mt19937& random, const WarpRange& r)
    {
        const double angle = uniform(random, -r.angle, r.angle) * std::numbers::pi / 180;
        const double scale = std::exp(uniform(random, std::log(r.minScale), std::log(r.maxScale)));
        const double c = scale * std::cos(angle);
        const double s = scale * std::sin(angle);
        Eigen::Matrix3d centre, back, inner;
        centre << 1, 0, -kWarpWidth / 2.0, 0, 1, -kWarpHeight / 2.0, 0, 0, 1;
        back << 1, 0, kWarpWidth / 2.0, 0, 1, kWarpHeight / 2.0, 0, 0, 1;
        inner << c, -s, uniform(random, -r.shift, r.shift) * kWarpWidth, s, c,
            uniform(random, -r.shift, r.shift) * kWarpWidth, uniform(random, -r.perspective, r.perspective),
            uniform(random, -r.perspective, r.perspective), 1;
        return back * inner * centre;
    }

    float at(int x, int y) const
    {
        const auto fold = [](int v, int n) {
            v = std::abs(v) % (2 * n);
            return v < n ? v : 2 * n - 1 - v;
        };
        return grey_[std::size_t(fold(y, height_)) * std::size_t(width_) + std::size_t(fold(x, width_))];
    }

    // Catmull-Rom interpolation; beyond the borders the photograph is reflected.
    double sample(double x, double y) const
    {
        const auto weights = [](double t) {
            return std::array{((2 - t) * t - 1) * t / 2, ((3 * t - 5) * t * t + 2) / 2,
                              ((4 - 3 * t) * t + 1) * t / 2, (t - 1) * t * t / 2};
        };
        const int ix = int(std::floor(x));
        const int iy = int(std::floor(y));
        const auto wx = weights(x - ix);
        const auto wy = weights(y - iy);
        double sum = 0;
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < 4; ++i)
                sum += wx[std::size_t(i)] * wy[std::size_t(j)] * double(at(ix + i - 1, iy + j - 1));
        return sum;
    }

    // Each pixel is the mean of 2 × 2 samples of the photograph.
    std::vector<std::uint8_t> view(const Eigen::Matrix3d& toFirst, double gain, double noise,
                                   std::mt19937& random) const
    {
        const double zoom = std::min(width_ / double(kWarpWidth), height_ / double(kWarpHeight));
        const double left = (width_ - zoom * kWarpWidth) / 2;
        const double top = (height_ - zoom * kWarpHeight) / 2;
        std::vector<std::uint8_t> out;
        for (int y = 0; y < kWarpHeight; ++y)
            for (int x = 0; x < kWarpWidth; ++x) {
                double sum = 0;
                for (const double dy : {-0.25, 0.25})
                    for (const double dx : {-0.25, 0.25}) {
                        const Eigen::Vector3d p = toFirst * Eigen::Vector3d(x + dx, y + dy, 1);
                        sum += sample(left + zoom * (p.x() / p.z() + 0.5) - 0.5,
                                      top + zoom * (p.y() / p.z() + 0.5) - 0.5);
                    }
                const double radius = std::sqrt(-2 * std::log(1 - uniform(random, 0, 1)));
                const double normal = radius * std::cos(uniform(random, 0, 2 * std::numbers::pi));
                out.push_back(
                    std::uint8_t(std::clamp(std::lround(gain * sum / 4 + noise * normal), 0L, 255L)));
            }
        return out;
    }

    int width_, height_;
    std::vector<float> grey_;
};

/// The image of the point (x, y) under a homography.
inline Eigen::Vector2d mapped(const Eigen::Matrix3d& h, double x, double y)
{
    const Eigen::Vector3d p = h * Eigen::Vector3d(x, y, 1);
    return p.head<2>() / p.z();
}

/// Mean distance of the frame's four corners under two homographies, pixels.
inline double cornerError(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b)
{
    double sum = 0;
    for (const double x : {0.0, kWarpWidth - 1.0})
        for (const double y : {0.0, kWarpHeight - 1.0}) sum += (mapped(a, x, y) - mapped(b, x, y)).norm();
    return sum / 4;
}

/// The part of the first frame that lands inside the second.
inline double overlap(const Eigen::Matrix3d& h)
{
    int inside = 0;
    for (int y = 8; y < kWarpHeight; y += 16)
        for (int x = 8; x < kWarpWidth; x += 16) {
            const Eigen::Vector2d p = mapped(h, x, y);
            inside += p.x() >= 0 && p.y() >= 0 && p.x() < kWarpWidth && p.y() < kWarpHeight;
        }
    return inside / (kWarpWidth / 16.0 * (kWarpHeight / 16.0));
}

}  // namespace scansteps::test
