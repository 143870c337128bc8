// Sub-pixel edges: a vectorised test selects candidates, and only these are refined one by one.
#include "edges/subpixel_edges.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "edges/canny.h"
#include "edges/gradient_length.h"
#include "edges/row_ring.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "edges/subpixel_edges.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "edges/canny-inl.h"

#ifndef SCANSTEPS_SUBPIXEL_EDGES_ONCE
#define SCANSTEPS_SUBPIXEL_EDGES_ONCE
namespace scansteps::edges {

// Derivatives of a row, and gradient lengths of the row and of its neighbours; 0 outside the image.
struct GradientRows
{
    const float *dx, *dy;
    const float *above, *here, *below;
};

}  // namespace scansteps::edges
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<float, 16>;

// Gradient length one step along (dx, dy), interpolated between the two neighbours it passes: `steep` where
// |dy| > |dx|, `left` and `up` for the signs, t = smaller / larger component.
template <class V, class M>
HWY_INLINE V Along(const GradientRows& rows, std::size_t x, M steep, M left, M up, V t)
{
    const D d;
    const auto at = [&](const float* row, std::ptrdiff_t k)
                        HWY_ATTR { return hn::LoadU(d, row + std::ptrdiff_t(x) + k); };
    const auto upper = hn::IfThenElse(left, at(rows.above, -1), at(rows.above, 1));
    const auto lower = hn::IfThenElse(left, at(rows.below, -1), at(rows.below, 1));
    const auto slanted = hn::IfThenElse(up, upper, lower);
    const auto vertical = hn::IfThenElse(up, at(rows.above, 0), at(rows.below, 0));
    const auto level = hn::IfThenElse(left, at(rows.here, -1), at(rows.here, 1));
    const auto straight = hn::IfThenElse(steep, vertical, level);
    return hn::Add(hn::Mul(hn::Sub(hn::Set(d, 1.0F), t), straight), hn::Mul(t, slanted));
}

// Bits of the pixels that may be maxima; all others are not. The magnitude is rounded here, so a value equal
// to `low` passes.
void MaximaRow(const GradientRows& rows, float low, std::size_t width, std::uint64_t* bits)
{
    const D d;
    const auto zero = hn::Zero(d);
    std::fill_n(bits, (width + 63) / 64, std::uint64_t{0});
    for (std::size_t x = 0; x < width; x += hn::Lanes(d)) {
        const auto dx = hn::LoadU(d, rows.dx + x), dy = hn::LoadU(d, rows.dy + x);
        const auto ax = hn::Abs(dx), ay = hn::Abs(dy);
        const auto strong = hn::Ge(hn::Add(ax, ay), hn::Set(d, low));
        if (hn::AllFalse(d, strong)) continue;
        const auto steep = hn::Gt(ay, ax);
        const auto t = hn::Div(hn::Min(ax, ay), hn::Max(ax, ay));
        const auto ahead = Along(rows, x, steep, hn::Lt(dx, zero), hn::Lt(dy, zero), t);
        const auto back = Along(rows, x, steep, hn::Gt(dx, zero), hn::Gt(dy, zero), t);
        const auto here = hn::LoadU(d, rows.here + x);
        const auto maximum = hn::And(strong, hn::And(hn::Gt(here, back), hn::Ge(here, ahead)));
        bits[x / 64] |= std::uint64_t{MaskBits(d, maximum)} << x % 64;
    }
    if (width % 64 != 0) bits[width / 64] &= (std::uint64_t{1} << width % 64) - 1;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::edges {
namespace {

// The same as Along for one pixel.
float lengthAlong(const GradientRows& rows, std::ptrdiff_t x, float ux, float uy)
{
    const std::ptrdiff_t sx = ux < 0 ? -1 : 1;
    const bool steep = std::abs(uy) > std::abs(ux);
    const float t = steep ? std::abs(ux / uy) : std::abs(uy / ux);
    const float* next = uy < 0 ? rows.above : rows.below;
    const float straight = steep ? next[x] : rows.here[x + sx];
    return (1 - t) * straight + t * next[x + sx];
}

// The magnitude of pixel x, and the position of the maximum along the gradient; 0 when the magnitude is not
// above `low` or the pixel is not a maximum.
double maximumAt(const GradientRows& rows, std::size_t x, std::size_t y, double low, Vertex& position)
{
    const float gx = rows.dx[x];
    const float gy = rows.dy[x];
    const double sum = double{std::abs(gx)} + double{std::abs(gy)};
    if (!(sum > low) || !(sum > 0) || !std::isfinite(sum)) return 0;
    const float here = rows.here[x];
    const float ahead = lengthAlong(rows, std::ptrdiff_t(x), gx, gy);
    const float back = lengthAlong(rows, std::ptrdiff_t(x), -gx, -gy);
    if (!(here > back) || !(here >= ahead)) return 0;
    // a step along the gradient that ends in the neighbouring row or column
    const float toNext = 1 / std::max(std::abs(gx), std::abs(gy));
    const float t = (ahead - back) / (2 * (2 * here - ahead - back));
    position = {float(x) + t * gx * toNext, float(y) + t * gy * toNext};
    return sum;
}

// Gradient lengths of the rows around a row. Rows are requested in ascending order.
class LengthRows
{
  public:
    LengthRows(const SubpixelPlanes& planes, Scratch scratch)
        : planes_(planes), rows_(4 * pitch(), 0.0F, scratch)
    {
        if (planes.dx.height() > 0) take(0);
    }
    GradientRows around(std::size_t y)
    {
        const std::size_t height = planes_.dx.height();
        if (y + 1 < height) take(y + 1);
        const float* none = slot(3);
        return {planes_.dx.row(y), planes_.dy.row(y), y > 0 ? slot((y - 1) % 3) : none, slot(y % 3),
                y + 1 < height ? slot((y + 1) % 3) : none};
    }

  private:
    std::size_t pitch() const { return planes_.dx.stride() + 2 * kMargin; }
    float* slot(std::size_t i) { return rows_.data() + i * pitch() + kMargin; }
    void take(std::size_t y)
    {
        gradientLengths(planes_.dx.samples(y), planes_.dy.samples(y), 1,
                        std::numeric_limits<float>::infinity(), {slot(y % 3), planes_.dx.width()});
    }

    const SubpixelPlanes& planes_;
    std::pmr::vector<float> rows_;  // three rows and one of zeros, each with a margin on either side
};

// `preselect(rows, bits)` sets the bits of the pixels of a row that may be maxima.
template <class Preselect>
void findEdges(const SubpixelPlanes& planes, double low, double high, EdgeBits& edges,
               std::vector<Vertex>& positions, Scratch scratch, Preselect preselect)
{
    const std::size_t width = planes.dx.width(), height = planes.dx.height();
    edges.resize(width, height);
    positions.resize(width * height);
    LengthRows lengths(planes, scratch);
    for (std::size_t y = 0; y < height; ++y) {
        const GradientRows rows = lengths.around(y);
        std::uint64_t* candidates = edges.candidates(y);
        preselect(rows, candidates);
        for (std::size_t w = 0; w < edges.wordsPerRow(); ++w) {
            std::uint64_t candidate = 0, seed = 0;
            for (std::uint64_t bits = candidates[w]; bits != 0; bits &= bits - 1) {
                const std::size_t x = 64 * w + std::size_t(std::countr_zero(bits));
                const double sum = maximumAt(rows, x, y, low, positions[y * width + x]);
                if (sum > 0) candidate |= bits & -bits;
                if (sum > 0 && sum > high) seed |= bits & -bits;
            }
            candidates[w] = candidate;
            edges.edges(y)[w] = seed;
        }
        edges.propagateDown(y);
    }
    edges.propagateAll();
}

void checkAperture(int aperture)
{
    if (aperture != 3 && aperture != 5 && aperture != 7) fail("aperture_size wrong");
}

}  // namespace

HWY_EXPORT(MaximaRow);

void subpixelEdges(const FloatPlane& image, double low, double high, int aperture, SubpixelPlanes& planes,
                   EdgeBits& edges, std::vector<Vertex>& positions, Scratch scratch)
{
    checkAperture(aperture);
    if (low > high) std::swap(low, high);
    Sobel(image, planes.dx, 1, 0, aperture, scratch);
    Sobel(image, planes.dy, 0, 1, aperture, scratch);
    findEdges(planes, low, high, edges, positions, scratch,
              [&](const GradientRows& rows, std::uint64_t* bits) {
                  HWY_DYNAMIC_DISPATCH(MaximaRow)(rows, float(low), image.width(), bits);
              });
}

namespace scalar {

void subpixelEdges(const FloatPlane& image, double low, double high, int aperture, SubpixelPlanes& planes,
                   EdgeBits& edges, std::vector<Vertex>& positions)
{
    checkAperture(aperture);
    if (low > high) std::swap(low, high);
    scalar::Sobel(image, planes.dx, 1, 0, aperture);
    scalar::Sobel(image, planes.dy, 0, 1, aperture);
    findEdges(planes, low, high, edges, positions, {}, [&](const GradientRows&, std::uint64_t* bits) {
        for (std::size_t x = 0; x < image.width(); ++x) {
            if (x % 64 == 0) bits[x / 64] = 0;
            bits[x / 64] |= std::uint64_t{1} << x % 64;
        }
    });
}

}  // namespace scalar
}  // namespace scansteps::edges
#endif
