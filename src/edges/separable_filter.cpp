// Separable filters with arbitrary kernels: each row is filtered along x, and the rows that the filter along
// y needs are kept in a ring. First derivatives and box filters of 3, 5 and 7 taps are in fused_filter.cpp.
#include <algorithm>
#include <vector>

#include "edges/canny.h"
#include "edges/filter_kernels.h"
#include "edges/fused_filter.h"
#include "edges/row_ring.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "edges/separable_filter.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<float, 16>;

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

void ScaleRow(float* HWY_RESTRICT row, float weight, std::size_t count)
{
    const D d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d))
        hn::StoreU(hn::Mul(hn::LoadU(d, row + x), hn::Set(d, weight)), d, row + x);
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::edges {

HWY_EXPORT(TermsRow);
HWY_EXPORT(ScaleRow);

namespace {

// Applies a kernel to one row; `at(k)` points to the samples at offset k.
template <class At>
void filterRow(const FoldedKernel& kernel, At at, float* dst, std::size_t count,
               std::pmr::vector<RowTerm>& terms)
{
    terms.clear();
    for (const auto& term : kernel.terms)
        terms.push_back({at(term.at), at(term.mirror), term.factor, term.kind});
    HWY_DYNAMIC_DISPATCH(TermsRow)(terms.data(), terms.size(), dst, count);
}

void filterGeneral(const FloatPlane& src, FloatPlane& dst, const FoldedKernel& alongX,
                   const FoldedKernel& alongY, float weight, Scratch scratch)
{
    const std::size_t width = src.width(), height = src.height();
    const std::size_t padded = roundUp(width, 16);  // rows of a plane are padded to this
    const auto before = static_cast<std::size_t>(alongX.before),
               after = static_cast<std::size_t>(alongX.after);
    const auto down = static_cast<std::size_t>(alongY.after);
    const std::size_t slots = std::min(height, static_cast<std::size_t>(alongY.before) + down + 1);
    const std::size_t pitch =
        padded % 1024 == 0 ? padded + 16
                           : padded;  // rows not one page apart, which would map to the same cache sets
    const ScratchArray<float> buffer(before + padded + after, scratch), folded(pitch * slots, scratch);
    const RowRing ring{folded.data(), pitch, slots};
    std::pmr::vector<RowTerm> terms(scratch);
    terms.reserve(std::max(alongX.terms.size(), alongY.terms.size()));
    float* line = buffer.data() + before;
    std::size_t taken = 0;
    for (std::size_t y = 0; y < height; ++y) {
        for (; taken <= std::min(y + down, height - 1); ++taken) {
            const float* row = src.row(taken);
            std::copy(row, row + width, line);
            std::fill(buffer.data(), line, row[0]);
            std::fill(line + width, line + padded + after, row[width - 1]);
            filterRow(
                alongX, [&](int k) { return line + k; }, ring.slot(taken), padded, terms);
        }
        const auto rowAt = [&](int k) {
            const auto at = std::clamp<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(y) + k, 0,
                                                       static_cast<std::ptrdiff_t>(height) - 1);
            return static_cast<const float*>(ring.slot(static_cast<std::size_t>(at)));
        };
        filterRow(alongY, rowAt, dst.row(y), padded, terms);
        if (weight != 1.0F) HWY_DYNAMIC_DISPATCH(ScaleRow)(dst.row(y), weight, padded);
    }
}

// First derivative along x (dx = 1) or along y. Coefficients from the centre outwards.
FusedFilter gradientFilter(int dx, int radius)
{
    constexpr float kSmooth[][4] = {{2, 1}, {6, 4, 1}, {20, 15, 6, 1}};
    constexpr float kDiffer[][4] = {{0, 1}, {0, 2, 1}, {0, 5, 4, 1}};
    FusedFilter filter;
    filter.radius = radius;
    filter.x = dx == 1 ? Fold::Differ : Fold::Smooth;
    filter.y = dx == 1 ? Fold::Smooth : Fold::Differ;
    std::ranges::copy((dx == 1 ? kDiffer : kSmooth)[radius - 1], filter.xFactors);
    std::ranges::copy((dx == 1 ? kSmooth : kDiffer)[radius - 1], filter.yFactors);
    return filter;
}

}  // namespace

void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky,
               Scratch scratch)
{
    const FoldedKernel alongX(kx, scratch), alongY(ky, scratch);
    dst.reshape(src.width(), src.height());
    if (src.width() == 0 || src.height() == 0) return;
    filterGeneral(src, dst, alongX, alongY, 1.0F, scratch);
}

void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize, Scratch scratch)
{
    if (dx >= 0 && dy >= 0 && dx + dy == 1 && (ksize == 3 || ksize == 5 || ksize == 7)) {
        dst.reshape(src.width(), src.height());
        if (src.width() != 0 && src.height() != 0)
            filterFused(src, dst, gradientFilter(dx, ksize / 2), scratch);
        return;
    }
    std::vector<float> kx, ky;
    getSobelKernels(kx, ky, dx, dy, ksize);
    sepFilter(src, dst, kx, ky, scratch);
}

void lowPass(FloatPlane& plane, int size, Scratch scratch)
{
    const float weight = boxWeight(size);
    if (plane.width() == 0 || plane.height() == 0) return;
    if (size == 3 || size == 5 || size == 7) {
        FusedFilter box;
        box.radius = size / 2;
        box.x = Fold::BoxSum;
        box.y = Fold::BoxMean;
        box.yFactors[0] = weight;
        filterFused(plane, plane, box, scratch);
    } else {
        const std::pmr::vector<float> ones(static_cast<std::size_t>(size), 1.0F, scratch);
        const FoldedKernel box(ones, scratch);
        filterGeneral(plane, plane, box, box, weight, scratch);
    }
}

}  // namespace scansteps::edges
#endif
