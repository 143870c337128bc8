// Vector operations that filters and detector share. Included once for every instruction set.
#if defined(SCANSTEPS_CANNY_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef SCANSTEPS_CANNY_INL_H_
#undef SCANSTEPS_CANNY_INL_H_
#else
#define SCANSTEPS_CANNY_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Truncation to 32-bit integers without Highway's handling of overflow, for values known to be in range.
#if HWY_ARCH_X86
template <std::size_t N>
hn::Vec128<std::int32_t, N> TruncateInRange(hn::Vec128<float, N> v)
{
    return hn::Vec128<std::int32_t, N>{_mm_cvttps_epi32(v.raw)};
}
#if HWY_TARGET <= HWY_AVX2
inline hn::Vec256<std::int32_t> TruncateInRange(hn::Vec256<float> v)
{
    return hn::Vec256<std::int32_t>{_mm256_cvttps_epi32(v.raw)};
}
#endif
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int32_t> TruncateInRange(hn::Vec512<float> v)
{
    return hn::Vec512<std::int32_t>{_mm512_cvttps_epi32(v.raw)};
}
#endif
#else
template <class V>
auto TruncateInRange(V v)
{
    return hn::ConvertTo(hn::RebindToSigned<hn::DFromV<V> >(), v);
}
#endif

/// trunc(a + b) of the exact sum of two non-negative numbers with a + b < 2^24; `sum` receives the sum in
/// float, rounded or truncated.
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int32_t> TruncatedSum(hn::Vec512<float> a, hn::Vec512<float> b, hn::Vec512<float>& sum)
{
    sum = hn::Vec512<float>{_mm512_add_round_ps(a.raw, b.raw, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC)};
    return TruncateInRange(sum);
}
#else
// The rounding error of the sum (Fast2Sum) tells whether an integral result was rounded up.
template <class V>
auto TruncatedSum(V a, V b, V& sum)
{
    const hn::DFromV<V> d;
    const hn::RebindToSigned<decltype(d)> di;
    sum = hn::Add(a, b);
    const auto error = hn::Sub(hn::Min(a, b), hn::Sub(sum, hn::Max(a, b)));
    const auto whole = TruncateInRange(sum);
    const auto isWhole = hn::Eq(hn::ConvertTo(d, whole), sum);
    const auto down = hn::And(isWhole, hn::Lt(error, hn::Zero(d)));
    return hn::Add(whole, hn::VecFromMask(di, hn::RebindMask(di, down)));
}
#endif

/// The mask as an integer, lane 0 in the lowest bit; at most 16 lanes.
template <class D, class M>
std::uint32_t MaskBits(D d, M mask)
{
    std::uint8_t bytes[8] = {};
    hn::StoreMaskBits(d, mask, bytes);
    return std::uint32_t(bytes[0]) | (hn::MaxLanes(d) > 8 ? std::uint32_t(bytes[1]) << 8 : 0U);
}

/// centre factor[0] + (at(1) + at(-1)) factor[1] + ...: a symmetric kernel of radius R.
template <int R, class At, class V>
HWY_INLINE V Smooth(At at, const V (&factor)[R + 1])
{
    V sum = hn::Mul(at(0), factor[0]);
    for (int k = 1; k <= R; ++k) sum = hn::Add(sum, hn::Mul(hn::Add(at(k), at(-k)), factor[k]));
    return sum;
}

/// (at(1) - at(-1)) factor[1] + ...: an antisymmetric kernel of radius R.
template <int R, class At, class V>
HWY_INLINE V Differ(At at, const V (&factor)[R + 1])
{
    V sum = hn::Mul(hn::Sub(at(1), at(-1)), factor[1]);
    for (int k = 2; k <= R; ++k) sum = hn::Add(sum, hn::Mul(hn::Sub(at(k), at(-k)), factor[k]));
    return sum;
}

/// Sum over 2 R + 1 neighbours.
template <int R, class At>
HWY_INLINE auto Box(At at)
{
    auto sum = at(0);
    for (int k = 1; k <= R; ++k) sum = hn::Add(sum, hn::Add(at(k), at(-k)));
    return sum;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();
#endif
