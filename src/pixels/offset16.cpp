// Vectorised and scalar conversions between float planes and offset 16-bit samples.
#include "pixels/offset16.h"

#include <algorithm>
#include <cstddef>

#include "core/prefetch.h"
#include "core/sample_values.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/offset16.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "pixels/bytes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Truncating the sum, which is not negative, rounds v toward minus infinity. AVX-512 has an instruction for
// that.
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int32_t> FloorToInt(hn::Vec512<float> v)
{
    return hn::Vec512<std::int32_t>{
        _mm512_cvt_roundps_epi32(v.raw, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC)};
}
#else
template <class V>
auto FloorToInt(V v)
{
    return hn::ConvertTo(hn::RebindToSigned<hn::DFromV<V> >(), hn::Floor(v));
}
#endif

// floor(v) replaces the truncated double sum minus 32768, which avoids widening to double. The sum is exact
// except for |v| <= 2^-39, where it rounds to 32768; adding 2^-39 first gives the same result and changes no
// other v. Packing two vectors interleaves them in 8-byte pieces, which a permutation puts back in order.
void FloatToOffset16(const float* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst, std::size_t count)
{
    const hn::ScalableTag<float> df;
    const hn::Repartition<std::int16_t, decltype(df)> d16;
    const hn::Repartition<std::uint16_t, decltype(df)> du16;
    const hn::Repartition<std::uint64_t, decltype(df)> d64;
    const std::size_t lanes = hn::Lanes(df);
    const auto high = hn::Set(df, 32767.0F);
    const auto low = hn::Set(df, -32767.0F);
    const auto tiny = hn::Set(df, 0x1p-39F);
    const auto offset = hn::Set(du16, 0x8000);
    const auto inOrder = OrderOfPacked(d64);
    const auto convert = [&](const float* from) HWY_ATTR {
        prefetch(from);
        const auto v = hn::LoadU(df, from);
        const auto limited = hn::Max(hn::IfThenElse(hn::Lt(v, high), v, high), low);  // NaN compares false
        return FloorToInt(hn::Add(limited, tiny));
    };
    std::size_t i = 0;
    for (; i + 2 * lanes <= count; i += 2 * lanes) {
        prefetchForWriting(dst + i);
        const auto packed = hn::ReorderDemote2To(d16, convert(src + i), convert(src + i + lanes));
        const auto ordered = hn::TableLookupLanes(hn::BitCast(d64, packed), inOrder);
        hn::StoreU(hn::Xor(hn::BitCast(du16, ordered), offset), du16, dst + i);
    }
    scalar::floatToOffset16({src + i, count - i}, {dst + i, count - i});
}

void Offset16ToFloat(const std::uint16_t* HWY_RESTRICT src, float* HWY_RESTRICT dst, std::size_t count)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const auto offset = hn::Set(di, kOffset16Zero);
    const std::size_t lanes = hn::Lanes(df);
    std::size_t i = 0;
    for (; i + 2 * lanes <= count; i += 2 * lanes) {
        prefetch(src + i);
        for (std::size_t k = i; k < i + 2 * lanes; k += lanes) {
            const auto wide = hn::PromoteTo(di, hn::LoadU(du, src + k));
            prefetchForWriting(dst + k);
            hn::StoreU(hn::ConvertTo(df, hn::Sub(wide, offset)), df, dst + k);
        }
    }
    scalar::offset16ToFloat({src + i, count - i}, {dst + i, count - i});
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::pixels {

HWY_EXPORT(FloatToOffset16);
HWY_EXPORT(Offset16ToFloat);

void floatToOffset16(std::span<const float> src, std::span<std::uint16_t> dst)
{
    HWY_DYNAMIC_DISPATCH(FloatToOffset16)(src.data(), dst.data(), std::min(src.size(), dst.size()));
}

void offset16ToFloat(std::span<const std::uint16_t> src, std::span<float> dst)
{
    HWY_DYNAMIC_DISPATCH(Offset16ToFloat)(src.data(), dst.data(), std::min(src.size(), dst.size()));
}

namespace scalar {

void floatToOffset16(std::span<const float> src, std::span<std::uint16_t> dst)
{
    for (std::size_t i = 0; i < std::min(src.size(), dst.size()); ++i) {
        const float v = src[i] < 32767.0F ? src[i] : 32767.0F;
        dst[i] = v >= -32767.0F ? static_cast<std::uint16_t>(static_cast<double>(v) + kOffset16Zero)
                                : std::uint16_t{1};
    }
}

void offset16ToFloat(std::span<const std::uint16_t> src, std::span<float> dst)
{
    for (std::size_t i = 0; i < std::min(src.size(), dst.size()); ++i)
        dst[i] = static_cast<float>(static_cast<int>(src[i]) - kOffset16Zero);
}

}  // namespace scalar
}  // namespace scansteps::pixels
#endif
