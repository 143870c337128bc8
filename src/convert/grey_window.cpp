#include "convert/grey_window.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/grey_window.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// 255 v + 127.5 is needed as exactly as the double sum, without widening: 256 v - v and the sum are rounded,
// and both rounding errors are kept (Fast2Sum, exact because the first operand is the larger one); a result
// that came out whole is one too many when the errors are negative. Beyond |v| = 0.5 lie only 0 and 255.
template <class D>
hn::Vec<D> Grey(D df, hn::Vec<D> v)
{
    const auto x = hn::Max(hn::Min(v, hn::Set(df, 0.5F)), hn::Set(df, -0.5F));
    const auto x256 = hn::Mul(x, hn::Set(df, 256.0F));
    const auto product = hn::Sub(x256, x);
    const auto productError = hn::Sub(hn::Sub(x256, product), x);
    const auto half = hn::Set(df, 127.5F);
    const auto sum = hn::Add(half, product);
    const auto error = hn::Add(hn::Sub(product, hn::Sub(sum, half)), productError);
    const auto whole = hn::Floor(sum);
    const auto down = hn::And(hn::Eq(whole, sum), hn::Lt(error, hn::Zero(df)));
    return hn::Sub(whole, hn::IfThenElseZero(down, hn::Set(df, 1.0F)));
}

// Returns the number of samples done; the level must lie within +-2^24.
std::size_t GreyWindow(const std::uint16_t* HWY_RESTRICT src, std::uint8_t* HWY_RESTRICT dst,
                       std::size_t count, float scale, std::int32_t level)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> d16;
    const hn::Rebind<std::uint8_t, decltype(df)> d8;
    const auto offset = hn::Set(di, 32768 + level);
    const auto factor = hn::Set(df, scale);
    const std::size_t lanes = hn::Lanes(df);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto s = hn::Sub(hn::PromoteTo(di, hn::LoadU(d16, src + i)), offset);
        const auto v = hn::Mul(hn::ConvertTo(df, s), factor);
        const auto grey = hn::DemoteTo(d8, hn::ConvertTo(di, Grey(df, v)));
        hn::StoreInterleaved3(grey, grey, grey, d8, dst + 3 * i);
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps {

HWY_EXPORT(GreyWindow);

void greyWindow(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::int32_t window,
                std::int32_t level)
{
    const std::size_t count = std::min(src.size(), dst.size() / 3);
    const float scale = window != 0 ? 1.0F / static_cast<float>(window) : 1.0F;
    std::size_t done = 0;
    if (level > -(1 << 24) && level < 1 << 24)
        done = HWY_DYNAMIC_DISPATCH(GreyWindow)(src.data(), dst.data(), count, scale, level);
    scalar::greyWindow(src.subspan(done), dst.subspan(3 * done), window, level);
}

namespace scalar {

void greyWindow(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::int32_t window,
                std::int32_t level)
{
    const float scale = window != 0 ? 1.0F / static_cast<float>(window) : 1.0F;
    for (std::size_t i = 0; i < std::min(src.size(), dst.size() / 3); ++i) {
        const float v = static_cast<float>(std::int64_t{src[i]} - 32768 - level) * scale;
        const double grey = std::min(std::max((v + 0.5) * 255.0, 0.0), 255.0);
        dst[3 * i] = dst[3 * i + 1] = dst[3 * i + 2] = static_cast<std::uint8_t>(grey);
    }
}

}  // namespace scalar
}  // namespace scansteps
#endif
