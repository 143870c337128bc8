#include "features/mcanny_fused.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "features/mcanny_rows.h"
#include "hwy/cache_control.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "features/mcanny_fused.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "features/mcanny-inl.h"

#ifndef SCANSTEPS_MCANNY_FUSED_ONCE
#define SCANSTEPS_MCANNY_FUSED_ONCE
namespace scansteps {

// A piece of a row. With `line`, samples are folded along x into `folded`; with `dst`, the folded rows around
// are folded along y into it, the last of them being the one just made, if there is a line.
struct RowPiece
{
    const float* line = nullptr;
    std::ptrdiff_t ahead = 0;  // from the line to samples that will be needed later
    float* folded = nullptr;
    const float* rows[7] = {};
    float* dst = nullptr;
    std::size_t count = 0;  // a multiple of 16
    bool pastCaches = false;
};

}  // namespace scansteps
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps {
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
void RunPiece(const FusedFilter& filter, const RowPiece& piece)
{
    const D d;
    hn::Vec<D> xFactor[R + 1], yFactor[R + 1];
    const float* rows[2 * R + 1];
    for (int k = 0; k <= R; ++k) xFactor[k] = hn::Set(d, filter.xFactors[k]);
    for (int k = 0; k <= R; ++k) yFactor[k] = hn::Set(d, filter.yFactors[k]);
    for (int k = 0; k <= 2 * R; ++k) rows[k] = piece.rows[k];
    const float* HWY_RESTRICT line = piece.line;
    float *HWY_RESTRICT folded = piece.folded, *HWY_RESTRICT dst = piece.dst;
    const std::ptrdiff_t ahead = piece.ahead;
    const std::size_t count = piece.count;
    const bool pastCaches = piece.pastCaches;
    const auto alongX = [&](std::size_t x) HWY_ATTR {
        hwy::Prefetch(line + (static_cast<std::ptrdiff_t>(x) + ahead));
        const auto sum = Folded<R, X>(
            [&](int k) HWY_ATTR { return hn::LoadU(d, line + (static_cast<std::ptrdiff_t>(x) + k)); },
            xFactor);
        hn::StoreU(sum, d, folded + x);
        return sum;
    };
    const auto row = [&](int k, std::size_t x) HWY_ATTR { return hn::LoadU(d, rows[R + k] + x); };
    if (dst == nullptr) {
        for (std::size_t x = 0; x < count; x += hn::Lanes(d)) alongX(x);
    } else if (line == nullptr) {
        for (std::size_t x = 0; x < count; x += hn::Lanes(d))
            hn::StoreU(Folded<R, Y>([&](int k) HWY_ATTR { return row(k, x); }, yFactor), d, dst + x);
    } else {
        for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
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

template <int R>
void RunRadius(const FusedFilter& filter, const RowPiece& piece)
{
    if (filter.x == Fold::BoxSum) return RunPiece<R, Fold::BoxSum, Fold::BoxMean>(filter, piece);
    if (filter.x == Fold::Differ && filter.y == Fold::Differ)
        return RunPiece<R, Fold::Differ, Fold::Differ>(filter, piece);
    if (filter.x == Fold::Differ) return RunPiece<R, Fold::Differ, Fold::Smooth>(filter, piece);
    if (filter.y == Fold::Differ) return RunPiece<R, Fold::Smooth, Fold::Differ>(filter, piece);
    RunPiece<R, Fold::Smooth, Fold::Smooth>(filter, piece);
}

void Run(const FusedFilter& filter, const RowPiece& piece)
{
    if (filter.radius == 1) return RunRadius<1>(filter, piece);
    if (filter.radius == 2) return RunRadius<2>(filter, piece);
    RunRadius<3>(filter, piece);
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps {

HWY_EXPORT(Run);

bool isFusable(const FusedFilter& filter)
{
    const bool kernels = filter.x <= Fold::Differ && filter.y <= Fold::Differ;
    const bool box = filter.x == Fold::BoxSum && filter.y == Fold::BoxMean;
    return filter.radius >= 1 && filter.radius <= 3 && (kernels || box);
}

namespace {

// Works in strips of columns, so narrow that the rows in flight stay in the first-level cache. As source and
// result may be one plane, a strip keeps the samples that its right neighbour looks at before it writes over
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
            for (std::size_t y = 0; y < height_; ++y) {
                const bool fused = y + radius_ < height_;
                while (taken < (fused ? y + radius_ : height_)) take(taken++, nullptr);
                RowPiece out;
                ring_.around(y, height_, radius_, out.rows);
                out.dst = dst_.row(y) + first_;
                out.count = roundUp(own_, kUnit);  // rows of a plane are padded as far
                out.pastCaches = pastCaches_;
                if (fused)
                    take(taken++, &out);
                else
                    HWY_DYNAMIC_DISPATCH(Run)(filter_, out);
            }
        }
        if (pastCaches_) hwy::FlushStream();
    }

  private:
    static constexpr std::size_t kUnit = 16;
    static constexpr std::size_t kCacheBytes = 40 * 1024;

    // Rows a page apart would share cache sets.
    std::size_t pitch() const { return strip_ % 1024 == 0 ? strip_ + kUnit : strip_; }

    // Samples from - radius ... to + radius of row y, counted from the strip's start, with those beyond the
    // edges.
    void copyEnd(std::size_t y, std::size_t from, std::size_t to, float* copy) const
    {
        const float* row = src_.row(y) + first_;
        const std::size_t lacking = radius_ - std::min(radius_, from);  // to the left
        const std::size_t start = from + lacking - radius_, end = std::min(to + radius_, width_ - first_);
        for (std::size_t k = 0; k < lacking; ++k)
            copy[k] = first_ == 0 ? row[0] : seam_.data()[y * radius_ + k];
        std::copy(row + start, row + end, copy + lacking);
        std::fill(copy + lacking + (end - start), copy + (to - from) + 2 * radius_, row[end - 1]);
    }

    // Folds row y along x, and the rows around along y if there is something to put out. Both ends of the row
    // are copied to a place where the samples beyond the edge can stand beside them.
    void take(std::size_t y, const RowPiece* out)
    {
        const std::size_t padded = roundUp(own_, kUnit),
                          inside = (width_ - first_ - std::min(width_ - first_, radius_)) / kUnit * kUnit;
        const std::size_t left = std::min(kUnit, padded), right = std::clamp(inside, left, padded);
        takePiece(y, 0, left, true, out);
        if (left < right) takePiece(y, left, right, false, out);
        if (right < padded) takePiece(y, right, padded, true, out);
        if (first_ + strip_ < width_)
            for (std::size_t k = 0; k < radius_; ++k)
                seam_.data()[y * radius_ + k] = src_.row(y)[first_ + own_ - radius_ + k];
    }

    void takePiece(std::size_t y, std::size_t from, std::size_t to, bool copied, const RowPiece* out)
    {
        float copy[2 * kUnit + 8];
        RowPiece piece;
        if (out != nullptr) {
            piece = *out;
            piece.dst += from;
            for (std::size_t k = 0; k <= 2 * radius_; ++k) piece.rows[k] += from;
        }
        piece.folded = ring_.slot(y) + from;
        piece.count = to - from;
        if (copied) {
            copyEnd(y, from, to, copy);
            piece.line = copy + radius_;
        } else {
            piece.line = src_.row(y) + first_ + from;
            // A kilobyte on, or, where that belongs to another strip, in the next row.
            piece.ahead = strip_ < width_ ? static_cast<std::ptrdiff_t>(src_.stride()) : 256;
        }
        HWY_DYNAMIC_DISPATCH(Run)(filter_, piece);
    }

    const FloatPlane& src_;
    FloatPlane& dst_;
    const FusedFilter& filter_;
    std::size_t radius_, width_, height_;
    bool pastCaches_;
    std::size_t strip_;                // columns of a strip
    std::size_t first_ = 0, own_ = 0;  // of the present one: the first column, how many
    ScratchArray<float> folded_;
    RowRing ring_;
    ScratchArray<float> seam_;  // the last samples of the strip to the left, `radius` for every row
};

}  // namespace

void filterFused(const FloatPlane& src, FloatPlane& dst, const FusedFilter& filter, Scratch scratch)
{
    FusedWalk(src, dst, filter, scratch).run();
}

}  // namespace scansteps
#endif
