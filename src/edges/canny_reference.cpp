// Reference implementations of filters and detector, which the vector code is tested against.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "edges/canny.h"
#include "edges/filter_kernels.h"

namespace scansteps::edges {

namespace {

std::size_t clamped(std::ptrdiff_t at, std::size_t size)
{
    return static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(at, 0, static_cast<std::ptrdiff_t>(size) - 1));
}

template <class Sample>
float correlate(const FoldedKernel& kernel, Sample sample)
{
    float sum = 0;
    bool first = true;
    for (const auto& term : kernel.terms) {
        float value = sample(term.at);
        if (term.kind == FoldedKernel::Sum) value = value + sample(term.mirror);
        if (term.kind == FoldedKernel::Difference) value = value - sample(term.mirror);
        sum = first ? term.factor * value : sum + term.factor * value;
        first = false;
    }
    return sum;
}

}  // namespace

namespace scalar {

void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky)
{
    const FoldedKernel rowKernel(kx), columnKernel(ky);
    const std::size_t width = src.width(), height = src.height();
    FloatPlane rows(src.width(), src.height());
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x)
            rows.row(y)[x] = correlate(rowKernel, [&](int k) {
                return src.row(y)[clamped(static_cast<std::ptrdiff_t>(x) + k, width)];
            });
    dst.resize(src.width(), src.height());
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x)
            dst.row(y)[x] = correlate(columnKernel, [&](int k) {
                return rows.row(clamped(static_cast<std::ptrdiff_t>(y) + k, height))[x];
            });
}

void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize)
{
    std::vector<float> kx, ky;
    getSobelKernels(kx, ky, dx, dy, ksize);
    scalar::sepFilter(src, dst, kx, ky);
}

void lowPass(FloatPlane& plane, int size)
{
    const float weight = boxWeight(size);
    const std::vector<float> ones(static_cast<std::size_t>(size), 1.0F);
    scalar::sepFilter(plane, plane, ones, ones);
    for (std::size_t y = 0; y < plane.height(); ++y)
        for (float& sample : plane.samples(y)) sample *= weight;
}

}  // namespace scalar

namespace {

// One row of magnitudes with a 0 on either side; all 0 below the image.
void magnitudeRow(const FloatPlane& dx, const FloatPlane& dy, std::size_t y, std::int32_t* row)
{
    for (std::size_t x = 0; x < dx.width(); ++x)
        row[x + 1] = y < dx.height()
                         ? saturatedInt(std::abs(double{dx.row(y)[x]}) + std::abs(double{dy.row(y)[x]}))
                         : 0;
}

// Whether the magnitude at `at` of the middle row is a maximum along the gradient.
bool isMaximum(const std::array<const std::int32_t*, 3>& rows, std::size_t at, float dx, float dy)
{
    const std::int64_t xs = saturatedInt(dx), ys = saturatedInt(dy);
    const std::int64_t x = std::abs(xs), y = std::abs(ys) << 15;
    const std::int64_t tg22x = x * 13573, tg67x = tg22x + (x << 16);
    const std::int32_t m = rows[1][at];
    if (y < tg22x) return m > rows[1][at - 1] && m >= rows[1][at + 1];
    if (y > tg67x) return m > rows[0][at] && m >= rows[2][at];
    const bool opposite = (xs < 0) != (ys < 0);
    return opposite ? m > rows[0][at + 1] && m > rows[2][at - 1] : m > rows[0][at - 1] && m > rows[2][at + 1];
}

enum Mark : std::uint8_t
{
    MayBecomeEdge = 0,
    NoEdge = 1,
    Edge = 2
};

}  // namespace

namespace scalar {

void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture)
{
    const CannyThresholds thresholds(low, high, aperture);
    FloatPlane dx, dy;
    scalar::Sobel(src, dx, 1, 0, aperture);
    scalar::Sobel(src, dy, 0, 1, aperture);
    const std::size_t width = src.width(), height = src.height(), step = width + 2;
    std::array<std::vector<std::int32_t>, 3> magnitudes;
    for (auto& row : magnitudes) row.assign(step, 0);
    std::vector<std::uint8_t> map(step * (height + 2), NoEdge);
    std::vector<std::size_t> stack;
    for (std::size_t i = 0; i <= height; ++i) {
        magnitudeRow(dx, dy, i, magnitudes[i % 3].data());
        if (i == 0) continue;
        const std::size_t y = i - 1;
        const std::array<const std::int32_t*, 3> rows = {
            magnitudes[(i + 1) % 3].data(), magnitudes[(i + 2) % 3].data(), magnitudes[i % 3].data()};
        bool previous = false;
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t at = (y + 1) * step + x + 1;
            const std::int32_t m = rows[1][x + 1];
            if (m <= thresholds.low || !isMaximum(rows, x + 1, dx.row(y)[x], dy.row(y)[x])) {
                map[at] = NoEdge;
                previous = false;
            } else if (!previous && m > thresholds.high && map[at - step] != Edge) {
                map[at] = Edge;
                stack.push_back(at);
                previous = true;
            } else {
                map[at] = MayBecomeEdge;
            }
        }
    }
    while (!stack.empty()) {
        const std::size_t at = stack.back();
        stack.pop_back();
        for (const std::size_t neighbour : {at - 1, at + 1, at - step - 1, at - step, at - step + 1,
                                            at + step - 1, at + step, at + step + 1}) {
            if (map[neighbour] != MayBecomeEdge) continue;
            map[neighbour] = Edge;
            stack.push_back(neighbour);
        }
    }
    dst.resize(src.width(), src.height());
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x)
            dst.row(y)[x] =
                static_cast<float>(static_cast<std::uint8_t>(-(map[(y + 1) * step + x + 1] >> 1)));
}

}  // namespace scalar
}  // namespace scansteps::edges
