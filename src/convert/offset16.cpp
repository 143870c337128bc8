#include "convert/offset16.h"

#include <algorithm>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/offset16.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// floor(v) + 32768 stands in for the truncated double sum, which saves the widening to double: the sum is
// exact but for |v| <= 2^-39, where it rounds to 32768.
void FloatToOffset16(const float* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst, std::size_t count)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const std::size_t lanes = hn::Lanes(df);
    const auto high = hn::Set(df, 32767.0F);
    const auto low = hn::Set(df, -32767.0F);
    const auto tiny = hn::Set(df, 0x1p-39F);
    const auto offset = hn::Set(di, 32768);
    const auto one = hn::Set(di, 1);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto v = hn::LoadU(df, src + i);
        const auto limited = hn::IfThenElse(hn::Lt(v, high), v, high);  // a NaN compares false
        const auto rounded = hn::IfThenElseZero(hn::Gt(hn::Abs(limited), tiny), limited);
        const auto sum = hn::Add(hn::ConvertTo(di, hn::Floor(rounded)), offset);
        const auto value = hn::IfThenElse(hn::RebindMask(di, hn::Ge(limited, low)), sum, one);
        hn::StoreU(hn::DemoteTo(du, value), du, dst + i);
    }
    scalar::floatToOffset16({src + i, count - i}, {dst + i, count - i});
}

void Offset16ToFloat(const std::uint16_t* HWY_RESTRICT src, float* HWY_RESTRICT dst, std::size_t count)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const auto offset = hn::Set(di, 32768);
    const std::size_t lanes = hn::Lanes(df);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto wide = hn::PromoteTo(di, hn::LoadU(du, src + i));
        hn::StoreU(hn::ConvertTo(df, hn::Sub(wide, offset)), df, dst + i);
    }
    scalar::offset16ToFloat({src + i, count - i}, {dst + i, count - i});
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps {

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
        dst[i] =
            v >= -32767.0F ? static_cast<std::uint16_t>(static_cast<double>(v) + 32768.0) : std::uint16_t{1};
    }
}

void offset16ToFloat(std::span<const std::uint16_t> src, std::span<float> dst)
{
    for (std::size_t i = 0; i < std::min(src.size(), dst.size()); ++i)
        dst[i] = static_cast<float>(static_cast<int>(src[i]) - 32768);
}

}  // namespace scalar
}  // namespace scansteps
#endif
