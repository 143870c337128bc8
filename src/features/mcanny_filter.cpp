// Separable filters: a row is filtered along x when it comes in, and the rows that the filter along y needs
// stay in a ring that the cache holds.
#include <algorithm>
#include <vector>

#include "hwy/cache_control.h"

#include "features/mcanny.h"
#include "features/mcanny_parts.h"
#include "features/mcanny_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "features/mcanny_filter.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "features/mcanny-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;

// A kernel of radius R: `at[k]` points to the samples at offset k - R, along x or along y.
template <int R>
void SmoothRow(const float* const* at, const float* factors, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    hn::Vec<D> factor[R + 1];
    for (int k = 0; k <= R; ++k) factor[k] = hn::Set(d, factors[k]);
    for (std::size_t x = 0; x < count; x += hn::Lanes(d))
        hn::StoreU(Smooth<R>([&](int k) HWY_ATTR { return hn::LoadU(d, at[R + k] + x); }, factor), d,
                   dst + x);
}

template <int R>
void DifferRow(const float* const* at, const float* factors, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    hn::Vec<D> factor[R + 1];
    for (int k = 0; k <= R; ++k) factor[k] = hn::Set(d, factors[k]);
    for (std::size_t x = 0; x < count; x += hn::Lanes(d))
        hn::StoreU(Differ<R>([&](int k) HWY_ATTR { return hn::LoadU(d, at[R + k] + x); }, factor), d,
                   dst + x);
}

template <int R>
void BoxRow(const float* const* at, float weight, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    const auto factor = hn::Set(d, weight);
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
        const auto sum = Box<R>([&](int k) HWY_ATTR { return hn::LoadU(d, at[R + k] + x); });
        hn::StoreU(hn::Mul(sum, factor), d, dst + x);
    }
}

void TermsRow(const RowTerm* terms, std::size_t termCount, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
        auto sum = hn::Zero(d);
        for (std::size_t k = 0; k < termCount; ++k) {
            auto value = hn::LoadU(d, terms[k].at + x);
            if (terms[k].kind == FoldedKernel::Sum) value = hn::Add(value, hn::LoadU(d, terms[k].mirror + x));
            if (terms[k].kind == FoldedKernel::Difference)
                value = hn::Sub(value, hn::LoadU(d, terms[k].mirror + x));
            value = hn::Mul(value, hn::Set(d, terms[k].factor));
            sum = k == 0 ? value : hn::Add(sum, value);
        }
        hn::StoreU(sum, d, dst + x);
    }
}

void KernelRow(KernelShape shape, const float* const* at, const float* factors, float* dst, std::size_t count)
{
    switch (shape) {
        case KernelShape::Smooth3:
            return SmoothRow<1>(at, factors, dst, count);
        case KernelShape::Smooth5:
            return SmoothRow<2>(at, factors, dst, count);
        case KernelShape::Smooth7:
            return SmoothRow<3>(at, factors, dst, count);
        case KernelShape::Differ3:
            return DifferRow<1>(at, factors, dst, count);
        case KernelShape::Differ5:
            return DifferRow<2>(at, factors, dst, count);
        case KernelShape::Differ7:
            return DifferRow<3>(at, factors, dst, count);
        case KernelShape::Box3:
            return BoxRow<1>(at, factors[0], dst, count);
        case KernelShape::Box5:
            return BoxRow<2>(at, factors[0], dst, count);
        case KernelShape::Box7:
            return BoxRow<3>(at, factors[0], dst, count);
        case KernelShape::Terms:
            return;
    }
}

// Fetches the same columns of another row meanwhile.
void CopyRow(const float* HWY_RESTRICT src, const float* ahead, float* HWY_RESTRICT dst, std::size_t count)
{
    const hn::CappedTag<float, 16> d;
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= count; x += hn::Lanes(d)) {
        hwy::Prefetch(ahead + x);
        hn::StoreU(hn::LoadU(d, src + x), d, dst + x);
    }
    for (; x < count; ++x) dst[x] = src[x];
}

// Past the caches; `dst` is aligned.
void StreamRow(const float* HWY_RESTRICT src, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) hn::Stream(hn::LoadU(d, src + x), d, dst + x);
}

void ScaleRow(float* HWY_RESTRICT row, float weight, std::size_t count)
{
    const D d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d))
        hn::StoreU(hn::Mul(hn::LoadU(d, row + x), hn::Set(d, weight)), d, row + x);
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps {

HWY_EXPORT(KernelRow);
HWY_EXPORT(TermsRow);
HWY_EXPORT(CopyRow);
HWY_EXPORT(StreamRow);
HWY_EXPORT(ScaleRow);

namespace {

// One direction of a filter: the kernel, and the row operation that serves it.
struct Pass
{
    FoldedKernel kernel;
    KernelShape shape = KernelShape::Terms;
    float factors[4] = {};

    explicit Pass(std::span<const float> taps) : kernel(taps)
    {
        const auto& terms = kernel.terms;
        const int radius = kernel.before;
        if (kernel.after != radius || radius < 1 || radius > 3) return;
        for (const auto& term : terms) {
            if (term.at < 0 || (term.at > 0 && term.kind == FoldedKernel::Single)) return;
            factors[term.at] = term.factor;
        }
        const auto size = static_cast<int>(terms.size());
        if (size == radius + 1 && terms.back().kind == FoldedKernel::Sum)
            shape = static_cast<KernelShape>(static_cast<int>(KernelShape::Smooth3) + radius - 1);
        if (size == radius && terms.back().kind == FoldedKernel::Difference)
            shape = static_cast<KernelShape>(static_cast<int>(KernelShape::Differ3) + radius - 1);
    }

    Pass(int boxRadius, float weight)
        : kernel(std::vector<float>(static_cast<std::size_t>(2 * boxRadius + 1), 1.0F))
    {
        shape = static_cast<KernelShape>(static_cast<int>(KernelShape::Box3) + boxRadius - 1);
        factors[0] = weight;
    }

    // `at(k)` points to the samples at offset k.
    template <class At>
    void run(At at, float* dst, std::size_t count, std::vector<RowTerm>& scratch) const
    {
        if (shape != KernelShape::Terms) {
            const float* rows[7];
            for (int k = -kernel.before; k <= kernel.after; ++k) rows[k + kernel.before] = at(k);
            HWY_DYNAMIC_DISPATCH(KernelRow)(shape, rows, factors, dst, count);
            return;
        }
        scratch.clear();
        for (const auto& term : kernel.terms)
            scratch.push_back({at(term.at), at(term.mirror), term.factor, term.kind});
        HWY_DYNAMIC_DISPATCH(TermsRow)(scratch.data(), scratch.size(), dst, count);
    }
};

// A filter at work on strips of columns, so narrow that the rows in flight stay in the first-level cache. As
// source and result may be one plane, a strip keeps the columns that its right neighbour looks at before it
// writes them.
class StripFilter
{
  public:
    StripFilter(const FloatPlane& src, FloatPlane& dst, const Pass& alongX, const Pass& alongY, float weight)
        : src_(src),
          dst_(dst),
          alongX_(alongX),
          alongY_(alongY),
          weight_(weight),
          width_(src.width()),
          height_(src.height()),
          before_(static_cast<std::size_t>(alongX.kernel.before)),
          after_(static_cast<std::size_t>(alongX.kernel.after)),
          down_(static_cast<std::size_t>(alongY.kernel.after)),
          slots_(std::min(height_, static_cast<std::size_t>(alongY.kernel.before) + down_ + 1))
    {
        const std::size_t fitting = kCacheBytes / sizeof(float) / (slots_ + 2);
        const bool inStrips = before_ <= kMargin && after_ <= kMargin && fitting >= 256;
        strip_ = std::min(inStrips ? fitting / 64 * 64 : width_, roundUp(width_, 16));
        line_.resize(before_ + roundUp(strip_, 16) + after_);
        ring_.resize(static_cast<std::uint32_t>(roundUp(strip_, 16)), static_cast<std::uint32_t>(slots_));
        pastCaches_ =
            &src != &dst && weight == 1.0F && src.stride() * height_ * sizeof(float) >= kPastCacheBytes;
        if (pastCaches_) result_.resize(static_cast<std::uint32_t>(roundUp(strip_, 16)), 1);
        if (strip_ < width_) seam_.resize(before_ * height_);
    }

    void run()
    {
        for (std::size_t first = 0; first < width_; first += strip_) {
            std::size_t filtered = 0;
            for (std::size_t y = 0; y < height_; ++y) {
                for (; filtered <= std::min(y + down_, height_ - 1); ++filtered) takeIn(filtered, first);
                putOut(y, first);
            }
        }
        if (pastCaches_) hwy::FlushStream();
    }

  private:
    static constexpr std::size_t kCacheBytes = 40 * 1024;

    // Columns of the strip that starts at `first`, and those that are worked on: rows of planes are padded
    // to 16.
    std::size_t own(std::size_t first) const { return std::min(strip_, width_ - first); }

    void takeIn(std::size_t y, std::size_t first)
    {
        const std::size_t count = own(first), padded = roundUp(count, 16);
        const std::size_t beyond = std::min(after_, width_ - first - count);
        float* line = line_.data() + before_;
        const float* row = src_.row(y) + first;
        const float* next = src_.row(std::min(y + 1, height_ - 1)) + first;
        HWY_DYNAMIC_DISPATCH(CopyRow)(row, next, line, count + beyond);
        std::fill(line + count + beyond, line + padded + after_, line[count + beyond - 1]);
        if (first == 0)
            std::fill(line - before_, line, line[0]);
        else
            std::copy_n(&seam_[y * before_], before_, line - before_);
        if (first + strip_ < width_) std::copy_n(line + count - before_, before_, &seam_[y * before_]);
        alongX_.run([&](int k) { return line + k; }, ring_.row(y % slots_), padded, scratch_);
    }

    void putOut(std::size_t y, std::size_t first)
    {
        const auto rowAt = [&](int k) {
            const auto at = std::clamp<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(y) + k, 0,
                                                       static_cast<std::ptrdiff_t>(height_) - 1);
            return static_cast<const float*>(ring_.row(static_cast<std::size_t>(at) % slots_));
        };
        float* out = dst_.row(y) + first;
        const std::size_t padded = roundUp(own(first), 16);
        if (pastCaches_) {
            alongY_.run(rowAt, result_.row(0), padded, scratch_);
            HWY_DYNAMIC_DISPATCH(StreamRow)(result_.row(0), out, padded);
        } else {
            alongY_.run(rowAt, out, padded, scratch_);
        }
        if (weight_ != 1.0F) HWY_DYNAMIC_DISPATCH(ScaleRow)(out, weight_, padded);
    }

    const FloatPlane& src_;
    FloatPlane& dst_;
    const Pass &alongX_, &alongY_;
    float weight_;
    std::size_t width_, height_, before_, after_, down_, slots_;
    std::size_t strip_ = 0;
    std::vector<float> line_, seam_;
    FloatPlane ring_, result_;
    bool pastCaches_ = false;
    std::vector<RowTerm> scratch_;
};

void filter(const FloatPlane& src, FloatPlane& dst, const Pass& alongX, const Pass& alongY,
            float weight = 1.0F)
{
    dst.resize(src.width(), src.height());
    if (src.width() != 0 && src.height() != 0) StripFilter(src, dst, alongX, alongY, weight).run();
}

}  // namespace

void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky)
{
    filter(src, dst, Pass(kx), Pass(ky));
}

void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize)
{
    std::vector<float> kx, ky;
    getSobelKernels(kx, ky, dx, dy, ksize);
    sepFilter(src, dst, kx, ky);
}

void lowPass(FloatPlane& plane, int size)
{
    const float weight = boxWeight(size);
    if (size == 3 || size == 5 || size == 7) {
        filter(plane, plane, Pass(size / 2, 1.0F), Pass(size / 2, weight));
    } else {
        const std::vector<float> ones(static_cast<std::size_t>(size), 1.0F);
        filter(plane, plane, Pass(ones), Pass(ones), weight);
    }
}

}  // namespace scansteps
#endif
