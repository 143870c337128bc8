// Photographs of camera size for benchmarks, made from the smaller ones of examples/images.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "../../tests/support/images.h"

namespace scansteps::bench {

using test::Image;

/// Crops the picture to the proportions of the new size and scales it with cubic interpolation (Catmull-Rom),
/// which gives more realistic detail than linear interpolation.
inline Image scaled(const Image& from, int width, int height)
{
    const double step = std::min(double(from.width) / width, double(from.height) / height);
    const double left = (from.width - step * width) / 2;
    const double top = (from.height - step * height) / 2;
    const auto weights = [](double t) {
        return std::array<double, 4>{((2 - t) * t - 1) * t / 2, ((3 * t - 5) * t * t + 2) / 2,
                                     ((4 - 3 * t) * t + 1) * t / 2, (t - 1) * t * t / 2};
    };
    Image to{width, height, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * 3)};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double sx = left + (x + 0.5) * step - 0.5;
            const double sy = top + (y + 0.5) * step - 0.5;
            const auto wx = weights(sx - std::floor(sx));
            const auto wy = weights(sy - std::floor(sy));
            for (int c = 0; c < 3; ++c) {
                double sum = 0;
                for (int j = 0; j < 4; ++j)
                    for (int i = 0; i < 4; ++i) {
                        const int px = std::clamp(int(std::floor(sx)) - 1 + i, 0, from.width - 1);
                        const int py = std::clamp(int(std::floor(sy)) - 1 + j, 0, from.height - 1);
                        sum += wx[std::size_t(i)] * wy[std::size_t(j)] *
                               from.rgb[std::size_t(py * from.width + px) * 3 + std::size_t(c)];
                    }
                to.rgb[(std::size_t(y) * std::size_t(width) + std::size_t(x)) * 3 + std::size_t(c)] =
                    std::uint8_t(std::clamp(sum + 0.5, 0.0, 255.0));
            }
        }
    return to;
}

/// Fills a larger frame with reflected copies of the picture, so that the amount of detail per pixel stays
/// the same.
inline Image reflected(const Image& from, int width, int height)
{
    const auto fold = [](int v, int n) { return v / n % 2 != 0 ? n - 1 - v % n : v % n; };
    Image to{width, height, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * 3)};
    std::uint8_t* out = to.rgb.data();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::size_t at = std::size_t(fold(y, from.height) * from.width + fold(x, from.width));
            out = std::copy_n(&from.rgb[3 * at], 3, out);
        }
    return to;
}

}  // namespace scansteps::bench
