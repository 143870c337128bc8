#include "convert/rgb_magnitude.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "framework/fetch_ahead.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/rgb_magnitude.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "convert/bytes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// floor(255 m), m from 0 to 2, without widening to double: 255 m = 256 m - m is rounded once, and the integer
// part is that of the exact product.
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int32_t> Floor255(hn::Vec512<float> m)
{
    const __m512 m256 = _mm512_mul_ps(m.raw, _mm512_set1_ps(256.0F));
    const __m512 cut = _mm512_sub_round_ps(m256, m.raw, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return hn::Vec512<std::int32_t>{_mm512_cvttps_epi32(cut)};
}
#else
// The rounding error (Fast2Sum, exact as 256 m is the larger one) tells whether a product that came out whole
// was rounded up to it.
template <class V>
auto Floor255(V m)
{
    const hn::DFromV<V> df;
    const hn::RebindToSigned<decltype(df)> di;
    const auto m256 = hn::Mul(m, hn::Set(df, 256.0F));
    const auto product = hn::Sub(m256, m);
    const auto roundedUp = hn::Gt(hn::Sub(product, m256), hn::Neg(m));
    const auto whole = hn::ConvertTo(di, product);
    const auto isWhole = hn::Eq(hn::ConvertTo(df, whole), product);
    return hn::Add(whole, hn::VecFromMask(di, hn::RebindMask(di, hn::And(isWhole, roundedUp))));
}
#endif

// Pixels as dwords of 16-bit halves, c0 and c1 in `c01`, c2 in `c2`.
template <class D>
struct Pixels
{
    hn::Vec<D> c01, c2;
};

// The sample less 32768 as documented, for any colour.
template <class D>
hn::Vec<D> LengthByRoot(D di, const Pixels<D>& p)
{
    const hn::RebindToFloat<D> df;
    const auto component = [&](auto c) HWY_ATTR {
        return hn::Mul(hn::ConvertTo(df, c), hn::Set(df, 0.003921568859368563F));
    };
    const auto a0 = component(hn::And(p.c01, hn::Set(di, 255)));
    const auto a1 = component(hn::ShiftRight<16>(p.c01));
    const auto a2 = component(p.c2);
    return Floor255(hn::Sqrt(hn::Add(hn::Add(hn::Mul(a1, a1), hn::Mul(a0, a0)), hn::Mul(a2, a2))));
}

// The nearest whole number k to a rough root of n = c0² + c1² + c2² (off by 0.2 at most), and n - k² (of
// either sign, below 700).
template <class D>
struct Estimate
{
    hn::Vec<D> k, rest;
};

template <class D>
Estimate<D> EstimateRoot(D di, const Pixels<D>& p)
{
    const hn::RebindToFloat<D> df;
    const hn::Repartition<std::int16_t, D> d16;
    const auto squares = [&](hn::Vec<D> pairs, hn::Vec<D> sum) HWY_ATTR {
        auto odd = hn::Zero(di);
        const auto halves = hn::BitCast(d16, pairs);
        return hn::RearrangeToOddPlusEven(hn::ReorderWidenMulAccumulate(di, halves, halves, sum, odd), odd);
    };
    const auto n = squares(p.c2, squares(p.c01, hn::Zero(di)));
    const auto positive = hn::ConvertTo(df, hn::Max(n, hn::Set(di, 1)));
    const auto root = hn::Mul(positive, hn::ApproximateReciprocalSqrt(positive));
    const auto magic = hn::Set(df, 0x1p23F);  // leaves no room for fractions
    const auto k = hn::Xor(hn::BitCast(di, hn::Add(root, magic)), hn::BitCast(di, magic));
    return {k, hn::Sub(n, squares(k, hn::Zero(di)))};
}

// Where the root of n is not whole, the sample is its whole part, as the roundings on the way are far too
// small to carry it across: k or one less, which the sign of n - k² tells. Where the root is whole they
// decide, and such vectors take the long way. Returns the number of pixels done.
std::size_t RgbToOffset16(const std::uint8_t* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst,
                          std::size_t count)
{
    using D = hn::ScalableTag<std::int32_t>;
    const D di;
    const hn::Repartition<std::uint8_t, D> d8;
    const hn::Repartition<std::int16_t, D> d16;
    const hn::Repartition<std::uint16_t, D> du16;
    const hn::Repartition<std::uint64_t, D> d64;
    using P = Pixels<D>;
    const std::size_t lanes = hn::Lanes(di);
    // Four pixels are 12 bytes: dwords 3 b to 3 b + 2 go to the 16-byte block b.
    alignas(64) std::int32_t spread[hn::MaxLanes(di)];
    for (std::size_t k = 0; k < lanes; ++k)
        spread[k] = std::int32_t(k / 4 * 3 + std::min<std::size_t>(k % 4, 2));
    const auto spreadIndex = hn::SetTableIndices(di, spread);
    alignas(16) static constexpr std::uint8_t kHalves[2][16] = {
        {0, 255, 1, 255, 3, 255, 4, 255, 6, 255, 7, 255, 9, 255, 10, 255},
        {2, 255, 255, 255, 5, 255, 255, 255, 8, 255, 255, 255, 11, 255, 255, 255}};
    const auto halves01 = hn::LoadDup128(d8, kHalves[0]);
    const auto halves2 = hn::LoadDup128(d8, kHalves[1]);
    const auto pixelsAt = [&](std::size_t at) HWY_ATTR {
        const auto bytes = hn::BitCast(di, hn::LoadU(d8, src + 3 * at));
        const auto x = hn::BitCast(d8, hn::TableLookupLanes(bytes, spreadIndex));
        return P{hn::BitCast(di, hn::TableLookupBytesOr0(x, halves01)),
                 hn::BitCast(di, hn::TableLookupBytesOr0(x, halves2))};
    };
    const auto inOrder = OrderOfPacked(d64);
    std::size_t i = 0;
    for (; 3 * (i + lanes) + hn::Lanes(d8) <= 3 * count; i += 2 * lanes) {
        fetchAhead(src + 3 * i);
        fetchAhead(src + 3 * i + 3 * lanes);
        fetchAheadToWrite(dst + i);
        const P p = pixelsAt(i), q = pixelsAt(i + lanes);
        const auto rootP = EstimateRoot(D(), p), rootQ = EstimateRoot(D(), q);
        const auto rest = hn::ReorderDemote2To(d16, rootP.rest, rootQ.rest);
        auto length = hn::Add(hn::ReorderDemote2To(d16, rootP.k, rootQ.k), hn::ShiftRight<15>(rest));
        if (HWY_UNLIKELY(!hn::AllFalse(d16, hn::Eq(rest, hn::Zero(d16)))))
            length = hn::ReorderDemote2To(d16, LengthByRoot(D(), p), LengthByRoot(D(), q));
        const auto ordered = hn::TableLookupLanes(hn::BitCast(d64, length), inOrder);
        hn::StoreU(hn::Xor(hn::BitCast(du16, ordered), hn::Set(du16, 0x8000)), du16, dst + i);
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps {

HWY_EXPORT(RgbToOffset16);

void rgbToOffset16(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst)
{
    const std::size_t count = std::min(src.size() / 3, dst.size());
    const std::size_t done = HWY_DYNAMIC_DISPATCH(RgbToOffset16)(src.data(), dst.data(), count);
    scalar::rgbToOffset16(src.subspan(3 * done), dst.subspan(done));
}

namespace scalar {

void rgbToOffset16(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst)
{
    constexpr float kUnit = 0.003921568859368563F;
    for (std::size_t i = 0; i < std::min(src.size() / 3, dst.size()); ++i) {
        const float a0 = float(src[3 * i]) * kUnit;
        const float a1 = float(src[3 * i + 1]) * kUnit;
        const float a2 = float(src[3 * i + 2]) * kUnit;
        const float m = std::sqrt((a1 * a1 + a0 * a0) + a2 * a2);
        dst[i] = static_cast<std::uint16_t>(m * 255.0 + 32768.0);
    }
}

}  // namespace scalar
}  // namespace scansteps
#endif
