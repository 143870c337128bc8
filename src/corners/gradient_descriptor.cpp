// Samples a rotated patch, takes its gradients in polar form, and pools them by cell and direction.
#include "corners/gradient_descriptor.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "corners/gradient_descriptor.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_GRADIENT_DESCRIPTOR_KERNELS
#define SCANSTEPS_GRADIENT_DESCRIPTOR_KERNELS
namespace scansteps::corners {

constexpr int kCells = 4;       // along each side of the patch
constexpr int kDirections = 8;  // of the histogram
constexpr int kBins = kCells * kCells * kDirections;
constexpr int kSide = 12;  // gradients along each side of the patch
constexpr int kGrid = kSide + 2;
constexpr int kVector = 16;  // floats: no vector is longer
constexpr int kGradients = (kSide * kGrid + kVector - 1) / kVector * kVector;
constexpr int kSamples = (kGradients + 2 * kGrid + kVector) / kVector * kVector;

// arctan(t) / t for 0 <= t <= 1 as a polynomial of t * t, after Abramowitz and Stegun, 4.4.49.
constexpr std::array<float, 5> kArcTangent{0.9998660F, -0.3302995F, 0.1801410F, -0.0851330F, 0.0208351F};

// A patch in the image: positions of samples relative to `base`, which is left of and above them all.
struct PatchFrame
{
    const std::uint8_t* base;
    int stride;
    float x, y;  // of the centre, relative to base
    float cosine, sine;
};

// The share of a row or column of gradients in the two cells beside it, of which the first may be -1.
struct CellShare
{
    int cell;
    float first, second;
};
constexpr std::array<CellShare, kSide> kShares = [] {
    std::array<CellShare, kSide> shares{};
    for (int i = 0; i < kSide; ++i) {
        // in thirds of a cell: the centre of cell 0 is at gradient 1
        const int at = i - 1 + kSide / kCells;
        const float part = float(at % (kSide / kCells)) / (kSide / kCells);
        shares[std::size_t(i)] = {at / (kSide / kCells) - 1, 1 - part, part};
    }
    return shares;
}();

// Vectors of any width are loaded from it.
struct alignas(64) Tables
{
    alignas(64) std::array<float, kSamples> u{}, v{};  // of the samples, pixels from the centre
    std::array<float, kGradients> weight{};            // Gaussian, 0 in the two columns between rows
};

struct GradientKernels
{
    void (*samplePatch)(const PatchFrame& patch, const Tables& tables, float* values);
    void (*polar)(const float* dx, const float* dy, const float* weights, float turn, int count,
                  float* lengths, float* directions);
    void (*pool)(const float* lengths, const float* directions, float* bins);
};

}  // namespace scansteps::corners
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::corners {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using F = hn::CappedTag<float, kVector>;
using I = hn::RebindToSigned<F>;

// Bilinear interpolation. A word is loaded for each pair of samples, so two bytes after them are read too.
void SamplePatch(const PatchFrame& patch, const Tables& tables, float* values)
{
    const F d;
    const I di;
    const auto cosine = hn::Set(d, patch.cosine), sine = hn::Set(d, patch.sine);
    const auto byte = hn::Set(di, 255);
    for (int i = 0; i < kSamples; i += int(hn::Lanes(d))) {
        const auto u = hn::Load(d, tables.u.data() + i), v = hn::Load(d, tables.v.data() + i);
        const auto x = hn::Add(hn::Set(d, patch.x), hn::Sub(hn::Mul(cosine, u), hn::Mul(sine, v)));
        const auto y = hn::Add(hn::Set(d, patch.y), hn::Add(hn::Mul(sine, u), hn::Mul(cosine, v)));
        const auto column = hn::ConvertTo(di, x), row = hn::ConvertTo(di, y);
        const auto fx = hn::Sub(x, hn::ConvertTo(d, column)), fy = hn::Sub(y, hn::ConvertTo(d, row));
        const auto at = hn::Add(hn::Mul(row, hn::Set(di, patch.stride)), column);
        const auto* base = reinterpret_cast<const std::int32_t*>(patch.base);
        const auto above = hn::GatherOffset(di, base, at);
        const auto below = hn::GatherOffset(di, base, hn::Add(at, hn::Set(di, patch.stride)));
        const auto between = [&](auto words) {
            const auto left = hn::And(words, byte);
            const auto right = hn::And(hn::ShiftRight<8>(words), byte);
            return hn::Add(hn::ConvertTo(d, left), hn::Mul(fx, hn::ConvertTo(d, hn::Sub(right, left))));
        };
        const auto first = between(above), second = between(below);
        hn::Store(hn::Add(first, hn::Mul(fy, hn::Sub(second, first))), d, values + i);
    }
}

void Polar(const float* dx, const float* dy, const float* weights, float turn, int count, float* lengths,
           float* directions)
{
    const F d;
    const auto zero = hn::Zero(d);
    const auto perRadian = hn::Set(d, turn * float(0.5 / std::numbers::pi));
    for (int i = 0; i < count; i += int(hn::Lanes(d))) {
        const auto x = hn::LoadU(d, dx + i), y = hn::LoadU(d, dy + i);
        const auto ax = hn::Abs(x), ay = hn::Abs(y);
        const auto t = hn::Div(hn::Min(ax, ay), hn::Max(hn::Max(ax, ay), hn::Set(d, 1e-6F)));
        const auto square = hn::Mul(t, t);
        auto sum = hn::Set(d, kArcTangent[4]);
        for (std::size_t k = 4; k-- > 0;) sum = hn::Add(hn::Mul(sum, square), hn::Set(d, kArcTangent[k]));
        auto angle = hn::Mul(hn::Mul(sum, t), perRadian);
        angle = hn::IfThenElse(hn::Gt(ay, ax), hn::Sub(hn::Set(d, turn / 4), angle), angle);
        angle = hn::IfThenElse(hn::Lt(x, zero), hn::Sub(hn::Set(d, turn / 2), angle), angle);
        angle = hn::IfThenElse(hn::Lt(y, zero), hn::Sub(hn::Set(d, turn), angle), angle);
        hn::StoreU(angle, d, directions + i);
        const auto length = hn::Sqrt(hn::Add(hn::Mul(x, x), hn::Mul(y, y)));
        hn::StoreU(hn::Mul(length, hn::LoadU(d, weights + i)), d, lengths + i);
    }
}

void Pool(const float* lengths, const float* directions, float* bins)
{
    const hn::CappedTag<float, kDirections> d;
    constexpr int kLine = (kCells + 2) * kDirections;  // a row of cells, and one more at either end
    for (int k = 0; k < kDirections; k += int(hn::Lanes(d))) {
        const auto direction = hn::Iota(d, float(k));
        alignas(64) float grid[(kCells + 2) * kLine] = {};
        for (int row = 0; row < kSide; ++row) {
            alignas(64) float line[kLine] = {};
            for (int column = 0; column < kSide; ++column) {
                const int i = row * kGrid + column;
                const auto apart = hn::Abs(hn::Sub(hn::Set(d, directions[i]), direction));
                const auto nearest = hn::Min(apart, hn::Sub(hn::Set(d, float(kDirections)), apart));
                const auto share = hn::Max(hn::Sub(hn::Set(d, 1.0F), nearest), hn::Zero(d));
                const auto part = hn::Mul(hn::Set(d, lengths[i]), share);
                const CellShare& cells = kShares[std::size_t(column)];
                float* to = line + (cells.cell + 1) * kDirections;
                hn::Store(hn::Add(hn::Load(d, to), hn::Mul(part, hn::Set(d, cells.first))), d, to);
                to += kDirections;
                hn::Store(hn::Add(hn::Load(d, to), hn::Mul(part, hn::Set(d, cells.second))), d, to);
            }
            const CellShare& cells = kShares[std::size_t(row)];
            float* to = grid + (cells.cell + 1) * kLine;
            for (int i = kDirections; i < kLine - kDirections; i += kDirections) {
                const auto part = hn::Load(d, line + i);
                hn::Store(hn::Add(hn::Load(d, to + i), hn::Mul(part, hn::Set(d, cells.first))), d, to + i);
                float* below = to + i + kLine;
                hn::Store(hn::Add(hn::Load(d, below), hn::Mul(part, hn::Set(d, cells.second))), d, below);
            }
        }
        for (int y = 0; y < kCells; ++y)
            for (int x = 0; x < kCells; ++x)
                hn::Store(hn::Load(d, grid + (y + 1) * kLine + (x + 1) * kDirections), d,
                          bins + (y * kCells + x) * kDirections + k);
    }
}

GradientKernels DescriptorKernels()
{
    return {SamplePatch, Polar, Pool};
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::corners
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::corners {
namespace scalar {
namespace {

void samplePatch(const PatchFrame& p, const Tables& tables, float* values)
{
    for (std::size_t i = 0; i < kSamples; ++i) {
        const float x = p.x + (p.cosine * tables.u[i] - p.sine * tables.v[i]);
        const float y = p.y + (p.sine * tables.u[i] + p.cosine * tables.v[i]);
        const int column = int(x), row = int(y);
        const float fx = x - float(column), fy = y - float(row);
        const std::uint8_t* above = p.base + std::ptrdiff_t{row} * p.stride + column;
        const std::uint8_t* below = above + p.stride;
        const float first = float(above[0]) + fx * float(above[1] - above[0]);
        const float second = float(below[0]) + fx * float(below[1] - below[0]);
        values[i] = first + fy * (second - first);
    }
}

void polar(const float* dx, const float* dy, const float* weights, float turn, int count, float* lengths,
           float* directions)
{
    const float perRadian = turn * float(0.5 / std::numbers::pi);
    for (int i = 0; i < count; ++i) {
        const float ax = std::abs(dx[i]), ay = std::abs(dy[i]);
        const float t = std::min(ax, ay) / std::max(std::max(ax, ay), 1e-6F);
        float sum = kArcTangent[4];
        for (std::size_t k = 4; k-- > 0;) sum = sum * (t * t) + kArcTangent[k];
        float angle = sum * t * perRadian;
        if (ay > ax) angle = turn / 4 - angle;
        if (dx[i] < 0) angle = turn / 2 - angle;
        if (dy[i] < 0) angle = turn - angle;
        directions[i] = angle;
        lengths[i] = std::sqrt(dx[i] * dx[i] + dy[i] * dy[i]) * weights[i];
    }
}

void pool(const float* lengths, const float* directions, float* bins)
{
    float grid[kCells + 2][kCells + 2][kDirections] = {};
    for (int row = 0; row < kSide; ++row) {
        float line[kCells + 2][kDirections] = {};
        for (int column = 0; column < kSide; ++column)
            for (int k = 0; k < kDirections; ++k) {
                const int i = row * kGrid + column;
                const float apart = std::abs(directions[i] - float(k));
                const float part = lengths[i] * std::max(1 - std::min(apart, kDirections - apart), 0.0F);
                const CellShare& cells = kShares[std::size_t(column)];
                line[cells.cell + 1][k] += part * cells.first;
                line[cells.cell + 2][k] += part * cells.second;
            }
        const CellShare& cells = kShares[std::size_t(row)];
        for (int x = 1; x <= kCells; ++x)
            for (int k = 0; k < kDirections; ++k) {
                grid[cells.cell + 1][x][k] += line[x][k] * cells.first;
                grid[cells.cell + 2][x][k] += line[x][k] * cells.second;
            }
    }
    for (int y = 0; y < kCells; ++y)
        for (int x = 0; x < kCells; ++x)
            std::copy_n(grid[y + 1][x + 1], kDirections, bins + (y * kCells + x) * kDirections);
}

constexpr GradientKernels kKernels{samplePatch, polar, pool};

}  // namespace
}  // namespace scalar

namespace {

constexpr float kSpacing = 4.0F * kCells / kSide;  // of samples, pixels: cells are 4 pixels wide
constexpr float kLow = 0.35F, kHigh = 1.3F;        // thresholds, times the mean bin

constexpr int kOrientationBins = 36;
constexpr int kOrientationRadius = 12, kOrientationStep = 2;
constexpr float kOrientationSigma = 6;
constexpr float kSecondPeak = 0.8F;
constexpr int kOrientationPoints = 128;  // room for the disc below, a multiple of a vector

const Tables& tables()
{
    static const Tables made = [] {
        Tables t;
        for (int y = 0; y < kGrid; ++y)
            for (int x = 0; x < kGrid; ++x) {
                const auto i = std::size_t(y * kGrid + x);
                t.u[i] = (float(x) - (kGrid - 1) / 2.0F) * kSpacing;
                t.v[i] = (float(y) - (kGrid - 1) / 2.0F) * kSpacing;
            }
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                const float u = (float(x) - (kSide - 1) / 2.0F) * kSpacing;
                const float v = (float(y) - (kSide - 1) / 2.0F) * kSpacing;
                t.weight[std::size_t(y * kGrid + x)] = std::exp(-(u * u + v * v) / (2 * 8.0F * 8.0F));
            }
        return t;
    }();
    return made;
}

// A disc around a point.
struct Disc
{
    struct Point
    {
        int x, y;
    };
    std::array<Point, kOrientationPoints> points{};
    std::array<float, kOrientationPoints> weights{};  // 0 after the last point
};

const Disc& disc()
{
    static const Disc made = [] {
        Disc disc;
        std::size_t next = 0;
        constexpr int r = kOrientationRadius;
        for (int y = -r; y <= r; y += kOrientationStep)
            for (int x = -r; x <= r; x += kOrientationStep) {
                if (x * x + y * y > r * r) continue;
                disc.weights[next] =
                    std::exp(-float(x * x + y * y) / (2 * kOrientationSigma * kOrientationSigma));
                disc.points[next++] = {x, y};
            }
        return disc;
    }();
    return made;
}

using OrientationBins = std::array<float, kOrientationBins>;

// Four passes of a box filter over three bins.
void smooth(OrientationBins& bins)
{
    for (int pass = 0; pass < 4; ++pass) {
        const float first = bins.front();
        float before = bins.back();
        for (std::size_t i = 0; i < bins.size(); ++i) {
            const float here = bins[i];
            const float after = i + 1 < bins.size() ? bins[i + 1] : first;
            bins[i] = (before + here + after) / 3;
            before = here;
        }
    }
}

Orientations peaksOf(const OrientationBins& bins)
{
    Orientations result;
    std::array<float, 2> heights{};
    const float least = kSecondPeak * *std::ranges::max_element(bins);
    for (std::size_t i = 0; i < bins.size(); ++i) {
        const float before = bins[(i + bins.size() - 1) % bins.size()];
        const float here = bins[i];
        const float after = bins[(i + 1) % bins.size()];
        if (!(here > before && here >= after && here >= least)) continue;
        const float summit = float(i) + (before - after) / (2 * (before - 2 * here + after));
        const float angle = summit * float(2 * std::numbers::pi / kOrientationBins);
        if (here > heights[0]) {
            result.angle = {angle, result.angle[0]};
            heights = {here, heights[0]};
        } else if (here > heights[1]) {
            result.angle[1] = angle;
            heights[1] = here;
        }
        result.count = std::min(result.count + 1, 2);
    }
    return result;
}

Orientations orientations(grey::GreyView image, float x, float y, const GradientKernels& kernels)
{
    alignas(64) std::array<float, kOrientationPoints> dx, dy, lengths, directions;
    const std::uint8_t* centre = image.row(int(y + 0.5F)) + int(x + 0.5F);
    for (std::size_t i = 0; i < kOrientationPoints; ++i) {
        const Disc::Point at = disc().points[i];
        const std::uint8_t* p = centre + at.y * image.stride + at.x;
        dx[i] = float(p[1] - p[-1]);
        dy[i] = float(p[image.stride] - p[-image.stride]);
    }
    kernels.polar(dx.data(), dy.data(), disc().weights.data(), kOrientationBins, kOrientationPoints,
                  lengths.data(), directions.data());
    std::array<float, kOrientationBins + 2> sums{};
    for (std::size_t i = 0; i < kOrientationPoints; ++i) {
        const auto bin = std::size_t(directions[i]);  // up to kOrientationBins
        const float part = directions[i] - float(bin);
        sums[bin] += lengths[i] * (1 - part);
        sums[bin + 1] += lengths[i] * part;
    }
    OrientationBins bins;
    std::copy_n(sums.begin(), bins.size(), bins.begin());
    bins[0] += sums[kOrientationBins];
    bins[1] += sums[kOrientationBins + 1];
    smooth(bins);
    return peaksOf(bins);
}

CornerDescriptor describe(grey::GreyView image, float x, float y, float angle, const GradientKernels& kernels)
{
    alignas(64) std::array<float, kSamples> values;
    alignas(64) std::array<float, kGradients> dx, dy, lengths, directions;
    alignas(64) std::array<float, kBins> bins;
    const int left = int(x) - kGradientMargin + 1, top = int(y) - kGradientMargin + 1;
    kernels.samplePatch({image.row(top) + left, int(image.stride), x - float(left), y - float(top),
                         std::cos(angle), std::sin(angle)},
                        tables(), values.data());
    for (std::size_t i = 0; i < kGradients; ++i) {
        dx[i] = values[i + kGrid + 2] - values[i + kGrid];
        dy[i] = values[i + 2 * kGrid + 1] - values[i + 1];
    }
    kernels.polar(dx.data(), dy.data(), tables().weight.data(), kDirections, kGradients, lengths.data(),
                  directions.data());
    kernels.pool(lengths.data(), directions.data(), bins.data());
    float sum = 0;
    for (const float bin : bins) sum += bin;
    const float low = kLow * sum / kBins, high = kHigh * sum / kBins;
    CornerDescriptor bits{};
    for (std::size_t i = 0; i < kBins; ++i) {
        bits[i / 64] |= std::uint64_t{bins[i] > low} << (i % 64);
        bits[2 + i / 64] |= std::uint64_t{bins[i] > high} << (i % 64);
    }
    return bits;
}

}  // namespace

HWY_EXPORT(DescriptorKernels);

Orientations gradientOrientations(grey::GreyView image, float x, float y)
{
    return orientations(image, x, y, HWY_DYNAMIC_DISPATCH(DescriptorKernels)());
}

CornerDescriptor describeGradients(grey::GreyView image, float x, float y, float angle)
{
    return describe(image, x, y, angle, HWY_DYNAMIC_DISPATCH(DescriptorKernels)());
}

namespace scalar {

Orientations gradientOrientations(grey::GreyView image, float x, float y)
{
    return orientations(image, x, y, kKernels);
}

CornerDescriptor describeGradients(grey::GreyView image, float x, float y, float angle)
{
    return describe(image, x, y, angle, kKernels);
}

}  // namespace scalar
}  // namespace scansteps::corners
#endif
