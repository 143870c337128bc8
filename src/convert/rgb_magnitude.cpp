#include "convert/rgb_magnitude.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "framework/fetch_ahead.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/rgb_magnitude.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

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

// Returns the number of pixels done.
std::size_t RgbToOffset16(const std::uint8_t* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst,
                          std::size_t count)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::RebindToUnsigned<decltype(df)> du;
    const hn::Repartition<std::uint8_t, decltype(df)> d8;
    const hn::Rebind<std::uint16_t, decltype(df)> dOut;
    const std::size_t lanes = hn::Lanes(df);
    // Four pixels are 12 bytes: dwords 3 b to 3 b + 2 go to the 16-byte block b.
    alignas(64) std::uint32_t spread[hn::MaxLanes(du)];
    for (std::size_t k = 0; k < lanes; ++k)
        spread[k] = std::uint32_t(k / 4 * 3 + std::min<std::size_t>(k % 4, 2));
    const auto spreadIndex = hn::SetTableIndices(du, spread);
    alignas(16) static constexpr std::uint8_t kBytes[3][16] = {
        {0, 255, 255, 255, 3, 255, 255, 255, 6, 255, 255, 255, 9, 255, 255, 255},
        {1, 255, 255, 255, 4, 255, 255, 255, 7, 255, 255, 255, 10, 255, 255, 255},
        {2, 255, 255, 255, 5, 255, 255, 255, 8, 255, 255, 255, 11, 255, 255, 255}};
    const auto index0 = hn::LoadDup128(d8, kBytes[0]);
    const auto index1 = hn::LoadDup128(d8, kBytes[1]);
    const auto index2 = hn::LoadDup128(d8, kBytes[2]);
    const auto unit = hn::Set(df, 0.003921568859368563F);
    std::size_t i = 0;
    for (; 3 * i + hn::Lanes(d8) <= 3 * count; i += lanes) {
        fetchAhead(src + 3 * i);
        const auto bytes = hn::LoadU(d8, src + 3 * i);
        const auto x = hn::BitCast(d8, hn::TableLookupLanes(hn::BitCast(du, bytes), spreadIndex));
        const auto component = [&](auto index) HWY_ATTR {
            return hn::Mul(hn::ConvertTo(df, hn::BitCast(di, hn::TableLookupBytesOr0(x, index))), unit);
        };
        const auto a0 = component(index0), a1 = component(index1), a2 = component(index2);
        const auto m = hn::Sqrt(hn::Add(hn::Add(hn::Mul(a1, a1), hn::Mul(a0, a0)), hn::Mul(a2, a2)));
        const auto sample = hn::Add(Floor255(m), hn::Set(di, 32768));
        hn::StoreU(hn::DemoteTo(dOut, sample), dOut, dst + i);
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
