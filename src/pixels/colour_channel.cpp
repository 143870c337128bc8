// Vectorised and scalar extraction of a channel, luma or a mixture.
#include "pixels/colour_channel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/sample_values.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/colour_channel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_COLOUR_CHANNEL_KERNELS
#define SCANSTEPS_COLOUR_CHANNEL_KERNELS
namespace scansteps::pixels {

// Kernels for a run of pixels. Each returns the number of pixels converted; the caller handles the rest.
struct ChannelKernels
{
    std::size_t (*take)(const std::uint8_t* src, std::uint16_t* dst, std::size_t count, std::size_t channel);
    std::size_t (*luma)(const std::uint8_t* src, std::uint16_t* dst, std::size_t count);
    std::size_t (*mix)(const std::uint8_t* src, std::uint16_t* dst, std::size_t count, const float* weights);
    std::size_t (*lowBytes)(const std::uint16_t* src, std::uint16_t* dst, std::size_t count);
};

}  // namespace scansteps::pixels
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using I32 = hn::ScalableTag<std::int32_t>;
using F32 = hn::RebindToFloat<I32>;
using U16 = hn::Rebind<std::uint16_t, I32>;
using U8 = hn::Rebind<std::uint8_t, I32>;

struct ChannelVectors
{
    hn::Vec<I32> red, green, blue;
};

HWY_INLINE ChannelVectors LoadChannels(const std::uint8_t* src)
{
    hn::Vec<U8> r, g, b;
    hn::LoadInterleaved3(U8(), src, r, g, b);
    return {hn::PromoteTo(I32(), r), hn::PromoteTo(I32(), g), hn::PromoteTo(I32(), b)};
}

// Values are -32768 to 32767.
HWY_INLINE void StoreOffset(hn::Vec<I32> value, std::uint16_t* dst)
{
    hn::StoreU(hn::DemoteTo(U16(), hn::Add(value, hn::Set(I32(), kOffset16Zero))), U16(), dst);
}

std::size_t TakeChannel(const std::uint8_t* src, std::uint16_t* dst, std::size_t count, std::size_t channel)
{
    const std::size_t lanes = hn::Lanes(I32());
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const ChannelVectors p = LoadChannels(src + 3 * i);
        StoreOffset(channel == 0 ? p.red : channel == 1 ? p.green : p.blue, dst + i);
    }
    return i;
}

std::size_t LumaOfPixels(const std::uint8_t* src, std::uint16_t* dst, std::size_t count)
{
    const I32 d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const ChannelVectors p = LoadChannels(src + 3 * i);
        const auto sum = hn::Add(hn::Add(hn::Mul(p.red, hn::Set(d, 299)), hn::Mul(p.green, hn::Set(d, 587))),
                                 hn::Add(hn::Mul(p.blue, hn::Set(d, 114)), hn::Set(d, 500)));
        // Division by 1000: by 8, then by 125 as 33555 / 2^22, exact for every possible quotient.
        const auto mean = hn::ShiftRight<22>(hn::Mul(hn::ShiftRight<3>(sum), hn::Set(d, 33555)));
        StoreOffset(mean, dst + i);
    }
    return i;
}

std::size_t MixChannels(const std::uint8_t* src, std::uint16_t* dst, std::size_t count, const float* weights)
{
    const F32 d;
    const std::size_t lanes = hn::Lanes(d);
    const auto r = hn::Set(d, weights[0]);
    const auto g = hn::Set(d, weights[1]);
    const auto b = hn::Set(d, weights[2]);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const ChannelVectors p = LoadChannels(src + 3 * i);
        const auto sum =
            hn::Add(hn::Add(hn::Mul(r, hn::ConvertTo(d, p.red)), hn::Mul(g, hn::ConvertTo(d, p.green))),
                    hn::Mul(b, hn::ConvertTo(d, p.blue)));
        const auto number = hn::IfThenElseZero(hn::Eq(sum, sum), sum);
        const auto limited = hn::Min(hn::Max(number, hn::Set(d, -32768.0F)), hn::Set(d, 32767.0F));
        StoreOffset(hn::ConvertTo(I32(), hn::Floor(hn::Add(limited, hn::Set(d, 0.5F)))), dst + i);
    }
    return i;
}

std::size_t LowBytesOfSamples(const std::uint16_t* src, std::uint16_t* dst, std::size_t count)
{
    const hn::ScalableTag<std::uint16_t> d;
    const auto low = hn::Set(d, std::uint16_t{255});
    const auto offset = hn::Set(d, kOffset16Zero);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(hn::Or(hn::And(hn::LoadU(d, src + i), low), offset), d, dst + i);
    return i;
}

ChannelKernels ChannelRows()
{
    return {TakeChannel, LumaOfPixels, MixChannels, LowBytesOfSamples};
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::pixels {

HWY_EXPORT(ChannelRows);

void channelOfRgb(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, Channel channel,
                  const std::array<float, 3>& weights)
{
    const std::size_t count = std::min(src.size() / 3, dst.size());
    const ChannelKernels kernels = HWY_DYNAMIC_DISPATCH(ChannelRows)();
    std::size_t done = 0;
    if (channel == Channel::luma)
        done = kernels.luma(src.data(), dst.data(), count);
    else if (channel == Channel::mixture)
        done = kernels.mix(src.data(), dst.data(), count, weights.data());
    else
        done = kernels.take(src.data(), dst.data(), count, std::size_t(channel));
    scalar::channelOfRgb(src.subspan(3 * done), dst.subspan(done), channel, weights);
}

void lumaOfYuyv(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst)
{
    const std::size_t count = std::min(src.size(), dst.size());
    const std::size_t done = HWY_DYNAMIC_DISPATCH(ChannelRows)().lowBytes(src.data(), dst.data(), count);
    scalar::lumaOfYuyv(src.subspan(done), dst.subspan(done));
}

namespace scalar {

void channelOfRgb(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, Channel channel,
                  const std::array<float, 3>& weights)
{
    const std::size_t count = std::min(src.size() / 3, dst.size());
    if (channel == Channel::luma) {
        for (std::size_t i = 0; i < count; ++i)
            dst[i] =
                std::uint16_t(kOffset16Zero +
                              (299 * src[3 * i] + 587 * src[3 * i + 1] + 114 * src[3 * i + 2] + 500) / 1000);
    } else if (channel == Channel::mixture) {
        for (std::size_t i = 0; i < count; ++i) {
            const float sum = weights[0] * float(src[3 * i]) + weights[1] * float(src[3 * i + 1]) +
                              weights[2] * float(src[3 * i + 2]);
            const float limited = sum == sum ? std::clamp(sum, -32768.0F, 32767.0F) : 0.0F;
            dst[i] = std::uint16_t(int(std::floor(limited + 0.5F)) + kOffset16Zero);
        }
    } else {
        const auto offset = std::size_t(channel);
        for (std::size_t i = 0; i < count; ++i) dst[i] = std::uint16_t(kOffset16Zero + src[3 * i + offset]);
    }
}

void lumaOfYuyv(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst)
{
    for (std::size_t i = 0; i < std::min(src.size(), dst.size()); ++i)
        dst[i] = std::uint16_t(kOffset16Zero + (src[i] & 255));
}

}  // namespace scalar
}  // namespace scansteps::pixels
#endif
