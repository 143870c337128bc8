// Filtering in strips of columns, vectorised: every row is filtered along x and at once combined along y with
// the rows before it.
#include "edges/fused_filter.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "core/prefetch.h"
#include "edges/row_ring.h"
#include "hwy/cache_control.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "edges/fused_filter.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "edges/canny-inl.h"

#ifndef SCANSTEPS_FUSED_FILTER_ONCE
#define SCANSTEPS_FUSED_FILTER_ONCE
namespace scansteps::edges {

// Columns `from` to `to` (multiples of 16) of the current row.
struct Stretch
{
    const float* line = nullptr;  // the sample of column `from`
    std::ptrdiff_t ahead = 0;     // prefetch distance from the line, in samples
    std::size_t from = 0, to = 0;
};

// The current row, in up to three stretches. Stretches with a line are filtered along x into `folded`. With
// `dst`, the rows around are combined along y into it; the last of them is `folded` itself where there is a
// line.
struct CurrentRow
{
    Stretch stretches[3];
    std::size_t stretchCount = 0;
    float* folded = nullptr;
    const float* rows[7] = {};
    float* dst = nullptr;
    bool pastCaches = false;
};

}  // namespace scansteps::edges
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<float, 16>;

template <int R, Fold F, class At>
HWY_INLINE hn::Vec<D> Folded(At at, const hn::Vec<D> (&factor)[R + 1])
{
    if constexpr (F == Fold::Smooth) return Smooth<R>(at, factor);
    if constexpr (F == Fold::Differ) return Differ<R>(at, factor);
    if constexpr (F == Fold::BoxSum) return Box<R>(at);
    if constexpr (F == Fold::BoxMean) return hn::Mul(Box<R>(at), factor[0]);
}

template <int R, Fold X, Fold Y>
void RunRow(const FusedFilter& filter, const CurrentRow& current)
{
    const D d;
    hn::Vec<D> xFactor[R + 1], yFactor[R + 1];
    const float* rows[2 * R + 1];
    for (int k = 0; k <= R; ++k) xFactor[k] = hn::Set(d, filter.xFactors[k]);
    for (int k = 0; k <= R; ++k) yFactor[k] = hn::Set(d, filter.yFactors[k]);
    for (int k = 0; k <= 2 * R; ++k) rows[k] = current.rows[k];
    float *HWY_RESTRICT folded = current.folded, *HWY_RESTRICT dst = current.dst;
    const bool pastCaches = current.pastCaches;
    const auto row = [&](int k, std::size_t x) HWY_ATTR { return hn::LoadU(d, rows[R + k] + x); };
    for (std::size_t s = 0; s < current.stretchCount; ++s) {
        const Stretch& stretch = current.stretches[s];
        const float* HWY_RESTRICT line = stretch.line;
        const std::ptrdiff_t ahead = stretch.ahead;
        const std::size_t from = stretch.from, to = stretch.to;
        const auto alongX = [&](std::size_t x) HWY_ATTR {
            const auto at = static_cast<std::ptrdiff_t>(x - from);
            prefetchToSecondLevel(line + (at + ahead));
            const auto sum =
                Folded<R, X>([&](int k) HWY_ATTR { return hn::LoadU(d, line + (at + k)); }, xFactor);
            hn::StoreU(sum, d, folded + x);
            return sum;
        };
        if (dst == nullptr) {
            for (std::size_t x = from; x < to; x += hn::Lanes(d)) alongX(x);
        } else if (line == nullptr) {
            for (std::size_t x = from; x < to; x += hn::Lanes(d))
                hn::StoreU(Folded<R, Y>([&](int k) HWY_ATTR { return row(k, x); }, yFactor), d, dst + x);
        } else {
            for (std::size_t x = from; x < to; x += hn::Lanes(d)) {
                const auto newest = alongX(x);
                const auto sum =
                    Folded<R, Y>([&](int k) HWY_ATTR { return k == R ? newest : row(k, x); }, yFactor);
                if (pastCaches)
                    hn::Stream(sum, d, dst + x);
                else
                    hn::StoreU(sum, d, dst + x);
            }
        }
    }
}

template <int R>
void RunRadius(const FusedFilter& filter, const CurrentRow& current)
{
    if (filter.x == Fold::BoxSum) return RunRow<R, Fold::BoxSum, Fold::BoxMean>(filter, current);
    if (filter.x == Fold::Differ) return RunRow<R, Fold::Differ, Fold::Smooth>(filter, current);
    RunRow<R, Fold::Smooth, Fold::Differ>(filter, current);
}

void Run(const FusedFilter& filter, const CurrentRow& current)
{
    if (filter.radius == 1) return RunRadius<1>(filter, current);
    if (filter.radius == 2) return RunRadius<2>(filter, current);
    RunRadius<3>(filter, current);
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::edges {

HWY_EXPORT(Run);

namespace {

// Works in strips of columns, so narrow that the rows in use stay in the first-level cache. As source and
// result may be the same plane, a strip saves the samples that the next strip reads before it overwrites
// them.
class FusedWalk
{
  public:
    FusedWalk(const FloatPlane& src, FloatPlane& dst, const FusedFilter& filter, Scratch scratch)
        : src_(src),
          dst_(dst),
          filter_(filter),
          radius_(static_cast<std::size_t>(filter.radius)),
          width_(src.width()),
          height_(src.height()),
          pastCaches_(&src != &dst && src.stride() * src.height() * sizeof(float) >= kPastCacheBytes),
          strip_(std::min(kCacheBytes / sizeof(float) / (2 * radius_ + 3) / 64 * 64, roundUp(width_, kUnit))),
          folded_((2 * radius_ + 1) * pitch(), scratch),
          ring_{folded_.data(), pitch(), 2 * radius_ + 1},
          seam_(strip_ < width_ ? radius_ * height_ : 0, scratch)
    {
    }

    void run()
    {
        for (first_ = 0; first_ < width_; first_ += strip_) {
            own_ = std::min(strip_, width_ - first_);
            std::size_t taken = 0;
            CurrentRow current;
            current.pastCaches = pastCaches_;
            for (; taken < std::min(radius_, height_); ++taken) take(taken, current);
            for (std::size_t y = 0; y < height_; ++y) {
                ring_.around(y, height_, radius_, current.rows);
                current.dst = dst_.row(y) + first_;
                if (taken < height_) {
                    take(taken++, current);
                } else {
                    current.stretches[0] = {nullptr, 0, 0,
                                            roundUp(own_, kUnit)};  // rows of a plane are padded to this
                    current.stretchCount = 1;
                    HWY_DYNAMIC_DISPATCH(Run)(filter_, current);
                }
            }
        }
        if (pastCaches_) hwy::FlushStream();
    }

  private:
    static constexpr std::size_t kUnit = 16;
    static constexpr std::size_t kCacheBytes = std::size_t{40} * 1024;

    // Rows one page apart would map to the same cache sets.
    std::size_t pitch() const { return strip_ % 1024 == 0 ? strip_ + kUnit : strip_; }

    // Copies samples from - radius ... to + radius of row y, counted from the start of the strip, and repeats
    // the outermost ones beyond the image.
    void copyEnd(std::size_t y, std::size_t from, std::size_t to, float* copy) const
    {
        const float* row = src_.row(y) + first_;
        const std::size_t missing = radius_ - std::min(radius_, from);  // to the left of the strip
        const std::size_t start = from + missing - radius_, end = std::min(to + radius_, width_ - first_);
        for (std::size_t k = 0; k < missing; ++k)
            copy[k] = first_ == 0 ? row[0] : seam_.data()[y * radius_ + k];
        std::copy(row + start, row + end, copy + missing);
        std::fill(copy + missing + (end - start), copy + (to - from) + 2 * radius_, row[end - 1]);
    }

    // Filters row y along x, and with a `dst` the rows around along y. Both ends of the row are copied to
    // buffers that have room for the samples beyond the image.
    void take(std::size_t y, CurrentRow& current)
    {
        const std::size_t padded = roundUp(own_, kUnit),
                          inside = (width_ - first_ - std::min(width_ - first_, radius_)) / kUnit * kUnit;
        const std::size_t left = std::min(kUnit, padded), right = std::clamp(inside, left, padded);
        float leftCopy[kUnit + 8], rightCopy[2 * kUnit + 8];
        current.folded = ring_.slot(y);
        copyEnd(y, 0, left, leftCopy);
        current.stretches[0] = {leftCopy + radius_, 0, 0, left};
        current.stretchCount = 1;
        if (left < right) {
            // Prefetch 4 KiB ahead, or from the next row where that would be in another strip.
            const std::size_t ahead = strip_ < width_ ? src_.stride() : 1024;
            current.stretches[current.stretchCount++] = {src_.row(y) + first_ + left,
                                                         static_cast<std::ptrdiff_t>(ahead), left, right};
        }
        if (right < padded) {
            copyEnd(y, right, padded, rightCopy);
            current.stretches[current.stretchCount++] = {rightCopy + radius_, 0, right, padded};
        }
        HWY_DYNAMIC_DISPATCH(Run)(filter_, current);
        if (first_ + strip_ < width_)
            for (std::size_t k = 0; k < radius_; ++k)
                seam_.data()[y * radius_ + k] = src_.row(y)[first_ + own_ - radius_ + k];
    }

    const FloatPlane& src_;
    FloatPlane& dst_;
    const FusedFilter& filter_;
    std::size_t radius_, width_, height_;
    bool pastCaches_;
    std::size_t strip_;                // columns of a strip
    std::size_t first_ = 0, own_ = 0;  // first column and number of columns of the current strip
    ScratchArray<float> folded_;
    RowRing ring_;
    ScratchArray<float> seam_;  // the last `radius` samples of each row of the strip to the left
};

}  // namespace

void filterFused(const FloatPlane& src, FloatPlane& dst, const FusedFilter& filter, Scratch scratch)
{
    FusedWalk(src, dst, filter, scratch).run();
}

}  // namespace scansteps::edges
#endif
