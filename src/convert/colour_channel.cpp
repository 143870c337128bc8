#include "convert/colour_channel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace scansteps {

void channelOfRgb(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, Channel channel,
                  const std::array<float, 3>& weights)
{
    const std::size_t count = std::min(src.size() / 3, dst.size());
    if (channel == Channel::luma) {
        for (std::size_t i = 0; i < count; ++i)
            dst[i] = std::uint16_t(
                32768 + (299 * src[3 * i] + 587 * src[3 * i + 1] + 114 * src[3 * i + 2] + 500) / 1000);
    } else if (channel == Channel::mixture) {
        for (std::size_t i = 0; i < count; ++i) {
            const float sum = weights[0] * float(src[3 * i]) + weights[1] * float(src[3 * i + 1]) +
                              weights[2] * float(src[3 * i + 2]);
            const float limited = sum == sum ? std::clamp(sum, -32768.0F, 32767.0F) : 0.0F;
            dst[i] = std::uint16_t(int(std::floor(limited + 0.5F)) + 32768);
        }
    } else {
        const auto offset = std::size_t(channel);
        for (std::size_t i = 0; i < count; ++i) dst[i] = std::uint16_t(32768 + src[3 * i + offset]);
    }
}

void lumaOfYuyv(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst)
{
    for (std::size_t i = 0; i < std::min(src.size(), dst.size()); ++i)
        dst[i] = std::uint16_t(32768 + (src[i] & 255));
}

}  // namespace scansteps
