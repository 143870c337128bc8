// Vectorised length of the colour vector, bit-exact with the scalar version.
#include "pixels/colour_length.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "core/prefetch.h"
#include "core/sample_values.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/colour_length.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "pixels/bytes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// floor(255 m) for m in [0, 2] without widening to double: 255 m = 256 m - m is rounded toward zero once,
// which keeps the integer part of the exact product.
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int32_t> Floor255(hn::Vec512<float> m)
{
    const __m512 m256 = _mm512_mul_ps(m.raw, _mm512_set1_ps(256.0F));
    const __m512 cut = _mm512_sub_round_ps(m256, m.raw, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return hn::Vec512<std::int32_t>{_mm512_cvttps_epi32(cut)};
}
#else
// The rounding error (Fast2Sum, exact because 256 m is the larger operand) tells whether an integral result
// was rounded up.
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

// The documented sample minus 32768, for any colour.
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

// The integer k nearest to an approximate root of n = c0² + c1² + c2² (error at most 0.2), minus 32768, and
// the sign of n - k² (0 where the root is an integer), both still to be clamped to 16 bits.
template <class D>
struct Estimate
{
    hn::Vec<D> k, sign;
};

template <class D>
Estimate<D> EstimateRoot(D di, const Pixels<D>& p)
{
    const hn::RebindToFloat<D> df;
    const hn::Repartition<std::int16_t, D> d16;
    const auto squares = [&](hn::Vec<D> pairs) HWY_ATTR {
        auto odd = hn::Zero(di);
        const auto halves = hn::BitCast(d16, pairs);
        const auto sum = hn::ReorderWidenMulAccumulate(di, halves, halves, hn::Zero(di), odd);
        return hn::RearrangeToOddPlusEven(sum, odd);
    };
    const auto n = hn::ConvertTo(df, hn::Add(squares(p.c01), squares(p.c2)));
    const auto magic = hn::Set(df, 0x1p23F);  // adding it rounds to an integer
#if HWY_ARCH_X86
    // Black gives a negative NaN, which clamps to -32768 in both results; their saturated sum is -32768
    // again.
    const auto rounded = hn::MulAdd(n, hn::ApproximateReciprocalSqrt(n), magic);
#else
    const auto rounded = hn::Add(hn::Sqrt(n), magic);  // estimates are less accurate on other architectures
#endif
    const auto k = hn::Sub(rounded, magic);
    const auto rest = hn::NegMulAdd(k, k, n);
    return {hn::Sub(hn::BitCast(di, rounded), hn::Set(di, 0x4B000000 + kOffset16Zero)),
            hn::BitCast(di, rest)};
}

// Where the root of n is not an integer, the sample is its integer part, because the rounding errors are far
// too small to cross an integer: k or k - 1, depending on the sign of n - k². Where the root is an integer
// the rounding errors decide. Such pixels are rare (one in 300 of a photograph); a bit marks each of them,
// and they are computed one by one after each block, which avoids a branch per vector. Returns the number of
// pixels converted.
std::size_t ColourLength(const std::uint8_t* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst,
                         std::size_t count)
{
    using D = hn::ScalableTag<std::int32_t>;
    const D di;
    const hn::Repartition<std::uint8_t, D> d8;
    const hn::Repartition<std::int16_t, D> d16;
    const hn::Repartition<std::uint64_t, D> d64;
    using P = Pixels<D>;
    using Samples = hn::Vec<decltype(d16)>;
    const std::size_t lanes = hn::Lanes(di), step = 2 * lanes;
    // Four pixels take 12 bytes: dwords 3 b to 3 b + 2 go to 16-byte block b.
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
    std::uint8_t pixelOf[hn::MaxLanes(d16)];  // pixel number of each packed lane
    for (std::size_t k = 0; k < step; ++k)
        pixelOf[k] = std::uint8_t(k / 8 * 4 + k % 4 + (k % 8 < 4 ? 0 : lanes));
    const auto store = [&](Samples lengths, std::size_t at) HWY_ATTR {
        const auto ordered = hn::TableLookupLanes(hn::BitCast(d64, lengths), inOrder);
        hn::StoreU(hn::BitCast(d16, ordered), d16, reinterpret_cast<std::int16_t*>(dst + at));
    };

    constexpr std::size_t kWord = 64, kBlock = 256 * kWord;  // pixels
    std::uint8_t whole[kBlock / 8];                          // one bit per packed lane
    const auto settle = [&](std::size_t first, std::size_t last, std::uint64_t bits) HWY_ATTR {
        if (HWY_UNLIKELY(std::popcount(bits) > 16)) {
            for (std::size_t at = first; at < last; at += step) {
                const P p = pixelsAt(at), q = pixelsAt(at + lanes);
                const auto lengths = hn::ReorderDemote2To(d16, LengthByRoot(D(), p), LengthByRoot(D(), q));
                store(hn::Xor(lengths, hn::Set(d16, std::int16_t{-0x8000})), at);
            }
            return;
        }
        for (; bits != 0; bits &= bits - 1) {
            const std::size_t lane = std::size_t(std::countr_zero(bits));
            const std::size_t pixel = first + lane / step * step + pixelOf[lane % step];
            dst[pixel] = scalar::colourLength(src + 3 * pixel);
        }
    };

    // Only pixels whose vector loads stay within the source; the last loads read past their pixels.
    const std::size_t bytes = 3 * count, margin = 3 * lanes + hn::Lanes(d8);
    const std::size_t all = bytes < margin ? 0 : ((bytes - margin) / (3 * step) + 1) * step;
    for (std::size_t first = 0; first < all; first += kBlock) {
        const std::size_t last = std::min(first + kBlock, all);
        std::uint8_t* bits = whole;
        for (std::size_t i = first; i < last; i += step) {
            prefetch(src + 3 * i);
            prefetch(src + 3 * i + 3 * lanes);
            prefetchForWriting(dst + i);
            const auto p = EstimateRoot(di, pixelsAt(i)), q = EstimateRoot(di, pixelsAt(i + lanes));
            const auto sign = hn::ReorderDemote2To(d16, p.sign, q.sign);
            store(hn::SaturatedAdd(hn::ReorderDemote2To(d16, p.k, q.k), hn::ShiftRight<15>(sign)), i);
            bits += hn::StoreMaskBits(d16, hn::Eq(sign, hn::Zero(d16)), bits);
        }
        std::fill(bits, whole + hwy::RoundUpTo(std::size_t(bits - whole), kWord / 8), std::uint8_t{0});
        for (std::size_t at = first; at < last; at += kWord) {
            std::uint64_t word;
            std::memcpy(&word, whole + (at - first) / 8, sizeof(word));
            settle(at, std::min(at + kWord, last), word);
        }
    }
    return all;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::pixels {

HWY_EXPORT(ColourLength);

void colourLength(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst)
{
    const std::size_t count = std::min(src.size() / 3, dst.size());
    const std::size_t done = HWY_DYNAMIC_DISPATCH(ColourLength)(src.data(), dst.data(), count);
    scalar::colourLength(src.subspan(3 * done), dst.subspan(done));
}

namespace scalar {

void colourLength(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst)
{
    for (std::size_t i = 0; i < std::min(src.size() / 3, dst.size()); ++i) dst[i] = colourLength(&src[3 * i]);
}

}  // namespace scalar
}  // namespace scansteps::pixels
#endif
