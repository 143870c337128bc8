// The streaming Canny detector: Sobel derivatives, L1 magnitude and non-maximum suppression strip by strip in
// vector code. The hysteresis is in edge_bits.cpp.
#include "edges/canny_detector.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "core/sample_values.h"
#include "hwy/cache_control.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "edges/canny_detector.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "edges/canny-inl.h"

#ifndef SCANSTEPS_CANNY_DETECTOR_ONCE
#define SCANSTEPS_CANNY_DETECTOR_ONCE
namespace scansteps::edges {

// Coefficients of the Sobel kernels from the centre outwards: order 0, and order 1 (whose centre is 0).
template <int R>
struct SobelPair;
template <>
struct SobelPair<1>
{
    static constexpr float kSmooth[] = {2, 1}, kDiffer[] = {0, 1};
};
template <>
struct SobelPair<2>
{
    static constexpr float kSmooth[] = {6, 4, 1}, kDiffer[] = {0, 2, 1};
};
template <>
struct SobelPair<3>
{
    static constexpr float kSmooth[] = {20, 15, 6, 1}, kDiffer[] = {0, 5, 4, 1};
};

// Magnitudes of a row: Large when float arithmetic cannot truncate one of them (2^24 and above, NaN).
enum class Range
{
    Small,
    Large
};

// Input rows of the non-maximum suppression.
struct SuppressionRows
{
    const std::int32_t *above, *middle, *below;
    const float *dx, *dy;
    const std::uint64_t* active;
};

}  // namespace scansteps::edges
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<float, 16>;
using DI = hn::RebindToSigned<D>;

template <int R>
void Broadcast(const float* values, hn::Vec<D> (&out)[R + 1])
{
    for (int k = 0; k <= R; ++k) out[k] = hn::Set(D(), values[k]);
}

// Both kernels along x, columns `from` to `to`. Multiplying by 1 is exact, so unit factors need no special
// case.
template <int R>
void AlongX(const float* HWY_RESTRICT line, float* HWY_RESTRICT differences, float* HWY_RESTRICT sums,
            std::ptrdiff_t from, std::ptrdiff_t to)
{
    const D d;
    hn::Vec<D> smooth[R + 1], differ[R + 1];
    Broadcast<R>(SobelPair<R>::kSmooth, smooth);
    Broadcast<R>(SobelPair<R>::kDiffer, differ);
    for (std::ptrdiff_t x = from; x < to; x += static_cast<std::ptrdiff_t>(hn::Lanes(d))) {
        const auto at = [&](int k) HWY_ATTR { return hn::LoadU(d, line + (x + k)); };
        hn::StoreU(Differ<R>(at, differ), d, differences + x);
        hn::StoreU(Smooth<R>(at, smooth), d, sums + x);
    }
}

// Both derivatives, the magnitude, and the bits where it exceeds `low`, for `count` columns, a multiple of
// 64; also derivatives and magnitudes of one vector of columns on either side. `differences` and `sums` are
// the 2 R + 1 rows around.
template <int R>
Range AlongY(const float* const* differences, const float* const* sums, std::int32_t low,
             float* HWY_RESTRICT dxRow, float* HWY_RESTRICT dyRow, std::int32_t* HWY_RESTRICT magnitudes,
             std::uint64_t* HWY_RESTRICT active, std::size_t count, PrefetchHint upcoming)
{
    const D d;
    const DI di;
    const auto lanes = static_cast<std::ptrdiff_t>(hn::Lanes(d));
    hn::Vec<D> smooth[R + 1], differ[R + 1];
    Broadcast<R>(SobelPair<R>::kSmooth, smooth);
    Broadcast<R>(SobelPair<R>::kDiffer, differ);
    const auto lowest = hn::Set(di, low);
    const auto limit = hn::Set(d, 16777216.0F);
    auto small = hn::Eq(limit, limit);
    const auto part = [&](std::ptrdiff_t at) HWY_ATTR {
        const auto dx =
            Smooth<R>([&](int k) HWY_ATTR { return hn::LoadU(d, differences[R + k] + at); }, smooth);
        const auto dy = Differ<R>([&](int k) HWY_ATTR { return hn::LoadU(d, sums[R + k] + at); }, differ);
        hn::Vec<D> sum;
        const auto magnitude = TruncatedSum(hn::Abs(dx), hn::Abs(dy), sum);
        small = hn::And(small, hn::Lt(sum, limit));
        hn::StoreU(dx, d, dxRow + at);
        hn::StoreU(dy, d, dyRow + at);
        hn::StoreU(magnitude, di, magnitudes + at);
        return hn::Gt(magnitude, lowest);
    };
    part(-lanes);
    part(static_cast<std::ptrdiff_t>(count));
    for (std::size_t x = 0; x < count; x += 64) {
        for (std::size_t byte = 0; byte < upcoming.bytesFor64; byte += 64)
            hwy::Prefetch(upcoming.first + byte);
        upcoming.first += upcoming.bytesFor64;
        std::uint64_t word = 0;
        for (std::ptrdiff_t k = 0; k < 64; k += lanes)
            word |= static_cast<std::uint64_t>(MaskBits(di, part(static_cast<std::ptrdiff_t>(x) + k))) << k;
        active[x / 64] = word;
    }
    return hn::AllTrue(d, small) ? Range::Small : Range::Large;
}

// a x > q and a x < q, exactly, for integers x and for q that are 32768 times an integer.
template <class V>
auto ProductAbove(V x, V q, std::int32_t a, hn::Vec<DI> xInt, hn::Vec<DI> yInt)
{
    const D d;
    const auto factor = hn::Set(d, static_cast<float>(a));
#if HWY_NATIVE_FMA
    (void)xInt, (void)yInt;
    return hn::Gt(hn::MulSub(factor, x, q), hn::Zero(d));  // rounded once, so the sign is right
#else
    // If the rounded product differs from q, it lies on the correct side; if it is equal, the difference is
    // in the low 32 bits.
    const DI di;
    const auto product = hn::Mul(factor, x);
    const auto rest = hn::Sub(hn::Mul(hn::Set(di, a), xInt), hn::ShiftLeft<15>(yInt));
    const auto tie = hn::And(hn::Eq(product, q), hn::RebindMask(d, hn::Gt(rest, hn::Zero(di))));
    return hn::Or(hn::Gt(product, q), tie);
#endif
}

template <class V>
auto ProductBelow(V x, V q, std::int32_t a, hn::Vec<DI> xInt, hn::Vec<DI> yInt)
{
    const D d;
    const auto factor = hn::Set(d, static_cast<float>(a));
#if HWY_NATIVE_FMA
    (void)xInt, (void)yInt;
    return hn::Lt(hn::MulSub(factor, x, q), hn::Zero(d));
#else
    const DI di;
    const auto product = hn::Mul(factor, x);
    const auto rest = hn::Sub(hn::Mul(hn::Set(di, a), xInt), hn::ShiftLeft<15>(yInt));
    const auto tie = hn::And(hn::Eq(product, q), hn::RebindMask(d, hn::Lt(rest, hn::Zero(di))));
    return hn::Or(hn::Lt(product, q), tie);
#endif
}

// Non-maximum suppression of the pixels x ... x + Lanes - 1: bits of the maxima, and of those above `high`.
void SuppressPart(const SuppressionRows& rows, std::size_t x, std::int32_t high, std::uint32_t& maxima,
                  std::uint32_t& strong)
{
    const D d;
    const DI di;
    const auto dx = hn::Trunc(hn::LoadU(d, rows.dx + x));
    const auto dy = hn::Trunc(hn::LoadU(d, rows.dy + x));
    const auto ax = hn::Abs(dx), ay = hn::Abs(dy);
    const auto q = hn::Mul(ay, hn::Set(d, 32768.0F));
    const auto xInt = TruncateInRange(ax), yInt = TruncateInRange(ay);
    const auto flat = hn::RebindMask(di, ProductAbove(ax, q, 13573, xInt, yInt));  // tan 22.5 degrees
    const auto steep =
        hn::RebindMask(di, ProductBelow(ax, q, 13573 + 65536, xInt, yInt));  // tan 67.5 degrees
    const auto opposite = hn::RebindMask(di, hn::Lt(hn::Mul(dx, dy), hn::Zero(d)));
    const auto at = [&](const std::int32_t* row, int k)
                        HWY_ATTR { return hn::LoadU(di, row + (static_cast<std::ptrdiff_t>(x) + k)); };
    const auto pick = [&](auto ifFlat, auto ifSteep, auto ifOpposite, auto otherwise) HWY_ATTR {
        return hn::IfThenElse(
            flat, ifFlat, hn::IfThenElse(steep, ifSteep, hn::IfThenElse(opposite, ifOpposite, otherwise)));
    };
    const auto m = at(rows.middle, 0);
    const auto before = pick(at(rows.middle, -1), at(rows.above, 0), at(rows.above, 1), at(rows.above, -1));
    const auto after = pick(at(rows.middle, 1), at(rows.below, 0), at(rows.below, -1), at(rows.below, 1));
    // Along the axes a tie with the later neighbour is still a maximum, so compare with its magnitude less 1.
    const auto later = hn::IfThenElse(hn::Or(flat, steep), hn::Sub(after, hn::Set(di, 1)), after);
    const auto isMaximum = hn::And(hn::Gt(m, before), hn::Gt(m, later));
    maxima = MaskBits(di, isMaximum);
    strong = MaskBits(di, hn::And(isMaximum, hn::Gt(m, hn::Set(di, high))));
}

void Suppress(const SuppressionRows& rows, std::int32_t high, std::uint64_t* HWY_RESTRICT candidates,
              std::uint64_t* HWY_RESTRICT seeds, std::size_t words)
{
    const std::size_t lanes = hn::Lanes(D());
    const std::uint64_t partMask = (std::uint64_t{1} << lanes) - 1;
    for (std::size_t w = 0; w < words; ++w) {
        const std::uint64_t active = rows.active[w];
        std::uint64_t candidate = 0, seed = 0;
        if (active != 0) {
            for (std::size_t part = 0; part < 64; part += lanes) {
                if ((active >> part & partMask) == 0) continue;
                std::uint32_t maxima, strong;
                SuppressPart(rows, w * 64 + part, high, maxima, strong);
                candidate |= static_cast<std::uint64_t>(maxima) << part;
                seed |= static_cast<std::uint64_t>(strong) << part;
            }
        }
        candidates[w] = candidate & active;
        seeds[w] = seed & active;
    }
}

void RowAlongX(int radius, const float* line, float* differences, float* sums, std::ptrdiff_t from,
               std::ptrdiff_t to)
{
    if (radius == 1) return AlongX<1>(line, differences, sums, from, to);
    if (radius == 2) return AlongX<2>(line, differences, sums, from, to);
    AlongX<3>(line, differences, sums, from, to);
}

Range RowAlongY(int radius, const float* const* differences, const float* const* sums, std::int32_t low,
                float* dx, float* dy, std::int32_t* magnitudes, std::uint64_t* active, std::size_t count,
                PrefetchHint upcoming)
{
    if (radius == 1) return AlongY<1>(differences, sums, low, dx, dy, magnitudes, active, count, upcoming);
    if (radius == 2) return AlongY<2>(differences, sums, low, dx, dy, magnitudes, active, count, upcoming);
    return AlongY<3>(differences, sums, low, dx, dy, magnitudes, active, count, upcoming);
}

// The bits from `at` on as a mask. Either `at` is a multiple of the number of lanes, or the bits end within
// the row.
template <class DAny>
hn::Mask<DAny> LanesFromBits(DAny d, const std::uint64_t* bits, std::size_t at)
{
    std::uint64_t word = bits[at / 64] >> (at % 64);
    if (at % 64 + hn::Lanes(d) > 64) word |= bits[at / 64 + 1] << (64 - at % 64);
    std::uint8_t bytes[8];
    for (int k = 0; k < 8; ++k) bytes[k] = static_cast<std::uint8_t>(word >> (8 * k));
    return hn::LoadMaskBits(d, bytes);
}

// Makes the whole detector 1.2 times as fast as setting the edges one by one. Aligned stores, and an
// overlapping unaligned one at each end. Returns the number of samples written: all, or none when the row is
// too short.
std::size_t ExpandTo16(const std::uint64_t* HWY_RESTRICT bits, std::uint16_t* HWY_RESTRICT row,
                       std::size_t width)
{
    const hn::CappedTag<std::uint16_t, 32> d;
    const std::size_t lanes = hn::Lanes(d);
    if (width < 2 * lanes) return 0;
    const auto edge = hn::Set(d, kOffset16White), none = hn::Set(d, kOffset16Zero);
    const auto samples = [&](std::size_t x)
                             HWY_ATTR { return hn::IfThenElse(LanesFromBits(d, bits, x), edge, none); };
    hn::StoreU(samples(0), d, row);
    std::size_t x = lanes - reinterpret_cast<std::uintptr_t>(row) / sizeof(*row) % lanes;
    for (; x + lanes <= width; x += lanes) hn::StoreU(samples(x), d, row + x);
    hn::StoreU(samples(width - lanes), d, row + width - lanes);
    return width;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::edges {

HWY_EXPORT(RowAlongX);
HWY_EXPORT(RowAlongY);
HWY_EXPORT(Suppress);
HWY_EXPORT(ExpandTo16);

std::size_t stripWidth(std::size_t width)
{
    constexpr std::size_t kMaxWidth = 640;  // some 36 KB of rows at aperture 3
    const std::size_t strips = (width + kMaxWidth - 1) / kMaxWidth;
    return roundUp((width + strips - 1) / strips, 64);
}

void CannyWorkspace::Buffers::resize(std::size_t width, std::size_t height, int aperture)
{
    if (width == width_ && height == height_ && aperture == aperture_) return;
    width_ = height_ = 0;  // in case memory runs out
    bits.resize(width, height);
    strip = stripWidth(width);
    const auto slots = static_cast<std::size_t>(aperture);
    floats_.resize(static_cast<std::uint32_t>(strip + 3 * kMargin),
                   static_cast<std::uint32_t>(2 * slots + 5));
    const std::size_t pitch = floats_.stride();
    float* first = floats_.row(0) + kMargin;
    differences = {first, pitch, slots};
    sums = {first + slots * pitch, pitch, slots};
    dx = {first + 2 * slots * pitch, pitch, 2};
    dy = {first + (2 * slots + 2) * pitch, pitch, 2};
    line = first + (2 * slots + 4) * pitch;
    integers_.assign(3 * pitch, 0);
    masks_.assign(2 * strip / 64, 0);
    for (std::size_t k = 0; k < 3; ++k) magnitudes[k] = integers_.data() + k * pitch + kMargin;
    for (std::size_t k = 0; k < 2; ++k) active[k] = masks_.data() + k * strip / 64;
    width_ = width;
    height_ = height;
    aperture_ = aperture;
}

namespace {

// Runs the detector on one strip of columns.
class StripDetector
{
  public:
    StripDetector(FloatRowSource& source, std::size_t width, std::size_t height, std::size_t firstColumn,
                  const CannyThresholds& thresholds, int aperture, CannyWorkspace::Buffers& buffers)
        : source_(source),
          height_(height),
          first_(firstColumn),
          own_(std::min(buffers.strip, width - firstColumn)),
          atLeftEdge_(firstColumn == 0),
          atRightEdge_(firstColumn + own_ == width),
          thresholds_(thresholds),
          radius_(aperture / 2),
          b_(buffers)
    {
        // One vector of magnitudes on either side, and the samples that their derivatives read.
        const Columns wide =
            Columns{firstColumn, own_}.widened(static_cast<std::size_t>(16 + radius_), width);
        from_ = static_cast<std::ptrdiff_t>(wide.first) - static_cast<std::ptrdiff_t>(firstColumn);
        to_ = from_ + static_cast<std::ptrdiff_t>(wide.count);
        source.begin(wide);
    }

    void run()
    {
        clearMagnitudes(b_.magnitudes[2]);  // the row above the image
        for (std::size_t i = 0; i <= height_; ++i) {
            if (i == height_)
                clearMagnitudes(b_.magnitudes[i % 3]);
            else
                derive(i);
            if (i > 0) suppress(i - 1);
        }
    }

  private:
    void clearMagnitudes(std::int32_t* row) const { std::fill(row - 1, row + b_.strip + 1, 0); }

    // Computes derivatives and magnitudes of row y, and reads the source rows that they need.
    void derive(std::size_t y)
    {
        const auto radius = static_cast<std::size_t>(radius_);
        const auto lowest = static_cast<std::ptrdiff_t>(-16),
                   highest = static_cast<std::ptrdiff_t>(b_.strip + 16);
        for (; taken_ <= std::min(y + radius, height_ - 1); ++taken_) {
            source_.read(taken_, b_.line + from_);
            repeatEdges(b_.line, from_, to_, lowest - radius_, highest + radius_);
            HWY_DYNAMIC_DISPATCH(RowAlongX)
            (radius_, b_.line, b_.differences.slot(taken_), b_.sums.slot(taken_), lowest, highest);
        }
        const float *differences[7], *sums[7];
        b_.differences.around(y, height_, radius, differences);
        b_.sums.around(y, height_, radius, sums);
        std::int32_t* magnitudes = b_.magnitudes[y % 3];
        std::uint64_t* active = b_.active[y % 2];
        const Range range = HWY_DYNAMIC_DISPATCH(RowAlongY)(
            radius_, differences, sums, thresholds_.low, b_.dx.slot(y), b_.dy.slot(y), magnitudes, active,
            b_.strip, source_.upcoming(std::min(y + radius + 1, height_ - 1)));
        if (range == Range::Large) magnitudesInDouble(y);
        if (atLeftEdge_) magnitudes[-1] = 0;
        if (atRightEdge_) magnitudes[own_] = 0;
        if (own_ % 64 != 0) active[own_ / 64] &= (std::uint64_t{1} << (own_ % 64)) - 1;
    }

    // Recomputes the magnitudes of a row and its active bits in double precision. Frames get here with
    // aperture 7 only.
    void magnitudesInDouble(std::size_t y)
    {
        const float *dx = b_.dx.slot(y), *dy = b_.dy.slot(y);
        std::int32_t* magnitudes = b_.magnitudes[y % 3];
        std::uint64_t* active = b_.active[y % 2];
        std::fill(active, active + b_.strip / 64, 0);
        const auto own = static_cast<std::ptrdiff_t>(own_);
        for (std::ptrdiff_t x = atLeftEdge_ ? 0 : -1; x < own + (atRightEdge_ ? 0 : 1); ++x) {
            const double sum = std::abs(double{dx[x]}) + std::abs(double{dy[x]});
            if (!(sum < 1073741824.0)) fail("derivative out of range");  // 2^30: limit of the vector code
            magnitudes[x] = static_cast<std::int32_t>(sum);
            if (x >= 0 && x < own && magnitudes[x] > thresholds_.low)
                active[x / 64] |= std::uint64_t{1} << (x % 64);
        }
    }

    void suppress(std::size_t y)
    {
        const SuppressionRows around = {b_.magnitudes[(y + 2) % 3],
                                        b_.magnitudes[y % 3],
                                        b_.magnitudes[(y + 1) % 3],
                                        b_.dx.slot(y),
                                        b_.dy.slot(y),
                                        b_.active[y % 2]};
        HWY_DYNAMIC_DISPATCH(Suppress)
        (around, thresholds_.high, b_.bits.candidates(y) + first_ / 64, b_.bits.edges(y) + first_ / 64,
         (own_ + 63) / 64);
    }

    FloatRowSource& source_;
    std::size_t height_, first_, own_;  // rows; first column and number of columns of the strip
    bool atLeftEdge_, atRightEdge_;
    CannyThresholds thresholds_;
    int radius_;
    CannyWorkspace::Buffers& b_;
    std::ptrdiff_t from_ = 0, to_ = 0;  // columns that the source supplies, relative to the strip
    std::size_t taken_ = 0;             // source rows read
};

}  // namespace

void detectEdges(FloatRowSource& source, std::size_t width, std::size_t height,
                 const CannyThresholds& thresholds, int aperture, CannyWorkspace::Buffers& buffers)
{
    buffers.resize(width, height, aperture);
    for (std::size_t first = 0; first < width; first += buffers.strip)
        StripDetector(source, width, height, first, thresholds, aperture, buffers).run();
    for (std::size_t y = 0; y < height; ++y) buffers.bits.propagateDown(y);
    buffers.bits.propagateAll();
}

void expandEdges(const EdgeBits& bits, FloatPlane& plane)
{
    for (std::size_t y = 0; y < plane.height(); ++y) {
        float* row = plane.row(y);
        std::fill_n(row, plane.width(), 0.0F);
        for (std::size_t w = 0; w < bits.wordsPerRow(); ++w)
            for (std::uint64_t word = bits.edges(y)[w]; word != 0; word &= word - 1)
                row[64 * w + static_cast<std::size_t>(std::countr_zero(word))] = 255.0F;
    }
}

void expandEdges(const EdgeBits& bits, std::uint16_t* frame, std::size_t width, std::size_t height)
{
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint64_t* row = bits.edges(y);
        std::uint16_t* out = frame + y * width;
        for (std::size_t x = HWY_DYNAMIC_DISPATCH(ExpandTo16)(row, out, width); x < width; ++x)
            out[x] = (row[x / 64] >> (x % 64) & 1) != 0 ? kOffset16White : kOffset16Zero;
    }
}

}  // namespace scansteps::edges
#endif
